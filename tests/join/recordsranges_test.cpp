#include "jointestsupport.h"

#include "join/parallelrun_p.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>

#include <climits>
#include <map>
#include <set>

namespace {

typedef std::map<const unsigned char *, std::set<int>> Positions;

std::set<int> expand(const RangeSet<int> &ranges)
{
    std::set<int> out;
    for (int k = 0; k < ranges.rangeCount(); ++k) {
        for (int p = ranges.rangeBegin(k); p < ranges.rangeEnd(k); ++p)
            out.insert(p);
    }
    return out;
}

Positions flatten(const RecordsRanges &r)
{
    Positions out;
    EXPECT_EQ(r.records.size(), r.ranges.size());
    for (int i = 0; i < r.count(); ++i) {
        if (i > 0) {
            EXPECT_TRUE(r.records.at(i - 1) < r.records.at(i)) << "address order, once each";
        }
        out[r.records.at(i).rowPtr()] = expand(r.ranges.at(i));
    }
    return out;
}

RangeSet<int> randomSet(QRandomGenerator &random)
{
    RangeSet<int> set;
    for (int n = int(random.bounded(3)); n >= 0; --n) {
        const int begin = int(random.bounded(60));
        set.add(begin, begin + 1 + int(random.bounded(6)));
    }
    return set;
}

// A table of `rows` rows whose Integer key repeats (key = i % keys), in a key
// index, and the rows themselves.
struct KeyedRows
{
    KeyedRows(int rows, int keys)
    {
        table = makeTable("T", {{"Id", FieldType::Integer}, {"K", FieldType::Integer}},
                          {QStringLiteral("Id")});
        index = new ExactKeyIndex(table.get(), {QStringLiteral("K")});
        table->addIndex(index);
        TableUpdater bracket(table.get());
        RecordsTrans trans(table.get());
        for (int i = 0; i < rows; ++i) {
            Record row(table.get());
            row.data(0) = i;
            row.data(1) = i % keys;
            RecordUpdater insert(row, trans);
            list.append(row);
        }
    }
    ~KeyedRows()
    {
        table->removeIndex(index);
        delete index;
    }
    std::unique_ptr<Table> table;
    ExactKeyIndex *index;
    QList<Record> list;
};

} // namespace

// add, merge and the pieces constructor all unite per row, in address order.
TEST(RecordsRanges, AddMergeAndPiecesAgreeWithAModel)
{
    KeyedRows rows(40, 40);
    QRandomGenerator random(5);
    for (int round = 0; round < 50; ++round) {
        Positions model;
        RecordsRanges added;
        QVector<RecordsRanges> pieces(1 + int(random.bounded(4)));
        const int n = int(random.bounded(60));
        for (int i = 0; i < n; ++i) {
            const Record &row = rows.list.at(int(random.bounded(rows.list.size())));
            const RangeSet<int> set = randomSet(random);
            added.add(row, set);
            pieces[int(random.bounded(pieces.size()))].add(row, set);
            const std::set<int> positions = expand(set);
            model[row.rowPtr()].insert(positions.begin(), positions.end());
        }
        RecordsRanges merged;
        for (const RecordsRanges &piece : qAsConst(pieces))
            merged.merge(piece);
        EXPECT_EQ(flatten(added), model);
        EXPECT_EQ(flatten(merged), model);
        EXPECT_EQ(flatten(RecordsRanges(n, pieces)), model);
    }
}

// Against a brute-force search, across the parallel threshold; the calling
// thread and the pool give the same result. Rows repeat and some keys match
// nothing.
TEST(RecordsRanges, RangesOfMatchesBruteForceBelowAndAtTheParallelSize)
{
    KeyedRows indexed(3000, 700);
    KeyedRows asked(1600, 900); // keys 700 and up have no match
    const QVector<Col> mapping{{1, 1}};
    for (int count : {0, 1, 511, 512, 513, 1600}) {
        SCOPED_TRACE(count);
        QList<Record> rows = asked.list.mid(0, count);
        if (count > 2)
            rows[1] = rows[0]; // a row twice: one entry
        Positions expected;
        for (const Record &row : qAsConst(rows)) {
            const int key = row.data(1).toInteger();
            int p = 0;
            for (auto it = indexed.index->begin(); it != indexed.index->end(); ++it, ++p) {
                if (it->data(1).toInteger() == key)
                    expected[row.rowPtr()].insert(p);
            }
        }
        const RecordsRanges pooled = rangesOf(rows, rows, indexed.index, &mapping);
        EXPECT_EQ(flatten(pooled), expected);
        EXPECT_EQ(flatten(rangesOf(rows, rows, indexed.index, &mapping, INT_MAX)), expected);
        EXPECT_EQ(pooled.count(), int(expected.size()));
    }
}

TEST(RecordsRanges, SubtractTakesOutPerRowAndKeepsEmptiedRows)
{
    KeyedRows rows(1200, 1200);
    QRandomGenerator random(9);
    for (int count : {3, 512, 513, 1200}) {
        SCOPED_TRACE(count);
        RecordsRanges from, other;
        for (int i = 0; i < count; ++i) {
            from.add(rows.list.at(i), randomSet(random));
            if (random.bounded(3))
                other.add(rows.list.at(i), randomSet(random));
        }
        Positions expected = flatten(from);
        const Positions taken = flatten(other);
        for (auto &entry : expected) {
            const auto t = taken.find(entry.first);
            if (t != taken.end()) {
                for (int p : t->second)
                    entry.second.erase(p);
            }
        }
        EXPECT_EQ(flatten(subtract(from, other)), expected);
        EXPECT_EQ(flatten(subtract(from, other, INT_MAX)), expected);

        const RecordsRanges none = subtract(from, from);
        ASSERT_EQ(none.count(), from.count());
        for (const RangeSet<int> &set : none.ranges)
            EXPECT_TRUE(set.isEmpty());
    }
}

// One entry per differing key column, on the calling thread and on the pool.
TEST(RecordsRanges, ChangedKeyRowsCountsEachDifferingKeyColumn)
{
    auto table = makeTable("T", {{"A", FieldType::Integer}, {"V", FieldType::Integer},
                                 {"B", FieldType::String}},
                           {QStringLiteral("A")});
    JoinMainInfo info;
    info.keyColumns = {0, 2};
    TableJoinMain main(&info, {});
    QRandomGenerator random(3);
    for (int count : {10, 512, 513, 3000}) {
        SCOPED_TRACE(count);
        QList<Record> updated, changed;
        std::map<const unsigned char *, int> expected;
        for (int i = 0; i < count; ++i) {
            Record row(table.get());
            row.data(0) = i;
            row.data(1) = i;
            row.data(2) = QStringLiteral("b");
            Record clone = row.clone();
            const int kind = int(random.bounded(4)); // bit 0: A differs, bit 1: B differs
            clone.data(1) = -i; // not a key column
            if (kind & 1)
                clone.data(0) = i + 1;
            if (kind & 2)
                clone.data(2) = QStringLiteral("c");
            if (kind)
                expected[row.rowPtr()] = (kind & 1) + (kind >> 1);
            updated.append(row);
            changed.append(clone);
        }
        for (int parallelFrom : {JoinParallelFrom, INT_MAX}) {
            std::map<const unsigned char *, int> got;
            for (const Record &row : changedKeyRows(&main, updated, changed, parallelFrom))
                ++got[row.rowPtr()];
            EXPECT_EQ(got, expected);
        }
    }
}

// The cut of a long list: at least 256 rows a piece, at most 32 pieces.
TEST(RecordsRanges, LongListsAreCutIntoBoundedPieces)
{
    struct Case
    {
        int count, pieces, firstSize, lastSize;
    };
    for (const Case &c : {Case{513, 2, 256, 257}, Case{8191, 31, 264, 265},
                          Case{8192, 32, 256, 256}, Case{100000, 32, 3125, 3125}}) {
        SCOPED_TRACE(c.count);
        const int pieces = JoinParallel::pieceCount(c.count);
        EXPECT_EQ(pieces, c.pieces);
        EXPECT_EQ(JoinParallel::pieceBegin(1, pieces, c.count), c.firstSize);
        EXPECT_EQ(c.count - JoinParallel::pieceBegin(pieces - 1, pieces, c.count), c.lastSize);
    }
}
