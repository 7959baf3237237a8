#ifndef TABLEDB_NUMERIC_STRINGPOOL_H
#define TABLEDB_NUMERIC_STRINGPOOL_H

#include "runtime/global.h"

#include <QHash>
#include <QMutex>
#include <QObject>
#include <QString>

#include <unordered_set>

// Interned strings: cells of text columns that repeat share one QString data
// block. A string that no cell uses any more is one whose data block is held
// by the pool alone; shrink() drops those, nothing else ever does.
//
// insert() and shrink() are thread-safe; size() and ref_count() take no lock
// and are for statistics and tests.
class TABLEDB_EXPORT StringPool : public QObject
{
    Q_OBJECT

public:
    explicit StringPool(QObject *parent = nullptr);
    ~StringPool() override;

    // The pooled string equal to `s`, inserted if absent. The reference stays
    // valid until shrink() removes the element. A string already present costs
    // one hash and a compare and allocates nothing.
    const QString &insert(const QString &s);
    const QString &insert(QString &&s);

    uint64 size() const;
    // The reference count of the pooled string equal to `s`, the pool's own
    // reference included; -1 for a static string, 0 when absent.
    int ref_count(const QString &s) const;
    // Removes every string that only the pool still holds.
    void shrink();

    // The shared pool, built at library start.
    static StringPool *global();

private:
    struct Hash
    {
        size_t operator()(const QString &s) const { return qHash(s, 0); }
    };

    std::unordered_set<QString, Hash> m_strings;
    QMutex m_mutex; // guards insert() and shrink()

    // Its raw-text insertion runs without the mutex, for single-writer callers.
    friend class FieldType;

    Q_DISABLE_COPY(StringPool)
};

#endif // TABLEDB_NUMERIC_STRINGPOOL_H
