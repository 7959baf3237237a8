#include "join/tablejoindep.h"

#include "index/masterindex.h"
#include "join/joinwrite_p.h"
#include "table/recordstrans.h"
#include "table/table.h"

TableJoinDep::TableJoinDep(JoinDepInfo *info)
    : info(info)
{
}

TableJoinDep::~TableJoinDep() = default;

TableJoinDep::Columns TableJoinDep::columnsForRange(int first, int last) const
{
    Columns out;
    if (info->copyColumns.isEmpty() || info->mainToDepSorted.isEmpty())
        return out;
    const int keyFirst = info->mainToDepSorted.first().source;
    const int keyLast = info->mainToDepSorted.last().source;
    const int copyFirst = info->copyColumnsSorted.first().source;
    const int copyLast = info->copyColumnsSorted.last().source;
    if (first <= keyLast && keyFirst <= last) {
        out.columns = info->copyColumnsSorted;
        out.firstChanged = info->copyColumns.first().target;
        out.lastChanged = info->copyColumns.last().target;
    } else if (first <= copyLast && copyFirst <= last) {
        for (const Col &col : info->copyColumnsSorted) {
            if (col.source > last)
                break;
            out.columns.append(col);
            out.firstChanged
                = out.firstChanged == -1 ? col.target : qMin(out.firstChanged, int(col.target));
            out.lastChanged = qMax(out.lastChanged, int(col.target));
        }
    }
    return out;
}

void TableJoinDep::preprocess(const QList<Record> &removed, const QList<Record> &updated, int first,
    int last, const QList<Record> &inserted, const QList<Record> &changed)
{
    timer.restart();
    const Columns columns = columnsForRange(first, last);
    nulled = rangesOf(removed, removed, info->mainMaster, &info->mainToDep);
    if (!columns.isEmpty()) {
        refreshed = rangesOf(updated, changed, info->mainMaster, &info->mainToDep);
        // Join rows of an old key lose the link unless they match the new key
        // too. Without a key column in the range the keys are the same, and
        // nothing can be lost.
        const int keyFirst = info->mainToDepSorted.first().source;
        const int keyLast = info->mainToDepSorted.last().source;
        if (first <= keyLast && keyFirst <= last) {
            const RecordsRanges oldRanges
                = rangesOf(updated, updated, info->mainMaster, &info->mainToDep);
            nulled.merge(subtract(oldRanges, refreshed));
        }
    } else {
        refreshed.clear();
    }
    added = rangesOf(inserted, inserted, info->mainMaster, &info->mainToDep);
    m_nsecsElapsed += timer.nsecsElapsed();
    m_nsecsElapsedTotal += timer.nsecsElapsed();
}

namespace {

// The join rows that `ranges` reach, a row reached twice counted twice.
int rowsIn(const RecordsRanges &ranges)
{
    qint64 rows = 0;
    for (const RangeSet<int> &set : ranges.ranges) {
        for (int r = 0; r < set.rangeCount(); ++r)
            rows += set.rangeEnd(r) - set.rangeBegin(r);
    }
    return int(qMin<qint64>(rows, INT_MAX / 2));
}

} // namespace

void TableJoinDep::process(
    const QList<Record> &, const QList<Record> &, int first, int last, const QList<Record> &)
{
    timer.restart();
    const Columns columns = columnsForRange(first, last);
    if (info->table && (!nulled.isEmpty() || !refreshed.isEmpty() || !added.isEmpty())) {
        TableUpdater updater(info->table);
        RecordsTrans trans(info->table);
        trans.reserve(rowsIn(nulled) + (columns.isEmpty() ? 0 : rowsIn(refreshed)) + rowsIn(added));
        JoinRowFinder finder(info->table->masterIndex());
        finder.expectPositions(nulled, info->mainMaster);
        if (!columns.isEmpty())
            finder.expectPositions(refreshed, info->mainMaster);
        finder.expectPositions(added, info->mainMaster);
        finder.prepare();
        // Nulls first, so that a key removed and inserted again in one
        // transaction ends up filled.
        apply(trans, finder, nulled, info->copyColumns, Null);
        apply(trans, finder, refreshed, columns.columns, Copy);
        apply(trans, finder, added, info->copyColumns, Copy);
        nulled.clear();
        refreshed.clear();
        added.clear();
        m_nsecsElapsed += timer.nsecsElapsed();
        m_nsecsElapsedTotal += timer.nsecsElapsed();
        JoinWrite::commit(trans);
        return;
    }
    nulled.clear();
    refreshed.clear();
    added.clear();
    m_nsecsElapsed += timer.nsecsElapsed();
    m_nsecsElapsedTotal += timer.nsecsElapsed();
}

void TableJoinDep::apply(RecordsTrans &trans, const JoinRowFinder &finder,
    const RecordsRanges &ranges, const QVector<Col> &columns, Action action) const
{
    if (ranges.isEmpty() || columns.isEmpty())
        return;
    const auto joinRows = info->mainMaster->begin();
    for (int i = 0; i < ranges.count(); ++i) {
        const Record &source = ranges.records.at(i);
        const RangeSet<int> &set = ranges.ranges.at(i);
        for (int r = 0; r < set.rangeCount(); ++r) {
            // Stepped, not advanced from the start: the fan-out of one key
            // costs no search and no walk.
            auto joinRow = joinRows + set.rangeBegin(r);
            const int end = set.rangeEnd(r);
            const int n = end - set.rangeBegin(r);
            auto ahead = joinRow + qMin(JoinWrite::PrefetchDistance, n);
            auto soon = joinRow + qMin(JoinWrite::FindPrefetchDistance, n);
            for (int p = set.rangeBegin(r); p < end; ++p, ++joinRow) {
                if (p + JoinWrite::PrefetchDistance < end)
                    JoinWrite::prefetch(*ahead++);
                if (p + JoinWrite::FindPrefetchDistance < end)
                    finder.prefetch(*soon++);
                // One join row reached from several dependent rows shares one
                // working row.
                RecordUpdater updater
                    = JoinWrite::open(trans, finder, *joinRow, source, info->mainToDep);
                if (action == Null)
                    JoinWrite::null(updater, columns);
                else
                    JoinWrite::copy(updater, source, columns);
            }
        }
    }
    JoinWrite::extend(trans, columns);
}

void TableJoinDep::applyRow(const Record &record, bool remove, int first, int last)
{
    const Columns columns = columnsForRange(first, last);
    if (columns.isEmpty() || !info->table)
        return;
    Record key(info->table);
    if (key.isNull())
        return;
    for (const Col &col : info->mainToDep)
        key.data(col.target) = record.data(col.source);

    TableUpdater updater(info->table);
    const int firstRow = info->mainMaster->search(key, -1);
    if (firstRow == -1)
        return;
    const int lastRow = info->mainMaster->searchLast(key, firstRow - 1);
    // Taken first: telling the indexes may move rows within them.
    QList<Record> rows;
    auto row = info->mainMaster->begin() + firstRow;
    for (int p = firstRow; p <= lastRow; ++p, ++row)
        rows.append(*row);
    for (Record &row : rows) {
        if (remove) {
            for (const Col &col : info->copyColumns)
                row.data(col.target).setNull();
        } else {
            for (const Col &col : columns.columns)
                row.data(col.target) = record.data(col.source);
        }
        info->table->updated(row, columns.firstChanged, columns.lastChanged, -1);
    }
}

void TableJoinDep::clear()
{
    if (!info->table || info->copyColumns.isEmpty())
        return;
    TableUpdater updater(info->table);
    RecordsTrans trans(info->table);
    const MasterIndex *master = info->table->masterIndex();
    // Every row of the table in its order: the first of each key is what
    // find() gives for it.
    const bool bySearch = JoinRowFinder::findsBySearch(master);
    const Record *previous = nullptr;
    for (auto it = master->begin(), end = master->end(); it != end; ++it) {
        const Record &row = *it;
        const bool first = bySearch && (!previous || master->compare(*previous, row) != 0);
        JoinWrite::Updater updater(trans, first ? row : master->find(row, -1), row);
        JoinWrite::null(updater, info->copyColumns);
        previous = &row;
    }
    JoinWrite::extend(trans, info->copyColumns);
    JoinWrite::commit(trans);
}

void TableJoinDep::build()
{
    if (!info->depMaster)
        return;
    QList<Record> rows;
    rows.reserve(info->depMaster->count());
    for (auto it = info->depMaster->begin(), end = info->depMaster->end(); it != end; ++it)
        rows.append(*it);
    preprocess(QList<Record>(), QList<Record>(), -1, -1, rows, QList<Record>());
    process(QList<Record>(), QList<Record>(), -1, -1, rows);
}

void TableJoinDep::add(const Record &record)
{
    if (info->copyColumnsSorted.isEmpty())
        return;
    applyRow(record, false, info->copyColumnsSorted.first().source,
        info->copyColumnsSorted.last().source);
}

void TableJoinDep::remove(const Record &record, int)
{
    if (info->copyColumnsSorted.isEmpty())
        return;
    applyRow(record, true, info->copyColumnsSorted.first().source,
        info->copyColumnsSorted.last().source);
}

void TableJoinDep::update(const Record &record, int first, int last, int)
{
    applyRow(record, false, first, last);
}

bool TableJoinDep::filter(const Record &) const
{
    return true;
}

bool TableJoinDep::contains(const Record &) const
{
    return false;
}

QString TableJoinDep::getClassName() const
{
    return QStringLiteral("TableJoinDep");
}
