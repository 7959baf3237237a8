#ifndef TABLEDB_INDEX_CONCURRENTSORT_H
#define TABLEDB_INDEX_CONCURRENTSORT_H

#include "runtime/global.h"

#include <QList>
#include <QtConcurrent/QtConcurrentMap>

#if defined(TABLEDB_TSAN)
#include <sanitizer/tsan_interface.h>
#endif

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

// A stable sort that uses Qt's global thread pool for large ranges.
//
// Below 512 elements it sorts on the caller's thread. Otherwise it cuts the
// range into eight runs, sorts them on the pool, and merges them in three
// rounds (4, 2, 1), the last on the caller's thread. The caller blocks until
// the sort is done. `compare` is called from several threads at once and must
// not write; the runs are disjoint, so no lock is needed.
class TABLEDB_EXPORT ConcurrentSort
{
public:
    // One run to sort.
    template <typename Iterator, typename Compare>
    struct BeginEnd
    {
        Iterator begin;
        Iterator end;
        Compare compare;
    };

    // Two neighbouring sorted runs to merge.
    template <typename Iterator, typename Compare>
    struct BeginMiddleEnd
    {
        Iterator begin;
        Iterator middle;
        Iterator end;
        Compare compare;
    };

    static const int parallelThreshold = 512;

    template <typename Iterator, typename Compare>
    static void sort(Iterator begin, Iterator end, Compare compare);

    // Stable sort of one range on the calling thread.
    template <typename Iterator, typename Compare>
    static void sortRun(Iterator begin, Iterator end, const Compare &compare);

    // Merges the sorted runs [begin, middle) and [middle, end) in place; among
    // equals the left run's element comes first. The scratch buffer holds the
    // shorter run.
    template <typename Iterator, typename Compare>
    static void mergeRuns(Iterator begin, Iterator middle, Iterator end, const Compare &compare);

private:
#if defined(TABLEDB_TSAN)
    // An iterator over the work items that tells ThreadSanitizer of the
    // hand-over before Qt's kernel reads an item on a pool thread.
    template <typename It>
    struct HandOverIterator
    {
        typedef std::random_access_iterator_tag iterator_category;
        typedef typename std::iterator_traits<It>::value_type value_type;
        typedef typename std::iterator_traits<It>::difference_type difference_type;
        typedef value_type *pointer;
        typedef value_type &reference;

        It it;
        const void *handOver;

        reference operator*() const
        {
            __tsan_acquire(const_cast<void *>(handOver));
            return *it;
        }
        HandOverIterator &operator++() { ++it; return *this; }
        HandOverIterator operator++(int) { HandOverIterator old = *this; ++it; return old; }
        HandOverIterator &operator--() { --it; return *this; }
        HandOverIterator &operator+=(difference_type n) { it += n; return *this; }
        HandOverIterator operator+(difference_type n) const { return {it + n, handOver}; }
        difference_type operator-(const HandOverIterator &o) const { return it - o.it; }
        bool operator==(const HandOverIterator &o) const { return it == o.it; }
        bool operator!=(const HandOverIterator &o) const { return it != o.it; }
        bool operator<(const HandOverIterator &o) const { return it < o.it; }
    };
#endif

    // blockingMap on the global pool. The hand-over of the data to the pool
    // threads and back goes through Qt's uninstrumented thread pool, so a
    // ThreadSanitizer build is told about it here.
    template <typename Items, typename Function>
    static void onPool(Items &items, Function function)
    {
#if defined(TABLEDB_TSAN)
        static char handOver;
        __tsan_release(&handOver);
        typedef HandOverIterator<typename Items::iterator> It;
        QtConcurrent::blockingMap(It{items.begin(), &handOver}, It{items.end(), &handOver},
                                  [&function](typename Items::value_type &item) {
                                      function(item);
                                      __tsan_release(&handOver);
                                  });
        __tsan_acquire(&handOver);
#else
        QtConcurrent::blockingMap(items, function);
#endif
    }
};

template <typename Iterator, typename Compare>
void ConcurrentSort::sortRun(Iterator begin, Iterator end, const Compare &compare)
{
    typedef typename std::iterator_traits<Iterator>::value_type Value;
    const auto n = end - begin;
    if (n < 2)
        return;
    // Sorting a contiguous copy beats stepping through block iterators, and
    // the values are moved, not copied.
    std::vector<Value> buffer;
    buffer.reserve(size_t(n));
    for (Iterator it = begin; it != end; ++it)
        buffer.push_back(std::move(*it));
    std::stable_sort(buffer.begin(), buffer.end(), compare);
    Iterator out = begin;
    for (Value &v : buffer) {
        *out = std::move(v);
        ++out;
    }
}

template <typename Iterator, typename Compare>
void ConcurrentSort::mergeRuns(Iterator begin, Iterator middle, Iterator end,
                               const Compare &compare)
{
    typedef typename std::iterator_traits<Iterator>::value_type Value;
    if (begin == middle || middle == end)
        return;
    // Already in order: nothing to move.
    {
        Iterator lastLeft = middle;
        --lastLeft;
        if (!compare(*middle, *lastLeft))
            return;
    }
    const auto leftLength = middle - begin;
    const auto rightLength = end - middle;
    std::vector<Value> buffer;
    if (leftLength <= rightLength) {
        // Forward merge from a copy of the left run.
        buffer.reserve(size_t(leftLength));
        for (Iterator it = begin; it != middle; ++it)
            buffer.push_back(std::move(*it));
        auto l = buffer.begin();
        Iterator r = middle;
        Iterator out = begin;
        while (l != buffer.end()) {
            if (r != end && compare(*r, *l)) {
                *out = std::move(*r);
                ++r;
            } else {
                *out = std::move(*l);
                ++l;
            }
            ++out;
        }
    } else {
        // Backward merge from a copy of the right run.
        buffer.reserve(size_t(rightLength));
        for (Iterator it = middle; it != end; ++it)
            buffer.push_back(std::move(*it));
        auto r = buffer.end();
        Iterator l = middle;
        Iterator out = end;
        while (r != buffer.begin()) {
            --out;
            if (l != begin) {
                Iterator prev = l;
                --prev;
                // The right element goes last unless the left one is greater.
                if (compare(*(r - 1), *prev)) {
                    *out = std::move(*prev);
                    l = prev;
                    continue;
                }
            }
            --r;
            *out = std::move(*r);
        }
    }
}

template <typename Iterator, typename Compare>
void ConcurrentSort::sort(Iterator begin, Iterator end, Compare compare)
{
    const int n = int(end - begin);
    if (n < parallelThreshold) {
        sortRun(begin, end, compare);
        return;
    }
    Iterator p[9];
    p[0] = begin;
    p[8] = end;
    for (int k = 1; k < 8; ++k)
        p[k] = begin + (n * k) / 8;

    QList<BeginEnd<Iterator, Compare>> runs;
    for (int k = 0; k < 8; ++k)
        runs.append(BeginEnd<Iterator, Compare> { p[k], p[k + 1], compare });
    onPool(runs, [](BeginEnd<Iterator, Compare> &run) { sortRun(run.begin, run.end, run.compare); });

    auto mergeItem = [](BeginMiddleEnd<Iterator, Compare> &item) {
        mergeRuns(item.begin, item.middle, item.end, item.compare);
    };
    QList<BeginMiddleEnd<Iterator, Compare>> merges;
    for (int k = 0; k < 8; k += 2)
        merges.append(BeginMiddleEnd<Iterator, Compare> { p[k], p[k + 1], p[k + 2], compare });
    onPool(merges, mergeItem);

    merges.clear();
    merges.append(BeginMiddleEnd<Iterator, Compare> { p[0], p[2], p[4], compare });
    merges.append(BeginMiddleEnd<Iterator, Compare> { p[4], p[6], p[8], compare });
    onPool(merges, mergeItem);

    mergeRuns(p[0], p[4], p[8], compare);
}

#endif // TABLEDB_INDEX_CONCURRENTSORT_H
