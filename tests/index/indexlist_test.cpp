#include "keyedtable.h"

#include "support/testapphub.h"

#include <gtest/gtest.h>

namespace {

// Admits rows with an even key.
class EvenList : public IndexList
{
public:
    using IndexList::IndexList;
    bool filter(const Record &r) const override { return keyOf(r) % 2 == 0; }
};

std::vector<Record> rowsOf(const IndexList &index)
{
    return std::vector<Record>(index.begin(), index.end());
}

class IndexListTest : public ::testing::Test
{
protected:
    // n rows of keys 0.., added to the table's master when `toTable`, else to `index`.
    std::vector<Record> rows(int n, bool toTable, IndexList *index = nullptr)
    {
        std::vector<Record> out;
        for (int i = 0; i < n; ++i) {
            out.push_back(table.row(i));
            if (toTable)
                table.appendRow(out.back().rowPtr());
            else
                index->add(out.back());
        }
        return out;
    }

    KeyedTable table;
};

TEST_F(IndexListTest, MoveRangesAndRemoveByHintOrSearch)
{
    IndexList index(&table, false);
    const std::vector<Record> r = rows(5, false, &index);
    index.move(2, 3, 0); // an inclusive range
    const std::vector<Record> moved { r[2], r[3], r[0], r[1], r[4] };
    EXPECT_EQ(rowsOf(index), moved);
    index.move(1, 1, 1); // from == destination
    index.move(0, 3, 3); // destination == to
    index.move(3, 1, 0); // an empty range
    EXPECT_EQ(rowsOf(index), moved);
    index.move(0, 0, 4); // to the end of the list as it stands after the removal
    EXPECT_EQ(rowsOf(index), std::vector<Record>({ r[3], r[0], r[1], r[4], r[2] }));

    index.remove(r[1], 0); // wrong hint: searched
    index.remove(r[3], 0);
    index.remove(r[2], 99);
    index.remove(table.row(7), -1); // absent: harmless
    EXPECT_EQ(rowsOf(index), std::vector<Record>({ r[0], r[4] }));
    EXPECT_TRUE(index.contains(r[4]));
    EXPECT_FALSE(index.contains(r[1]));
    EXPECT_TRUE(index.at(2).isNull());
}

TEST_F(IndexListTest, BuildAndProcessApplyTheFilter)
{
    const std::vector<Record> r = rows(4, true);
    EvenList index(&table, false);
    index.build();
    EXPECT_EQ(rowsOf(index), std::vector<Record>({ r[0], r[2] }));
    index.build(); // adds again, without clearing
    EXPECT_EQ(index.count(), 4);
    index.rebuild();
    EXPECT_EQ(index.count(), 2);

    const Record fresh = table.row(6);
    setKey(r[1], 8); // now passes the filter
    index.process({ r[0] }, { r[1] }, -1, -1, { fresh, table.row(7) });
    EXPECT_EQ(rowsOf(index), std::vector<Record>({ r[2], r[1], fresh }));
}

TEST_F(IndexListTest, RegisteredIndexJoinsAndLeavesTheTable)
{
    int added = 0;
    QObject::connect(&table, &Table::indexAdded, [&added](Index *) { ++added; });
    {
        IndexList index(&table, true);
        EXPECT_TRUE(index.isRegistered());
        EXPECT_TRUE(table.indexes().contains(&index));
        EXPECT_EQ(added, 1);
        rows(1, true); // a registered index is told of appended rows
        EXPECT_EQ(index.count(), 1);
    }
    EXPECT_TRUE(table.indexes().isEmpty());
    IndexList quiet(&table, false);
    EXPECT_TRUE(table.indexes().isEmpty());
    EXPECT_EQ(added, 1);

    // By name, the table comes from the host.
    TestAppHub hub;
    hub.tables.insert(QStringLiteral("quotes"), &table);
    IndexList named(QStringLiteral("quotes"), true);
    EXPECT_EQ(named.table(), &table);
    EXPECT_TRUE(table.indexes().contains(&named));
    IndexList unknown(QStringLiteral("nothing"), true);
    EXPECT_EQ(unknown.table(), nullptr);
    EXPECT_FALSE(unknown.isRegistered());
    unknown.build(); // no table: nothing to do
    EXPECT_EQ(unknown.count(), 0);
}

} // namespace
