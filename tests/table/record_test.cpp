#include "table/recordstrans.h"

#include "tabletestsupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>
#include <utility>

// The master index decides membership, key text and lookup by key.
TEST(Record, MasterIndexAnswersForTheRow)
{
    std::unique_ptr<Table> table(makeKeyedTable());
    for (int key : { 3, 1, 2 })
        makeRow(table.get(), key, key * 10).append();
    const Record two(table.get(), QStringLiteral("2"));
    ASSERT_FALSE(two.isNull());
    EXPECT_EQ(valueOf(two), 20);
    EXPECT_TRUE(two.inTable());
    EXPECT_EQ(two.toString(), QStringLiteral("2"));
    EXPECT_TRUE(Record(table.get(), QStringLiteral("9")).isNull());
    EXPECT_TRUE(Record(table.get(), QString()).isNull()) << "an empty key finds nothing";

    // This index looks rows up by identity: a clone has the key but is not in the table.
    const Record clone = two.clone();
    EXPECT_FALSE(clone.inTable());
    EXPECT_EQ(clone.toString(), QStringLiteral("2"));

    two.remove();
    EXPECT_FALSE(two.inTable());
    EXPECT_EQ(valueOf(two), 20) << "a removed row stays valid for its holders";
    EXPECT_TRUE(Record(table.get(), QStringLiteral("2")).isNull());
    EXPECT_FALSE(Record().inTable());
    EXPECT_EQ(Record().toString(), QString());
}

// A Record is a handle: const on the handle does not make the shared row const.
TEST(Record, ConstHandleWritesTheSharedRow)
{
    static_assert(std::is_same<decltype(std::declval<const Record &>().data(0)), Field>::value,
                  "const Record::data(int) gives a writable Field");
    static_assert(std::is_same<decltype(std::declval<const Record &>().data(QString())), Field>::value,
                  "const Record::data(const QString &) gives a writable Field");
    std::unique_ptr<Table> table(makeKeyedTable());
    makeRow(table.get(), 1, 10).append();
    const Record row = table->at(0);
    row.data(1) = 11;
    EXPECT_EQ(valueOf(table->at(0)), 11);
    row.data(QStringLiteral("value")) = 12;
    EXPECT_EQ(valueOf(table->at(0)), 12);
}

// A table without a key keeps rows in order of arrival and has no key text.
TEST(Record, KeylessTableKeepsArrivalOrder)
{
    Table table(QStringLiteral("Log"));
    table.addColumn(QStringLiteral("n"), FieldType::Integer);
    for (int n : { 5, 3, 9 }) {
        Record r(&table);
        r.data(0) = n;
        r.append();
    }
    ASSERT_EQ(table.rowCount(), 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(table.at(i).data(0).asInteger(), (QList<int>{ 5, 3, 9 }).at(i));
    EXPECT_TRUE(table.at(1).inTable());
    EXPECT_EQ(table.at(1).toString(), QString());
    // Every row equals the blank key row, so the first one is found for any key.
    EXPECT_EQ(Record(&table, QStringLiteral("3")), table.at(0));
}
