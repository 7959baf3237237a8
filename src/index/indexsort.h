#ifndef TABLEDB_INDEX_INDEXSORT_H
#define TABLEDB_INDEX_INDEXSORT_H

#include "index/indexlist.h"

#include <QMap>
#include <QVector>

#include <utility>

// An index whose rows stand in the order of compare(): for two neighbours a
// before b, compare(a, b) <= 0. Equal keys are allowed and keep their order of
// arrival; a new row goes behind the rows of its key, and sorting is stable.
//
// Between a change of a row and the process() or update() that reports it, the
// order may not hold for that row; every search by identity copes with that.
class TABLEDB_EXPORT IndexSort : public IndexList
{
public:
    // The order as a less-than predicate, for the sorts.
    class LessThan
    {
    public:
        explicit LessThan(const IndexSort *index) : m_index(index) { }
        bool operator()(const Record &a, const Record &b) const
        {
            return m_index->compare(a, b) < 0;
        }

    private:
        const IndexSort *m_index;
    };

    IndexSort(Table *table, bool registered);
    IndexSort(const QString &tableName, bool registered);

    // Negative, 0 or positive. Must accept any two rows of the table, also rows
    // that are in no index, and must be safe on several threads at once: the
    // parallel sort calls it from pool threads. Must not write.
    virtual int compare(const Record &a, const Record &b) const = 0;

    // In the searches `from` is exclusive (-1 searches everything) and -1 as a
    // result means not found. O(log n) compares; they allocate nothing.

    // The row at search(record, from), or an empty Record.
    virtual Record find(const Record &record, int from) const;
    // The first row of an equal key after `from`.
    virtual int search(const Record &record, int from) const;
    // The last row of an equal key after `from`.
    virtual int searchLast(const Record &record, int from) const;
    // A linear walk for an order the key doesn't follow. The result counts the
    // rows stepped over from `from` + 1, so it is a position only for from = -1;
    // callers depend on that offset, so it is kept.
    virtual int searchFull(const Record &record, int from) const;
    // A full stable sort; does nothing on an empty index.
    virtual void resort();

    // IndexList::build(), then resort().
    void build() override;
    // Inserts behind the rows of an equal key; filter() is the caller's affair.
    void add(const Record &record) override;
    // Re-places one row. With index -1 the row is looked for by key and, if its
    // key has moved, by a linear scan, which logs a warning.
    void update(const Record &record, int first, int last, int index) override;
    // Finds a row even if its key changed since it was placed (linear fallback).
    int indexOf(const Record &record) const override;
    // One batch: finds all affected rows at once, removes in one pass, sorts
    // what comes in and inserts it with one block insertion per place.
    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                 const QList<Record> &inserted) override;
    QString getClassName() const override;

    // Positions of many rows at once. REQUIRES: `records` ordered by row
    // address. Rows found by key get their positions; the others are matched
    // by a walk that may also enter rows nobody asked for, and whatever is
    // left gets -1. Batch maintenance relies on exactly this behaviour.
    QMap<Record, int> indexOfs(QList<Record> records) const;

protected:
    // Where a new row of this key goes: behind all rows of an equal key.
    int indexOfAdd(const Record &record) const;

private:
    // A row's position as indexOfs() gives it, kept in a flat array by row
    // address: batch maintenance looks rows up without a map node per row.
    struct Position
    {
        Record row;
        int position;
    };
    // indexOfs() into `result`, sorted by address, one entry per row.
    void findPositions(QList<Record> records, QVector<Position> &result) const;
    // The first row that is not below `record`, as an iterator.
    PartitionList<Record>::const_iterator lowerBound(const Record &record) const;
    // The first position whose row is above `record` (upper) or not below it,
    // with its iterator.
    std::pair<int, PartitionList<Record>::const_iterator> bound(const Record &record,
                                                                bool upper) const;
    // search() without the virtual call.
    int searchFirst(const Record &record, int from) const;
    // Moves the row at `p` to where its key now belongs.
    void replace(const Record &record, int p);
};

#endif // TABLEDB_INDEX_INDEXSORT_H
