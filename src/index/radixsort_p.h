#ifndef TABLEDB_INDEX_RADIXSORT_P_H
#define TABLEDB_INDEX_RADIXSORT_P_H

#include <QtGlobal>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

// A stable sort of `items` by an unsigned 64-bit key, a byte at a time from
// the lowest; bytes that no two keys differ in are skipped, so positions and
// prefixes that share their high bytes take two or three passes. Batches sort
// positions and key prefixes of a thousand rows and more each time: this is
// several times cheaper there than a comparison sort. `scratch` is working
// room; the two vectors may trade buffers.
template <typename T, typename Key>
void radixSort(std::vector<T> &items, std::vector<T> &scratch, const Key &key)
{
    const size_t n = items.size();
    if (n < 64) {
        std::stable_sort(items.begin(), items.end(),
                         [&key](const T &a, const T &b) { return key(a) < key(b); });
        return;
    }
    quint64 any = 0;
    quint64 all = ~quint64(0);
    for (const T &item : items) {
        const quint64 k = key(item);
        any |= k;
        all &= k;
    }
    const quint64 varying = any ^ all;
    scratch.resize(n);
    T *from = items.data();
    T *to = scratch.data();
    for (int shift = 0; shift < 64; shift += 8) {
        if (((varying >> shift) & 0xFF) == 0)
            continue;
        size_t offsets[256] = {};
        for (size_t i = 0; i < n; ++i)
            ++offsets[(key(from[i]) >> shift) & 0xFF];
        size_t sum = 0;
        for (size_t &offset : offsets) {
            const size_t count = offset;
            offset = sum;
            sum += count;
        }
        for (size_t i = 0; i < n; ++i)
            to[offsets[(key(from[i]) >> shift) & 0xFF]++] = std::move(from[i]);
        std::swap(from, to);
    }
    // An odd number of passes ends in the scratch buffer: it becomes items'.
    if (from != items.data())
        items.swap(scratch);
}

#endif // TABLEDB_INDEX_RADIXSORT_P_H
