#include "index/rangeset.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

namespace {

// Random additions, empty ones among them, against a set of covered points.
// Strictly ascending boundaries that cover exactly the points admit one form
// only, so touching and overlapping ranges must have been merged.
TEST(RangeSet, MatchesAPointModel)
{
    std::mt19937 rng(99);
    for (int round = 0; round < 50; ++round) {
        RangeSet<int> set;
        std::set<int> points;
        for (int k = 0; k < 60; ++k) {
            SCOPED_TRACE(testing::Message() << "round " << round << " step " << k);
            const int b = int(rng() % 200) - 20;
            const int e = k % 7 == 6 ? b - int(rng() % 2) // empty
                                     : b + 1 + int(rng() % (k % 3 == 0 ? 40 : 4));
            set.add(b, e);
            for (int p = b; p < e; ++p)
                points.insert(p);

            const QList<int> &bs = set.boundaries();
            ASSERT_EQ(bs.size() % 2, 0);
            for (int i = 1; i < bs.size(); ++i)
                ASSERT_LT(bs.at(i - 1), bs.at(i));
            std::set<int> covered;
            for (int r = 0; r < set.rangeCount(); ++r)
                for (int p = set.rangeBegin(r); p < set.rangeEnd(r); ++p)
                    covered.insert(p);
            ASSERT_EQ(covered, points);
        }
    }
}

} // namespace
