#include "keyedtable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

namespace {

bool byKey(const Record &a, const Record &b)
{
    return keyOf(a) < keyOf(b);
}

class IndexSortTest : public ::testing::Test
{
protected:
    // Adds rows of these keys to the index, one at a time.
    std::vector<Record> addKeys(KeyIndex &index, std::initializer_list<int> keys)
    {
        std::vector<Record> out;
        for (int k : keys) {
            out.push_back(table.row(k));
            index.add(out.back());
        }
        return out;
    }

    // n rows sorted by address, so that the row of lowest address is first.
    std::vector<Record> rowsByAddress(int n)
    {
        std::vector<Record> r;
        for (int i = 0; i < n; ++i)
            r.push_back(table.row(0));
        std::sort(r.begin(), r.end());
        return r;
    }

    void process(KeyIndex &index, const QList<Record> &removed, const QList<Record> &updated,
                 const QList<Record> &inserted)
    {
        index.process(removed, updated, -1, -1, inserted);
    }

    KeyedTable table;
    KeyIndex index { &table };
};

TEST_F(IndexSortTest, SearchesAmongEqualKeysInOrderOfArrival)
{
    const Record probe = table.row(5);
    EXPECT_EQ(index.search(probe, -1), -1);
    EXPECT_EQ(index.searchLast(probe, -1), -1);
    EXPECT_EQ(index.searchFull(probe, -1), -1);
    EXPECT_EQ(index.indexOfAdd(probe), 0);
    EXPECT_EQ(index.getClassName(), QStringLiteral("IndexSort"));

    const std::vector<Record> r = addKeys(index, { 9, 5, 1, 5, 5 });
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[2], r[1], r[3], r[4], r[0] }));
    EXPECT_EQ(index.search(probe, -1), 1);
    EXPECT_EQ(index.searchLast(probe, -1), 3);
    EXPECT_EQ(index.search(probe, 1), 2);
    EXPECT_EQ(index.search(probe, 3), -1);
    EXPECT_EQ(index.searchLast(probe, 1), 3);
    EXPECT_EQ(index.find(probe, 1), r[3]);
    EXPECT_EQ(index.indexOfAdd(probe), 4);
    EXPECT_EQ(index.search(table.row(4), -1), -1);

    // Searching from the last place needs no compare.
    const int before = index.compares.loadRelaxed();
    EXPECT_EQ(index.search(probe, index.count() - 1), -1);
    EXPECT_EQ(index.searchLast(probe, index.count() - 1), -1);
    EXPECT_EQ(index.compares.loadRelaxed(), before);
}

TEST_F(IndexSortTest, SearchFullGivesAnOffsetFromTheStart)
{
    for (int k : { 3, 1, 4, 1, 5, 9, 2, 6, 5, 3 })
        index.appendUnsorted(table.row(k));
    const Record six = table.row(6);
    EXPECT_EQ(index.searchFull(six, -1), 7);
    EXPECT_EQ(index.searchFull(six, 4), 2); // not a position: 7 - (4 + 1)
    EXPECT_EQ(index.searchFull(six, 7), -1);
    EXPECT_EQ(index.searchFull(table.row(42), -1), -1);
}

// A stable resort over many blocks, then searches against lower/upper_bound.
TEST_F(IndexSortTest, ResortAndSearchesMatchAModelAcrossBlocks)
{
    std::mt19937 rng(3);
    std::vector<Record> model;
    for (int i = 0; i < 40000; ++i) {
        model.push_back(table.row(int(rng() % 3000) * 2)); // even keys only
        index.appendUnsorted(model.back());
    }
    index.resort();
    std::stable_sort(model.begin(), model.end(), byKey);
    ASSERT_TRUE(index.rows() == model);
    ASSERT_GT(index.list().partitionCount(), 3);
    for (int t = 0; t < 500; ++t) {
        const Record probe = table.row(int(rng() % 6002) - 1);
        const int lower = int(std::lower_bound(model.begin(), model.end(), probe, byKey) - model.begin());
        const int upper = int(std::upper_bound(model.begin(), model.end(), probe, byKey) - model.begin());
        const bool present = lower != upper;
        EXPECT_EQ(index.search(probe, -1), present ? lower : -1) << keyOf(probe);
        EXPECT_EQ(index.searchLast(probe, -1), present ? upper - 1 : -1) << keyOf(probe);
        EXPECT_EQ(index.indexOfAdd(probe), upper) << keyOf(probe);
        if (upper - lower > 1) {
            EXPECT_EQ(index.search(probe, lower), lower + 1);
        }
    }
}

TEST_F(IndexSortTest, MovedKeysAreFoundWithoutAScanWherePossible)
{
    const std::vector<Record> r = addKeys(index, { 1, 2, 2, 2, 7, 9 });
    WarningCatcher catcher;
    setKey(r[0], 50);
    EXPECT_EQ(index.indexOf(r[0]), 0);
    EXPECT_EQ(index.indexOf(table.row(2)), -1);
    setKey(r[0], 1);

    index.update(r[3], 0, 0, -1); // found by walking its equals; in order: stays
    EXPECT_EQ(index.rows(), r);

    setKey(r[2], 8); // sits among keys that a search for 8 cannot reach
    index.update(r[2], 0, 0, 2); // the hint is right: re-placed without a scan
    EXPECT_TRUE(WarningCatcher::messages().isEmpty());
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[0], r[1], r[3], r[4], r[2], r[5] }));

    setKey(r[1], 10); // unreachable and without a hint: scanned, with a warning
    index.update(r[1], 0, 0, -1);
    EXPECT_EQ(WarningCatcher::messages(),
              QStringList({ QStringLiteral("IndexSort::update Full search can impact the performance") }));
    EXPECT_EQ(index.keys(), std::vector<int>({ 1, 2, 7, 8, 9, 10 }));
}

TEST_F(IndexSortTest, UpdateWithAHint)
{
    const std::vector<Record> r = addKeys(index, { 1, 2, 3, 3, 5 });
    const int before = index.compares.loadRelaxed();
    index.update(r[2], 0, 0, 3); // names r[3], whose neighbours bound r[2]'s key
    EXPECT_EQ(index.rows(), r);
    EXPECT_EQ(index.compares.loadRelaxed() - before, 2);

    setKey(r[4], 0);
    index.update(r[4], 0, 0, 2); // a wrong hint loses no row
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[4], r[0], r[1], r[2], r[3] }));
}

TEST_F(IndexSortTest, UpdateAddsAndDropsRowsByTheFilter)
{
    addKeys(index, { 1, 2, 3 });
    WarningCatcher catcher;
    const Record fresh = table.row(2);
    index.update(fresh, 0, 0, -1);
    EXPECT_EQ(index.count(), 4);
    EXPECT_EQ(index.at(2), fresh); // behind the existing 2
    EXPECT_TRUE(WarningCatcher::messages().isEmpty());

    index.update(table.row(-5), 0, 0, -1);
    EXPECT_EQ(index.count(), 4);

    setKey(fresh, -1);
    index.update(fresh, 0, 0, 2);
    EXPECT_EQ(index.count(), 3);
    EXPECT_FALSE(index.contains(fresh));
}

TEST_F(IndexSortTest, BuildSortsTheRowsOfTheMaster)
{
    std::vector<Record> rows;
    for (int k : { 5, -1, 3, 5, 0 }) {
        rows.push_back(table.row(k));
        table.appendRow(rows.back().rowPtr());
    }
    index.build();
    EXPECT_EQ(index.rows(), std::vector<Record>({ rows[4], rows[2], rows[0], rows[3] }));
    index.rebuild();
    EXPECT_EQ(index.count(), 4);
}

// ---- batch maintenance ----

TEST_F(IndexSortTest, ProcessOfSmallBatches)
{
    const std::vector<Record> r = addKeys(index, { 1, 2, 3, 4, 5, 6 });
    const int64 before = Index::nsecsElapsedTotal();
    process(index, {}, {}, {});
    EXPECT_EQ(index.rows(), r);
    EXPECT_GT(index.nsecsElapsed(), 0);
    EXPECT_GE(Index::nsecsElapsedTotal(), before + index.nsecsElapsed());

    // A key still bounded by its neighbours: the lookup plus two compares.
    setKey(r[2], 2);
    int compares = index.compares.loadRelaxed();
    index.indexOfs({ r[2] });
    const int lookup = index.compares.loadRelaxed() - compares;
    compares = index.compares.loadRelaxed();
    process(index, {}, { r[2] }, {});
    EXPECT_EQ(index.rows(), r);
    EXPECT_EQ(index.compares.loadRelaxed() - compares, lookup + 2);

    // Removed twice removes once; the filter decides entry and exit.
    const Record taken = table.row(2);
    setKey(r[0], -7);
    process(index, { r[3], r[3] }, { r[0] }, { table.row(-1), taken });
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[1], r[2], taken, r[4], r[5] }));
}

TEST_F(IndexSortTest, ReplacedRowGoesBehindItsEqualsAfterTheNewOnes)
{
    // The moved row has the lowest address, so the lookup by walking finds it.
    const std::vector<Record> r = rowsByAddress(5);
    const int keys[] = { 9, 5, 5, 5, 7 };
    for (size_t i = 0; i < 5; ++i) {
        setKey(r[i], keys[i]);
        index.add(r[i]);
    }
    setKey(r[0], 5);
    const Record x = table.row(5);
    const Record y = table.row(5);
    process(index, {}, { r[0] }, { x, y });
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[1], r[2], r[3], x, y, r[0], r[4] }));
}

TEST_F(IndexSortTest, IndexOfsPhaseTwoTakesTheFirstRowNotBelowTheEntry)
{
    const std::vector<Record> r = rowsByAddress(6);
    for (int i = 0; i < 6; ++i) {
        setKey(r[size_t(i)], i);
        index.add(r[size_t(i)]);
    }
    setKey(r[1], 100); // past the end: the search by key misses it
    const QMap<Record, int> found = index.indexOfs({ r[1] });
    EXPECT_EQ(found.size(), 1);
    EXPECT_EQ(found.value(r[0], -2), 0);
    EXPECT_FALSE(found.contains(r[1]));

    const Record absent = table.row(3);
    EXPECT_EQ(KeyIndex(&table).indexOfs({ absent }).value(absent, -2), -1);
}

TEST_F(IndexSortTest, ManyNewRowsAtOnePlaceAreOneInsertion)
{
    std::vector<Record> want;
    for (int i = 0; i < 3000; ++i)
        index.add(table.row(i < 1500 ? 1 : 3));
    const std::vector<Record> old = index.rows();
    QList<Record> inserted;
    for (int i = 0; i < 12000; ++i)
        inserted.append(table.row(i % 2 ? 1 : 2)); // all between the old 1s and 3s
    process(index, {}, {}, inserted);
    // One block insertion of 12000 rows: one oversized block, split once.
    EXPECT_EQ(index.list().partitionCount(), 2);
    // Old 1s, new 1s, new 2s in batch order, old 3s.
    want.assign(old.begin(), old.begin() + 1500);
    for (int parity : { 1, 0 })
        for (int i = parity; i < 12000; i += 2)
            want.push_back(inserted.at(i));
    want.insert(want.end(), old.begin() + 1500, old.end());
    EXPECT_TRUE(index.rows() == want);
}

// Random batches of removals, key-keeping and filter-failing updates and
// insertions against a model that places new rows behind their equals in
// batch order.
TEST_F(IndexSortTest, RandomBatchesMatchAStableModel)
{
    std::mt19937 rng(2024);
    std::vector<Record> model;
    auto insertIntoModel = [&model](const Record &row) {
        model.insert(std::upper_bound(model.begin(), model.end(), row, byKey), row);
    };
    for (int i = 0; i < 3000; ++i) {
        const Record row = table.row(int(rng() % 40));
        index.add(row);
        insertIntoModel(row);
    }
    for (int round = 0; round < 25; ++round) {
        std::set<Record> touched;
        QList<Record> removed, updated, inserted;
        const int n = int(model.size());
        const int changes = int(rng() % 300) + (round == 7 ? 700 : 0);
        for (int c = 0; c < changes && n > 0; ++c) {
            const Record row = model[rng() % size_t(n)];
            if (!touched.insert(row).second)
                continue;
            const unsigned kind = rng() % 3;
            (kind == 0 ? removed : updated).append(row);
            setHidden(row, kind == 2); // a hidden row fails the filter: leaves
        }
        const int fresh = int(rng() % (round == 11 ? 1500 : 200));
        for (int i = 0; i < fresh; ++i)
            inserted.append(table.row(int(rng() % 45) - 3));

        std::vector<Record> next;
        for (const Record &row : model)
            if (!touched.count(row) || (index.filter(row) && !removed.contains(row)))
                next.push_back(row);
        model.swap(next);
        for (const Record &row : qAsConst(inserted))
            if (index.filter(row))
                insertIntoModel(row);

        process(index, removed, updated, inserted);
        ASSERT_TRUE(index.rows() == model) << "round " << round;
    }
}

} // namespace
