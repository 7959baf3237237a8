#ifndef TABLEDB_JOIN_RECORDSRANGES_H
#define TABLEDB_JOIN_RECORDSRANGES_H

#include "index/rangeset.h"
#include "join/col.h"
#include "table/record.h"

#include <QList>
#include <QVector>

#include <tuple>

class IndexSort;
class TableJoinMain;

// Rows, each with the positions in some master index that belong to it. The
// rows are sorted by the address of their row block, each at most once, only
// so that a row can be found by binary search: the order means nothing else
// and changes from run to run. `records` and `ranges` always have one length.
struct TABLEDB_EXPORT RecordsRanges
{
    RecordsRanges() = default;
    // Reserves `count` entries and merges each piece in turn.
    RecordsRanges(int count, const QVector<RecordsRanges> &pieces);

    QList<Record> records;
    QList<RangeSet<int>> ranges;

    int count() const { return records.size(); }
    bool isEmpty() const { return records.isEmpty(); }
    void clear();
    void reserve(int count);
    // The entry of `record`, or -1. O(log n).
    int indexOf(const Record &record) const;

    // Enters `record` with `set`, or unites `set` with the entry it has.
    // O(log n) plus the lists' insertion.
    void add(const Record &record, const RangeSet<int> &set);
    // add() of every entry of `other`. O(n + m) for a non-empty `other`.
    void merge(const RecordsRanges &other);
};

// Lists of fewer rows than this run on the calling thread; longer ones are cut
// into at most 32 pieces of at least 256 rows on Qt's global pool.
constexpr int JoinParallelFrom = 513;

// Work items: one piece of the lists, as iterators.
typedef std::tuple<QList<Record>::const_iterator, QList<Record>::const_iterator,
                   QList<Record>::const_iterator, QList<Record>::const_iterator,
                   const IndexSort *, const QVector<Col> *>
    FindRangesItem;
typedef std::tuple<QList<Record>::const_iterator, QList<Record>::const_iterator,
                   QList<RangeSet<int>>::const_iterator, QList<RangeSet<int>>::const_iterator,
                   const RecordsRanges *>
    SubtractRangesItem;
// New rows, then old rows.
typedef std::tuple<QList<Record>::const_iterator, QList<Record>::const_iterator,
                   QList<Record>::const_iterator, QList<Record>::const_iterator>
    ChangedKeysItem;

// For each pair of `rows` and `keyRows` (walked in step): a key row of
// `index`'s table is filled from the key row by `keyMapping` (target: the
// index's table, source: the key row's), and the positions of its equal keys
// in `index` are filed under the row. Rows without a match get no entry.
// Two searches per row. Lists of `parallelFrom` rows or more run on the pool;
// the caller blocks until all pieces are done.
// REQUIRES: `index` does not change during the call; rows are only read.
// Throws std::bad_alloc when no key row can be allocated.
TABLEDB_EXPORT RecordsRanges rangesOf(const QList<Record> &rows, const QList<Record> &keyRows,
                                      const IndexSort *index, const QVector<Col> *keyMapping,
                                      int parallelFrom = JoinParallelFrom);

// `from` with, record by record, the positions that `other` holds for the same
// row taken out. A row whose positions are all taken out stays, with an empty set.
TABLEDB_EXPORT RecordsRanges subtract(const RecordsRanges &from, const RecordsRanges &other,
                                      int parallelFrom = JoinParallelFrom);

// The rows of `updated` of which some key column of `join` differs from the
// row of `changed` at the same position: one entry per differing column. The
// order is that of finishing pieces: nothing may rely on it.
TABLEDB_EXPORT QList<Record> changedKeyRows(const TableJoinMain *join,
                                            const QList<Record> &updated,
                                            const QList<Record> &changed,
                                            int parallelFrom = JoinParallelFrom);

#endif // TABLEDB_JOIN_RECORDSRANGES_H
