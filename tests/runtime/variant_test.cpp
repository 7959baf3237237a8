#include "runtime/utils.h"

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/xdecimal.h"
#include "runtime/runnablemanager.h"
#include "table/record.h"

#include <QDataStream>
#include <QDateTime>
#include <QVector>

#include <gtest/gtest.h>

namespace {

int sign(int x) { return (x > 0) - (x < 0); }

QVariant dec(const char *text) { return QVariant::fromValue(decimal(QString::fromLatin1(text))); }
QVariant xdec(const char *text) { return QVariant::fromValue(xdecimal(QString::fromLatin1(text))); }
QVariant dt(int64 count) { return QVariant::fromValue(datetime(count)); }

} // namespace

TEST(VariantCompare, InvalidSortsFirstAndEqualityComesFromQVariant)
{
    EXPECT_EQ(variant_compare(QVariant(), QVariant(), Qt::CaseSensitive), 0);
    EXPECT_EQ(variant_compare(QVariant(), QVariant(1), Qt::CaseSensitive), -1);
    EXPECT_EQ(variant_compare(dec("1.5"), QVariant(), Qt::CaseSensitive), 1);
    EXPECT_EQ(variant_compare(QVariant(3), QVariant(3.0), Qt::CaseSensitive), 0);
    // Only the listed Qt types are ordered: two different LongLongs are "equal".
    EXPECT_EQ(variant_compare(QVariant(qint64(1)), QVariant(qint64(2)), Qt::CaseSensitive), 0);
}

TEST(VariantCompare, OrdersTheListedQtTypesReadingBAsTheTypeOfA)
{
    struct Case
    {
        QVariant a, b;
        Qt::CaseSensitivity cs;
        int expected;
    };
    const QDateTime t0(QDate(2020, 1, 2), QTime(3, 4, 5), Qt::UTC);
    const Case cases[] = {
        {QStringLiteral("abc"), QStringLiteral("ABC"), Qt::CaseInsensitive, 0},
        {QStringLiteral("abc"), QStringLiteral("ABC"), Qt::CaseSensitive, 1},
        {QStringLiteral("a"), QStringLiteral("b"), Qt::CaseSensitive, -1},
        {QChar('a'), QChar('B'), Qt::CaseInsensitive, -1},
        {QChar('a'), QChar('B'), Qt::CaseSensitive, 1},
        {QVariant(2), QVariant(7), Qt::CaseSensitive, -1},
        {QVariant(9), QStringLiteral("7"), Qt::CaseSensitive, 1},
        {QVariant(1.5), QVariant(2.5), Qt::CaseSensitive, -1},
        {QVariant(2.5), QVariant(-1), Qt::CaseSensitive, 1},
        {t0, t0.addMSecs(1), Qt::CaseSensitive, -1},
        {t0.addSecs(60), t0, Qt::CaseSensitive, 1},
        {QDate(2020, 1, 2), QDate(2019, 12, 31), Qt::CaseSensitive, 1},
        {QTime(1, 0), QTime(1, 0, 0, 1), Qt::CaseSensitive, -1},
    };
    for (const Case &c : cases)
        EXPECT_EQ(sign(variant_compare(c.a, c.b, c.cs)), c.expected)
                << c.a.toString().toStdString() << " vs " << c.b.toString().toStdString();
}

TEST(VariantCompare, LibraryValueTypesCompareByValue)
{
    EXPECT_EQ(variant_compare(dec("1.50"), dec("1.5"), Qt::CaseSensitive), 0);
    EXPECT_EQ(variant_compare(dec("-2"), dec("1.5"), Qt::CaseSensitive), -1);
    EXPECT_EQ(variant_compare(xdec("10.01"), xdec("10.001"), Qt::CaseSensitive), 1);
    EXPECT_EQ(variant_compare(xdec("0.5"), xdec("0.50"), Qt::CaseSensitive), 0);
    EXPECT_EQ(variant_compare(dt(-5), dt(3), Qt::CaseSensitive), -1);
    EXPECT_EQ(variant_compare(dt(5), dt(5), Qt::CaseSensitive), 0);
    // An operand that cannot be read as a datetime counts as the count 0.
    EXPECT_EQ(variant_compare(dt(1000), QVariant(QStringLiteral("x")), Qt::CaseSensitive), 1);
    EXPECT_EQ(variant_compare(dt(-1000), QVariant(QStringLiteral("x")), Qt::CaseSensitive), -1);
    // Other user types are not ordered.
    EXPECT_EQ(variant_compare(QVariant::fromValue(Record()), dec("1"), Qt::CaseSensitive), 0);
}

TEST(VariantConvert, QtTypesGoThroughQVariantAndQCharTakesTheFirstCharacter)
{
    EXPECT_EQ(variant_convert(QStringLiteral("42"), QMetaType::Int), QVariant(42));
    EXPECT_EQ(variant_convert(QVariant(1.5), QMetaType::QString), QVariant(QStringLiteral("1.5")));
    EXPECT_EQ(variant_convert(QStringLiteral("hello"), QMetaType::QChar), QVariant(QChar('h')));
    // The text of 65, not the character with code 65.
    EXPECT_EQ(variant_convert(QVariant(65), QMetaType::QChar), QVariant(QChar('6')));
    EXPECT_EQ(variant_convert(QString(), QMetaType::QChar).userType(), int(QMetaType::QChar));
    EXPECT_FALSE(variant_convert(QVariant(), QMetaType::Int).isValid());
}

TEST(VariantConvert, IntoAndOutOfTheLibraryValueTypes)
{
    const QVariant d = variant_convert(QStringLiteral("1.25"), uint(decimal::metatypeId()));
    ASSERT_EQ(d.userType(), decimal::metatypeId());
    EXPECT_TRUE(d.value<decimal>().isEqual(decimal(125, 2)));
    EXPECT_EQ(variant_convert(QVariant(3), uint(decimal::metatypeId())).value<decimal>(),
              decimal(3, 0));
    EXPECT_THROW(variant_convert(QStringLiteral("abc"), uint(decimal::metatypeId())), QString);

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

    // Any other pair: invalid.
    EXPECT_FALSE(variant_convert(QVariant::fromValue(v), QMetaType::Double).isValid());
    EXPECT_FALSE(variant_convert(QVariant(1), uint(qMetaTypeId<Record>())).isValid());
    EXPECT_FALSE(variant_convert(QVariant::fromValue(Record()), QMetaType::QString).isValid());
}

TEST(MetaTypes, RegisteredAtStartUpInOrderWithTheirExtras)
{
    const int ids[] = {datetime::metatypeId(), decimal::metatypeId(), xdecimal::metatypeId(),
                       qMetaTypeId<Record>()};
    for (int i = 1; i < 4; ++i)
        EXPECT_LT(ids[i - 1], ids[i]);
    EXPECT_STREQ(QMetaType::typeName(ids[0]), "datetime");
    EXPECT_STREQ(QMetaType::typeName(ids[1]), "decimal");
    EXPECT_STREQ(QMetaType::typeName(ids[2]), "xdecimal");
    EXPECT_STREQ(QMetaType::typeName(ids[3]), "Record");
    const int sizes[] = {8, 8, 16, 8};
    // NeedsConstruction | NeedsDestruction | WasDeclaredAsMetaType, and
    // MovableType for Record alone.
    const int flags[] = {259, 259, 259, 263};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(QMetaType::sizeOf(ids[i]), sizes[i]);
        EXPECT_EQ(int(QMetaType::typeFlags(ids[i])), flags[i]);
    }
    EXPECT_EQ(QMetaType::type("HRunnable"), int(QMetaType::VoidStar));
    const int vectorId = QMetaType::type("QVector<int>");
    ASSERT_EQ(vectorId, qMetaTypeId<QVector<int>>());
    EXPECT_EQ(int(QMetaType::typeFlags(vectorId)), 263);
    EXPECT_EQ(QVariant::fromValue(QVector<int>{4, 5, 6}).value<QVariantList>().size(), 3);

    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(QMetaType::hasRegisteredComparators(ids[i]));
        EXPECT_TRUE(QMetaType::hasRegisteredConverterFunction(ids[i], QMetaType::QString));
    }
    EXPECT_TRUE(QMetaType::hasRegisteredConverterFunction(ids[1], QMetaType::Double));
    EXPECT_TRUE(QMetaType::hasRegisteredConverterFunction(ids[2], QMetaType::Double));
    // The comparators make QVariant equality numeric across scales.
    EXPECT_EQ(dec("2.0"), dec("2"));
    EXPECT_EQ(xdec("2.0"), xdec("2"));

    // Stream operators carry decimal and xdecimal inside a QVariant.
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << dec("-7.125") << xdec("123456789.0123456789");
    }
    QDataStream in(bytes);
    QVariant d, x;
    in >> d >> x;
    EXPECT_EQ(in.status(), QDataStream::Ok);
    EXPECT_TRUE(d.value<decimal>().isEqual(decimal(-7125, 3)));
    EXPECT_EQ(x.value<xdecimal>().toString(), QStringLiteral("123456789.0123456789"));
}
