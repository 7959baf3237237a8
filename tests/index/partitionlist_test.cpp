#include "index/partitionlist.h"

#include <gtest/gtest.h>

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

TEST_F(PartitionListTest, AppendFillsBlocksTo9999)
{
    List list;
    EXPECT_EQ(list.partitionCount(), 0);
    EXPECT_TRUE(list.begin() == list.end());
    fill(list, 9999);
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 9999 }));
    list.append(9999);
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 9999, 1 }));
    EXPECT_EQ(list.count(), 10000);
    EXPECT_EQ(list.at(9999).value, 9999);
}

TEST_F(PartitionListTest, InsertSplitsAFullBlockInHalves)
{
    List list;
    fill(list, 9999);
    list.insert(100, Item(-5));
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 5000, 5000 }));
    EXPECT_EQ(list.at(100).value, -5);
    EXPECT_EQ(list.at(101).value, 100);
    EXPECT_EQ(list.at(9999).value, 9998);
}

TEST_F(PartitionListTest, InsertOnABoundaryGoesToTheEarlierBlock)
{
    List list;
    fill(list, 10000); // blocks of 9999 and 1
    list.insert(list.count(), Item(77));
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 9999, 2 }));
    EXPECT_EQ(list.at(10000).value, 77);

    List empty;
    empty.insert(0, Item(1));
    empty.insert(5, Item(2)); // past the end opens a new last block
    EXPECT_EQ(contents(empty), std::vector<int>({ 1, 2 }));
    empty.insert(-3, Item(0));
    EXPECT_EQ(contents(empty), std::vector<int>({ 0, 1, 2 }));
}

TEST_F(PartitionListTest, InsertOfAnElementOfTheListItself)
{
    List list;
    fill(list, 10);
    list.insert(0, list.at(5));
    list.append(list.at(0));
    EXPECT_EQ(list.at(0).value, 5);
    EXPECT_EQ(list.at(11).value, 5);
}

TEST_F(PartitionListTest, RemoveAtMergesOnlyBelowTheThreshold)
{
    List a;
    fill(a, 9999);
    a.insert(0, Item(-1)); // splits into 5000 + 5000
    a.removeRanges(RangeSet<int>()); // nothing to merge at 5000 + 5000
    EXPECT_EQ(blockSizes(a), std::vector<int>({ 5000, 5000 }));

    RangeSet<int> cut;
    cut.add(0, 2500);
    cut.add(5000, 7499);
    a.removeRanges(cut); // 2500 + 2501 stay apart
    EXPECT_EQ(blockSizes(a), std::vector<int>({ 2500, 2501 }));
    a.removeAt(4000); // 2500 + 2500 is not below 5000
    EXPECT_EQ(blockSizes(a), std::vector<int>({ 2500, 2500 }));
    a.removeAt(0); // 2499 + 2500 merge
    EXPECT_EQ(blockSizes(a), std::vector<int>({ 4999 }));
    a.removeAt(4999); // past the end: nothing
    a.removeAt(-1);
    EXPECT_EQ(a.count(), 4999);
}

TEST_F(PartitionListTest, RemoveAtDeletesAnEmptiedBlock)
{
    List list;
    fill(list, 10000); // 9999 + 1
    list.removeAt(9999);
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 9999 }));
    List one;
    one.append(1);
    one.removeAt(0);
    EXPECT_EQ(one.partitionCount(), 0);
    EXPECT_TRUE(one.begin() == one.end());
}

TEST_F(PartitionListTest, BulkInsertMayOverfillThenSplitsOnce)
{
    List list;
    fill(list, 100);
    QList<Item> values;
    for (int i = 0; i < 25000; ++i)
        values.append(Item(1000 + i));
    list.insert(50, values);
    EXPECT_EQ(list.count(), 25100);
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 12550, 12550 }));
    EXPECT_EQ(list.at(49).value, 49);
    EXPECT_EQ(list.at(50).value, 1000);
    EXPECT_EQ(list.at(25049).value, 1000 + 24999);
    EXPECT_EQ(list.at(25050).value, 50);
    // The next single insert into an oversized block splits it again.
    list.insert(1, Item(-1));
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 6275, 6276, 12550 }));
}

TEST_F(PartitionListTest, RemoveRangesAcrossBlocksDropsTheEmptiedOne)
{
    List list;
    fill(list, 9999);
    fill(list, 9999, 9999); // second block
    fill(list, 9999, 19998);
    ASSERT_EQ(blockSizes(list), std::vector<int>({ 9999, 9999, 9999 }));
    RangeSet<int> ranges;
    ranges.add(9000, 21000);
    list.removeRanges(ranges);
    EXPECT_EQ(list.count(), 29997 - 12000);
    EXPECT_EQ(blockSizes(list), std::vector<int>({ 9000, 8997 }));
    EXPECT_EQ(list.at(8999).value, 8999);
    EXPECT_EQ(list.at(9000).value, 21000);
}

TEST_F(PartitionListTest, RemoveRangesIgnoresPositionsPastTheEnd)
{
    List list;
    fill(list, 10);
    RangeSet<int> ranges;
    ranges.add(8, 100);
    ranges.add(200, 300);
    list.removeRanges(ranges);
    EXPECT_EQ(contents(list), std::vector<int>({ 0, 1, 2, 3, 4, 5, 6, 7 }));
}

TEST_F(PartitionListTest, AtPastTheEndGivesTheEmptyValue)
{
    List list;
    EXPECT_EQ(list.at(0).value, -1);
    fill(list, 3);
    EXPECT_EQ(list.at(3).value, -1);
    EXPECT_EQ(list.at(-1).value, -1);
    EXPECT_EQ(list.indexOf(Item(2)), 2);
    EXPECT_EQ(list.indexOf(Item(3)), -1);
}

TEST_F(PartitionListTest, IteratorArithmeticAcrossBlocks)
{
    List list;
    fill(list, 35000);
    list.insert(12345, Item(-1)); // a split leaves blocks of uneven sizes
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
        const auto jj = b + j;
        EXPECT_EQ(jj - ii, j - i);
        EXPECT_EQ(ii + (j - i), jj);
        EXPECT_EQ(jj - (j - i), ii);
        EXPECT_EQ(ii < jj, i < j);
        if (i < 35000) {
            EXPECT_EQ(ii->value, i);
        }
    }
    EXPECT_EQ(b + 35000, e);
    EXPECT_EQ(e - 35000, b);
    auto it = e;
    --it;
    EXPECT_EQ(it->value, 34999);
    it = b + 9998;
    ++it;
    ++it;
    EXPECT_EQ(it->value, 10000);
    --it;
    --it;
    EXPECT_EQ(it->value, 9998);
    // A mutable iterator writes through.
    List::iterator w = list.begin() + 20000;
    w->value = -20000;
    EXPECT_EQ(list.at(20000).value, -20000);
}

TEST_F(PartitionListTest, CopyIsDeep)
{
    List a;
    fill(a, 12000);
    List b(a);
    b.removeAt(0);
    EXPECT_EQ(a.count(), 12000);
    EXPECT_EQ(b.count(), 11999);
    EXPECT_EQ(b.at(0).value, 1);
    b = a;
    EXPECT_EQ(contents(b), contents(a));
}

// Random insert, bulk insert, removeAt, removeRanges and append against a
// vector, checking contents, count and block limits after every step.
TEST_F(PartitionListTest, MatchesAVectorModelUnderRandomOperations)
{
    std::mt19937 rng(12345);
    List list;
    std::vector<int> model;
    int next = 0;
    for (int step = 0; step < 600; ++step) {
        const int n = int(model.size());
        switch (rng() % 6) {
        case 0: {
            const int count = 1 + int(rng() % 3000);
            for (int i = 0; i < count; ++i) {
                list.append(next);
                model.push_back(next++);
            }
            break;
        }
        case 1: {
            const int p = int(rng() % (n + 1));
            list.insert(p, Item(next));
            model.insert(model.begin() + p, next++);
            break;
        }
        case 2: {
            const int p = int(rng() % (n + 1));
            QList<Item> values;
            std::vector<int> mv;
            const int count = int(rng() % 12000);
            for (int i = 0; i < count; ++i) {
                values.append(Item(next));
                mv.push_back(next++);
            }
            list.insert(p, values);
            model.insert(model.begin() + p, mv.begin(), mv.end());
            break;
        }
        case 3: {
            const int p = int(rng() % (n + 2)) - 1;
            list.removeAt(p);
            if (p >= 0 && p < n)
                model.erase(model.begin() + p);
            break;
        }
        default: {
            RangeSet<int> ranges;
            std::vector<bool> gone(size_t(n) + 1, false);
            const int count = int(rng() % 20);
            for (int i = 0; i < count; ++i) {
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
            break;
        }
        }
        ASSERT_EQ(list.count(), int(model.size())) << "step " << step;
        ASSERT_EQ(list.end() - list.begin(), int(model.size()));
        ASSERT_EQ(contents(list), model) << "step " << step;
        ASSERT_EQ(Item::live, baseline + int(model.size())) << "step " << step;
        for (int s : blockSizes(list))
            ASSERT_GT(s, 0);
        if (!model.empty()) {
            const int i = int(rng() % model.size());
            ASSERT_EQ(list.at(i).value, model[size_t(i)]);
            ASSERT_EQ((list.begin() + i)->value, model[size_t(i)]);
        }
    }
    list.clear();
    EXPECT_EQ(list.count(), 0);
    EXPECT_EQ(list.partitionCount(), 0);
}

} // namespace
