#include "jointestsupport.h"

#include "join/parallelrun_p.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>

#include <climits>
#include <map>
#include <set>

namespace {

typedef std::map<const unsigned char *, std::set<int>> Positions;

// Checks the form (address order, each row once) and expands the ranges.
Positions flatten(const RecordsRanges &r)
{
    Positions out;
    EXPECT_EQ(r.records.size(), r.ranges.size());
    for (int i = 0; i < r.count(); ++i) {
        EXPECT_TRUE(i == 0 || r.records.at(i - 1) < r.records.at(i));
        std::set<int> &set = out[r.records.at(i).rowPtr()];
        for (int k = 0; k < r.ranges.at(i).rangeCount(); ++k) {
            for (int p = r.ranges.at(i).rangeBegin(k); p < r.ranges.at(i).rangeEnd(k); ++p)
                set.insert(p);
        }
    }
    return out;
}

// `rows` rows with the repeating key i % keys in column 1, and an index by it.
struct KeyedRows
{
    KeyedRows(int rows, int keys)
        : table(makeTable("T", { { "Id", FieldType::Integer }, { "K", FieldType::Integer } },
            { QStringLiteral("Id") }))
    {
        for (int i = 0; i < rows; ++i) {
            list.append(Record(table.get()));
            list.last().data(0) = i;
            list.last().data(1) = i % keys;
        }
        table->appendList(list);
        index.reset(new MasterIndex_Column(table.get(), QStringList { QStringLiteral("K") }));
        index->build();
    }
    std::unique_ptr<Table> table;
    QList<Record> list;
    std::unique_ptr<MasterIndex_Column> index;
};

} // namespace

// Against a brute-force search, across the parallel threshold; the calling
// thread and the pool give the same result. A row asked twice makes one
// entry, and a key without a match none.
TEST(RecordsRanges, RangesOfMatchesBruteForceBelowAndAtTheParallelSize)
{
    KeyedRows indexed(3000, 700);
    KeyedRows asked(1600, 900);
    const QVector<Col> mapping { { 1, 1 } };
    for (int count : { 0, 1, 511, 512, 513, 1600 }) {
        SCOPED_TRACE(count);
        QList<Record> rows = asked.list.mid(0, count);
        if (count > 2)
            rows[1] = rows[0];
        Positions expected;
        for (const Record &row : qAsConst(rows)) {
            int p = 0;
            for (auto it = indexed.index->begin(); it != indexed.index->end(); ++it, ++p) {
                if (it->data(1).toInteger() == row.data(1).toInteger())
                    expected[row.rowPtr()].insert(p);
            }
        }
        EXPECT_EQ(flatten(rangesOf(rows, rows, indexed.index.get(), &mapping)), expected);
        EXPECT_EQ(flatten(rangesOf(rows, rows, indexed.index.get(), &mapping, INT_MAX)), expected);
    }
}

// Per row what the other holds is taken out, and a row emptied stays.
TEST(RecordsRanges, SubtractTakesOutPerRowAndKeepsEmptiedRows)
{
    KeyedRows rows(1200, 1200);
    QRandomGenerator random(9);
    auto randomSet = [&random] {
        RangeSet<int> set;
        for (int n = int(random.bounded(3)); n >= 0; --n) {
            const int begin = int(random.bounded(60));
            set.add(begin, begin + 1 + int(random.bounded(6)));
        }
        return set;
    };
    for (int count : { 3, 512, 513, 1200 }) {
        SCOPED_TRACE(count);
        RecordsRanges from, other;
        for (int i = 0; i < count; ++i) {
            from.add(rows.list.at(i), randomSet());
            if (random.bounded(3))
                other.add(rows.list.at(count - 1 - i), randomSet());
        }
        Positions expected = flatten(from);
        for (const auto &taken : flatten(other)) {
            for (int p : taken.second)
                expected[taken.first].erase(p);
        }
        EXPECT_EQ(flatten(subtract(from, other)), expected);
        EXPECT_EQ(flatten(subtract(from, other, INT_MAX)), expected);

        const RecordsRanges none = subtract(from, from);
        EXPECT_EQ(none.records, from.records);
        for (const RangeSet<int> &set : none.ranges)
            EXPECT_TRUE(set.isEmpty());
    }
}

// The cut of a long list: at least 256 rows a piece, at most 32 pieces.
TEST(RecordsRanges, LongListsAreCutIntoBoundedPieces)
{
    struct Case
    {
        int count, pieces, firstSize, lastSize;
    };
    for (const Case &c : { Case { 513, 2, 256, 257 }, Case { 8191, 31, 264, 265 },
             Case { 8192, 32, 256, 256 }, Case { 100000, 32, 3125, 3125 } }) {
        SCOPED_TRACE(c.count);
        const int pieces = JoinParallel::pieceCount(c.count);
        EXPECT_EQ(pieces, c.pieces);
        EXPECT_EQ(JoinParallel::pieceBegin(1, pieces, c.count), c.firstSize);
        EXPECT_EQ(c.count - JoinParallel::pieceBegin(pieces - 1, pieces, c.count), c.lastSize);
    }
}
