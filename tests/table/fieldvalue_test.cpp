// FieldValue, FieldConstValue and KeyValue: values that live without a table.

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/stringpool.h"
#include "numeric/xdecimal.h"
#include "runtime/exception.h"
#include "table/fieldconstvalue.h"
#include "table/keyvalue.h"
#include "table/table.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

// A value keeps its own definition and content when the table or row it came
// from goes.
TEST(FieldValue, OutlivesItsTableAndRow)
{
    auto table = std::make_unique<Table>(QStringLiteral("T"));
    table->addColumn(QStringLiteral("price"), FieldType::Decimal, 3, false);
    table->addColumn(QStringLiteral("code"), FieldType::VarChar, 4);
    table->addColumn(QStringLiteral("s"), FieldType::String);
    table->addColumn(QStringLiteral("x"), FieldType::XDecimal, 2);
    EXPECT_THROW(FieldValue(table.get(), QStringLiteral("none")), QString);
    EXPECT_THROW(FieldValue(table.get(), 4), QString);
    EXPECT_THROW(FieldValue(FieldType::VarChar, 0, true), QString);
    FieldValue price(table.get(), QStringLiteral("price"));
    FieldValue code(table.get(), 1);
    EXPECT_TRUE(price.isNull()); // a new value is NULL even for a non-nullable column
    EXPECT_EQ(price.columnDef()->table, nullptr);
    Record row(table.get());
    row.data(2) = QStringLiteral("text");
    FieldValue s(row.data(2));
    FieldValue x(row.data(3));
    EXPECT_EQ(s.columnDef()->name, QStringLiteral("s"));
    row = Record();
    table.reset();

    price = 5;
    code = QStringLiteral("ABCDEF");
    EXPECT_EQ(price.toText(), QStringLiteral("5.000"));
    EXPECT_EQ(code.toText(), QStringLiteral("ABCD"));
    EXPECT_EQ(code.length(), 4);
    // The cell is 8-aligned and the null byte sits right behind it.
    EXPECT_EQ(code.columnDef()->nullOffset, 8u);

    EXPECT_EQ(FieldValue(s).toText(), QStringLiteral("text"));
    FieldValue assigned(FieldType::Integer, 0, true);
    assigned = x; // definition and NULL state come along
    EXPECT_EQ(assigned.type(), FieldType::XDecimal);
    EXPECT_TRUE(assigned.isNull());
    assigned = xdecimal(QStringLiteral("1.25"));
    EXPECT_EQ(assigned.toText(), QStringLiteral("1.25"));

    // A String value written through Field has no table: the global pool.
    FieldValue pooled(FieldType::String, 0, true);
    pooled = "global";
    EXPECT_EQ(pooled.toText(), QStringLiteral("global"));
}

TEST(FieldValue, AssignmentReleasesTheOldText)
{
    // Unpooled text: the value's reference must go with the assignment.
    const QString probe = QString::fromLatin1("held by the probe and the value");
    FieldValue value(FieldType::String, 0, true);
    value.fromText(probe);
    EXPECT_FALSE(probe.isDetached());
    value = FieldValue(FieldType::Integer, 0, true);
    EXPECT_TRUE(probe.isDetached());

    // Pooled texts assigned in a loop: only the last one may stay pinned.
    StringPool *pool = StringPool::global();
    const auto text = [](int i) { return QStringLiteral("fieldvalue-assign-%1").arg(i); };
    FieldValue key(FieldType::String, 0, true);
    for (int i = 0; i < 50; ++i) {
        FieldValue next(FieldType::String, 0, true);
        next = text(i);
        key = next;
        key = key; // self-assignment changes nothing
    }
    pool->shrink();
    for (int i = 0; i < 49; ++i)
        EXPECT_EQ(pool->ref_count(text(i)), 0) << i;
    EXPECT_EQ(pool->ref_count(text(49)), 2); // the pool and `key`
    EXPECT_EQ(key.toText(), text(49));
}

TEST(FieldValue, FromTextDiffersBetweenItsOverloadsForStrings)
{
    FieldValue byString(FieldType::String, 0, true);
    byString.fromText(QStringLiteral("abc"));
    EXPECT_TRUE(byString.isNull());
    EXPECT_EQ(byString.asStaticString().size(), 0); // NULL: an empty view
    const QString text = QStringLiteral("abc");
    FieldValue byRef(FieldType::String, 0, true);
    byRef.fromText(QStringRef(&text));
    EXPECT_FALSE(byRef.isNull());
    EXPECT_EQ(byRef.toText(), text);

    FieldValue number(FieldType::Integer64, 0, true);
    number.fromText(QStringLiteral("-12"));
    EXPECT_EQ(number.toInteger64(), -12);
    EXPECT_THROW(number.fromText(QStringLiteral("1e")), Exception);
    EXPECT_EQ(number.toInteger64(), -12);
}

TEST(FieldConstValue, ConstantsOfEachKind)
{
    EXPECT_TRUE(FieldConstValue().isNull());
    EXPECT_EQ(FieldConstValue().type(), FieldType::Integer);

    const FieldConstValue c(QChar(u'q'));
    EXPECT_EQ(c.type(), FieldType::VarChar);
    EXPECT_EQ(c.toChar(), QChar(u'q'));
    const FieldConstValue s(QStringLiteral("hello"));
    EXPECT_EQ(s.length(), 5);
    EXPECT_EQ(s.toText(), QStringLiteral("hello"));
    EXPECT_FALSE(s.columnDef()->nullable);
    const FieldConstValue latin("caf\xe9");
    EXPECT_EQ(latin.toText(), QStringLiteral("café"));
    EXPECT_THROW(FieldConstValue { QString() }, QString);
    EXPECT_THROW(FieldConstValue(static_cast<const char *>(nullptr)), QString);

    // The decimal's word as it is, whatever its scale.
    const FieldConstValue d(decimal(12345, 3));
    EXPECT_TRUE(d.asDecimal().isEqual(decimal(12345, 3)));
    const FieldConstValue x(xdecimal(QStringLiteral("-0.5")));
    EXPECT_EQ(x.asXDecimal().compare(xdecimal(-5, 1)), 0);
    EXPECT_EQ(FieldConstValue(int64(1) << 40).toInteger64(), int64(1) << 40);
    EXPECT_EQ(FieldConstValue(7).toInteger(), 7);
    EXPECT_EQ(FieldConstValue(0.5).toDouble(), 0.5);
    EXPECT_EQ(FieldConstValue(datetime(int64(99))).toDatetime().data(), 99);
}

TEST(FieldConstValue, FromValue)
{
    Table table(QStringLiteral("T"));
    table.addColumn(QStringLiteral("vc"), FieldType::VarChar, 10);
    table.addColumn(QStringLiteral("one"), FieldType::VarChar, 1);
    table.addColumn(QStringLiteral("s"), FieldType::String);
    table.addColumn(QStringLiteral("dec"), FieldType::Decimal, 2);
    Record row(&table);
    row.data(0) = QStringLiteral("AB");
    row.data(1) = QChar(u'Z');
    row.data(2) = QStringLiteral("text");
    row.data(3) = decimal(314, 2);

    const FieldConstValue vc = FieldConstValue::fromValue(row.data(0));
    EXPECT_EQ(vc.length(), 2); // the text's length, not the column's
    EXPECT_EQ(vc.toText(), QStringLiteral("AB"));
    EXPECT_EQ(FieldConstValue::fromValue(row.data(1)).toChar(), QChar(u'Z'));
    EXPECT_TRUE(FieldConstValue::fromValue(row.data(2)).isNull()); // no String constants
    EXPECT_EQ(FieldConstValue::fromValue(row.data(2)).type(), FieldType::Integer);
    EXPECT_EQ(FieldConstValue::fromValue(row.data(3)).compare(FieldConstValue(decimal(314, 2))), 0);

    row.data(0) = QString(); // NULL
    EXPECT_TRUE(FieldConstValue::fromValue(row.data(0)).isNull());
}

TEST(KeyValue, OrderByTheFirstDifferenceOverThisKeysLength)
{
    const KeyValue k12 { FieldConstValue(1), FieldConstValue(2) };
    const KeyValue k13 { FieldConstValue(1), FieldConstValue(3) };
    const KeyValue k1 { FieldConstValue(1) };
    EXPECT_TRUE(k12 < k13);
    EXPECT_FALSE(k13 < k12);
    EXPECT_FALSE(k12 < k12);
    EXPECT_TRUE(k12 != k13);
    EXPECT_TRUE(k1 == k13); // only the shorter key's length is compared

    // NULL orders first.
    const KeyValue nullKey { FieldConstValue(), FieldConstValue(0) };
    EXPECT_TRUE(nullKey < k12);
    EXPECT_TRUE(KeyValue() == k12);
    EXPECT_FALSE(KeyValue() < k12);
}

} // namespace
