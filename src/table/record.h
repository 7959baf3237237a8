#ifndef TABLEDB_TABLE_RECORD_H
#define TABLEDB_TABLE_RECORD_H

#include "table/field.h"

#include <QMetaType>
#include <QString>

class Table;

// The counted handle to a row block. A Record is one pointer; null is allowed.
// Equality and ordering go by address (identity), never by key: key order comes
// from the table's master index. Copies may be made and dropped on any thread;
// the last one frees the row through the table of its back pointer.
class TABLEDB_EXPORT Record
{
public:
    Record() : m_row(nullptr) { }
    Record(const Record &other) : m_row(other.m_row)
    {
        if (m_row)
            acquire(m_row);
    }
    Record(Record &&other) noexcept : m_row(other.m_row) { other.m_row = nullptr; }
    // A new row of `table`, counted one, in no index until append(). Null if
    // the allocation failed.
    explicit Record(const Table *table);
    // The row of `key` in `table`'s master index, or null.
    Record(const Table *table, const QString &key);
    ~Record()
    {
        if (m_row)
            release(m_row);
    }

    Record &operator=(const Record &other);
    Record &operator=(Record &&other) noexcept
    {
        qSwap(m_row, other.m_row);
        return *this;
    }

    // A copy of the row, counted one. REQUIRES: not null.
    Record clone() const;
    // Copies cells and null bits; no index is told.
    void copy(const Record &other);
    void copy(const Record &other, int first, int last);

    // No bounds check: an unknown name reads out of range, so test
    // Table::columnExists first. A const handle still writes the shared row.
    // By number inline: every compare and key prefix starts here.
    inline Field data(int column);
    Field data(const QString &name);
    inline Field data(int column) const;
    Field data(const QString &name) const;

    Table *table();
    const Table *table() const;
    unsigned char *rowPtr() { return m_row; }
    const unsigned char *rowPtr() const { return m_row; }
    unsigned char *pointer() const { return m_row; }

    explicit operator bool() const { return m_row != nullptr; }
    bool isNull() const { return m_row == nullptr; }
    bool operator==(const Record &o) const { return m_row == o.m_row; }
    bool operator!=(const Record &o) const { return m_row != o.m_row; }
    bool operator<(const Record &o) const { return m_row < o.m_row; }
    bool operator>(const Record &o) const { return m_row > o.m_row; }
    // Difference of the row addresses: an identity order, not a key order.
    int64 compare(const Record &o) const { return int64(m_row - o.m_row); }

    // Whether the table's master index holds this row.
    bool inTable() const;
    // The master index's text of the row's key; empty for a null row.
    QString toString() const;
    // "table:(ptr:0x... ref:N) { name=value ... }"; "{ NULL }" for a null row.
    QString dump(bool skipNull = false) const;

    void append() const;
    void remove() const;
    void updated() const;
    void updated(int column) const;
    void updated(int first, int last) const;

    static const Record null;

protected:
    // Adopts a non-null row and counts one.
    explicit Record(unsigned char *row) : m_row(row) { acquire(m_row); }

private:
    static void acquire(unsigned char *row);
    static void release(unsigned char *row);

    unsigned char *m_row;

    friend class Table;
    friend class RecordPrivate;
};

Q_DECLARE_TYPEINFO(Record, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(Record)

#endif // TABLEDB_TABLE_RECORD_H

// The table's definition, for the inline cell access: table.h defines it when
// this header came first, and defines Record::data() in either case.
#include "table/table.h"

