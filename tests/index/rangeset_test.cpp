#include "index/rangeset.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

namespace {

QList<int> boundariesOf(std::initializer_list<std::pair<int, int>> ranges)
{
    RangeSet<int> set;
    for (const auto &r : ranges)
        set.add(r.first, r.second);
    return set.boundaries();
}

TEST(RangeSet, MergesTouchingAndOverlappingRanges)
{
    EXPECT_EQ(boundariesOf({ { 1, 2 } }), QList<int>({ 1, 2 }));
    EXPECT_EQ(boundariesOf({ { 5, 6 }, { 7, 8 }, { 6, 7 } }), QList<int>({ 5, 8 }));
    EXPECT_EQ(boundariesOf({ { 4, 5 }, { 7, 8 }, { 3, 10 } }), QList<int>({ 3, 10 }));
    EXPECT_EQ(boundariesOf({ { 7, 8 }, { 4, 5 } }), QList<int>({ 4, 5, 7, 8 }));
    EXPECT_EQ(boundariesOf({ { 4, 5 }, { 5, 6 } }), QList<int>({ 4, 6 }));
    EXPECT_EQ(boundariesOf({ { 5, 6 }, { 4, 5 } }), QList<int>({ 4, 6 }));
    EXPECT_EQ(boundariesOf({ { 2, 9 }, { 3, 4 } }), QList<int>({ 2, 9 }));
    EXPECT_EQ(boundariesOf({ { 2, 4 }, { 3, 6 }, { 10, 12 } }), QList<int>({ 2, 6, 10, 12 }));
    EXPECT_EQ(boundariesOf({ { 3, 3 }, { 5, 4 } }), QList<int>());
}

// Random additions against a set of covered points: the boundary list must
// stay strictly ascending (so touching ranges are merged) and cover exactly
// the points added.
TEST(RangeSet, MatchesAPointModel)
{
    std::mt19937 rng(99);
    for (int round = 0; round < 50; ++round) {
        RangeSet<int> set;
        std::set<int> points;
        for (int k = 0; k < 60; ++k) {
            const int b = int(rng() % 200) - 20;
            const int e = b + 1 + int(rng() % (k % 3 == 0 ? 40 : 4));
            set.add(b, e);
            for (int p = b; p < e; ++p)
                points.insert(p);

            const QList<int> &bs = set.boundaries();
            ASSERT_EQ(bs.size() % 2, 0);
            for (int i = 1; i < bs.size(); ++i)
                ASSERT_LT(bs.at(i - 1), bs.at(i)) << "round " << round << " step " << k;
            std::set<int> covered;
            for (int r = 0; r < set.rangeCount(); ++r)
                for (int p = set.rangeBegin(r); p < set.rangeEnd(r); ++p)
                    covered.insert(p);
            ASSERT_EQ(covered, points);
        }
    }
}

} // namespace
