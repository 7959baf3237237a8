#include "index/indexsort.h"

#include "index/concurrentsort.h"
#include "index/indexsort_p.h"

#include <QMessageLogger>

#include <algorithm>
#include <utility>

namespace {

typedef PartitionList<Record>::const_iterator ConstIterator;

} // namespace

IndexSort::IndexSort(Table *table, bool registered)
    : IndexList(table, registered), d(new IndexSortPrivate)
{
}

IndexSort::IndexSort(const QString &tableName, bool registered)
    : IndexList(tableName, registered), d(new IndexSortPrivate)
{
}

IndexSort::~IndexSort() = default;

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

bool IndexSort::unaffectedBy(int, int) const
{
    return false;
}

void IndexSortPrivate::sortByRow(QVector<IndexSortEntry> &entries)
{
    std::stable_sort(entries.begin(), entries.end(),
                     [](const IndexSortEntry &a, const IndexSortEntry &b) { return a.row < b.row; });
    entries.erase(std::unique(entries.begin(), entries.end(),
                              [](const IndexSortEntry &a, const IndexSortEntry &b) {
                                  return a.row == b.row;
                              }),
                  entries.end());
}

int IndexSortPrivate::findByKey(const IndexSort &index, const Record &row)
{
    // Rows of an equal key are walked only so far: a key shared by a great
    // many rows (an order of arrival) is better served by one walk for all.
    const int maxSteps = 64;
    const ConstIterator last = index.end();
    auto at = index.bound(row, false);
    for (int steps = 0; at.second != last && steps < maxSteps; ++steps, ++at.first, ++at.second) {
        if (*at.second == row)
            return at.first;
        if (index.compare(row, *at.second) != 0)
            break;
    }
    return IndexSortEntry::Unknown;
}

void IndexSortPrivate::locate(const IndexSort &index, QVector<IndexSortEntry> &entries)
{
    const int n = index.count();
    // Places noted before the batch's copy step are checked in order of
    // position, so that one iterator walks the list once.
    QVector<int> noted;
    for (int i = 0; i < entries.size(); ++i) {
        if (entries.at(i).position >= 0)
            noted.append(i);
    }
    if (!noted.isEmpty()) {
        std::sort(noted.begin(), noted.end(), [&entries](int a, int b) {
            return entries.at(a).position < entries.at(b).position;
        });
        ConstIterator it = index.begin();
        int at = 0;
        for (int i : qAsConst(noted)) {
            IndexSortEntry &e = entries[i];
            if (e.position >= n) {
                e.position = IndexSortEntry::Unknown;
                continue;
            }
            it += e.position - at;
            at = e.position;
            if (*it != e.row)
                e.position = IndexSortEntry::Unknown;
        }
    }

    // By key, then one walk by identity for the rows whose key moved. Missed
    // rows stay in address order, as `entries` is.
    QVector<int> missed;
    for (int i = 0; i < entries.size(); ++i) {
        IndexSortEntry &e = entries[i];
        if (e.position != IndexSortEntry::Unknown)
            continue;
        e.position = findByKey(index, e.row);
        if (e.position == IndexSortEntry::Unknown) {
            e.position = IndexSortEntry::NotFound;
            missed.append(i);
        }
    }
    int left = missed.size();
    int p = 0;
    for (ConstIterator it = index.begin(), last = index.end(); it != last && left > 0; ++it, ++p) {
        const auto m = std::lower_bound(missed.cbegin(), missed.cend(), *it,
                                        [&entries](int i, const Record &r) {
                                            return entries.at(i).row < r;
                                        });
        if (m != missed.cend() && entries.at(*m).row == *it
            && entries.at(*m).position == IndexSortEntry::NotFound) {
            entries[*m].position = p;
            --left;
        }
    }
}

QMap<Record, int> IndexSort::indexOfs(QList<Record> records) const
{
    QVector<IndexSortEntry> entries;
    entries.reserve(records.size());
    for (const Record &row : qAsConst(records))
        entries.append({ row, IndexSortEntry::Unknown, -1 });
    IndexSortPrivate::sortByRow(entries);
    IndexSortPrivate::locate(*this, entries);
    QMap<Record, int> result;
    for (const IndexSortEntry &e : qAsConst(entries))
        result.insert(e.row, e.position);
    return result;
}

void IndexSort::preprocess(const QList<Record> &, const QList<Record> &updated, int first,
                           int last, const QList<Record> &, const QList<Record> &changed)
{
    d->updated.clear();
    d->places.clear();
    if (updated.isEmpty() || unaffectedBy(first, last))
        return;
    d->places.resize(updated.size());
    for (int i = 0; i < updated.size(); ++i) {
        const Record &row = updated.at(i);
        int place = IndexSortEntry::Unknown;
        // A row paired with itself already holds its new values: process()
        // looks for it.
        if (i < changed.size() && changed.at(i) != row) {
            const Record &next = changed.at(i);
            if (filter(row) && filter(next) && compare(row, next) == 0)
                place = IndexSortEntry::Kept;
            else
                place = IndexSortPrivate::findByKey(*this, row);
        }
        d->places[i] = place;
    }
    d->updated = updated;
}

void IndexSort::process(const QList<Record> &removed, const QList<Record> &updated, int first,
                        int last, const QList<Record> &inserted)
{
    timer.restart();

    // Every removed and updated row once, by identity; a removed row wins.
    QVector<IndexSortEntry> entries;
    entries.reserve(removed.count() + updated.count());
    for (const Record &row : removed)
        entries.append({ row, IndexSortEntry::Unknown, -1 });
    const bool unaffected = unaffectedBy(first, last);
    // preprocess() saw this very batch if it shares the list.
    const bool noted = !d->places.isEmpty() && d->updated.size() == updated.size()
            && d->updated.constBegin() == updated.constBegin();
    for (int i = 0; i < updated.size(); ++i) {
        const int place = unaffected ? int(IndexSortEntry::Kept)
                                     : noted ? d->places.at(i) : int(IndexSortEntry::Unknown);
        entries.append({ updated.at(i), place, i });
    }
    d->updated.clear();
    d->places.clear();
    IndexSortPrivate::sortByRow(entries);

    QVector<char> passes(entries.size(), 0);
    for (int k = 0; k < entries.size(); ++k) {
        IndexSortEntry &e = entries[k];
        if (e.order < 0)
            continue;
        passes[k] = filter(e.row);
        if (!passes[k] && e.position == IndexSortEntry::Kept)
            e.position = IndexSortEntry::Unknown; // it leaves, so it must be found
    }
    IndexSortPrivate::locate(*this, entries);

    // Rows that may leave their place, by position; the rows that come in.
    QVector<std::pair<int, int>> touched; // position, entry
    QVector<int> replaced; // places in `updated`
    for (int k = 0; k < entries.size(); ++k) {
        const IndexSortEntry &e = entries.at(k);
        if (e.position == IndexSortEntry::Kept)
            continue;
        if (e.position >= 0)
            touched.append({ e.position, k });
        else if (e.order >= 0 && passes.at(k))
            replaced.append(e.order);
    }
    std::sort(touched.begin(), touched.end());

    // A touched row that passes filter() stays if it is in order with the
    // nearest row kept before it and the first untouched row after its run of
    // touched neighbours: then every kept row is in order with the next one.
    RangeSet<int> ranges;
    const int n = count();
    ConstIterator it = begin();
    int at = 0;
    for (int i = 0; i < touched.size();) {
        int j = i;
        while (j + 1 < touched.size() && touched.at(j + 1).first == touched.at(j).first + 1)
            ++j;
        const int a = touched.at(i).first;
        const int b = touched.at(j).first;
        it += a - at;
        at = a;
        const Record *before = a > 0 ? &*(it - 1) : nullptr;
        const Record *after = b + 1 < n ? &*(it + (b + 1 - a)) : nullptr;
        for (int t = i; t <= j; ++t) {
            const int k = touched.at(t).second;
            const IndexSortEntry &e = entries.at(k);
            const bool stays = e.order >= 0 && passes.at(k)
                    && (!before || compare(e.row, *before) >= 0)
                    && (!after || compare(e.row, *after) <= 0);
            if (stays) {
                before = &e.row;
                continue;
            }
            ranges.add(e.position, e.position + 1);
            if (e.order >= 0 && passes.at(k))
                replaced.append(e.order);
        }
        i = j + 1;
    }

    // New rows first, then re-placed ones in the order of `updated`: the sort
    // is stable, so this is their order among equal keys.
    QList<Record> pending;
    pending.reserve(inserted.count() + replaced.size());
    for (const Record &row : inserted) {
        if (filter(row))
            pending.append(row);
    }
    std::sort(replaced.begin(), replaced.end());
    for (int i : qAsConst(replaced))
        pending.append(updated.at(i));

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
        Iterator stop = m_list.end();
        for (const Record &row : qAsConst(pending)) {
            // Upper bound in [start, end()): rows of an equal key stay in front.
            // `pending` is sorted, so the bound is usually close to `start`:
            // gallop out from it first, then search the last step's span.
            Iterator u = start;
            std::ptrdiff_t length = 0;
            for (std::ptrdiff_t step = 1; u != stop; step *= 2) {
                const Iterator probe = u + (step - 1); // stops at end()
                if (probe == stop) {
                    length = stop - u;
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
                    stop = m_list.end();
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
