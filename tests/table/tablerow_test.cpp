// Row blocks and the Record handle: layout, initial content, copies, null
// bits, reference counts and lookup through the master index.

#include "tabletestsupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

namespace {

QString &stringCell(const Record &r, int column)
{
    return *reinterpret_cast<QString *>(r.data(column).data());
}

} // namespace

TEST(TableRow, LayoutForVariousColumnCounts)
{
    // Widths 4, 8, 16, 6 and 404, so that alignment matters.
    static const FieldDef defs[] = { FieldDef(FieldType::Integer), FieldDef(FieldType::Double),
                                     FieldDef(FieldType::XDecimal, 2),
                                     FieldDef(FieldType::VarChar, 3),
                                     FieldDef(FieldType::BoardList) };
    for (int columns : { 0, 1, 8, 9, 64 }) {
        SCOPED_TRACE(columns);
        Table t(QStringLiteral("T"));
        uint64 offset = 0, unaligned = 0;
        for (int i = 0; i < columns; ++i) {
            t.addColumn(QStringLiteral("c%1").arg(i), defs[i % 5]);
            EXPECT_EQ(t.columnDef(i).offset, offset);
            offset += (t.columnDef(i).len + 7) / 8 * 8;
            unaligned += t.columnDef(i).len;
        }
        EXPECT_EQ(t.rowLength(), offset);
        EXPECT_EQ(t.rowLengthUnaligned(), unaligned);
        EXPECT_EQ(t.rowSize(), 16 + offset + uint64(columns + 7) / 8);
        for (int i = 0; i < columns; ++i) {
            EXPECT_EQ(t.columnDef(i).nullIndex, i);
            EXPECT_EQ(t.columnDef(i).nullOffset, offset + uint64(i >> 3));
            EXPECT_EQ(t.columnDef(i).nullMask, 1 << (i & 7));
        }
    }
}

TEST(TableRow, InitialContentPerType)
{
    Table t(QStringLiteral("T"));
    t.addColumn(QStringLiteral("n"), FieldType::Integer, 0, true);
    t.addColumn(QStringLiteral("nn"), FieldType::Integer, 0, false);
    t.addColumn(QStringLiteral("x"), FieldType::XDecimal, 4, true);
    t.addColumn(QStringLiteral("s"), FieldType::String, 0, false);
    Record r(&t);
    EXPECT_EQ(Table::references(r.rowPtr()), 1);
    EXPECT_EQ(Table::tablePtr(r.rowPtr()), &t);
    EXPECT_EQ(*reinterpret_cast<const quint32 *>(r.rowPtr() + 4), 0u);
    EXPECT_TRUE(r.data(0).isNull());
    // A non-nullable cell holds its zero value; an XDecimal's zero has scale 0 and tag 26.
    EXPECT_FALSE(r.data(1).isNull());
    EXPECT_EQ(r.data(1).asInteger(), 0);
    const unsigned char zeroX[16] = { 0, 26 };
    EXPECT_EQ(std::memcmp(r.data(2).data(), zeroX, 16), 0);
    EXPECT_FALSE(r.data(3).isNull());
    EXPECT_EQ(stringCell(r, 3), QString());
}

TEST(TableRow, CopySharesStringsAndKeepsToTheColumnRange)
{
    Table t(QStringLiteral("T"));
    t.addColumn(QStringLiteral("s"), FieldType::String);
    for (int i = 1; i < 5; ++i)
        t.addColumn(QStringLiteral("c%1").arg(i), FieldType::Integer64);
    t.addColumn(QStringLiteral("v"), FieldType::VarChar, 3);
    Record dst(&t);
    Record src(&t);
    src.data(0) = QStringLiteral("shared text");
    for (int i = 1; i < 5; ++i)
        src.data(i) = int64(100 + i);
    FieldType::stringToVarChar(src.data(5).data(), 3, QStringLiteral("xyz")); // still NULL
    const QString text = stringCell(src, 0);

    Record whole(&t);
    whole.copy(src);
    Record part(&t);
    for (int i = 1; i < 5; ++i)
        FieldType::setInt64(part.data(i).data(), -1);
    part.copy(src, 2, 3);
    Record none(&t);
    none.copy(src, 3, 2);
    src = Record(); // the copies stand on their own

    EXPECT_EQ(stringCell(whole, 0).constData(), text.constData()) << "shared, not duplicated";
    EXPECT_EQ(FieldType::varCharToString(whole.data(5).data(), 3), QStringLiteral("xyz"));
    EXPECT_TRUE(whole.data(5).isNull()) << "null bits come with the copy";
    for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        const bool inRange = i == 2 || i == 3;
        EXPECT_FALSE(whole.data(i).isNull());
        EXPECT_EQ(part.data(i).isNull(), !inRange);
        EXPECT_TRUE(none.data(i).isNull());
        if (i == 0)
            continue; // column 0 is the String cell checked above
        EXPECT_EQ(whole.data(i).asInteger64(), 100 + i);
        EXPECT_EQ(part.data(i).asInteger64(), inRange ? 100 + i : -1);
        EXPECT_EQ(none.data(i).asInteger64(), 0);
    }
}

TEST(TableRow, NullBitmapHelpers)
{
    struct Row
    {
        unsigned char dst, src;
        int first, last;
        unsigned char expected[3];
    };
    const Row rows[] = {
        { 0x00, 0xFF, 3, 12, { 0xF8, 0x1F, 0x00 } },
        { 0xFF, 0x00, 2, 5, { 0xC3, 0xFF, 0xFF } },
        { 0xFF, 0x00, 0, 23, { 0x00, 0x00, 0x00 } },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << row.first << ".." << row.last);
        unsigned char dst[3] = { row.dst, row.dst, row.dst };
        const unsigned char src[3] = { row.src, row.src, row.src };
        Table::copyNullPtr(dst, src, row.first, row.last);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(dst[i], row.expected[i]) << i;
    }
    // A set bit means "not NULL".
    unsigned char bits[2] = { 0, 0 };
    Table::setNullPtr(bits, 9, false);
    EXPECT_FALSE(Table::isNullPtr(bits, 9));
    EXPECT_TRUE(Table::isNullPtr(bits, 8));
    EXPECT_EQ(bits[1], 0x02);
    Table::setNullPtr(bits, 9, true);
    EXPECT_EQ(bits[1], 0);
}

TEST(TableRow, ReferenceCountingAndDump)
{
    Table t(QStringLiteral("Orders"));
    t.addColumn(QStringLiteral("id"), FieldType::Integer);
    t.addColumn(QStringLiteral("qty"), FieldType::Integer);
    Record a(&t);
    a.data(0) = 5;
    {
        Record b = a;
        Record c;
        c = b;
        c = c;
        EXPECT_EQ(Table::references(a.rowPtr()), 3);
        Record moved(std::move(c));
        EXPECT_TRUE(c.isNull());
        EXPECT_EQ(Table::references(a.rowPtr()), 3);
    }
    EXPECT_EQ(Table::references(a.rowPtr()), 1);

    const Record clone = a.clone();
    EXPECT_NE(clone, a);
    EXPECT_EQ(Table::references(clone.rowPtr()), 1);
    EXPECT_EQ(clone.data(0).asInteger(), 5);
    EXPECT_NE(clone.compare(a), 0);
    EXPECT_EQ(clone < a, clone.compare(a) < 0);

    const QString address = QStringLiteral("%1").arg(quintptr(a.rowPtr()), 16, 16, QLatin1Char('0'));
    EXPECT_EQ(a.dump(false), QStringLiteral("Orders:(ptr:0x%1 ref:1) { id=5 qty=\"\" }").arg(address));
    EXPECT_EQ(a.dump(true), QStringLiteral("Orders:(ptr:0x%1 ref:1) { id=5 }").arg(address));
    EXPECT_FALSE(Record());
    EXPECT_EQ(Record().dump(), QStringLiteral("{ NULL }"));
}

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
    EXPECT_FALSE(two.clone().inTable());
    EXPECT_EQ(two.clone().toString(), QStringLiteral("2"));

    // A Record is a handle: const on the handle does not make the shared row const.
    static_assert(std::is_same<decltype(std::declval<const Record &>().data(0)), Field>::value,
                  "const Record::data(int) gives a writable Field");
    static_assert(std::is_same<decltype(std::declval<const Record &>().data(QString())), Field>::value,
                  "const Record::data(const QString &) gives a writable Field");
    two.data(QStringLiteral("value")) = 21;
    EXPECT_EQ(valueOf(table->at(1)), 21);

    two.remove();
    EXPECT_FALSE(two.inTable());
    EXPECT_EQ(valueOf(two), 21) << "a removed row stays valid for its holders";
    EXPECT_TRUE(Record(table.get(), QStringLiteral("2")).isNull());
    EXPECT_FALSE(Record().inTable());
    EXPECT_EQ(Record().toString(), QString());

    // Without a key there is no key text, and every row equals the blank key
    // row, so the first one is found for any key.
    Table log(QStringLiteral("Log"));
    log.addColumn(QStringLiteral("n"), FieldType::Integer);
    for (int n : { 5, 3 }) {
        Record r(&log);
        r.data(0) = n;
        r.append();
    }
    EXPECT_TRUE(log.at(1).inTable());
    EXPECT_EQ(log.at(1).toString(), QString());
    EXPECT_EQ(Record(&log, QStringLiteral("3")), log.at(0));
}
