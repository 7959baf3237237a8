#include "index/partitionlist.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <vector>

namespace {

// Counts its live copies, so that leaks and double releases inside the blocks
// show up as a wrong count.
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
    void TearDown() override { EXPECT_EQ(Item::live, baseline) << "leaked or released twice"; }
    int baseline = 0;
};

std::vector<int> numbers(const std::string &text)
{
    std::vector<int> out;
    std::istringstream in(text);
    for (int n; in >> n;) {
        out.push_back(n);
        in.ignore(1); // the separator
    }
    return out;
}

// The block rules, as scripts of "a<n>" append n, "i<p>" insert one, "b<p>:<n>"
// insert n at once, "r<p>" removeAt, "x<b>:<e>:..." removeRanges and "=<sizes>"
// the expected blocks. Contents are checked against a vector after each step.
TEST_F(PartitionListTest, BlocksFillSplitAndMergeByTheirRules)
{
    const struct
    {
        const char *what, *script;
    } cases[] = {
        { "append fills to 9999, insert splits in halves", "a9999 =9999 i100 =5000,5000" },
        { "a boundary goes to the earlier block", "a10000 =9999,1 i10000 =9999,2" },
        { "past the end opens a last block", "i0 i5 =1,1 i-3 =2,1" },
        { "bulk insert overfills, then splits into blocks of about half the maximum",
          "a100 b50:25000 =4183,4183,4184,4183,4183,4184 i1 =4184,4183,4184,4183,4183,4184" },
        { "merge only below 5000", "a9999 i0 x =5000,5000 x0:2500:5000:7499 =2500,2501 r4000 "
                                   "=2500,2500 r0 =4999 r4999 r-1 =4999" },
        { "the last element leaves", "a10000 r9999 =9999 a1 =9999,1 r9999 =9999" },
        { "an emptied list has no block", "a1 r0 =" },
        { "ranges across blocks drop the emptied one",
          "a29997 =9999,9999,9999 x9000:21000:29000:40000 =9000,8000" },
        { "the boundary rule after work further on",
          "a15000 r12000 =9999,5000 i9999 =5000,5000,5000" },
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        List list;
        std::vector<int> model;
        int next = 0;
        std::istringstream script(c.script);
        for (std::string token; script >> token;) {
            const std::vector<int> n = numbers(token.substr(1));
            const int size = int(model.size());
            const int at = n.empty() ? 0 : std::max(0, std::min(n[0], size));
            if (token[0] == '=') {
                EXPECT_EQ(blockSizes(list), n) << token;
                continue;
            } else if (token[0] == 'a') {
                fill(list, n[0], next);
            } else if (token[0] == 'i') {
                list.insert(n[0], Item(next));
            } else if (token[0] == 'b') {
                QList<Item> values;
                for (int k = 0; k < n[1]; ++k)
                    values.append(Item(next + k));
                list.insert(n[0], values);
            } else if (token[0] == 'r') {
                list.removeAt(n[0]);
                if (n[0] >= 0 && n[0] < size)
                    model.erase(model.begin() + n[0]);
            } else {
                RangeSet<int> ranges;
                for (size_t k = 0; k + 1 < n.size(); k += 2)
                    ranges.add(n[k], n[k + 1]);
                list.removeRanges(ranges);
                for (size_t k = n.size(); k >= 2; k -= 2)
                    model.erase(model.begin() + std::min(n[k - 2], size),
                                model.begin() + std::min(n[k - 1], size));
            }
            const int added = token[0] == 'a' ? n[0]
                    : token[0] == 'i'         ? 1
                    : token[0] == 'b'         ? n[1]
                                              : 0;
            for (int k = 0; k < added; ++k)
                model.insert(model.begin() + (token[0] == 'a' ? size : at) + k, next++);
            ASSERT_EQ(contents(list), model) << token;
            ASSERT_EQ(list.count(), int(model.size())) << token;
        }
    }
}

TEST_F(PartitionListTest, ElementsOfTheListItselfAndPositionsOutside)
{
    List small;
    EXPECT_TRUE(small.begin() == small.end());
    EXPECT_EQ(small.at(0).value, -1);
    fill(small, 3);
    EXPECT_EQ(small.at(3).value, -1);
    EXPECT_EQ(small.at(-1).value, -1);
    EXPECT_EQ(small.indexOf(Item(2)), 2);
    EXPECT_EQ(small.indexOf(Item(3)), -1);
    small.insert(0, small.at(2)); // a reference into the list that the insert moves
    small.append(small.at(0));
    EXPECT_EQ(contents(small), std::vector<int>({ 2, 0, 1, 2, 2 }));

    List a;
    fill(a, 12000);
    List b(a);
    b.removeAt(0);
    EXPECT_EQ(a.count(), 12000);
    EXPECT_EQ(b.at(0).value, 1);
    b = a;
    EXPECT_EQ(contents(b), contents(a));
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
        ASSERT_EQ(b + j - ii, j - i);
        ASSERT_EQ(ii + (j - i), b + j);
        ASSERT_EQ(b + j - (j - i), ii);
        ASSERT_EQ(ii < b + j, i < j);
        if (i < 35000) {
            ASSERT_EQ(ii->value, i);
        }
    }
    auto it = b + 9998; // steps across a block boundary
    EXPECT_EQ((++(++it))->value, 10000);
    EXPECT_EQ((--(--it))->value, 9998);
    EXPECT_EQ((--list.end())->value, 34999);
    (list.begin() + 20000)->value = -20000; // a mutable iterator writes through
    EXPECT_EQ(list.at(20000).value, -20000);
}

// Random appends, inserts, bulk inserts, runs, removeAt and removeRanges
// against a vector, checking contents, live copies and blocks after every step,
// and that every key stays beside its element.
TEST_F(PartitionListTest, MatchesAVectorModelUnderRandomOperations)
{
    std::mt19937 rng(12345);
    List list;
    const auto keyOf = [](const void *, const Item &item) { return quint64(item.value) * 3; };
    list.setKeyFunction(keyOf, nullptr);
    std::vector<int> model;
    int next = 0;
    for (int step = 0; step < 600; ++step) {
        const int n = int(model.size());
        const unsigned op = rng() % 7;
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
            // Runs at sorted places in one pass: the same blocks as inserting
            // run after run.
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
            if (step % 2) {
                list.insertRuns(places, values);
            } else {
                QVector<quint64> keys;
                std::vector<const Item *> given;
                for (const Item &item : qAsConst(values)) {
                    keys.append(keyOf(nullptr, item));
                    given.push_back(&item);
                }
                list.insertRuns(places, given, keys);
            }
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
            ASSERT_TRUE(list.iteratorAt(i) == list.begin() + i);
        }
        for (auto it = list.cbegin(); it != list.cend(); ++it)
            ASSERT_EQ(List::key(it), quint64(it->value) * 3) << "step " << step;
    }
    list.clear();
    EXPECT_EQ(list.partitionCount(), 0);
}

} // namespace
