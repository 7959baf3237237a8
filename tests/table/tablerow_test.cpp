#include "table/table.h"

#include <gtest/gtest.h>

#include <cstring>

TEST(TableRow, LayoutForVariousColumnCounts)
{
    for (int columns : { 1, 8, 9, 64 }) {
        SCOPED_TRACE(columns);
        Table t(QStringLiteral("T"));
        uint64 expectedOffset = 0;
        uint64 unaligned = 0;
        for (int i = 0; i < columns; ++i) {
            // Mix widths so that alignment matters: 4, 8, 16, 6 (VarChar 3), 404.
            static const FieldDef defs[] = { FieldDef(FieldType::Integer),
                                             FieldDef(FieldType::Double),
                                             FieldDef(FieldType::XDecimal, 2),
                                             FieldDef(FieldType::VarChar, 3),
                                             FieldDef(FieldType::BoardList) };
            const FieldDef def = defs[i % 5];
            t.addColumn(QStringLiteral("c%1").arg(i), def);
            const TableColumnDef &c = t.columnDef(i);
            EXPECT_EQ(c.offset, expectedOffset);
            EXPECT_EQ(c.offset % 8, 0u);
            expectedOffset += c.lenAligned();
            unaligned += c.len;
        }
        EXPECT_EQ(t.rowLength(), expectedOffset);
        EXPECT_EQ(t.rowLengthUnaligned(), unaligned);
        EXPECT_EQ(t.rowSize(), 16 + expectedOffset + uint64(columns + 7) / 8);
        for (int i = 0; i < columns; ++i) {
            const TableColumnDef &c = t.columnDef(i);
            EXPECT_EQ(c.nullIndex, i);
            EXPECT_EQ(c.nullOffset, t.rowLength() + uint64(i >> 3));
            EXPECT_EQ(c.nullMask, 1 << (i & 7));
        }
    }
    Table empty(QStringLiteral("E"));
    EXPECT_EQ(empty.rowSize(), 16u);
    EXPECT_EQ(empty.rowLength(), 0u);
}

TEST(TableRow, InitRowContentPerType)
{
    Table t(QStringLiteral("T"));
    t.addColumn(QStringLiteral("n"), FieldType::Integer, 0, true);
    t.addColumn(QStringLiteral("nn"), FieldType::Integer, 0, false);
    t.addColumn(QStringLiteral("x"), FieldType::XDecimal, 4, true);
    t.addColumn(QStringLiteral("s"), FieldType::String, 0, false);

    Record r(&t);
    ASSERT_FALSE(r.isNull());
    EXPECT_EQ(Table::references(r.rowPtr()), 1);
    EXPECT_EQ(Table::tablePtr(r.rowPtr()), &t);
    EXPECT_EQ(*reinterpret_cast<const quint32 *>(r.rowPtr() + 4), 0u);

    EXPECT_TRUE(r.data(0).isNull()) << "a nullable cell starts NULL";
    EXPECT_FALSE(r.data(1).isNull()) << "a non-nullable cell holds its zero value";
    EXPECT_EQ(r.data(1).asInteger(), 0);
    const unsigned char *x = r.data(2).data();
    EXPECT_EQ(x[0], 0);
    EXPECT_EQ(x[1], 26);
    for (int i = 2; i < 16; ++i)
        EXPECT_EQ(x[i], 0);
    EXPECT_FALSE(r.data(3).isNull());
    EXPECT_EQ(*reinterpret_cast<const QString *>(r.data(3).data()), QString());
    EXPECT_EQ(r.data(QStringLiteral("nn")).data(), r.data(1).data());
}

TEST(TableRow, CopyRowContentSharesStringsAcrossRuns)
{
    Table t(QStringLiteral("T"));
    t.addColumn(QStringLiteral("a"), FieldType::Integer);
    t.addColumn(QStringLiteral("b"), FieldType::Double);
    t.addColumn(QStringLiteral("s"), FieldType::String);
    t.addColumn(QStringLiteral("c"), FieldType::Integer64);
    t.addColumn(QStringLiteral("v"), FieldType::VarChar, 3);

    Record dst(&t);
    QString text;
    {
        Record src(&t);
        FieldType::setInt(src.data(0).data(), 7);
        src.data(0).clearNull();
        FieldType::setDouble(src.data(1).data(), 2.5);
        src.data(1).clearNull();
        *reinterpret_cast<QString *>(src.data(2).data()) = QStringLiteral("shared text");
        src.data(2).clearNull();
        text = *reinterpret_cast<QString *>(src.data(2).data());
        FieldType::setInt64(src.data(3).data(), -9);
        src.data(3).clearNull();
        FieldType::stringToVarChar(src.data(4).data(), 3, QStringLiteral("xyz"));

        dst.copy(src);
        const QString &copied = *reinterpret_cast<QString *>(dst.data(2).data());
        EXPECT_EQ(copied.constData(), text.constData()) << "the string is shared, not duplicated";
    }
    // The source row is gone; the copy stands on its own.
    EXPECT_EQ(dst.data(0).asInteger(), 7);
    EXPECT_EQ(dst.data(1).asDouble(), 2.5);
    EXPECT_EQ(*reinterpret_cast<QString *>(dst.data(2).data()), QStringLiteral("shared text"));
    EXPECT_EQ(dst.data(3).asInteger64(), -9);
    EXPECT_EQ(FieldType::varCharToString(dst.data(4).data(), 3), QStringLiteral("xyz"));
    EXPECT_FALSE(dst.data(0).isNull());
    EXPECT_TRUE(dst.data(4).isNull()) << "null bits come with the copy";
}

TEST(TableRow, CopyRowContentRangeLeavesOtherColumns)
{
    Table t(QStringLiteral("T"));
    for (int i = 0; i < 5; ++i)
        t.addColumn(QStringLiteral("c%1").arg(i), FieldType::Integer64);
    Record src(&t), dst(&t);
    for (int i = 0; i < 5; ++i) {
        FieldType::setInt64(src.data(i).data(), 100 + i);
        src.data(i).clearNull();
        FieldType::setInt64(dst.data(i).data(), -1);
    }
    dst.copy(src, 1, 3);
    EXPECT_EQ(dst.data(0).asInteger64(), -1);
    EXPECT_TRUE(dst.data(0).isNull());
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(dst.data(i).asInteger64(), 100 + i);
        EXPECT_FALSE(dst.data(i).isNull());
    }
    EXPECT_EQ(dst.data(4).asInteger64(), -1);
    EXPECT_TRUE(dst.data(4).isNull());

    // first > last copies no cell.
    Record other(&t);
    other.copy(src, 3, 2);
    EXPECT_EQ(other.data(2).asInteger64(), 0);
    EXPECT_EQ(other.data(3).asInteger64(), 0);
}

TEST(TableRow, CopyNullPtrMasks)
{
    unsigned char src[3] = { 0xFF, 0xFF, 0xFF };
    unsigned char dst[3] = { 0, 0, 0 };
    Table::copyNullPtr(dst, src, 3, 12);
    EXPECT_EQ(dst[0], 0xF8) << "bits 0..2 stay";
    EXPECT_EQ(dst[1], 0x1F) << "bits 13..15 stay";
    EXPECT_EQ(dst[2], 0);

    unsigned char d2[3] = { 0xFF, 0xFF, 0xFF };
    unsigned char s2[3] = { 0, 0, 0 };
    Table::copyNullPtr(d2, s2, 2, 5);
    EXPECT_EQ(d2[0], 0xC3);
    Table::copyNullPtr(d2, s2, 0, 23);
    EXPECT_EQ(d2[1], 0);
    EXPECT_EQ(d2[2], 0);

    unsigned char bits[2] = { 0, 0 };
    Table::setNullPtr(bits, 9, false);
    EXPECT_FALSE(Table::isNullPtr(bits, 9));
    EXPECT_TRUE(Table::isNullPtr(bits, 8));
    Table::setNullPtr(bits, 9, true);
    EXPECT_EQ(bits[1], 0);
}

TEST(TableRow, ReferenceCounting)
{
    Table t(QStringLiteral("T"));
    t.addColumn(QStringLiteral("s"), FieldType::String);
    Record a(&t);
    *reinterpret_cast<QString *>(a.data(0).data()) = QStringLiteral("text");
    {
        Record b = a;
        EXPECT_EQ(Table::references(a.rowPtr()), 2);
        Record c;
        c = b;
        EXPECT_EQ(Table::references(a.rowPtr()), 3);
        c = c;
        EXPECT_EQ(Table::references(a.rowPtr()), 3);
        Record moved(std::move(c));
        EXPECT_TRUE(c.isNull());
        EXPECT_EQ(Table::references(a.rowPtr()), 3);
    }
    EXPECT_EQ(Table::references(a.rowPtr()), 1);

    Record clone = a.clone();
    EXPECT_NE(clone, a);
    EXPECT_EQ(Table::references(clone.rowPtr()), 1);
    EXPECT_EQ(clone.table(), &t);
    EXPECT_EQ(*reinterpret_cast<QString *>(clone.data(0).data()), QStringLiteral("text"));
    EXPECT_NE(clone.compare(a), 0);
    EXPECT_EQ(clone < a, clone.compare(a) < 0);

    Record none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.table(), nullptr);
    EXPECT_EQ(none.dump(), QStringLiteral("{ NULL }"));
    EXPECT_TRUE(Record::null.isNull());
}

TEST(TableRow, DumpSkipsOrShowsNullCells)
{
    Table t(QStringLiteral("Orders"));
    t.addColumn(QStringLiteral("id"), FieldType::Integer);
    t.addColumn(QStringLiteral("qty"), FieldType::Integer);
    Record r(&t);
    FieldType::setInt(r.data(0).data(), 5);
    r.data(0).clearNull();
    const QString address = QStringLiteral("%1").arg(quintptr(r.rowPtr()), 16, 16, QLatin1Char('0'));
    EXPECT_EQ(r.dump(false),
              QStringLiteral("Orders:(ptr:0x%1 ref:1) { id=5 qty=\"\" }").arg(address));
    EXPECT_EQ(r.dump(true), QStringLiteral("Orders:(ptr:0x%1 ref:1) { id=5 }").arg(address));
}
