#include "support/warningcatcher.h"
#include "table/table.h"

#include <gtest/gtest.h>

TEST(TableColumns, DuplicatesAndAcceptedRedefinitions)
{
    Table t(QStringLiteral("Quotes"), QString());
    t.addColumn(QStringLiteral("code"), FieldType::VarChar, 12);
    t.addColumn(QStringLiteral("volume"), FieldType::Integer64);
    t.addColumn(QStringLiteral("price"), FieldDef(FieldType::Decimal, 2), false, QString(), false,
                QStringLiteral("last price"));
    const uint64 size = t.rowSize();

    // A definition that fits into the existing column is ignored; errors change nothing.
    struct Row
    {
        const char *name;
        FieldType::Type type;
        int length;
        const char *error;
    };
    const Row rows[] = {
        { "code", FieldType::VarChar, 12, nullptr },
        { "code", FieldType::VarChar, 5, nullptr },
        { "VOLUME", FieldType::Integer, 0, nullptr },
        { "code", FieldType::VarChar, 13, "Column 'code' already exists for table 'Quotes'." },
        { "Price", FieldType::Decimal, 3, "Column 'Price' already exists for table 'Quotes'." },
        { "", FieldType::Integer, 0, "Column name can't be empty." },
        { "empty", FieldType::VarChar, 0, "Length of string can't be zero" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        QString thrown = QStringLiteral("<no throw>");
        try {
            t.addColumn(QString::fromUtf8(row.name), row.type, row.length);
        } catch (const QString &e) {
            thrown = e;
        }
        EXPECT_EQ(thrown, row.error ? QString::fromUtf8(row.error) : QStringLiteral("<no throw>"));
        EXPECT_EQ(t.columnCount(), 3);
        EXPECT_EQ(t.rowSize(), size);
    }
    // Lookup by name is case sensitive although the duplicate check is not.
    EXPECT_EQ(t.columnIndex(QStringLiteral("price")), 2);
    EXPECT_EQ(t.columnIndex(QStringLiteral("Price")), -1);
    EXPECT_FALSE(t.columnExists(QStringLiteral("PRICE")));

    // Empty titles fall back to the names.
    EXPECT_EQ(t.title(), QStringLiteral("Quotes"));
    EXPECT_EQ(t.columnTitle(2), QStringLiteral("price"));
    EXPECT_EQ(t.columnDescription(2), QStringLiteral("last price"));
    EXPECT_FALSE(t.columns().at(2).flag);
}

// Lookup changes its structure as the table widens; both must agree.
TEST(TableColumns, LookupAgreesForTreeAndHash)
{
    Table t(QStringLiteral("Wide"));
    for (int count = 1; count <= 22; ++count) {
        t.addColumn(QStringLiteral("col%1").arg(count - 1), FieldType::Integer);
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(t.columnIndex(QStringLiteral("col%1").arg(i)), i) << count;
        EXPECT_EQ(t.columnIndex(QStringLiteral("missing")), -1) << count;
        EXPECT_EQ(t.columnIndex(QStringLiteral("COL0")), -1) << count;
    }
}

TEST(TableColumns, AddColumnReLaysLiveRows)
{
    Table t(QStringLiteral("Live"));
    // Eight columns, so that the ninth needs a new bitmap byte.
    for (int i = 0; i < 8; ++i)
        t.addColumn(QStringLiteral("c%1").arg(i), i % 2 ? FieldType::Integer64 : FieldType::String);
    const auto text = [](int r, int i) { return QStringLiteral("r%1c%2").arg(r).arg(i); };
    const auto isNull = [](int r, int i) { return (r + i) % 3 == 0; };
    for (int r = 0; r < 50; ++r) {
        Record row(&t);
        for (int i = 0; i < 8; ++i) {
            if (isNull(r, i))
                continue;
            if (i % 2)
                row.data(i) = int64(r * 100 + i);
            else
                row.data(i) = text(r, i);
        }
        row.append();
    }
    t.addColumn(QStringLiteral("extra"), FieldType::Double, 0, true);
    ASSERT_EQ(t.rowCount(), 50) << "the rows are in the master index again";
    for (int r = 0; r < 50; ++r) {
        Record row = t.at(r);
        EXPECT_EQ(Table::references(row.rowPtr()), 2) << "the index's and ours";
        for (int i = 0; i < 8; ++i) {
            const Field f = row.data(i);
            ASSERT_EQ(f.isNull(), isNull(r, i)) << r << "," << i;
            if (!f.isNull()) {
                EXPECT_EQ(f.toString(), i % 2 ? QString::number(r * 100 + i) : text(r, i));
            }
        }
        EXPECT_TRUE(row.data(8).isNull());
        EXPECT_EQ(row.data(8).asDouble(), 0.0);
    }
    EXPECT_EQ(t.rowSize(), 16 + t.rowLength() + 2);
}

TEST(TableColumns, AddColumnWarnsAboutOtherHolders)
{
    Table t(QStringLiteral("Held"));
    t.addColumn(QStringLiteral("a"), FieldType::Integer);
    Record(&t).append();
    {
        WarningCatcher catcher;
        // A holder the store does not know of: its pointer would dangle if the block moved.
        Table::ref(const_cast<unsigned char *>(t.at(0).rowPtr()));
        t.addColumn(QStringLiteral("b"), FieldType::Integer);
        EXPECT_EQ(WarningCatcher::messages(),
                  QStringList{ QStringLiteral("Table::addColumn : Ref count in realloc is 1") });
    }
    EXPECT_EQ(Table::references(t.at(0).rowPtr()), 1) << "reset to what the index holds";
    EXPECT_TRUE(t.at(0).data(1).isNull());
}
