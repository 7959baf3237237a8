#include "index/concurrentsort.h"
#include "index/partitionlist.h"

#include <gtest/gtest.h>

#include <QAtomicInt>
#include <QThread>

#include <algorithm>
#include <random>
#include <vector>

namespace {

// Few distinct keys, so that stability has something to prove: `seq` is the
// original place and must stay ascending among equal keys.
struct Keyed
{
    int key;
    int seq;
    bool operator==(const Keyed &o) const { return key == o.key && seq == o.seq; }
};

bool byKey(const Keyed &a, const Keyed &b)
{
    return a.key < b.key;
}

std::vector<Keyed> randomInput(int n, int keys, unsigned seed)
{
    std::mt19937 rng(seed);
    std::vector<Keyed> v;
    for (int i = 0; i < n; ++i)
        v.push_back({ int(rng() % unsigned(keys)), i });
    return v;
}

std::vector<Keyed> expected(std::vector<Keyed> v)
{
    std::stable_sort(v.begin(), v.end(), byKey);
    return v;
}

TEST(ConcurrentSort, StableOnQListAroundTheThreshold)
{
    const Qt::HANDLE caller = QThread::currentThreadId();
    for (int n : { 0, 1, 2, 7, 511, 512, 513, 520, 1000, 4097 }) {
        for (int keys : { 1, 3, 1000 }) {
            const std::vector<Keyed> input = randomInput(n, keys, unsigned(n * 31 + keys));
            QList<Keyed> list(input.begin(), input.end());
            QAtomicInt foreign(0);
            ConcurrentSort::sort(list.begin(), list.end(), [&](const Keyed &a, const Keyed &b) {
                if (QThread::currentThreadId() != caller)
                    foreign.fetchAndAddRelaxed(1);
                return byKey(a, b);
            });
            ASSERT_EQ(std::vector<Keyed>(list.begin(), list.end()), expected(input))
                    << "n=" << n << " keys=" << keys;
            // From 512 on the work may still all land on the caller when the
            // pool is busy, so only small inputs have a thread guarantee.
            if (n < 512) {
                EXPECT_EQ(foreign.loadRelaxed(), 0) << "n=" << n;
            }
        }
    }
}

TEST(ConcurrentSort, StableOnPartitionListAcrossBlocks)
{
    for (int n : { 600, 25000, 200003 }) {
        std::vector<Keyed> model = randomInput(n, 97, unsigned(n));
        PartitionList<Keyed> list;
        for (const Keyed &k : model)
            list.append(k);
        // Uneven blocks, so run boundaries fall inside blocks.
        list.insert(n / 3, Keyed { 5, n });
        model.insert(model.begin() + n / 3, Keyed { 5, n });
        ConcurrentSort::sort(list.begin(), list.end(), byKey);
        ASSERT_EQ(std::vector<Keyed>(list.begin(), list.end()), expected(model)) << "n=" << n;
    }
}

TEST(ConcurrentSort, MergeRunsKeepsTheLeftFirstAmongEquals)
{
    // Both merge directions: a short left run and a short right run.
    for (int split : { 3, 17 }) {
        std::vector<Keyed> v;
        for (int i = 0; i < 20; ++i)
            v.push_back({ (i < split ? i : i - split) % 4, i });
        std::stable_sort(v.begin(), v.begin() + split, byKey);
        std::stable_sort(v.begin() + split, v.end(), byKey);
        const std::vector<Keyed> want = expected(v);
        ConcurrentSort::mergeRuns(v.begin(), v.begin() + split, v.end(), byKey);
        EXPECT_EQ(v, want) << "split " << split;
    }
}

} // namespace
