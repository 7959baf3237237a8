#include "keyedtable.h"

#include "index/masterindex.h"

#include <gtest/gtest.h>

namespace {

class MasterIndexTest : public ::testing::Test
{
protected:
    KeyedTable table;
};

TEST_F(MasterIndexTest, PtrIndexOrdersByAddressAndHasNoKeyText)
{
    MasterPtrIndex index(&table);
    const Record a = table.row(1);
    const Record b = table.row(1);
    EXPECT_EQ(index.compare(a, a), 0);
    EXPECT_EQ(index.compare(a, b), -index.compare(b, a));
    EXPECT_EQ(index.compare(a, b), a.rowPtr() < b.rowPtr() ? -1 : 1);
    index.add(a);
    index.add(b);
    EXPECT_TRUE(index.findRecord(QStringLiteral("1")).isNull());
    EXPECT_EQ(index.toText(a), QString());
    EXPECT_TRUE(index.columnNames().isEmpty());
    const Record blank = index.fromText(QStringLiteral("ignored"));
    ASSERT_FALSE(blank.isNull());
    EXPECT_EQ(keyOf(blank), 0);
    EXPECT_FALSE(index.contains(blank));

    IntKeyMaster keyed(&table); // a key master finds a row again by its text
    for (const Record &r : { a, b, table.row(3) })
        keyed.add(r);
    EXPECT_EQ(keyed.findRecord(keyed.toText(keyed.at(2))), keyed.at(2));
    EXPECT_TRUE(keyed.findRecord(QStringLiteral("4")).isNull());
    EXPECT_EQ(keyed.columnNames(), QStringList({ QStringLiteral("k") }));
}

// It is what a new table starts with.
TEST_F(MasterIndexTest, OrderedIndexKeepsArrivalOrder)
{
    MasterIndexOrdered index(&table);
    const Record x = table.row(3);
    const Record y = table.row(1);
    const Record z = table.row(2);
    index.add(x);
    index.add(y);
    index.process({}, {}, -1, -1, { z });
    EXPECT_EQ(std::vector<Record>(index.begin(), index.end()), std::vector<Record>({ x, y, z }));
    EXPECT_EQ(index.search(table.row(42), -1), 0);
    EXPECT_EQ(index.indexOf(z), 2);
    index.process({ y }, { x }, -1, -1, {});
    EXPECT_EQ(std::vector<Record>(index.begin(), index.end()), std::vector<Record>({ x, z }));

    ASSERT_NE(dynamic_cast<MasterIndexOrdered *>(table.masterIndex()), nullptr);
    table.appendRow(x.pointer());
    table.appendRow(y.pointer());
    EXPECT_EQ(table.at(0), x);
    EXPECT_EQ(table.at(1), y);
}

TEST_F(MasterIndexTest, ProxyOrdersAsTheMasterOfItsBirth)
{
    table.setMasterIndex(new IntKeyMaster(&table));
    MasterIndexProxy proxy(&table);
    EXPECT_EQ(proxy.master(), table.masterIndex());
    EXPECT_EQ(proxy.columns(), QList<int>({ 0 }));
    const Record a = table.row(2);
    const Record b = table.row(7);
    EXPECT_LT(proxy.compare(a, b), 0);
    EXPECT_GT(proxy.compare(b, a), 0);
    EXPECT_EQ(proxy.toText(b), QStringLiteral("7"));
    EXPECT_EQ(keyOf(proxy.fromText(QStringLiteral("9"))), 9);
    proxy.add(b);
    proxy.add(a);
    EXPECT_EQ(proxy.at(0), a);
    EXPECT_EQ(proxy.findRecord(QStringLiteral("7")), b);
}

} // namespace
