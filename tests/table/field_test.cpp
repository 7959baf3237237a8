// Field: the conversion table of every operator=, the converting reads, the
// order of cells and the arithmetic, through the cells of a real table.

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/stringpool.h"
#include "numeric/xdecimal.h"
#include "runtime/exception.h"
#include "table/boardlist.h"
#include "table/table.h"

#include <QDateTime>
#include <QVariant>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>

namespace {

enum Col { I, I64, D, DEC, XD, VC, DT, S, BL, INN };

// One nullable column of each type, the Decimal at scale 2, the XDecimal at
// scale 3, the VarChar 8 units long, and a non-nullable Integer.
std::unique_ptr<Table> makeTable()
{
    auto table = std::make_unique<Table>(QStringLiteral("F"));
    table->addColumn(QStringLiteral("i"), FieldType::Integer);
    table->addColumn(QStringLiteral("i64"), FieldType::Integer64);
    table->addColumn(QStringLiteral("d"), FieldType::Double);
    table->addColumn(QStringLiteral("dec"), FieldType::Decimal, 2);
    table->addColumn(QStringLiteral("xd"), FieldType::XDecimal, 3);
    table->addColumn(QStringLiteral("vc"), FieldType::VarChar, 8);
    table->addColumn(QStringLiteral("dt"), FieldType::DateTime);
    table->addColumn(QStringLiteral("s"), FieldType::String);
    table->addColumn(QStringLiteral("bl"), FieldType::BoardList);
    table->addColumn(QStringLiteral("inn"), FieldType::Integer, 0, false);
    return table;
}

// What a write or read did: "=text" (NULL shows as "=<NULL>"), or the thrown
// type and message: "E:" Exception, "S:" QString, "C:" const char *.
QString outcome(const std::function<QString()> &action)
{
    try {
        return QLatin1Char('=') + action();
    } catch (const Exception &e) {
        return QStringLiteral("E:") + e.message();
    } catch (const QString &s) {
        return QStringLiteral("S:") + s;
    } catch (const char *c) {
        return QStringLiteral("C:") + QString::fromLatin1(c);
    }
}

QString shown(const Field &f)
{
    return f.isNull() ? QStringLiteral("<NULL>") : f.toString();
}

// Writes a value into a cell of a row and tells the outcome.
using Writer = std::function<QString(Record &, int)>;
const Writer leaveNull = [](Record &, int) { return QString(); };

template <typename V>
Writer writer(V value)
{
    return [value](Record &row, int column) {
        return outcome([&] {
            Field f = row.data(column);
            f = value;
            return shown(f);
        });
    };
}

// Two sources that must convert alike: the outcome both give.
Writer alike(Writer a, Writer b)
{
    return [a, b](Record &row, int column) {
        const QString x = a(row, column);
        const QString y = b(row, column);
        return x == y ? x : x + QStringLiteral(" | ") + y;
    };
}

boardlist sampleBoard()
{
    return boardlist::fromText(QStringLiteral("1:2,3 4:5"));
}

TEST(FieldAssign, ConversionTableOfEverySourceAndTarget)
{
    const datetime when(2024, 1, 2, 3, 4, 5, 6);
    const struct
    {
        const char *source;
        Writer write;
        const char *expected[9]; // I, I64, D, DEC, XD, VC, DT, S, BL
    } rows[] = {
        { "int", writer(42),
          { "=42", "=42", "=42", "=42.00", "=42.000", "=42", "E:Can't convert from Integer to DateTime", "=42",
            "E:Can't convert from Integer to BoardList" } },
        { "int64", writer(int64(3000000000LL)),
          { "=2147483647", "=3000000000", "=3e+09", "=3000000000.00", "=3000000000.000", "=30000000",
            "E:Can't convert from Integer64 to DateTime", "=3000000000",
            "E:Can't convert from Integer64 to BoardList" } },
        { "negative int64", writer(int64(-3000000000LL)),
          { "=-2147483648", "=-3000000000", "=-3e+09", "=-3000000000.00", "=-3000000000.000", "=-3000000",
            "E:Can't convert from Integer64 to DateTime", "=-3000000000",
            "E:Can't convert from Integer64 to BoardList" } },
        { "double", writer(-2.75),
          { "=-2", "=-2", "=-2.75", "=-2.75", "=-2.750", "=-2.75000", "E:Can't convert double to datetime.",
            "=-2.750000", "E:Can't convert from Double to BoardList" } },
        { "decimal", writer(decimal(12345, 2)),
          { "=123", "=123", "=123.45", "=123.45", "=123.450", "=123.45", "E:Can't convert from decimal to datetime.",
            "=123.45", "E:Can't convert from Decimal to BoardList" } },
        // A Decimal cell stores the word with its own scale and is read at the
        // column's: 123.456 at scale 3 reads as 1234.56.
        { "xdecimal", writer(xdecimal(QStringLiteral("123.456"))),
          { "=123", "=123", "=123.456", "=1234.56", "=123.456", "=123.456",
            "E:Can't convert from decimal to datetime.", "=123.456", "E:Can't convert from Decimal to BoardList" } },
        { "datetime, QDateTime",
          alike(writer(when), writer(QDateTime(QDate(2024, 1, 2), QTime(3, 4, 5, 6), Qt::UTC))),
          { "E:Can't convert from DateTime to Integer", "E:Can't convert from DateTime to Integer64",
            "E:Can't convert from DateTime to Double", "E:Can't convert from DateTime to Decimal",
            "E:Can't convert from DateTime to XDecimal", "=2024.01.", "=2024.01.02 03:04:05.006",
            "=2024.01.02 03:04:05.006", "E:Can't convert from DateTime to BoardList" } },
        { "QChar", writer(QChar(u'x')),
          { "E:Can't convert from VarChar to Integer", "E:Can't convert from VarChar to Integer64",
            "E:Can't convert from VarChar to Double", "E:Can't convert from VarChar to Decimal",
            "E:Can't convert from VarChar to XDecimal", "=x", "E:Can't convert from VarChar to DateTime", "=x",
            "E:Can't convert from VarChar to BoardList" } },
        { "boardlist", writer(sampleBoard()),
          { "E:Can't convert from BoardList to Integer", "E:Can't convert from BoardList to Integer64",
            "E:Can't convert from BoardList to Double", "E:Can't convert from BoardList to Decimal",
            "E:Can't convert from BoardList to XDecimal", "E:Can't convert from BoardList to VarChar",
            "E:Can't convert from BoardList to DateTime", "E:Can't convert from BoardList to String",
            "=[BoardList]" } },
        // Text: decimal(s) is stored without a rescale, so "17" reads as 0.17;
        // text that is no date stores the empty datetime.
        { "QString number", writer(QStringLiteral("17")),
          { "=17", "=17", "=17", "=0.17", "=17.000", "=17", "=", "=17",
            "E:Can't convert from VarChar to BoardList" } },
        { "QString bad", writer(QStringLiteral("abc")),
          { "E:Can't convert from 'abc'' to Integer", "E:Can't convert from 'abc'' to Integer64",
            "E:Can't convert from 'abc'' to Double", nullptr, nullptr, "=abc", "=", "=abc",
            "E:Can't convert from VarChar to BoardList" } },
        { "invalid QDateTime, empty QString", alike(writer(QDateTime()), writer(QString())),
          { "=<NULL>", "=<NULL>", "=<NULL>", "=<NULL>", "=<NULL>", "=<NULL>", "=<NULL>", "=<NULL>", "=<NULL>" } },
    };
    auto table = makeTable();
    for (const auto &r : rows) {
        for (int column = I; column <= BL; ++column) {
            SCOPED_TRACE(std::string(r.source) + " -> " + table->columnName(column).toStdString());
            Record row(table.get());
            const QString got = r.write(row, column);
            if (r.expected[column])
                EXPECT_EQ(got, QString::fromUtf8(r.expected[column]));
            else
                EXPECT_TRUE(got.startsWith(QLatin1String("S:"))) << got.toStdString(); // the value class's text
        }
    }
}

TEST(FieldAssign, FailedWritesLeaveCellAndBitAlone)
{
    auto table = makeTable();
    Record row(table.get());
    EXPECT_EQ(writer(QString())(row, INN), QStringLiteral("E:Can't convert from ''' to Integer"));
    EXPECT_EQ(row.data(INN).asInteger(), 0);
    Field i = row.data(I);
    EXPECT_THROW(i = QStringLiteral("12x"), Exception);
    EXPECT_TRUE(i.isNull());
    i = 5;
    EXPECT_THROW(i = QStringLiteral("12x"), Exception);
    EXPECT_EQ(i.toInteger(), 5);
    // 26 integer digits cannot take the column's scale of 3: refused before
    // the 16 bytes are stored.
    Field xd = row.data(XD);
    EXPECT_THROW(xd = xdecimal(QStringLiteral("12345678901234567890123456")), const char *);
    EXPECT_TRUE(xd.isNull());
}

TEST(FieldAssign, FieldToFieldCopiesNullAndConvertsAcrossTypes)
{
    auto table = makeTable();
    Record a(table.get());
    Record b(table.get());
    a.data(I) = 7;
    a.data(BL) = sampleBoard();
    b.data(BL) = sampleBoard();
    // A NULL source empties any cell, with no conversion check.
    b.data(BL) = a.data(DT);
    EXPECT_TRUE(b.data(BL).isNull());
    b.data(DT) = a.data(I64);
    EXPECT_TRUE(b.data(DT).isNull());

    b.data(VC) = a.data(I);
    EXPECT_EQ(b.data(VC).toString(), QStringLiteral("7"));
    EXPECT_EQ(outcome([&] { b.data(DT) = a.data(I); return QString(); }),
              QStringLiteral("E:Can't convert from Integer to DateTime"));
    b.data(BL) = a.data(BL);
    EXPECT_EQ(b.data(BL).toBoardlist().toString(), QStringLiteral("1:2,3 4:5"));

    // Same type, another scale: through the value, which keeps its own scale.
    auto other = std::make_unique<Table>(QStringLiteral("G"));
    other->addColumn(QStringLiteral("dec"), FieldType::Decimal, 4);
    Record c(other.get());
    c.data(0) = decimal(15000, 4);
    b.data(DEC) = c.data(0);
    EXPECT_TRUE(b.data(DEC).asDecimal().isEqual(decimal(15000, 4)));
}

TEST(FieldRead, ConvertingReadsAndVariantRoundTrip)
{
    auto table = makeTable();
    Record row(table.get());
    row.data(I) = 3;
    row.data(I64) = int64(5000000000LL);
    row.data(D) = 1.5;
    row.data(DEC) = decimal(250, 2);
    row.data(XD) = xdecimal(QStringLiteral("0.75"));
    row.data(VC) = QStringLiteral("junk"); // no date: the empty datetime
    row.data(DT) = datetime(2021, 4, 5, 6, 7, 8, 9);
    row.data(S) = QStringLiteral("2022-03-04");
    row.data(BL) = sampleBoard();

    struct Read
    {
        const char *name;
        std::function<QString(const Field &)> read;
        const char *expected[9];
    };
    const char *no = "E:Incorrect type conversion.";
    const char *nt = "S:Incorrect type of field.";
    const Read reads[] = {
        { "toInteger", [](const Field &f) { return QString::number(f.toInteger()); },
          { "=3", "=2147483647", no, no, no, no, no, no, no } },
        { "toInteger64", [](const Field &f) { return QString::number(f.toInteger64()); },
          { "=3", "=5000000000", no, no, no, no, no, no, no } },
        { "toDouble", [](const Field &f) { return QString::number(f.toDouble()); },
          { "=3", "=5e+09", "=1.5", "=2.5", "=0.75", no, no, no, no } },
        { "toDecimal", [](const Field &f) { return f.toDecimal().toString(); },
          { no, no, no, "=2.50", no, no, no, no, no } },
        { "toXDecimal", [](const Field &f) { return f.toXDecimal().toString(); },
          { no, no, no, "=2.50", "=0.750", no, no, no, no } },
        { "toDatetime", [](const Field &f) { return f.toDatetime().toString(); },
          { no, no, no, no, no, "=", "=2021.04.05 06:07:08.009",
            "=2022.03.04 00:00:00.000", no } },
        { "toQDate", [](const Field &f) { return f.toQDate().toString(Qt::ISODate); },
          { no, no, no, no, no, no, "=2021-04-05", no, no } },
        { "toBoardlist", [](const Field &f) { return f.toBoardlist().toString(); },
          { no, no, no, no, no, no, no, no, "=1:2,3 4:5" } },
        // A character only from a VarChar[1] or a String of one character.
        { "toChar", [](const Field &f) { return QString(f.toChar()); },
          { nt, nt, nt, nt, nt, "S:String length is not 1 for QChar: 8.", nt,
            "S:String length is not 1 for QChar: 10.", nt } },
        { "asStaticString",
          [](const Field &f) {
              const StaticString view = f.asStaticString(); // a deep copy, as the view goes
              return QString(view.string().constData(), view.size());
          },
          { nt, nt, nt, nt, nt, "=junk", nt, nt, nt } },
    };
    Record nulls(table.get());
    for (const Read &r : reads) {
        for (int column = I; column <= BL; ++column) {
            SCOPED_TRACE(std::string(r.name) + " of " + table->columnName(column).toStdString());
            EXPECT_EQ(outcome([&] { return r.read(row.data(column)); }), QString::fromUtf8(r.expected[column]));
            // NULL reads as zero whatever the type.
            EXPECT_EQ(outcome([&] { return r.read(nulls.data(column)); }).left(1), QStringLiteral("="));
        }
    }
    for (int column = I; column <= BL; ++column) {
        SCOPED_TRACE(table->columnName(column).toStdString());
        nulls.data(column) = row.data(column).toVariant();
        EXPECT_FALSE(nulls.data(column).isNull());
        EXPECT_EQ(nulls.data(column).compare(row.data(column)), 0);
        EXPECT_EQ(nulls.data(column).toString(), row.data(column).toString());
    }
    EXPECT_FALSE(Record(table.get()).data(I).toVariant().isValid());
    EXPECT_EQ(outcome([&] { nulls.data(DT) = QVariant(5); return QString(); }),
              QStringLiteral("E:Can't convert from BoardList to DateTime"));
}

TEST(FieldRead, CharStaticStringAndTextForms)
{
    auto table = makeTable();
    table->addColumn(QStringLiteral("c"), FieldType::VarChar, 1);
    Record row(table.get());
    const int c = table->columnIndex(QStringLiteral("c"));
    row.data(c) = QChar(u'Z');
    EXPECT_EQ(row.data(c).toChar(), QChar(u'Z'));
    row.data(S) = QStringLiteral("q");
    EXPECT_EQ(row.data(S).toChar(), QChar(u'q'));
    // The static view reads the cell in place.
    row.data(VC) = QStringLiteral("ab");
    const StaticString view = row.data(VC).asStaticString();
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(view.string().constData()), row.data(VC).data());

    row.data(BL) = sampleBoard();
    EXPECT_EQ(row.data(BL).toString(), QStringLiteral("[BoardList]"));
    EXPECT_EQ(row.data(BL).toSystemString(), QStringLiteral("1:2,3 4:5"));
    EXPECT_EQ(row.data(BL).typeName(), QStringLiteral("undefined"));
    EXPECT_EQ(row.data(S).typeName(), QStringLiteral("String"));
}

TEST(FieldTypeAccess, DecimalCellsReadAtTheColumnScale)
{
    // A stranger's scale in a Decimal cell is read at the column's: the
    // conversion table's xdecimal row shows it; setDecimal rescales.
    unsigned char cell[16] = {};
    FieldType::setDecimal(cell, 3, decimal(1234, 1));
    EXPECT_EQ(decimal::from56s7(FieldType::getInt64(cell)).toString(), QStringLiteral("123.400"));

    // setXDecimal leaves the value's own scale in the cell; readers rescale.
    FieldType::setXDecimal(cell, 4, xdecimal(15, 1));
    EXPECT_EQ(qint8(cell[0]), 1);
    EXPECT_EQ(FieldType::getXDecimal(cell, 4).toString(), QStringLiteral("1.5000"));
}

TEST(FieldTypeAccess, StringsShareTheTablesPool)
{
    auto table = makeTable();
    Record a(table.get());
    Record b(table.get());
    a.data(S) = QStringLiteral("instrument");
    b.data(S) = QString(QStringLiteral("instru")) + QStringLiteral("ment"); // a separate copy
    EXPECT_EQ(a.data(S).toString().constData(), b.data(S).toString().constData());
    EXPECT_EQ(table->stringPoolSize(), 1u);

    const ushort raw[] = { 'a', 'b', 0, 'c' };
    b.data(S).storeString(raw, 4);
    EXPECT_EQ(b.data(S).toString(), QStringLiteral("ab"));
    EXPECT_EQ(table->stringPoolSize(), 2u);
}

// Rows: a cell of a, a cell of b, a.compare(b) and what a.isEqual(b) gives.
TEST(FieldOrder, CompareAndIsEqualDisagreeWhereRequired)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct
    {
        const char *what;
        int columnA;
        Writer a;
        int columnB;
        Writer b;
        int compare;
        const char *equal;
    } rows[] = {
        // NULL first, then the type number, without looking at values.
        { "value, NULL", I, writer(5), I, leaveNull, 1, "=0" },
        { "NULL, value", I, leaveNull, I, writer(5), -1, "=0" },
        { "NULLs of two types", I, leaveNull, D, leaveNull, 0, "=1" },
        { "type first", I, writer(5), I64, writer(int64(3)), -1, "=0" },
        // A NaN compares equal to everything but is equal to nothing.
        { "NaN, 1", D, writer(nan), D, writer(1.0), 0, "=0" },
        { "NaN, NaN", D, writer(nan), D, writer(nan), 0, "=0" },
        { "board lists", BL, writer(sampleBoard()), BL,
          writer(boardlist::fromText(QStringLiteral("7:8"))), 0, "E:Can't equal; two fields." },
        // Decimals: equal words compare raw, other scales numerically.
        { "decimal scales", DEC, writer(decimal(10, 1)), DEC, writer(decimal(100, 2)), 0, "=1" },
        { "negative decimals", DEC, writer(decimal(-300, 2)), DEC, writer(decimal(-299, 2)), -1,
          "=0" },
        { "text", VC, writer(QStringLiteral("abc")), VC, writer(QStringLiteral("abd")), -1, "=0" },
        { "case", VC, writer(QStringLiteral("abc")), VC, writer(QStringLiteral("ABC")), 1, "=0" },
        { "xdecimal scales", XD, writer(xdecimal(QStringLiteral("1.5"))), XD,
          writer(xdecimal(QStringLiteral("1.50"))), 0, "=1" },
    };
    auto table = makeTable();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        Record a(table.get());
        Record b(table.get());
        row.a(a, row.columnA);
        row.b(b, row.columnB);
        const Field x = a.data(row.columnA);
        const Field y = b.data(row.columnB);
        const int c = x.compare(y); // text gives the difference, not just its sign
        EXPECT_EQ(row.columnA == VC ? (c > 0) - (c < 0) : c, row.compare);
        EXPECT_EQ(x < y, row.compare < 0);
        EXPECT_EQ(outcome([&] { return QString::number(x.isEqual(y)); }), QString::fromUtf8(row.equal));
    }
}

// Rows: a cell of a, the operator, a cell of b, and what a shows after or what is thrown.
TEST(FieldArithmetic, AddAndSubtract)
{
    const int max = std::numeric_limits<int>::max();
    const struct
    {
        int columnA;
        Writer a;
        char op;
        int columnB;
        Writer b;
        const char *result;
    } rows[] = {
        { I, leaveNull, '+', I, writer(7), "=7" },
        { I64, leaveNull, '+', I64, leaveNull, "=<NULL>" }, // a NULL operand does nothing
        { I, writer(max), '+', I, writer(1), "=-2147483648" }, // wraps
        { I, writer(std::numeric_limits<int>::min()), '-', I, writer(1), "=2147483647" },
        { XD, leaveNull, '-', XD, writer(xdecimal(QStringLiteral("0.125"))), "=-0.125" },
        { DEC, writer(decimal(125, 2)), '+', DEC, writer(decimal(50, 2)), "=1.75" },
        { DT, writer(datetime(2020, 1, 1, 0, 0, 0, 0)), '+', DT, writer(datetime(int64(1500))),
          "=2020.01.01 00:00:01.500" },
        { VC, leaveNull, '+', VC, writer(QStringLiteral("x")),
          "E:Can't convert from VarChar to VarChar" },
        { I64, leaveNull, '+', D, writer(1.0), "E:Incorrect type conversion." },
        { DEC, writer(decimal(100, 2)), '+', I, writer(5), "E:Incorrect type conversion." },
    };
    auto table = makeTable();
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.columnA << row.op << row.columnB << " " << row.result);
        Record a(table.get());
        Record b(table.get());
        row.a(a, row.columnA);
        row.b(b, row.columnB);
        Field x = a.data(row.columnA);
        const QString before = shown(x);
        const QString got = outcome([&] {
            if (row.op == '+')
                x += b.data(row.columnB);
            else
                x -= b.data(row.columnB);
            return shown(x);
        });
        EXPECT_EQ(got, QString::fromUtf8(row.result));
        if (got.startsWith(QLatin1Char('E'))) {
            EXPECT_EQ(shown(x), before) << "a failed operation changes nothing";
        }
    }
}

} // namespace
