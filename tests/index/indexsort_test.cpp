#include "keyedtable.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <algorithm>
#include <map>
#include <random>
#include <set>

namespace {

// Collects Qt warnings for the lifetime of the object.
class WarningCatcher
{
public:
    WarningCatcher() { m_previous = qInstallMessageHandler(&WarningCatcher::handler); messages().clear(); }
    ~WarningCatcher() { qInstallMessageHandler(m_previous); }
    static QStringList &messages()
    {
        static QStringList list;
        return list;
    }

private:
    static void handler(QtMsgType type, const QMessageLogContext &, const QString &text)
    {
        if (type == QtWarningMsg)
            messages().append(text);
    }
    QtMessageHandler m_previous;
};

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

    KeyedTable table;
};

TEST_F(IndexSortTest, EmptyIndexFindsNothing)
{
    KeyIndex index(&table);
    const Record probe = table.row(3);
    EXPECT_EQ(index.search(probe, -1), -1);
    EXPECT_EQ(index.searchLast(probe, -1), -1);
    EXPECT_EQ(index.searchFull(probe, -1), -1);
    EXPECT_EQ(index.indexOfAdd(probe), 0);
    EXPECT_TRUE(index.find(probe, -1).isNull());
    EXPECT_EQ(index.getClassName(), QStringLiteral("IndexSort"));
}

TEST_F(IndexSortTest, EqualKeysStandInOrderOfArrival)
{
    KeyIndex index(&table);
    const std::vector<Record> r = addKeys(index, { 9, 5, 1, 5, 5 });
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[2], r[1], r[3], r[4], r[0] }));
    const Record probe = table.row(5);
    EXPECT_EQ(index.search(probe, -1), 1);
    EXPECT_EQ(index.searchLast(probe, -1), 3);
    EXPECT_EQ(index.search(probe, 1), 2);
    EXPECT_EQ(index.search(probe, 3), -1);
    EXPECT_EQ(index.searchLast(probe, 1), 3);
    EXPECT_EQ(index.find(probe, 1), r[3]);
    EXPECT_EQ(index.indexOfAdd(probe), 4);
    EXPECT_EQ(index.search(table.row(4), -1), -1);

    const int before = index.compares.loadRelaxed();
    EXPECT_EQ(index.search(probe, index.count() - 1), -1);
    EXPECT_EQ(index.searchLast(probe, index.count() - 1), -1);
    EXPECT_EQ(index.compares.loadRelaxed(), before);
}

TEST_F(IndexSortTest, SearchFullGivesAnOffsetFromTheStart)
{
    KeyIndex index(&table);
    for (int k : { 3, 1, 4, 1, 5, 9, 2, 6, 5, 3 })
        index.appendUnsorted(table.row(k));
    const Record six = table.row(6);
    EXPECT_EQ(index.searchFull(six, -1), 7);
    EXPECT_EQ(index.searchFull(six, 4), 2); // not a position: 7 - (4 + 1)
    EXPECT_EQ(index.searchFull(six, 7), -1);
    EXPECT_EQ(index.searchFull(table.row(42), -1), -1);
}

// Searches over many blocks against std::lower_bound/upper_bound on a model.
TEST_F(IndexSortTest, SearchesMatchAModelAcrossBlocks)
{
    KeyIndex index(&table);
    std::mt19937 rng(3);
    std::vector<int> model;
    for (int i = 0; i < 40000; ++i) {
        const int k = int(rng() % 3000) * 2; // even keys only
        index.appendUnsorted(table.row(k));
        model.push_back(k);
    }
    index.resort();
    std::sort(model.begin(), model.end());
    ASSERT_EQ(index.keys(), model);
    ASSERT_GT(index.list().partitionCount(), 3);
    for (int t = 0; t < 500; ++t) {
        const int k = int(rng() % 6002) - 1;
        const Record probe = table.row(k);
        const int lower = int(std::lower_bound(model.begin(), model.end(), k) - model.begin());
        const int upper = int(std::upper_bound(model.begin(), model.end(), k) - model.begin());
        const bool present = lower != upper;
        EXPECT_EQ(index.search(probe, -1), present ? lower : -1) << k;
        EXPECT_EQ(index.searchLast(probe, -1), present ? upper - 1 : -1) << k;
        EXPECT_EQ(index.indexOfAdd(probe), upper) << k;
        if (present && upper - lower > 1) {
            EXPECT_EQ(index.search(probe, lower), lower + 1);
        }
    }
}

TEST_F(IndexSortTest, IndexOfFindsARowWhoseKeyChanged)
{
    KeyIndex index(&table);
    const std::vector<Record> r = addKeys(index, { 1, 2, 3, 4, 5, 6 });
    setKey(r[1], 50);
    WarningCatcher catcher;
    EXPECT_EQ(index.indexOf(r[1]), 1);
    EXPECT_TRUE(index.contains(r[1]));
    EXPECT_EQ(index.indexOf(table.row(2)), -1);
    EXPECT_TRUE(WarningCatcher::messages().isEmpty());
}

TEST_F(IndexSortTest, UpdateOfAMovedKeyWithoutHintWarnsOnceAndReorders)
{
    KeyIndex index(&table);
    const std::vector<Record> r = addKeys(index, { 1, 2, 3, 4, 5 });
    setKey(r[1], 10);
    WarningCatcher catcher;
    index.update(r[1], 0, 0, -1);
    EXPECT_EQ(WarningCatcher::messages(),
              QStringList({ QStringLiteral("IndexSort::update Full search can impact the performance") }));
    EXPECT_EQ(index.keys(), std::vector<int>({ 1, 3, 4, 5, 10 }));
    EXPECT_EQ(index.count(), 5);
}

TEST_F(IndexSortTest, UpdateFindsAMovedRowThroughItsKeyWithoutWarning)
{
    KeyIndex index(&table);
    const std::vector<Record> r = addKeys(index, { 1, 2, 2, 2, 7 });
    WarningCatcher catcher;
    index.update(r[3], 0, 0, -1); // found by walking its equals; in order: stays
    EXPECT_EQ(index.rows(), r);

    setKey(r[2], 8); // sits among keys that a search for 8 cannot reach
    index.update(r[2], 0, 0, 2); // the hint is right: re-placed without a scan
    EXPECT_TRUE(WarningCatcher::messages().isEmpty());
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[0], r[1], r[3], r[4], r[2] }));
}

TEST_F(IndexSortTest, UpdateOfRowsOutsideTheIndex)
{
    KeyIndex index(&table);
    addKeys(index, { 1, 2, 3 });
    WarningCatcher catcher;
    const Record fresh = table.row(2);
    index.update(fresh, 0, 0, -1);
    EXPECT_EQ(index.count(), 4);
    EXPECT_EQ(index.at(2), fresh); // behind the existing 2
    EXPECT_TRUE(WarningCatcher::messages().isEmpty());

    const Record rejected = table.row(-5);
    index.update(rejected, 0, 0, -1);
    EXPECT_EQ(index.count(), 4);

    setKey(fresh, -1); // no longer passes the filter: leaves
    index.update(fresh, 0, 0, 2);
    EXPECT_EQ(index.count(), 3);
    EXPECT_FALSE(index.contains(fresh));
}

TEST_F(IndexSortTest, UpdateWithAHintTrustsNeighboursInOrder)
{
    KeyIndex index(&table);
    const std::vector<Record> r = addKeys(index, { 1, 2, 3, 3, 5 });
    const int before = index.compares.loadRelaxed();
    index.update(r[2], 0, 0, 3); // the hint names r[3]; r[2]'s key fits there
    EXPECT_EQ(index.rows(), r);
    EXPECT_EQ(index.compares.loadRelaxed() - before, 2);
}

TEST_F(IndexSortTest, UpdateWithAWrongHintLosesNoRow)
{
    KeyIndex index(&table);
    const std::vector<Record> r = addKeys(index, { 1, 2, 3, 4, 5 });
    setKey(r[4], 0);
    // The hint names r[2], whose place looks wrong for r[4]'s new key.
    index.update(r[4], 0, 0, 2);
    EXPECT_EQ(index.count(), 5);
    EXPECT_EQ(index.keys(), std::vector<int>({ 0, 1, 2, 3, 4 }));
    EXPECT_EQ(index.at(0), r[4]);
}

TEST_F(IndexSortTest, BuildSortsTheRowsOfTheMaster)
{
    std::vector<Record> rows;
    for (int k : { 5, -1, 3, 5, 0 }) {
        rows.push_back(table.row(k));
        table.appendRow(rows.back().rowPtr());
    }
    KeyIndex index(&table);
    index.build();
    EXPECT_EQ(index.rows(), std::vector<Record>({ rows[4], rows[2], rows[0], rows[3] }));
    index.rebuild();
    EXPECT_EQ(index.count(), 4);
}

// ---- batch maintenance ----

class IndexSortProcessTest : public IndexSortTest
{
protected:
    void process(KeyIndex &index, const QList<Record> &removed, const QList<Record> &updated,
                 const QList<Record> &inserted)
    {
        index.process(removed, updated, -1, -1, inserted);
    }
};

TEST_F(IndexSortProcessTest, EmptyBatchChangesNothingAndCountsTime)
{
    KeyIndex index(&table);
    const std::vector<Record> r = addKeys(index, { 1, 2 });
    const int64 before = Index::nsecsElapsedTotal();
    process(index, {}, {}, {});
    EXPECT_EQ(index.rows(), r);
    EXPECT_GT(index.nsecsElapsed(), 0);
    EXPECT_GE(Index::nsecsElapsedTotal(), before + index.nsecsElapsed());
}

TEST_F(IndexSortProcessTest, UnchangedKeysCostTwoComparesAndMoveNothing)
{
    KeyIndex index(&table);
    const std::vector<Record> r = addKeys(index, { 1, 2, 3, 4, 5, 6 });
    setKey(r[2], 2); // moved, but still bounded by its neighbours: stays
    int before = index.compares.loadRelaxed();
    index.indexOfs({ r[2] });
    const int lookup = index.compares.loadRelaxed() - before;
    before = index.compares.loadRelaxed();
    process(index, {}, { r[2] }, {});
    EXPECT_EQ(index.rows(), r);
    // The lookup plus the two neighbour tests; nothing is sorted or moved.
    EXPECT_EQ(index.compares.loadRelaxed() - before, lookup + 2);
}

TEST_F(IndexSortProcessTest, RemovedTwiceRemovesOnce)
{
    KeyIndex index(&table);
    const std::vector<Record> r = addKeys(index, { 1, 2, 3 });
    process(index, { r[1], r[1] }, {}, {});
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[0], r[2] }));
}

TEST_F(IndexSortProcessTest, FilterDecidesEntryAndExit)
{
    KeyIndex index(&table);
    const std::vector<Record> r = addKeys(index, { 1, 2, 3 });
    const Record refused = table.row(-1);
    const Record taken = table.row(2);
    setKey(r[0], -7); // leaves
    process(index, {}, { r[0] }, { refused, taken });
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[1], taken, r[2] }));
}

TEST_F(IndexSortProcessTest, ReplacedRowGoesBehindItsEqualsAfterTheNewOnes)
{
    // Keys by address, so that the row to move has the lowest address: the
    // lookup by walking then finds it exactly (see the phase-two test below).
    std::vector<Record> r;
    for (int i = 0; i < 5; ++i)
        r.push_back(table.row(0));
    std::sort(r.begin(), r.end());
    const Record moved = r[0];
    setKey(moved, 9);
    setKey(r[1], 5);
    setKey(r[2], 5);
    setKey(r[3], 5);
    setKey(r[4], 7);
    KeyIndex index(&table);
    for (const Record &row : r)
        index.add(row);
    ASSERT_EQ(index.rows(), std::vector<Record>({ r[1], r[2], r[3], r[4], moved }));

    setKey(moved, 5);
    const Record x = table.row(5);
    const Record y = table.row(5);
    process(index, {}, { moved }, { x, y });
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[1], r[2], r[3], x, y, moved, r[4] }));
}

TEST_F(IndexSortProcessTest, ManyNewRowsAtOnePlaceAreOneInsertion)
{
    KeyIndex index(&table);
    std::vector<Record> old;
    for (int i = 0; i < 3000; ++i) {
        old.push_back(table.row(i < 1500 ? 1 : 3));
        index.add(old.back());
    }
    QList<Record> inserted;
    for (int i = 0; i < 12000; ++i)
        inserted.append(table.row(i % 2 ? 1 : 2)); // all belong between the old 1s and 3s
    process(index, {}, {}, inserted);
    ASSERT_EQ(index.count(), 15000);
    ASSERT_TRUE(index.isSorted());
    // One block insertion of 12000 rows: one oversized block, split once.
    EXPECT_EQ(index.list().partitionCount(), 2);
    const std::vector<Record> rows = index.rows();
    // The old 1s first, then the new 1s in their order, then the 2s.
    for (int i = 0; i < 1500; ++i)
        ASSERT_EQ(rows[size_t(i)], old[size_t(i)]);
    for (int i = 0; i < 6000; ++i)
        ASSERT_EQ(rows[size_t(1500 + i)], inserted.at(2 * i + 1));
    for (int i = 0; i < 6000; ++i)
        ASSERT_EQ(rows[size_t(7500 + i)], inserted.at(2 * i));
}

TEST_F(IndexSortProcessTest, IndexOfsPhaseTwoTakesTheFirstRowNotBelowTheEntry)
{
    // Keys in address order: the row x at position 0 has the lowest address.
    std::vector<Record> r;
    for (int i = 0; i < 6; ++i)
        r.push_back(table.row(0));
    std::sort(r.begin(), r.end());
    KeyIndex index(&table);
    for (int i = 0; i < 6; ++i) {
        setKey(r[size_t(i)], i);
        index.add(r[size_t(i)]);
    }
    const Record x = r[0];
    // A row whose key moved past the end, so that the search by key misses it.
    const Record moved = r[1];
    setKey(moved, 100);
    const QMap<Record, int> found = index.indexOfs({ moved });
    EXPECT_EQ(found.size(), 1);
    EXPECT_EQ(found.value(x, -2), 0);
    EXPECT_FALSE(found.contains(moved));

    // Rows that are absent get -1.
    const Record absent = table.row(3);
    const QMap<Record, int> none = KeyIndex(&table).indexOfs({ absent });
    EXPECT_EQ(none.value(absent, -2), -1);
}

// Random batches of removals, key-keeping and filter-failing updates and
// insertions against a model that places new rows behind their equals in
// batch order. The index must equal the model row by row.
TEST_F(IndexSortProcessTest, RandomBatchesMatchAStableModel)
{
    std::mt19937 rng(2024);
    KeyIndex index(&table);
    std::vector<Record> model;
    auto insertIntoModel = [&model](const Record &row) {
        const auto at = std::upper_bound(model.begin(), model.end(), row,
                                         [](const Record &a, const Record &b) { return keyOf(a) < keyOf(b); });
        model.insert(at, row);
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
            switch (rng() % 3) {
            case 0:
                removed.append(row);
                break;
            case 1:
                updated.append(row); // same key
                break;
            default:
                setHidden(row, true); // fails the filter: leaves
                updated.append(row);
                break;
            }
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
        ASSERT_EQ(index.count(), int(model.size())) << "round " << round;
        ASSERT_TRUE(index.rows() == model) << "round " << round;
    }
}

TEST_F(IndexSortProcessTest, ResortIsStable)
{
    KeyIndex index(&table);
    std::mt19937 rng(8);
    std::vector<Record> rows;
    for (int i = 0; i < 5000; ++i) {
        rows.push_back(table.row(int(rng() % 10)));
        index.appendUnsorted(rows.back());
    }
    index.resort();
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Record &a, const Record &b) { return keyOf(a) < keyOf(b); });
    EXPECT_TRUE(index.rows() == rows);
}

} // namespace
