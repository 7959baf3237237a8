#include "index/indexsort.h"

#include "index/concurrentsort.h"

#include <QMessageLogger>

#include <algorithm>
#include <utility>

namespace {

typedef PartitionList<Record>::const_iterator ConstIterator;

} // namespace

IndexSort::IndexSort(Table *table, bool registered) : IndexList(table, registered) { }

IndexSort::IndexSort(const QString &tableName, bool registered)
    : IndexList(tableName, registered)
{
}

QString IndexSort::getClassName() const
{
    return QStringLiteral("IndexSort");
}

std::pair<int, ConstIterator> IndexSort::bound(const Record &record, bool upper) const
{
    // A binary search that carries its iterator along, so that no step walks
    // the blocks from the start again.
    int lo = 0;
    int hi = count();
    ConstIterator loIt = begin();
    while (lo < hi) {
        const int mid = lo + ((hi - lo) >> 1);
        const ConstIterator midIt = loIt + (mid - lo);
        const int c = compare(*midIt, record);
        if (upper ? c <= 0 : c < 0) {
            lo = mid + 1;
            loIt = midIt + 1;
        } else {
            hi = mid;
        }
    }
    return { lo, loIt };
}

int IndexSort::indexOfAdd(const Record &record) const
{
    return bound(record, true).first;
}

ConstIterator IndexSort::lowerBound(const Record &record) const
{
    return bound(record, false).second;
}

int IndexSort::searchFirst(const Record &record, int from) const
{
    int lo = qMax(from + 1, 0);
    int hi = count();
    int result = -1;
    if (lo >= hi)
        return -1;
    ConstIterator loIt = begin() + lo;
    while (lo < hi) {
        const int mid = lo + ((hi - lo) >> 1);
        const ConstIterator midIt = loIt + (mid - lo);
        const int c = compare(*midIt, record);
        if (c > 0) {
            hi = mid;
        } else if (c < 0) {
            lo = mid + 1;
            loIt = midIt + 1;
        } else {
            result = mid;
            hi = mid;
        }
    }
    return result;
}

int IndexSort::search(const Record &record, int from) const
{
    return searchFirst(record, from);
}

int IndexSort::searchLast(const Record &record, int from) const
{
    int lo = qMax(from + 1, 0);
    int hi = count();
    int result = -1;
    if (lo >= hi)
        return -1;
    ConstIterator loIt = begin() + lo;
    while (lo < hi) {
        const int mid = lo + ((hi - lo) >> 1);
        const ConstIterator midIt = loIt + (mid - lo);
        const int c = compare(*midIt, record);
        if (c > 0) {
            hi = mid;
        } else {
            if (c == 0)
                result = mid;
            lo = mid + 1;
            loIt = midIt + 1;
        }
    }
    return result;
}

int IndexSort::searchFull(const Record &record, int from) const
{
    const int start = qMax(from + 1, 0);
    if (start >= count())
        return -1;
    int steps = 0;
    for (ConstIterator it = begin() + start, e = end(); it != e; ++it, ++steps) {
        if (compare(*it, record) == 0)
            return steps;
    }
    return -1;
}

Record IndexSort::find(const Record &record, int from) const
{
    const int p = searchFirst(record, from);
    if (p == -1)
        return Record();
    return *(begin() + p);
}

void IndexSort::add(const Record &record)
{
    m_list.insert(indexOfAdd(record), record);
}

void IndexSort::build()
{
    IndexList::build();
    resort();
}

void IndexSort::resort()
{
    if (m_list.isEmpty())
        return;
    ConcurrentSort::sort(m_list.begin(), m_list.end(), LessThan(this));
}

int IndexSort::indexOf(const Record &record) const
{
    const ConstIterator first = begin();
    const ConstIterator last = end();
    for (ConstIterator it = lowerBound(record); it != last; ++it) {
        if (*it == record)
            return int(it - first);
        if (compare(*it, record) > 0)
            break;
    }
    // The key changed since the row was placed.
    return m_list.indexOf(record);
}

void IndexSort::replace(const Record &record, int p)
{
    const Record row = record; // `record` may be the list's own element
    // A wrong position hint must not cost another row its place.
    if (p < 0 || p >= count() || m_list.at(p) != row)
        p = m_list.indexOf(row);
    if (p != -1)
        m_list.removeAt(p);
    m_list.insert(indexOfAdd(row), row);
}

void IndexSort::update(const Record &record, int, int, int index)
{
    if (!filter(record)) {
        remove(record, -1);
        return;
    }
    int p = index;
    if (p < -1 || p >= count())
        p = -1; // a hint outside the list says nothing
    if (p == -1) {
        bool found = false;
        p = search(record, -1);
        if (p != -1 && p < count()) {
            const int n = count();
            for (ConstIterator it = begin() + p;; ++it) {
                if (*it == record) {
                    found = true;
                    break;
                }
                if (compare(record, *it) != 0 || p + 1 >= n)
                    break;
                ++p;
            }
        }
        if (!found) {
            p = m_list.indexOf(record);
            if (p == -1) {
                add(record);
                return;
            }
            QMessageLogger(__FILE__, __LINE__, Q_FUNC_INFO).warning().noquote()
                    << "IndexSort::update"
                    << "Full search can impact the performance";
            replace(record, p);
            return;
        }
    }
    const ConstIterator at = begin() + p;
    if (p != 0 && compare(*(at - 1), record) > 0) {
        replace(record, p);
        return;
    }
    if (p + 1 >= count())
        return;
    if (compare(record, *(at + 1)) <= 0)
        return; // still in its place
    replace(record, p);
}

QMap<Record, int> IndexSort::indexOfs(QList<Record> records) const
{
    QVector<Position> positions;
    findPositions(records, positions);
    QMap<Record, int> result;
    for (const Position &p : qAsConst(positions))
        result.insert(p.row, p.position);
    return result;
}

void IndexSort::findPositions(QList<Record> records, QVector<Position> &result) const
{
    // Entries in the order a map would receive them; a later one for the same
    // row wins, as a map's insert would.
    QVector<Position> entries;
    entries.reserve(records.size());
    const ConstIterator first = begin();
    const ConstIterator last = end();

    // By key: the row stands among the rows of its key unless its key moved.
    QList<Record> missed;
    for (const Record &entry : qAsConst(records)) {
        ConstIterator it = lowerBound(entry);
        if (it == last) {
            missed.append(entry);
            continue;
        }
        while (it != last && *it != entry && compare(entry, *it) == 0)
            ++it;
        if (it != last && *it == entry)
            entries.append({ entry, int(it - first) });
        else
            missed.append(entry);
    }
    records.swap(missed);

    // By walking. The entry used up is the first one not below the list's row,
    // whether or not it is that row; batch maintenance depends on exactly this.
    int n = 0;
    for (ConstIterator it = first; it != last && !records.isEmpty(); ++it, ++n) {
        const auto e = std::lower_bound(records.begin(), records.end(), *it);
        if (e == records.end())
            continue;
        entries.append({ *it, n });
        records.erase(e);
    }

    for (const Record &entry : qAsConst(records))
        entries.append({ entry, -1 });

    std::stable_sort(entries.begin(), entries.end(),
                     [](const Position &a, const Position &b) { return a.row < b.row; });
    result.clear();
    result.reserve(entries.size());
    for (const Position &p : qAsConst(entries)) {
        if (!result.isEmpty() && result.last().row == p.row)
            result.last() = p;
        else
            result.append(p);
    }
}

void IndexSort::process(const QList<Record> &removed, const QList<Record> &updated, int, int,
                        const QList<Record> &inserted)
{
    timer.restart();

    QVector<Position> positions;
    {
        // Ordered by row address; a row listed twice stays twice.
        QList<Record> lookup;
        lookup.reserve(removed.count() + updated.count());
        lookup.append(removed);
        lookup.append(updated);
        std::stable_sort(lookup.begin(), lookup.end());
        findPositions(lookup, positions);
    }
    // A row missing from the result reads as position 0, as a default-inserting
    // map access would give it; the steps below depend on that.
    auto positionOf = [&positions](const Record &row) {
        const auto it = std::lower_bound(
            positions.cbegin(), positions.cend(), row,
            [](const Position &p, const Record &r) { return p.row < r; });
        return (it != positions.cend() && it->row == row) ? it->position : 0;
    };

    RangeSet<int> ranges;
    QList<Record> pending;
    pending.reserve(inserted.count());

    for (const Record &row : removed) {
        const int p = positionOf(row);
        if (p != -1)
            ranges.add(p, p + 1);
    }
    for (const Record &row : inserted) {
        if (filter(row))
            pending.append(row);
    }
    const int n = count();
    for (const Record &row : updated) {
        const int p = positionOf(row);
        const bool f = filter(row);
        if (p == -1) {
            if (f)
                pending.append(row);
        } else if (!f) {
            ranges.add(p, p + 1);
        } else if (p < n) {
            const ConstIterator at = begin() + p;
            if ((p != 0 && compare(row, *(at - 1)) < 0)
                || (p + 1 != n && compare(row, *(at + 1)) > 0)) {
                ranges.add(p, p + 1);
                pending.append(row);
            }
        }
    }

    m_list.removeRanges(ranges);

    if (!pending.isEmpty()) {
        const LessThan lessThan(this);
        // Rows often arrive in key order (appends, one key for a whole batch):
        // one pass of compares then spares the sort and its thread hand-off.
        if (!std::is_sorted(pending.begin(), pending.end(), lessThan))
            ConcurrentSort::sort(pending.begin(), pending.end(), lessThan);

        typedef PartitionList<Record>::iterator Iterator;
        QList<Record> batch;
        Iterator anchor = m_list.begin();
        Iterator start = anchor;
        Iterator last = m_list.end();
        for (const Record &row : qAsConst(pending)) {
            // Upper bound in [start, end()): rows of an equal key stay in front.
            // `pending` is sorted, so the bound is usually close to `start`:
            // gallop out from it first, then search the last step's span.
            Iterator u = start;
            std::ptrdiff_t length = 0;
            for (std::ptrdiff_t step = 1; u != last; step *= 2) {
                const Iterator probe = u + (step - 1); // stops at end()
                if (probe == last) {
                    length = last - u;
                    break;
                }
                if (lessThan(row, *probe)) {
                    length = step - 1;
                    break;
                }
                u = probe + 1;
            }
            while (length > 0) {
                const std::ptrdiff_t half = length >> 1;
                const Iterator mid = u + half;
                if (lessThan(row, *mid)) {
                    length = half;
                } else {
                    u = mid + 1;
                    length -= half + 1;
                }
            }
            start = u;
            if (u != anchor) {
                const int target = batch.count() + int(u - m_list.begin());
                if (!batch.isEmpty()) {
                    m_list.insert(int(anchor - m_list.begin()), batch);
                    batch.clear();
                    // The insertion may have split a block: no iterator survives.
                    start = anchor = m_list.begin() + target;
                    last = m_list.end();
                } else {
                    anchor = u;
                }
            }
            batch.append(row);
        }
        if (!batch.isEmpty())
            m_list.insert(int(anchor - m_list.begin()), batch);
    }

    m_nsecsElapsed += timer.nsecsElapsed();
    // A second reading on purpose, as in Index::process.
    m_nsecsElapsedTotal += timer.nsecsElapsed();
}
