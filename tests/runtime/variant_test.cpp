#include "runtime/utils.h"

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/xdecimal.h"
#include "runtime/runnablemanager.h"
#include "table/record.h"

#include <QDateTime>
#include <QVector>

#include <gtest/gtest.h>

namespace {

int sign(int x) { return (x > 0) - (x < 0); }

QVariant dec(const char *text) { return QVariant::fromValue(decimal(QString::fromLatin1(text))); }
QVariant xdec(const char *text) { return QVariant::fromValue(xdecimal(QString::fromLatin1(text))); }
QVariant dt(int64 count) { return QVariant::fromValue(datetime(count)); }

} // namespace

TEST(VariantCompare, OrdersTheListedTypesReadingBAsTheTypeOfA)
{
    const QDateTime noon(QDate(2020, 1, 2), QTime(3, 4, 5), Qt::UTC);
    const auto ci = Qt::CaseInsensitive;
    const struct
    {
        QVariant a, b;
        int expected;
        Qt::CaseSensitivity cs = Qt::CaseSensitive;
    } cases[] = {
        // Invalid sorts first; equality comes from QVariant.
        {QVariant(), QVariant(), 0}, {QVariant(), QVariant(1), -1}, {dec("1.5"), QVariant(), 1},
        {QVariant(3), QVariant(3.0), 0},
        {QStringLiteral("abc"), QStringLiteral("ABC"), 0, ci}, {QStringLiteral("abc"), QStringLiteral("ABC"), 1},
        {QStringLiteral("a"), QStringLiteral("b"), -1},
        {QChar('a'), QChar('B'), -1, ci}, {QChar('a'), QChar('B'), 1},
        {QVariant(2), QVariant(7), -1}, {QVariant(9), QStringLiteral("7"), 1},
        {QVariant(1.5), QVariant(2.5), -1}, {QVariant(2.5), QVariant(-1), 1},
        {noon, noon.addMSecs(1), -1}, {QDate(2020, 1, 2), QDate(2019, 12, 31), 1},
        {QTime(1, 0), QTime(1, 0, 0, 1), -1},
        {dec("1.50"), dec("1.5"), 0}, {dec("-2"), dec("1.5"), -1},
        {xdec("10.01"), xdec("10.001"), 1}, {xdec("0.5"), xdec("0.50"), 0},
        {dt(-5), dt(3), -1}, {dt(5), dt(5), 0},
        // An operand that cannot be read as a datetime counts as the count 0.
        {dt(1000), QStringLiteral("x"), 1}, {dt(-1000), QStringLiteral("x"), -1},
        // Types outside the list are not ordered.
        {QVariant(qint64(1)), QVariant(qint64(2)), 0}, {QVariant::fromValue(Record()), dec("1"), 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(sign(variant_compare(c.a, c.b, c.cs)), c.expected)
                << c.a.toString().toStdString() << " vs " << c.b.toString().toStdString();
}

TEST(VariantConvert, QtTypesLibraryTypesAndUnsupportedPairs)
{
    EXPECT_EQ(variant_convert(QStringLiteral("42"), QMetaType::Int), QVariant(42));
    EXPECT_EQ(variant_convert(QStringLiteral("hello"), QMetaType::QChar), QVariant(QChar('h')));
    // The text of 65, not the character with code 65.
    EXPECT_EQ(variant_convert(QVariant(65), QMetaType::QChar), QVariant(QChar('6')));
    EXPECT_EQ(variant_convert(QString(), QMetaType::QChar).userType(), int(QMetaType::QChar));
    EXPECT_FALSE(variant_convert(QVariant(), QMetaType::Int).isValid());

    const uint decimalId = uint(decimal::metatypeId());
    const QVariant d = variant_convert(QStringLiteral("1.25"), decimalId);
    ASSERT_EQ(d.userType(), decimal::metatypeId());
    EXPECT_TRUE(d.value<decimal>().isEqual(decimal(125, 2)));
    EXPECT_EQ(variant_convert(QVariant(3), decimalId).value<decimal>(), decimal(3, 0));
    EXPECT_THROW(variant_convert(QStringLiteral("abc"), decimalId), QString);

    const QVariant x = variant_convert(QStringLiteral("-0.50"), uint(xdecimal::metatypeId()));
    ASSERT_EQ(x.userType(), xdecimal::metatypeId());
    EXPECT_EQ(variant_convert(x, QMetaType::QString), QVariant(QStringLiteral("-0.50")));

    const QVariant t = variant_convert(QStringLiteral("2020-01-02"), uint(datetime::metatypeId()));
    ASSERT_EQ(t.userType(), datetime::metatypeId());
    EXPECT_EQ(t.value<datetime>().data(), datetime(QStringLiteral("2020-01-02")).data());
    EXPECT_EQ(variant_convert(t, QMetaType::QString).toString(), t.value<datetime>().toString());

    // toString, not the locale form of the meta-type converter.
    const decimal v(-12345675, 1);
    EXPECT_EQ(variant_convert(QVariant::fromValue(v), QMetaType::QString).toString(), v.toString());

    EXPECT_FALSE(variant_convert(QVariant::fromValue(v), QMetaType::Double).isValid());
    EXPECT_FALSE(variant_convert(QVariant(1), uint(qMetaTypeId<Record>())).isValid());
    EXPECT_FALSE(variant_convert(QVariant::fromValue(Record()), QMetaType::QString).isValid());
}

// Comparators, converters and stream operators of the number types are
// checked with those types; here, what only the start-up list settles.
TEST(MetaTypes, RegisteredAtStartUpInOrderWithTheirExtras)
{
    const int ids[] = {datetime::metatypeId(), decimal::metatypeId(), xdecimal::metatypeId(),
                       qMetaTypeId<Record>()};
    const char *names[] = {"datetime", "decimal", "xdecimal", "Record"};
    const int sizes[] = {8, 8, 16, 8};
    const int flags[] = {259, 259, 259, 263}; // 263 adds MovableType
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(i == 0 || ids[i - 1] < ids[i]) << names[i];
        EXPECT_STREQ(QMetaType::typeName(ids[i]), names[i]);
        EXPECT_EQ(QMetaType::sizeOf(ids[i]), sizes[i]) << names[i];
        EXPECT_EQ(int(QMetaType::typeFlags(ids[i])), flags[i]) << names[i];
    }
    EXPECT_EQ(QMetaType::type("HRunnable"), int(QMetaType::VoidStar));
    const int vectorId = QMetaType::type("QVector<int>");
    ASSERT_EQ(vectorId, qMetaTypeId<QVector<int>>());
    EXPECT_EQ(int(QMetaType::typeFlags(vectorId)), 263);
    EXPECT_EQ(QVariant::fromValue(QVector<int>{4, 5, 6}).value<QVariantList>().size(), 3);
}
