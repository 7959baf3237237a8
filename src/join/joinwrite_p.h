#ifndef TABLEDB_JOIN_JOINWRITE_P_H
#define TABLEDB_JOIN_JOINWRITE_P_H

#include "join/col.h"
#include "join/joinrowfinder_p.h"
#include "table/recordstrans.h"
#include "table/table.h"

#include <utility>

// The writing side shared by both join indexes: join rows change only through
// a transaction on the join table, which runs at once when that table is idle
// and after its running transaction otherwise.
namespace JoinWrite {

// How far ahead the next join rows' blocks are asked for: each is written
// soon after, and the first touch of a block is a cache miss. The master's
// search for a row, which reads the row's key, is asked for when the block
// has had time to arrive.
constexpr int PrefetchDistance = 16;
constexpr int FindPrefetchDistance = 8;

// Asks the cache for the start of a row block (a header and the first cells).
inline void prefetch(const Record &row)
{
    if (const unsigned char *p = row.rowPtr()) {
        __builtin_prefetch(p);
        __builtin_prefetch(p + 64);
    }
}

// An updater on the row that the master's find() gave for `key` (null if none).
class Updater : public RecordUpdater
{
public:
    // `found` by value: the row find() gives moves in without a count.
    Updater(RecordsTrans &trans, Record found, const Record &key)
        : RecordUpdater(trans)
    {
        if (found.isNull()) {
            insertInMap(key);
            return;
        }
        Record::operator=(std::move(found));
        updateInMap();
    }
};

// The updater of join row `target` in `trans`; `finder` stands for the join
// table's master. A row of another table stands for the join row of its key:
// a fresh join row is filled with the key from `keySource` by `mainToDep` and
// looked up instead.
inline RecordUpdater open(RecordsTrans &trans, const JoinRowFinder &finder, const Record &target,
    const Record &keySource, const QVector<Col> &mainToDep)
{
    Table *table = trans.table();
    if (Table::tablePtr(target.rowPtr()) == table) {
        if (finder.isFirst(target))
            return Updater(trans, target, target);
        return Updater(trans, finder.find(target), target);
    }
    Record key(table);
    for (const Col &col : mainToDep)
        key.data(col.target) = keySource.data(col.source);
    return RecordUpdater(key, trans, -1);
}

// Copies by `columns` from `source` into the working row; a join row that
// the table does not hold is taken out of the transaction again.
inline void copy(RecordUpdater &updater, const Record &source, const QVector<Col> &columns)
{
    if (!updater.isFound()) {
        updater.remove();
        return;
    }
    for (const Col &col : columns)
        updater.data(col.target) = source.data(col.source);
}

// Makes the target cells of `columns` null; their bytes stay.
inline void null(RecordUpdater &updater, const QVector<Col> &columns)
{
    if (!updater.isFound()) {
        updater.remove();
        return;
    }
    for (const Col &col : columns)
        updater.data(col.target).setNull();
}

// The column span of `columns`' targets, added to the transaction's range.
inline void extend(RecordsTrans &trans, const QVector<Col> &columns)
{
    if (columns.isEmpty())
        return;
    int first = columns.first().target;
    int last = first;
    for (const Col &col : columns) {
        first = qMin(first, int(col.target));
        last = qMax(last, int(col.target));
    }
    trans.extendColumns(first, last);
}

// Hands a non-empty transaction to its table. An empty range stands for all
// columns. Merged work is dropped from `trans` so that its destructor does
// not merge it a second time.
inline void commit(RecordsTrans &trans)
{
    if (trans.maxColumn() < trans.minColumn())
        trans.extendColumns(0, trans.table()->columnCount() - 1);
    if (!trans.isEmpty())
        trans.table()->process(trans);
    trans.clear();
}

} // namespace JoinWrite

#endif // TABLEDB_JOIN_JOINWRITE_P_H
