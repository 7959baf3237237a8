#include "index/masterindex.h"
#include "table/table.h"

#include <QtMessageHandler>

#include <functional>

#include <gtest/gtest.h>

namespace {

QStringList *capturedWarnings = nullptr;

void captureWarnings(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtWarningMsg && capturedWarnings)
        capturedWarnings->append(message);
}

QString expectThrow(const std::function<void()> &f)
{
    try {
        f();
    } catch (const QString &e) {
        return e;
    }
    return QStringLiteral("<no throw>");
}

} // namespace

TEST(TableColumns, DuplicatesAndAcceptedRedefinitions)
{
    Table t(QStringLiteral("Quotes"));
    t.addColumn(QStringLiteral("code"), FieldType::VarChar, 12);
    t.addColumn(QStringLiteral("volume"), FieldType::Integer64);
    t.addColumn(QStringLiteral("price"), FieldType::Decimal, 2);
    const uint64 size = t.rowSize();

    // Definitions that fit into the existing column are silently ignored.
    t.addColumn(QStringLiteral("code"), FieldType::VarChar, 12);
    t.addColumn(QStringLiteral("code"), FieldType::VarChar, 5);
    t.addColumn(QStringLiteral("VOLUME"), FieldType::Integer);
    EXPECT_EQ(t.columnCount(), 3);
    EXPECT_EQ(t.rowSize(), size);

    EXPECT_EQ(expectThrow([&] { t.addColumn(QStringLiteral("code"), FieldType::VarChar, 13); }),
              QStringLiteral("Column 'code' already exists for table 'Quotes'."));
    EXPECT_EQ(expectThrow([&] { t.addColumn(QStringLiteral("Price"), FieldType::Decimal, 3); }),
              QStringLiteral("Column 'Price' already exists for table 'Quotes'."));
    EXPECT_EQ(expectThrow([&] { t.addColumn(QString(), FieldType::Integer); }),
              QStringLiteral("Column name can't be empty."));
    EXPECT_EQ(expectThrow([&] { t.addColumn(QStringLiteral("empty"), FieldType::VarChar, 0); }),
              QStringLiteral("Length of string can't be zero"));
    EXPECT_EQ(t.columnCount(), 3) << "a throwing addColumn changes nothing";
    EXPECT_EQ(t.rowSize(), size);

    // Lookup by name is case sensitive although the duplicate check is not.
    EXPECT_EQ(t.columnIndex(QStringLiteral("price")), 2);
    EXPECT_EQ(t.columnIndex(QStringLiteral("Price")), -1);
    EXPECT_FALSE(t.columnExists(QStringLiteral("PRICE")));
}

TEST(TableColumns, LookupAgreesForTreeAndHash)
{
    Table t(QStringLiteral("Wide"));
    for (int i = 0; i < 20; ++i)
        t.addColumn(QStringLiteral("col%1").arg(i), FieldType::Integer);
    auto check = [&](int count) {
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(t.columnIndex(QStringLiteral("col%1").arg(i)), i);
        EXPECT_EQ(t.columnIndex(QStringLiteral("missing")), -1);
        EXPECT_EQ(t.columnIndex(QStringLiteral("COL1")), -1);
    };
    check(20);
    t.addColumn(QStringLiteral("col20"), FieldType::Integer);
    check(21);
    t.addColumn(QStringLiteral("col21"), FieldType::Integer);
    check(22);
}

TEST(TableColumns, DescriptiveAccessors)
{
    Table t(QStringLiteral("T"), QString());
    EXPECT_EQ(t.title(), QStringLiteral("T"));
    t.setTitle(QStringLiteral("Таблица"));
    EXPECT_EQ(t.title(), QStringLiteral("Таблица"));
    t.addColumn(QStringLiteral("p"), FieldDef(FieldType::Decimal, 4), false, QString(), false,
                QStringLiteral("the price"));
    EXPECT_EQ(t.columnTitle(0), QStringLiteral("p"));
    t.setColumnTitle(0, QStringLiteral("Цена"));
    EXPECT_EQ(t.columnTitle(0), QStringLiteral("Цена"));
    EXPECT_EQ(t.columnTypeName(0), QStringLiteral("Decimal[4]"));
    EXPECT_EQ(t.columnDescription(0), QStringLiteral("the price"));
    EXPECT_EQ(t.columnType(0), FieldType::Decimal);
    const QList<ColumnDef> copies = t.columns();
    ASSERT_EQ(copies.size(), 1);
    EXPECT_FALSE(copies.at(0).nullable);
    EXPECT_FALSE(copies.at(0).flag);
    EXPECT_EQ(t.fieldDefs().at(0)->table, &t);
    EXPECT_EQ(&t.columnDef(QStringLiteral("p")), t.fieldDefs().at(0));
}

TEST(TableColumns, AddColumnReLaysLiveRows)
{
    Table t(QStringLiteral("Live"));
    // Eight columns, so that the ninth needs a new bitmap byte.
    for (int i = 0; i < 8; ++i)
        t.addColumn(QStringLiteral("c%1").arg(i), i % 2 ? FieldType::Integer64 : FieldType::String);
    for (int r = 0; r < 50; ++r) {
        Record row(&t);
        for (int i = 0; i < 8; ++i) {
            if ((r + i) % 3 == 0)
                continue; // leave some cells NULL
            if (i % 2)
                FieldType::setInt64(row.data(i).data(), r * 100 + i);
            else
                *reinterpret_cast<QString *>(row.data(i).data()) = QStringLiteral("r%1c%2").arg(r).arg(i);
            row.data(i).clearNull();
        }
        row.append();
    }
    ASSERT_EQ(t.rowCount(), 50);

    t.addColumn(QStringLiteral("extra"), FieldType::Double, 0, true);
    ASSERT_EQ(t.rowCount(), 50) << "the rows are in the master index again";
    for (int r = 0; r < 50; ++r) {
        Record row = t.at(r);
        EXPECT_EQ(Table::references(row.rowPtr()), 2) << "the index's and ours";
        for (int i = 0; i < 8; ++i) {
            const Field f = row.data(i);
            ASSERT_EQ(f.isNull(), (r + i) % 3 == 0) << r << "," << i;
            if (f.isNull())
                continue;
            if (i % 2)
                EXPECT_EQ(f.asInteger64(), r * 100 + i);
            else
                EXPECT_EQ(*reinterpret_cast<const QString *>(f.data()), QStringLiteral("r%1c%2").arg(r).arg(i));
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
    {
        Record row(&t);
        row.append();
    }
    QStringList warnings;
    capturedWarnings = &warnings;
    const QtMessageHandler previous = qInstallMessageHandler(captureWarnings);
    // A holder the store does not know of: its pointer would dangle if the block moved.
    Table::ref(const_cast<unsigned char *>(t.at(0).rowPtr()));
    t.addColumn(QStringLiteral("b"), FieldType::Integer);
    qInstallMessageHandler(previous);
    capturedWarnings = nullptr;
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_TRUE(warnings.at(0).startsWith(QStringLiteral("Table::addColumn : Ref count in realloc is ")));
    EXPECT_EQ(warnings.at(0).mid(43).toInt(), 1);
    EXPECT_EQ(Table::references(t.at(0).rowPtr()), 1) << "the count is reset to what the index holds";
    EXPECT_TRUE(t.at(0).data(1).isNull());
}
