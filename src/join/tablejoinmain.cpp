#include "join/tablejoinmain.h"

#include "index/masterindex.h"
#include "join/joinwrite_p.h"
#include "table/recordstrans.h"
#include "table/table.h"

TableJoinMain::TableJoinMain(JoinMainInfo *info, const QVector<QSharedPointer<JoinDepInfo>> &deps)
    : info(info)
    , deps(deps)
{
}

TableJoinMain::~TableJoinMain() = default;

void TableJoinMain::clear() { }

void TableJoinMain::build()
{
    QList<Record> rows;
    rows.reserve(info->master->count());
    for (auto it = info->master->begin(), end = info->master->end(); it != end; ++it)
        rows.append(*it);
    process(QList<Record>(), QList<Record>(), -1, -1, rows);
}

void TableJoinMain::add(const Record &record)
{
    process(QList<Record>(), QList<Record>(), -1, -1, QList<Record>() << record);
}

bool TableJoinMain::touchesKey(int first, int last) const
{
    return !info->keyColumns.isEmpty() && first <= info->keyColumns.last()
        && info->keyColumns.first() <= last;
}

QList<Record> TableJoinMain::changedKeys(const ChangedKeysItem &item) const
{
    auto rows = std::get<0>(item);
    const auto rowsEnd = std::get<1>(item);
    auto olds = std::get<2>(item);
    const auto oldsEnd = std::get<3>(item);
    QList<Record> out;
    for (; rows != rowsEnd && olds != oldsEnd; ++rows, ++olds) {
        for (int column : info->keyColumns) {
            if (olds->data(column).compare(rows->data(column)) != 0)
                out.append(*rows);
        }
    }
    return out;
}

void TableJoinMain::preprocess(const QList<Record> &, const QList<Record> &updated, int first,
    int last, const QList<Record> &, const QList<Record> &changed)
{
    if (!touchesKey(first, last))
        return;
    pending = changedKeyRows(this, updated, changed);
}

void TableJoinMain::process(const QList<Record> &, const QList<Record> &, int first, int last,
    const QList<Record> &inserted)
{
    timer.restart();
    const bool keyTouched = touchesKey(first, last);
    for (const QSharedPointer<JoinDepInfo> &dep : qAsConst(deps)) {
        // A dependent that copies nothing, or whose table is gone, has no work.
        if (!dep->depMaster || dep->copyColumns.isEmpty() || !info->table)
            continue;
        QVector<Col> columnsToCopy;
        RecordsRanges pendingRanges;
        if (keyTouched && !pending.isEmpty()) {
            columnsToCopy = dep->copyColumnsSorted;
            pendingRanges = rangesOf(pending, pending, dep->depMaster, &dep->depToMain);
        }
        const RecordsRanges insertedRanges
            = rangesOf(inserted, inserted, dep->depMaster, &dep->depToMain);
        if (pendingRanges.isEmpty() && insertedRanges.isEmpty())
            continue;

        TableUpdater updater(info->table);
        RecordsTrans trans(info->table);
        JoinRowFinder finder(info->table->masterIndex());
        if (!columnsToCopy.isEmpty())
            finder.expectRecords(pendingRanges);
        finder.expectRecords(insertedRanges);
        finder.prepare();
        apply(trans, finder, pendingRanges, *dep, columnsToCopy);
        apply(trans, finder, insertedRanges, *dep, dep->copyColumns);
        JoinWrite::commit(trans);
    }
    pending.clear();
    m_nsecsElapsed += timer.nsecsElapsed();
    m_nsecsElapsedTotal += timer.nsecsElapsed();
}

void TableJoinMain::apply(RecordsTrans &trans, const JoinRowFinder &finder,
    const RecordsRanges &ranges, const JoinDepInfo &dep, const QVector<Col> &columns) const
{
    if (ranges.isEmpty() || columns.isEmpty())
        return;
    const auto depRows = dep.depMaster->begin();
    for (int i = 0; i < ranges.count(); ++i) {
        const Record &target = ranges.records.at(i);
        const RangeSet<int> &set = ranges.ranges.at(i);
        if (i + JoinWrite::PrefetchDistance < ranges.count())
            JoinWrite::prefetch(ranges.records.at(i + JoinWrite::PrefetchDistance));
        if (i + JoinWrite::FindPrefetchDistance < ranges.count())
            finder.prefetch(ranges.records.at(i + JoinWrite::FindPrefetchDistance));
        for (int r = 0; r < set.rangeCount(); ++r) {
            // Several dependent rows of one key: the last one's values stay.
            auto source = depRows + set.rangeBegin(r);
            for (int p = set.rangeBegin(r); p < set.rangeEnd(r); ++p, ++source) {
                RecordUpdater updater
                    = JoinWrite::open(trans, finder, target, *source, dep.mainToDep);
                JoinWrite::copy(updater, *source, columns);
            }
        }
    }
    JoinWrite::extend(trans, columns);
}

void TableJoinMain::remove(const Record &, int) { }

bool TableJoinMain::filter(const Record &) const
{
    return true;
}

bool TableJoinMain::contains(const Record &) const
{
    return false;
}

void TableJoinMain::update(const Record &record, int first, int last, int)
{
    pending.append(record);
    process(QList<Record>(), QList<Record>() << record, first, last, QList<Record>());
}

QString TableJoinMain::getClassName() const
{
    return QStringLiteral("TableJoinMain");
}
