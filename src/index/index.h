#ifndef TABLEDB_INDEX_INDEX_H
#define TABLEDB_INDEX_INDEX_H

#include "numeric/decimal.h"
#include "table/record.h"

#include <QElapsedTimer>
#include <QList>
#include <QString>

class Table;

// A view of a table's rows that the table keeps informed. The table knows an
// index only through these virtual operations and calls them, one index after
// the other, on the thread that applies a change (see Table).
class TABLEDB_EXPORT Index
{
public:
    Index();
    Index(const Index &other) = default;
    Index &operator=(const Index &other) = default;
    virtual ~Index();

    // Forget all rows.
    virtual void clear() = 0;
    // Fill from the table's master index.
    virtual void build() = 0;
    // clear() then build().
    virtual void rebuild();
    // The row is new to this index and has passed filter() where tested.
    virtual void add(const Record &record) = 0;
    // Old values are in `updated`, new ones in `changed` (element by element).
    virtual void preprocess(const QList<Record> &removed, const QList<Record> &updated, int first,
                            int last, const QList<Record> &inserted,
                            const QList<Record> &changed);
    // A batch after the rows took their new values: removes, updates, then the
    // inserted rows that pass filter(), and the time statistics.
    virtual void process(const QList<Record> &removed, const QList<Record> &updated, int first,
                         int last, const QList<Record> &inserted);
    // `index` is a position hint, -1 when unknown.
    virtual void remove(const Record &record, int index) = 0;
    virtual bool filter(const Record &record) const = 0;
    virtual bool contains(const Record &record) const = 0;
    // remove(), then add() if filter() accepts the row.
    virtual void update(const Record &record, int first, int last, int index);
    virtual int indexOf(const Record &record) const;
    virtual void beginUpdate();
    virtual void endUpdate();
    virtual void dependentBeginUpdate(Table *table);
    virtual void dependentEndUpdate(Table *table);
    // Vocabulary, not a debugging aid: TableIndexRebuilder groups by it.
    virtual QString getClassName() const = 0;

    int64 nsecsElapsed() const { return m_nsecsElapsed; }
    void setNsecsElapsed(const int64 &nsecs) { m_nsecsElapsed = nsecs; }
    // Summed over all indexes without synchronisation; additions may be lost.
    static int64 nsecsElapsedTotal() { return m_nsecsElapsedTotal; }
    // This index's share of nsecsElapsedTotal(), in percent with two decimals.
    decimal percentElapsed() const;

protected:
    QElapsedTimer timer; // restarted at the start of each batch
    int64 m_nsecsElapsed;
    static int64 m_nsecsElapsedTotal;
};

// Stands beside an Index base in a class that drives other indexes: the
// forwarders pass each call on to the dependents in the order of their addition.
class TABLEDB_EXPORT IndexDependBase
{
public:
    explicit IndexDependBase(Index *baseIndex) : m_baseIndex(baseIndex) { }

    Index *baseIndex() const { return m_baseIndex; }
    QList<Index *> dependentIndexes() const { return m_dependentIndexes; }
    // A second addition of the same index gives a second entry.
    void addDependentIndex(Index *index) { m_dependentIndexes.append(index); }
    // Removes the first entry of `index`, if any.
    void removeDependentIndex(Index *index) { m_dependentIndexes.removeOne(index); }

protected:
    void build();
    void clear();
    void add(const Record &record);
    void remove(const Record &record, int index);
    void update(const Record &record, int first, int last, int index);
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int first,
                    int last, const QList<Record> &inserted, const QList<Record> &changed);
    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                 const QList<Record> &inserted);

private:
    Index *m_baseIndex; // not owned
    QList<Index *> m_dependentIndexes; // not owned
};

// The indexes built on Index alone.
#include "index/indexvector.h"
#include "index/watchindex.h"

#endif // TABLEDB_INDEX_INDEX_H
