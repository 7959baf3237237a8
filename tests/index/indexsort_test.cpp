#include "keyedtable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

// Placement of updated and inserted rows under random batches is checked by the
// model in indexsortbatch_test.cpp; these are the searches and the cases that a
// random batch seldom reaches.
namespace {

bool byKey(const Record &a, const Record &b)
{
    return keyOf(a) < keyOf(b);
}

class IndexSortTest : public ::testing::Test
{
protected:
    std::vector<Record> addKeys(std::initializer_list<int> keys)
    {
        std::vector<Record> out;
        for (int k : keys) {
            out.push_back(table.row(k));
            index.add(out.back());
        }
        return out;
    }
    void process(const QList<Record> &removed, const QList<Record> &updated,
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

    const std::vector<Record> r = addKeys({ 9, 5, 1, 5, 5 });
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[2], r[1], r[3], r[4], r[0] }));
    // Searching from the last place needs no compare.
    const int before = index.compares.loadRelaxed();
    EXPECT_EQ(index.search(probe, index.count() - 1), -1);
    EXPECT_EQ(index.searchLast(probe, index.count() - 1), -1);
    EXPECT_EQ(index.compares.loadRelaxed(), before);

    // searchFull walks an unsorted list from the start. Rows of {key, from, result}:
    // after 4 comes 2, not a position but 7 - (4 + 1).
    KeyIndex loose(&table);
    for (int k : { 3, 1, 4, 1, 5, 9, 2, 6, 5, 3 })
        loose.appendUnsorted(table.row(k));
    const int cases[][3] = { { 6, -1, 7 }, { 6, 4, 2 }, { 6, 7, -1 }, { 42, -1, -1 } };
    for (const auto &c : cases)
        EXPECT_EQ(loose.searchFull(table.row(c[0]), c[1]), c[2]) << c[0] << " from " << c[1];
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
        SCOPED_TRACE(keyOf(probe));
        const auto b = model.begin(), e = model.end();
        const int lower = int(std::lower_bound(b, e, probe, byKey) - b);
        const int upper = int(std::upper_bound(b, e, probe, byKey) - b);
        const bool present = lower != upper;
        EXPECT_EQ(index.search(probe, -1), present ? lower : -1);
        EXPECT_EQ(index.searchLast(probe, -1), present ? upper - 1 : -1);
        EXPECT_EQ(index.indexOfAdd(probe), upper);
        if (present) {
            EXPECT_EQ(index.search(probe, upper - 1), -1);
            EXPECT_EQ(index.searchLast(probe, lower), upper - 1 > lower ? upper - 1 : -1);
            EXPECT_EQ(index.find(probe, lower),
                      upper - lower > 1 ? model[size_t(lower + 1)] : Record());
        }
    }
}

// update() finds a moved row through a right hint, its equals, or last a scan.
TEST_F(IndexSortTest, UpdateFindsTheRowByHintEqualsOrScan)
{
    const std::vector<Record> r = addKeys({ 1, 2, 2, 2, 7, 9 });
    WarningCatcher catcher;
    setKey(r[0], 50);
    EXPECT_EQ(index.indexOf(r[0]), 0);
    EXPECT_EQ(index.indexOf(table.row(2)), -1);
    setKey(r[0], 1);

    int before = index.compares.loadRelaxed();
    index.update(r[2], 0, 0, 3); // names r[3], whose neighbours bound r[2]'s key
    EXPECT_EQ(index.compares.loadRelaxed() - before, 2);
    index.update(r[3], 0, 0, -1); // found by walking its equals; in order: stays
    EXPECT_EQ(index.rows(), r);

    setKey(r[2], 8); // sits among keys that a search for 8 cannot reach
    index.update(r[2], 0, 0, 2); // the hint is right: re-placed without a scan
    const Record fresh = table.row(2);
    index.update(fresh, 0, 0, -1); // not yet in: added behind its equals
    index.update(table.row(-5), 0, 0, -1); // filtered out: not added
    EXPECT_TRUE(WarningCatcher::messages().isEmpty());
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[0], r[1], r[3], fresh, r[4], r[2], r[5] }));

    setKey(r[1], 10); // unreachable and without a hint: scanned, with a warning
    index.update(r[1], 0, 0, -1);
    EXPECT_EQ(WarningCatcher::messages(),
              QStringList({ QStringLiteral("IndexSort::update Full search can impact the performance") }));
    setKey(r[5], 0);
    index.update(r[5], 0, 0, 2); // a wrong hint loses no row
    setKey(fresh, -1);
    index.update(fresh, 0, 0, 2); // leaves by the filter
    EXPECT_EQ(index.keys(), std::vector<int>({ 0, 1, 2, 7, 8, 10 }));
}

TEST_F(IndexSortTest, BuildAndSmallBatches)
{
    std::vector<Record> built;
    for (int k : { 5, -1, 3, 5, 0 }) {
        built.push_back(table.row(k));
        table.appendRow(built.back().rowPtr());
    }
    index.build();
    EXPECT_EQ(index.rows(), std::vector<Record>({ built[4], built[2], built[0], built[3] }));

    index.clear();
    const std::vector<Record> r = addKeys({ 1, 2, 3, 4, 5, 6 });
    const int64 total = Index::nsecsElapsedTotal();
    process({}, {}, {});
    EXPECT_EQ(index.rows(), r);
    EXPECT_GT(index.nsecsElapsed(), 0);
    EXPECT_GE(Index::nsecsElapsedTotal(), total + index.nsecsElapsed());

    // A key still bounded by its neighbours: the lookup plus two compares.
    setKey(r[2], 2);
    int compares = index.compares.loadRelaxed();
    index.indexOfs({ r[2] });
    const int lookup = index.compares.loadRelaxed() - compares;
    compares = index.compares.loadRelaxed();
    process({}, { r[2] }, {});
    EXPECT_EQ(index.rows(), r);
    EXPECT_EQ(index.compares.loadRelaxed() - compares, lookup + 2);

    // Removed twice removes once; the filter decides entry and exit.
    const Record taken = table.row(2);
    setKey(r[0], -7);
    process({ r[3], r[3] }, { r[0] }, { table.row(-1), taken });
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[1], r[2], taken, r[4], r[5] }));
}

// The search by address that came before paired a row whose key had jumped
// with a stranger of lower address, and lost or doubled rows.
TEST_F(IndexSortTest, RowsWhoseKeyJumpedAreFoundByIdentity)
{
    std::vector<Record> r;
    for (int i = 0; i < 6; ++i)
        r.push_back(table.row(0));
    std::sort(r.begin(), r.end()); // by address
    for (size_t i = 0; i < r.size(); ++i) {
        setKey(r[i], int(i + 1) * 10);
        index.add(r[i]);
    }
    setKey(r[4], 15); // below its left neighbour; r[0], of lower address, stands first
    const Record absent = table.row(3);
    const QMap<Record, int> found = index.indexOfs({ r[4], absent, r[4] });
    EXPECT_EQ(found, (QMap<Record, int> { { r[4], 4 }, { absent, -1 } }));
    process({}, { r[4] }, {});
    EXPECT_EQ(index.rows(), std::vector<Record>({ r[0], r[4], r[1], r[2], r[3], r[5] }));
}

TEST_F(IndexSortTest, ManyNewRowsAtOnePlaceAreOneInsertion)
{
    for (int i = 0; i < 3000; ++i)
        index.add(table.row(i < 1500 ? 1 : 3));
    const std::vector<Record> old = index.rows();
    QList<Record> inserted;
    for (int i = 0; i < 12000; ++i)
        inserted.append(table.row(i % 2 ? 1 : 2)); // all between the old 1s and 3s
    process({}, {}, inserted);
    // One block insertion of 12000 rows: one oversized block, split once.
    EXPECT_EQ(index.list().partitionCount(), 2);
    // Old 1s, new 1s, new 2s in batch order, old 3s.
    std::vector<Record> want(old.begin(), old.begin() + 1500);
    for (int parity : { 1, 0 })
        for (int i = parity; i < 12000; i += 2)
            want.push_back(inserted.at(i));
    want.insert(want.end(), old.begin() + 1500, old.end());
    EXPECT_TRUE(index.rows() == want);
}

// prefixOf(Field) keeps Field::compare()'s order within a column: a lower
// prefix means a lower cell, and a lower cell never has a higher prefix.
TEST(IndexSortPrefix, FieldPrefixesKeepTheColumnsOrder)
{
    Table table(QStringLiteral("cells"));
    const FieldType::Type types[] = { FieldType::Integer, FieldType::Integer64,
                                      FieldType::DateTime, FieldType::Decimal,
                                      FieldType::VarChar, FieldType::String };
    for (FieldType::Type type : types)
        table.addColumn(QString::fromLatin1(FieldType::typeName(type)), type, type == FieldType::VarChar ? 6 : 0);
    std::mt19937_64 rng(5);
    const QString letters = QStringLiteral("aAz\u00e9\u4e2d\uffff");
    std::vector<Record> rows;
    for (int i = 0; i < 300; ++i) {
        Record r(&table);
        const qint64 big = qint64(rng()) >> (rng() % 64);
        const qint64 small = qint64(rng() % 2001) - 1000;
        QString text;
        for (int n = int(rng() % 7); n > 0; --n)
            text += letters.at(int(rng() % letters.size()));
        for (int c = 0; c < 6; ++c) {
            if (rng() % 10 == 0)
                continue; // NULL
            switch (types[c]) {
            case FieldType::Decimal: // mixed scales, both signs, huge mantissas
                r.data(c) = decimal(rng() % 2 ? small : big % (qint64(1) << 55),
                                    short(int(rng() % 30) - 6));
                break;
            case FieldType::VarChar:
            case FieldType::String:
                r.data(c) = text;
                break;
            case FieldType::Integer:
                r.data(c) = int(rng() % 2 ? small : big);
                break;
            case FieldType::DateTime: // milliseconds, written raw
                FieldType::setInt64(r.data(c).data(), rng() % 2 ? small : big);
                r.data(c).clearNull();
                break;
            default:
                r.data(c) = int64(rng() % 2 ? small : big);
            }
        }
        rows.push_back(r);
    }
    for (int c = 0; c < 6; ++c) {
        for (const Record &a : rows) {
            for (const Record &b : rows) {
                const int order = a.data(c).compare(b.data(c));
                const quint64 pa = IndexSort::prefixOf(a.data(c));
                const quint64 pb = IndexSort::prefixOf(b.data(c));
                ASSERT_FALSE(order < 0 && pa > pb) << FieldType::typeName(types[c]);
                ASSERT_FALSE(pa < pb && order >= 0) << FieldType::typeName(types[c]);
            }
        }
    }
}

} // namespace
