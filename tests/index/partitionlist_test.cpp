#include "index/partitionlist.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

// A relocatable element that counts its live copies, so that leaks and double
// releases inside the blocks show up as a wrong count.
struct Item
{
    static int live;
    int value;

    Item() : value(-1) { ++live; }
    Item(int v) : value(v) { ++live; }
    Item(const Item &o) : value(o.value) { ++live; }
    Item &operator=(const Item &o) = default;
    ~Item() { --live; }
    bool operator==(const Item &o) const { return value == o.value; }
};
int Item::live = 0;

typedef PartitionList<Item> List;

std::vector<int> contents(const List &list)
{
    std::vector<int> out;
    for (auto it = list.begin(); it != list.end(); ++it)
        out.push_back(it->value);
    return out;
}

std::vector<int> blockSizes(const List &list)
{
    std::vector<int> out;
    for (int i = 0; i < list.partitionCount(); ++i)
        out.push_back(list.partitionSize(i));
    return out;
}

void fill(List &list, int n, int base = 0)
{
    for (int i = 0; i < n; ++i)
        list.append(base + i);
}

class PartitionListTest : public ::testing::Test
{
protected:
    // The static empty value of at() lives for the process: count from after it.
    void SetUp() override
    {
        List().at(0);
        baseline = Item::live;
    }
    void TearDown() override
    {
        EXPECT_EQ(Item::live, baseline) << "elements leaked or released twice";
    }
    int baseline = 0;
};

TEST_F(PartitionListTest, InsertFillsBlocksTo9999ThenSplitsInHalves)
{
    List list;
    EXPECT_TRUE(list.begin() == list.end());
    fill(list, 9999);
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 9999 }));
    list.insert(100, Item(-5));
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 5000, 5000 }));
    EXPECT_EQ(list.at(100).value, -5);
    EXPECT_EQ(list.at(101).value, 100);

    List full;
    fill(full, 10000);
    EXPECT_EQ(blockSizes(full), std::vector<int>({ 9999, 1 }));
    full.insert(full.count(), Item(77)); // on a boundary: the earlier block
    EXPECT_EQ(blockSizes(full), std::vector<int>({ 9999, 2 }));
    EXPECT_EQ(full.at(10000).value, 77);

    List small;
    small.insert(0, Item(1));
    small.insert(5, Item(2)); // past the end opens a new last block
    small.insert(-3, Item(0));
    small.insert(0, small.at(2)); // an element of the list itself
    small.append(small.at(0));
    EXPECT_EQ(contents(small), std::vector<int>({ 2, 0, 1, 2, 2 }));
}

TEST_F(PartitionListTest, BulkInsertMayOverfillThenSplitsOnce)
{
    List list;
    fill(list, 100);
    QList<Item> values;
    for (int i = 0; i < 25000; ++i)
        values.append(Item(1000 + i));
    list.insert(50, values);
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 12550, 12550 }));
    EXPECT_EQ(list.at(49).value, 49);
    EXPECT_EQ(list.at(50).value, 1000);
    EXPECT_EQ(list.at(25049).value, 1000 + 24999);
    EXPECT_EQ(list.at(25050).value, 50);
    // The next single insert into an oversized block splits it again.
    list.insert(1, Item(-1));
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 6275, 6276, 12550 }));
}

TEST_F(PartitionListTest, RemovalMergesNeighboursOnlyBelowTheThreshold)
{
    List a;
    fill(a, 9999);
    a.insert(0, Item(-1)); // 5000 + 5000
    a.removeRanges(RangeSet<int>());
    EXPECT_EQ(blockSizes(a), std::vector<int>({ 5000, 5000 }));
    RangeSet<int> cut;
    cut.add(0, 2500);
    cut.add(5000, 7499);
    a.removeRanges(cut);
    EXPECT_EQ(blockSizes(a), std::vector<int>({ 2500, 2501 }));
    a.removeAt(4000); // 2500 + 2500 is not below 5000
    EXPECT_EQ(blockSizes(a), std::vector<int>({ 2500, 2500 }));
    a.removeAt(0);
    EXPECT_EQ(blockSizes(a), std::vector<int>({ 4999 }));
    a.removeAt(4999);
    a.removeAt(-1);
    EXPECT_EQ(a.count(), 4999);

    List b;
    fill(b, 10000); // 9999 + 1
    b.removeAt(9999);
    EXPECT_EQ(blockSizes(b), std::vector<int>({ 9999 }));
    List one;
    one.append(1);
    one.removeAt(0);
    EXPECT_EQ(one.partitionCount(), 0);
    EXPECT_TRUE(one.begin() == one.end());
}

TEST_F(PartitionListTest, RemoveRangesAcrossBlocksDropsTheEmptiedOne)
{
    List list;
    fill(list, 29997);
    ASSERT_EQ(blockSizes(list), std::vector<int>({ 9999, 9999, 9999 }));
    RangeSet<int> ranges;
    ranges.add(9000, 21000);
    ranges.add(29000, 40000); // past the end: ignored
    list.removeRanges(ranges);
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 9000, 8000 }));
    EXPECT_EQ(list.at(8999).value, 8999);
    EXPECT_EQ(list.at(9000).value, 21000);
    EXPECT_EQ(list.at(16999).value, 28999);
}

TEST_F(PartitionListTest, AtAndIndexOfOutsideTheList)
{
    List list;
    EXPECT_EQ(list.at(0).value, -1);
    fill(list, 3);
    EXPECT_EQ(list.at(3).value, -1);
    EXPECT_EQ(list.at(-1).value, -1);
    EXPECT_EQ(list.indexOf(Item(2)), 2);
    EXPECT_EQ(list.indexOf(Item(3)), -1);
}

TEST_F(PartitionListTest, IteratorArithmeticAcrossUnevenBlocks)
{
    List list;
    fill(list, 35000);
    list.insert(12345, Item(-1));
    list.removeAt(12345);
    ASSERT_GT(list.partitionCount(), 3);
    const auto b = list.begin();
    const auto e = list.end();
    EXPECT_EQ(e - b, 35000);
    EXPECT_EQ(b - e, -35000);
    std::mt19937 rng(7);
    for (int k = 0; k < 2000; ++k) {
        const int i = int(rng() % 35001);
        const int j = int(rng() % 35001);
        const auto ii = b + i;
        EXPECT_EQ(b + j - ii, j - i);
        EXPECT_EQ(ii + (j - i), b + j);
        EXPECT_EQ(b + j - (j - i), ii);
        EXPECT_EQ(ii < b + j, i < j);
        if (i < 35000) {
            EXPECT_EQ(ii->value, i);
        }
    }
    auto it = b + 9998; // steps across a block boundary
    EXPECT_EQ((++(++it))->value, 10000);
    EXPECT_EQ((--(--it))->value, 9998);
    EXPECT_EQ((--list.end())->value, 34999);
    (list.begin() + 20000)->value = -20000; // a mutable iterator writes through
    EXPECT_EQ(list.at(20000).value, -20000);
}

TEST_F(PartitionListTest, CopyIsDeep)
{
    List a;
    fill(a, 12000);
    List b(a);
    b.removeAt(0);
    EXPECT_EQ(a.count(), 12000);
    EXPECT_EQ(b.at(0).value, 1);
    b = a;
    EXPECT_EQ(contents(b), contents(a));
}

// Random appends, inserts, bulk inserts, removeAt and removeRanges against a
// vector, checking contents, live copies and block sizes after every step.
// Work in a later block must not change where a boundary position goes.
TEST_F(PartitionListTest, ABoundaryGoesToTheEarlierBlockAfterWorkFurtherOn)
{
    List list;
    fill(list, 15000);
    list.removeAt(12000);
    ASSERT_EQ(blockSizes(list), std::vector<int>({ 9999, 5000 }));
    list.insert(9999, Item(-5)); // the end of the first block, which splits
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 5000, 5000, 5000 }));
    EXPECT_EQ(list.at(9999).value, -5);
}

TEST_F(PartitionListTest, MatchesAVectorModelUnderRandomOperations)
{
    std::mt19937 rng(12345);
    List list;
    std::vector<int> model;
    int next = 0;
    for (int step = 0; step < 600; ++step) {
        const int n = int(model.size());
        const unsigned op = rng() % 7; // 6: runs
        if (op <= 2) { // append, single insert, bulk insert
            const int p = op == 0 ? n : int(rng() % (n + 1));
            const int count = op == 1 ? 1 : int(rng() % (op == 0 ? 3000 : 12000));
            QList<Item> values;
            for (int i = 0; i < count; ++i)
                values.append(Item(next + i));
            if (op == 0)
                fill(list, count, next);
            else if (op == 1)
                list.insert(p, values.first());
            else
                list.insert(p, values);
            for (int i = 0; i < count; ++i)
                model.insert(model.begin() + p + i, next++);
        } else if (op == 3) {
            const int p = int(rng() % (n + 2)) - 1;
            list.removeAt(p);
            if (p >= 0 && p < n)
                model.erase(model.begin() + p);
        } else if (op == 6) {
            // Runs at sorted places, one pass per block: the same blocks as
            // inserting run after run.
            QVector<int> places;
            QList<Item> values;
            std::vector<int> boundaries(1, 0); // where the block rule matters
            for (int size : blockSizes(list))
                boundaries.push_back(boundaries.back() + size);
            for (int i = int(rng() % 20); i > 0; --i) {
                const int place = rng() % 3 ? int(rng() % (n + 1))
                                            : boundaries[rng() % boundaries.size()];
                for (int c = int(rng() % (rng() % 16 ? 20 : 7000)) + 1; c > 0; --c)
                    places.append(place);
            }
            std::sort(places.begin(), places.end());
            for (int i = 0; i < places.size(); ++i)
                values.append(Item(next + i));
            List reference(list);
            for (int i = 0, shift = 0; i < places.size();) {
                int j = i;
                while (j < places.size() && places[j] == places[i])
                    ++j;
                reference.insert(places[i] + shift, values.mid(i, j - i));
                shift += j - i;
                i = j;
            }
            list.insertRuns(places, values);
            ASSERT_EQ(blockSizes(list), blockSizes(reference)) << "step " << step;
            std::vector<int> merged;
            for (int k = 0, i = 0; k <= n; ++k) {
                for (; i < places.size() && places[i] == k; ++i)
                    merged.push_back(next + i);
                if (k < n)
                    merged.push_back(model[size_t(k)]);
            }
            model.swap(merged);
            next += places.size();
        } else {
            RangeSet<int> ranges;
            std::vector<bool> gone(size_t(n), false);
            for (int i = int(rng() % 20); i > 0; --i) {
                const int b = int(rng() % (n + 10));
                const int e = b + 1 + int(rng() % (rng() % 2 ? 20 : 3000));
                ranges.add(b, e);
                for (int k = b; k < e && k < n; ++k)
                    gone[size_t(k)] = true;
            }
            list.removeRanges(ranges);
            std::vector<int> kept;
            for (int k = 0; k < n; ++k)
                if (!gone[size_t(k)])
                    kept.push_back(model[size_t(k)]);
            model.swap(kept);
        }
        ASSERT_EQ(list.end() - list.begin(), list.count()) << "step " << step;
        ASSERT_EQ(contents(list), model) << "step " << step;
        ASSERT_EQ(Item::live, baseline + int(model.size())) << "step " << step;
        for (int s : blockSizes(list))
            ASSERT_GT(s, 0);
        if (!model.empty()) {
            const int i = int(rng() % model.size());
            ASSERT_EQ(list.at(i).value, model[size_t(i)]);
        }
    }
    list.clear();
    EXPECT_EQ(list.partitionCount(), 0);
}

} // namespace
