#include "table/boardlist.h"
#include "table/columndef.h"
#include "table/fieldtype.h"

#include <QBuffer>
#include <QDataStream>

#include <gtest/gtest.h>

#include <cstring>

TEST(FieldType, LengthsNamesAndErrors)
{
    struct Row {
        FieldType::Type type;
        int length;
        uint64 width;
        const char *name;
        bool hasLength;
    };
    const Row rows[] = {
        { FieldType::Integer, 0, 4, "Integer", false },
        { FieldType::Integer64, 0, 8, "Integer64", false },
        { FieldType::Double, 0, 8, "Double", false },
        { FieldType::Decimal, 2, 8, "Decimal", true },
        { FieldType::XDecimal, 4, 16, "XDecimal", true },
        { FieldType::VarChar, 12, 24, "VarChar", true },
        { FieldType::DateTime, 0, 8, "DateTime", false },
        { FieldType::String, 0, 8, "String", false },
        { FieldType::BoardList, 0, 404, "BoardList", false },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(FieldType::typeLength(row.type, row.length), row.width);
        EXPECT_STREQ(FieldType::typeName(row.type), row.name);
        EXPECT_EQ(FieldType::typeHasLength(row.type), row.hasLength);
    }
    EXPECT_EQ(FieldType::typeNameWithLength(FieldType::VarChar, 12), QStringLiteral("VarChar[12]"));
    EXPECT_EQ(FieldType::typeNameWithLength(FieldType::Decimal, 2), QStringLiteral("Decimal[2]"));
    EXPECT_EQ(FieldType::typeNameWithLength(FieldType::Integer, 7), QStringLiteral("Integer"));
    EXPECT_STREQ(FieldType::typeName(FieldType::Type(42)), "Undefined");

    try {
        FieldType::typeLength(FieldType::VarChar, 0);
        FAIL() << "no throw";
    } catch (const QString &e) {
        EXPECT_EQ(e, QStringLiteral("Length of string can't be zero"));
    }
    for (int bad : { 0, 10, -1 }) {
        try {
            FieldType::typeLength(FieldType::Type(bad), 1);
            FAIL() << "no throw for " << bad;
        } catch (const QString &e) {
            EXPECT_EQ(e, QStringLiteral("Type is undefined."));
        }
    }
}

TEST(FieldType, TypeLessThan)
{
    EXPECT_TRUE(FieldType::typeLessThan(FieldType::Integer, 0, FieldType::Integer64, 0));
    EXPECT_FALSE(FieldType::typeLessThan(FieldType::Integer64, 0, FieldType::Integer, 0));
    EXPECT_TRUE(FieldType::typeLessThan(FieldType::VarChar, 5, FieldType::VarChar, 5));
    EXPECT_TRUE(FieldType::typeLessThan(FieldType::VarChar, 4, FieldType::VarChar, 5));
    EXPECT_FALSE(FieldType::typeLessThan(FieldType::VarChar, 6, FieldType::VarChar, 5));
    EXPECT_FALSE(FieldType::typeLessThan(FieldType::Decimal, 2, FieldType::Decimal, 3));
    EXPECT_TRUE(FieldType::typeLessThan(FieldType::Decimal, 3, FieldType::Decimal, 3));
    EXPECT_FALSE(FieldType::typeLessThan(FieldType::Double, 0, FieldType::Decimal, 0));
}

TEST(FieldType, VarCharCells)
{
    unsigned char cell[6];
    std::memset(cell, 0xEE, sizeof cell);
    FieldType::stringToVarChar(cell, 3, QStringLiteral("ab"));
    const ushort *units = reinterpret_cast<const ushort *>(cell);
    EXPECT_EQ(units[0], 'a');
    EXPECT_EQ(units[2], 0) << "unused units are zero-filled";
    EXPECT_EQ(FieldType::varCharToString(cell, 3), QStringLiteral("ab"));

    // Full: no terminator, reading stops at the length.
    unsigned char guarded[10];
    std::memset(guarded, 0x41, sizeof guarded);
    FieldType::stringToVarChar(guarded, 3, QStringLiteral("abcdef"));
    EXPECT_EQ(guarded[6], 0x41) << "a longer text is cut, not written past the cell";
    EXPECT_EQ(FieldType::varCharToString(guarded, 3), QStringLiteral("abc"));

    const QString source = QStringLiteral("xyz");
    FieldType::stringToVarChar(cell, 3, source.midRef(1));
    EXPECT_EQ(FieldType::varCharToString(cell, 3), QStringLiteral("yz"));
}

TEST(FieldType, StaticStringReadsTheCellInPlace)
{
    unsigned char cell[8];
    FieldType::stringToVarChar(cell, 4, QStringLiteral("abc"));
    const StaticString s = FieldType::varCharToStaticString(cell, 4);
    EXPECT_EQ(s.string(), QStringLiteral("abc"));
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(s.string().constData()), cell)
        << "no copy: the string's data is the cell";
    FieldType::stringToVarChar(cell, 4, QStringLiteral("xbc"));
    EXPECT_EQ(s.string(), QStringLiteral("xbc"));
    EXPECT_LT(QString::compare(s, QStringLiteral("y")), 0);

    const StaticString empty;
    EXPECT_TRUE(empty.string().isEmpty());
}

TEST(TableColumnDef, StreamRoundTripAndStringWidth)
{
    TableColumnDef def(nullptr);
    def.name = QStringLiteral("price");
    def.title = QStringLiteral("Цена");
    def.description = QStringLiteral("last price");
    def.type = FieldType::Decimal;
    def.length = 4;
    def.len = 8;
    def.nullable = false;
    def.flag = false;
    def.offset = 40;

    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << def;
    }
    TableColumnDef back(nullptr);
    {
        QDataStream in(bytes);
        in >> back;
        EXPECT_EQ(in.status(), QDataStream::Ok);
        EXPECT_TRUE(in.atEnd());
    }
    EXPECT_EQ(back.name, def.name);
    EXPECT_EQ(back.title, def.title);
    EXPECT_EQ(back.description, def.description);
    EXPECT_EQ(back.type, FieldType::Decimal);
    EXPECT_EQ(back.length, 4);
    EXPECT_EQ(back.len, 8u);
    EXPECT_FALSE(back.nullable);
    EXPECT_FALSE(back.flag);
    EXPECT_EQ(back.offset, 0u) << "the place in the row is not stored";

    // Item order on the stream: three strings, length, type (8 bits), len, two bools.
    QByteArray manual;
    {
        QDataStream out(&manual, QIODevice::WriteOnly);
        out << QStringLiteral("s") << QString() << QString() << qint32(0)
            << qint8(FieldType::String) << qint32(24) << true << true;
    }
    TableColumnDef str(nullptr);
    QDataStream in(manual);
    in >> str;
    EXPECT_EQ(str.type, FieldType::String);
    EXPECT_EQ(str.len, 8u) << "a String cell is always 8 bytes wide";
}

TEST(TableColumnDef, UpdatePlacesTheNullBit)
{
    TableColumnDef def(nullptr);
    def.update(48, 11);
    EXPECT_EQ(def.nullIndex, 11);
    EXPECT_EQ(def.nullOffset, 49u);
    EXPECT_EQ(def.nullMask, 1 << 3);

    TableColumnDef copy(nullptr, def);
    EXPECT_EQ(copy.nullOffset, 0u) << "the copy constructor with a table drops the place";
    def.len = 13;
    EXPECT_EQ(def.lenAligned(), 16u);
}

TEST(BoardList, TextForm)
{
    boardlist list = boardlist::fromText(QStringLiteral("1:2,3 4:5"));
    ASSERT_EQ(list.count, 3);
    EXPECT_EQ(list.items[0].first, 1);
    EXPECT_EQ(list.items[1].second, 3);
    EXPECT_EQ(list.items[2].first, 4);
    EXPECT_EQ(list.toString(), QStringLiteral("1:2,3 4:5"));

    // A bad number drops everything read so far.
    EXPECT_EQ(boardlist::fromText(QStringLiteral("1:2,3 4:x")).count, 0);
    EXPECT_EQ(boardlist::fromText(QStringLiteral("1:2, 4:5")).count, 1) << "empty item fails";
    // Malformed groups are skipped, not fatal.
    EXPECT_EQ(boardlist::fromText(QStringLiteral("1:2:3  x:4 5:6")).count, 1);

    // Groups and numbers sort as text: "10" before "9".
    boardlist sorted = boardlist::fromText(QStringLiteral("9:10,9 10:1"));
    EXPECT_EQ(sorted.toString(), QStringLiteral("10:1 9:10,9"));
    boardlist empty {};
    EXPECT_EQ(empty.toString(), QString());
}

TEST(BoardList, FullListThrows)
{
    QStringList numbers;
    for (int i = 0; i < 49; ++i)
        numbers << QString::number(i);
    boardlist list = boardlist::fromText(QStringLiteral("1:") + numbers.join(QLatin1Char(',')));
    EXPECT_EQ(list.count, 49);

    numbers << QStringLiteral("49");
    try {
        boardlist::fromText(QStringLiteral("1:") + numbers.join(QLatin1Char(',')));
        FAIL() << "no throw";
    } catch (const char *e) {
        EXPECT_STREQ(e, "List size exceed");
    }
}
