#include "table/boardlist.h"
#include "table/columndef.h"
#include "table/fieldtype.h"

#include <QDataStream>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

namespace {

QString thrownText(const std::function<void()> &action)
{
    try {
        action();
    } catch (const QString &e) {
        return e;
    } catch (const char *e) {
        return QString::fromLatin1(e);
    }
    return QStringLiteral("<no throw>");
}

} // namespace

TEST(FieldType, LengthsNamesAndOrder)
{
    struct Row
    {
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
    EXPECT_EQ(FieldType::typeNameWithLength(FieldType::Integer, 7), QStringLiteral("Integer"));
    EXPECT_STREQ(FieldType::typeName(FieldType::Type(42)), "Undefined");
    EXPECT_EQ(thrownText([] { FieldType::typeLength(FieldType::VarChar, 0); }),
              QStringLiteral("Length of string can't be zero"));
    for (int bad : { 0, 10, -1 })
        EXPECT_EQ(thrownText([bad] { FieldType::typeLength(FieldType::Type(bad), 1); }),
                  QStringLiteral("Type is undefined."))
            << bad;

    // By type; within a type with a length, "less" means the length fits (<=).
    struct Less
    {
        FieldType::Type a;
        int lengthA;
        FieldType::Type b;
        int lengthB;
        bool less;
    };
    const Less pairs[] = {
        { FieldType::Integer, 0, FieldType::Integer64, 0, true },
        { FieldType::Integer64, 0, FieldType::Integer, 0, false },
        { FieldType::Double, 0, FieldType::Decimal, 0, false },
        { FieldType::VarChar, 5, FieldType::VarChar, 5, true },
        { FieldType::VarChar, 4, FieldType::VarChar, 5, true },
        { FieldType::VarChar, 6, FieldType::VarChar, 5, false },
        { FieldType::Decimal, 2, FieldType::Decimal, 3, false },
        { FieldType::Decimal, 3, FieldType::Decimal, 3, true },
    };
    for (const Less &p : pairs)
        EXPECT_EQ(FieldType::typeLessThan(p.a, p.lengthA, p.b, p.lengthB), p.less)
            << p.a << "/" << p.lengthA << " < " << p.b << "/" << p.lengthB;
}

TEST(FieldType, VarCharCells)
{
    // 10 bytes for a 3-unit cell: a longer text must be cut, not written past it.
    unsigned char cell[10];
    std::memset(cell, 0x41, sizeof cell);
    FieldType::stringToVarChar(cell, 3, QStringLiteral("abcdef"));
    EXPECT_EQ(cell[6], 0x41);
    EXPECT_EQ(FieldType::varCharToString(cell, 3), QStringLiteral("abc")) << "full: no terminator";
    FieldType::stringToVarChar(cell, 3, QStringLiteral("ab"));
    EXPECT_EQ(reinterpret_cast<const ushort *>(cell)[2], 0) << "unused units are zero-filled";
    EXPECT_EQ(FieldType::varCharToString(cell, 3), QStringLiteral("ab"));
    const QString source = QStringLiteral("xyz");
    FieldType::stringToVarChar(cell, 3, source.midRef(1));
    EXPECT_EQ(FieldType::varCharToString(cell, 3), QStringLiteral("yz"));
    // The static view reads the cell in place.
    const StaticString view = FieldType::varCharToStaticString(cell, 3);
    FieldType::stringToVarChar(cell, 3, QStringLiteral("ab"));
    EXPECT_EQ(view.string(), QStringLiteral("ab"));
}

// A String cell is always 8 bytes wide, whatever the stream claims.
TEST(TableColumnDef, StringWidthIsNotTakenFromTheStream)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << QStringLiteral("s") << QString() << QString() << qint32(0) << qint8(FieldType::String)
        << qint32(24) << true << true;
    TableColumnDef str(nullptr);
    QDataStream in(bytes);
    in >> str;
    EXPECT_EQ(in.status(), QDataStream::Ok);
    EXPECT_TRUE(in.atEnd());
    EXPECT_EQ(str.type, FieldType::String);
    EXPECT_EQ(str.len, 8u);
    EXPECT_TRUE(str.nullable);
}

TEST(BoardList, TextFormAndCapacity)
{
    struct Row
    {
        const char *text;
        int count;
        const char *shown;
    };
    const Row rows[] = {
        { "1:2,3 4:5", 3, "1:2,3 4:5" },
        // A bad or empty item drops everything read so far; reading goes on.
        { "1:2,3 4:x", 0, "" },
        { "1:2, 4:5", 1, "4:5" },
        { "1:2:3  x:4 5:6", 1, "5:6" }, // malformed groups are skipped
        { "9:10,9 10:1", 3, "10:1 9:10,9" }, // groups and numbers sort as text
        { "", 0, "" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        const boardlist list = boardlist::fromText(QString::fromUtf8(row.text));
        EXPECT_EQ(list.count, row.count);
        EXPECT_EQ(list.toString(), QString::fromUtf8(row.shown));
    }
    // 49 numbers fit, 50 do not.
    QStringList numbers;
    for (int i = 0; i < 49; ++i)
        numbers << QString::number(i);
    EXPECT_EQ(boardlist::fromText(QStringLiteral("1:") + numbers.join(QLatin1Char(','))).count, 49);
    numbers << QStringLiteral("49");
    EXPECT_EQ(thrownText([&] { boardlist::fromText(QStringLiteral("1:") + numbers.join(',')); }),
              QStringLiteral("List size exceed"));
}
