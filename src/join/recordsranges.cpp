#include "join/recordsranges.h"

#include "index/indexsort.h"
#include "join/parallelrun_p.h"
#include "join/tablejoinmain.h"
#include "table/table.h"

#include <algorithm>
#include <new>

namespace {

bool byAddress(const Record &a, const Record &b)
{
    return a < b;
}

void unite(RangeSet<int> &into, const RangeSet<int> &set)
{
    for (int i = 0; i < set.rangeCount(); ++i)
        into.add(set.rangeBegin(i), set.rangeEnd(i));
}

// The set without [begin, end).
RangeSet<int> without(const RangeSet<int> &set, int begin, int end)
{
    RangeSet<int> out;
    for (int i = 0; i < set.rangeCount(); ++i) {
        const int b = set.rangeBegin(i);
        const int e = set.rangeEnd(i);
        out.add(b, qMin(e, begin));
        out.add(qMax(b, end), e);
    }
    return out;
}

// Entries that arrive in any order, sorted and united at the end: the same
// result as add() one by one, without inserting into the middle of a list.
struct Hits
{
    struct Hit
    {
        const Record *row;
        const RangeSet<int> *set;
    };

    static RecordsRanges collect(QVector<Hit> &hits)
    {
        std::stable_sort(
            hits.begin(), hits.end(), [](const Hit &a, const Hit &b) { return *a.row < *b.row; });
        RecordsRanges out;
        out.reserve(hits.size());
        for (const Hit &hit : qAsConst(hits)) {
            if (!out.records.isEmpty() && out.records.last() == *hit.row) {
                unite(out.ranges.last(), *hit.set);
            } else {
                out.records.append(*hit.row);
                out.ranges.append(*hit.set);
            }
        }
        return out;
    }
};

RecordsRanges findRanges(const FindRangesItem &item)
{
    auto rows = std::get<0>(item);
    const auto rowsEnd = std::get<1>(item);
    auto keys = std::get<2>(item);
    const auto keysEnd = std::get<3>(item);
    const IndexSort *index = std::get<4>(item);
    const QVector<Col> &mapping = *std::get<5>(item);

    // One key row serves the whole piece: every key cell is written anew for
    // each row, nulls included.
    Record key(index->table());
    if (key.isNull())
        throw std::bad_alloc();
    // The rows found are borrowed from the caller's list, which outlives
    // this call: only the result counts them.
    QVector<const Record *> found;
    QVector<RangeSet<int>> sets;
    found.reserve(int(rowsEnd - rows));
    sets.reserve(int(rowsEnd - rows));
    for (; rows != rowsEnd && keys != keysEnd; ++rows, ++keys) {
        for (const Col &col : mapping)
            key.data(col.target) = keys->data(col.source);
        const int first = index->search(key, -1);
        if (first == -1)
            continue;
        const int last = index->searchLast(key, first - 1);
        RangeSet<int> set;
        set.add(first, last + 1);
        found.append(&*rows);
        sets.append(set);
    }

    QVector<Hits::Hit> hits;
    hits.reserve(found.size());
    for (int i = 0; i < found.size(); ++i)
        hits.append({ found.at(i), &sets.at(i) });
    return Hits::collect(hits);
}

RecordsRanges subtractRanges(const SubtractRangesItem &item)
{
    auto rows = std::get<0>(item);
    const auto rowsEnd = std::get<1>(item);
    auto sets = std::get<2>(item);
    const auto setsEnd = std::get<3>(item);
    const RecordsRanges &other = *std::get<4>(item);

    // The input is in address order, each row once, so the result is too.
    RecordsRanges out;
    out.reserve(int(rowsEnd - rows));
    for (; rows != rowsEnd && sets != setsEnd; ++rows, ++sets) {
        RangeSet<int> set = *sets;
        const int at = other.indexOf(*rows);
        if (at != -1) {
            const RangeSet<int> &taken = other.ranges.at(at);
            for (int i = 0; i < taken.rangeCount() && !set.isEmpty(); ++i)
                set = without(set, taken.rangeBegin(i), taken.rangeEnd(i));
        }
        out.records.append(*rows);
        out.ranges.append(set);
    }
    return out;
}

} // namespace

RecordsRanges::RecordsRanges(int count, const QVector<RecordsRanges> &pieces)
{
    int total = 0;
    for (const RecordsRanges &piece : pieces)
        total += piece.count();
    QVector<Hits::Hit> hits;
    hits.reserve(total);
    for (const RecordsRanges &piece : pieces) {
        for (int i = 0; i < piece.count(); ++i)
            hits.append({ &piece.records.at(i), &piece.ranges.at(i) });
    }
    *this = Hits::collect(hits);
    reserve(count);
}

void RecordsRanges::clear()
{
    records.clear();
    ranges.clear();
}

void RecordsRanges::reserve(int count)
{
    records.reserve(count);
    ranges.reserve(count);
}

int RecordsRanges::indexOf(const Record &record) const
{
    const auto it = std::lower_bound(records.cbegin(), records.cend(), record, byAddress);
    return it != records.cend() && *it == record ? int(it - records.cbegin()) : -1;
}

void RecordsRanges::add(const Record &record, const RangeSet<int> &set)
{
    const int at = int(
        std::lower_bound(records.cbegin(), records.cend(), record, byAddress) - records.cbegin());
    if (at < records.size() && records.at(at) == record) {
        unite(ranges[at], set);
    } else {
        records.insert(at, record);
        ranges.insert(at, set);
    }
}

void RecordsRanges::merge(const RecordsRanges &other)
{
    const int n = qMin(other.records.size(), other.ranges.size());
    if (records.isEmpty() && n == other.records.size() && n == other.ranges.size()) {
        *this = other;
        return;
    }
    if (n < 8) { // a handful goes faster one by one
        for (int i = 0; i < n; ++i)
            add(other.records.at(i), other.ranges.at(i));
        return;
    }
    RecordsRanges out;
    out.reserve(records.size() + n);
    int i = 0;
    int j = 0;
    while (i < records.size() || j < n) {
        if (j == n || (i < records.size() && records.at(i) < other.records.at(j))) {
            out.records.append(records.at(i));
            out.ranges.append(ranges.at(i));
            ++i;
        } else if (i == records.size() || other.records.at(j) < records.at(i)) {
            out.records.append(other.records.at(j));
            out.ranges.append(other.ranges.at(j));
            ++j;
        } else {
            out.records.append(records.at(i));
            out.ranges.append(ranges.at(i));
            unite(out.ranges.last(), other.ranges.at(j));
            ++i;
            ++j;
        }
    }
    *this = out;
}

RecordsRanges rangesOf(const QList<Record> &rows, const QList<Record> &keyRows,
    const IndexSort *index, const QVector<Col> *keyMapping, int parallelFrom)
{
    const int count = qMin(rows.size(), keyRows.size());
    if (count < parallelFrom || count < 2)
        return findRanges(FindRangesItem(
            rows.cbegin(), rows.cend(), keyRows.cbegin(), keyRows.cend(), index, keyMapping));

    // A String key cell writes through the table's string pool, which is made
    // on first use: make it here, before several threads could race for it.
    for (const Col &col : *keyMapping) {
        if (index->table()->columnType(col.target) == FieldType::String) {
            Record probe(index->table());
            probe.data(col.target) = keyRows.first().data(col.source);
            break;
        }
    }

    using JoinParallel::endOf;
    const auto items = JoinParallel::cut<FindRangesItem>(count, [&](int b, int e, bool last) {
        return FindRangesItem(rows.cbegin() + b, endOf(rows, e, last), keyRows.cbegin() + b,
            endOf(keyRows, e, last), index, keyMapping);
    });
    return RecordsRanges(count, JoinParallel::runOnPool<RecordsRanges>(items, &findRanges));
}

RecordsRanges subtract(const RecordsRanges &from, const RecordsRanges &other, int parallelFrom)
{
    const int count = qMin(from.records.size(), from.ranges.size());
    if (count < parallelFrom || count < 2)
        return subtractRanges(SubtractRangesItem(from.records.cbegin(), from.records.cend(),
            from.ranges.cbegin(), from.ranges.cend(), &other));
    using JoinParallel::endOf;
    const auto items = JoinParallel::cut<SubtractRangesItem>(count, [&](int b, int e, bool last) {
        return SubtractRangesItem(from.records.cbegin() + b, endOf(from.records, e, last),
            from.ranges.cbegin() + b, endOf(from.ranges, e, last), &other);
    });
    return RecordsRanges(count, JoinParallel::runOnPool<RecordsRanges>(items, &subtractRanges));
}

QList<Record> changedKeyRows(const TableJoinMain *join, const QList<Record> &updated,
    const QList<Record> &changed, int parallelFrom)
{
    const int count = qMin(updated.size(), changed.size());
    if (count < parallelFrom || count < 2)
        return join->changedKeys(
            ChangedKeysItem(updated.cbegin(), updated.cend(), changed.cbegin(), changed.cend()));
    using JoinParallel::endOf;
    const auto items = JoinParallel::cut<ChangedKeysItem>(count, [&](int b, int e, bool last) {
        return ChangedKeysItem(updated.cbegin() + b, endOf(updated, e, last), changed.cbegin() + b,
            endOf(changed, e, last));
    });
    const QVector<QList<Record>> parts = JoinParallel::runOnPool<QList<Record>>(
        items, [join](const ChangedKeysItem &item) { return join->changedKeys(item); });
    QList<Record> out;
    out.reserve(count);
    for (const QList<Record> &part : parts)
        out.append(part);
    return out;
}
