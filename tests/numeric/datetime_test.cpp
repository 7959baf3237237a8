#include "numeric/datetime.h"
#include "runtime/logfile.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>

namespace {

const int64 Jan2 = 1577934245006LL; // 2020-01-02 03:04:05.006, fields as UTC
const int64 Day = 86400000;

// Sets one environment variable for a scope (TZ changes applied).
struct ScopedEnv
{
    ScopedEnv(const char *n, const char *value) : name(n), had(qEnvironmentVariableIsSet(n)), saved(qgetenv(n))
    {
        qputenv(name, value);
        tzset();
    }
    ~ScopedEnv()
    {
        had ? qputenv(name, saved) : qunsetenv(name);
        tzset();
    }
    const char *name;
    bool had;
    QByteArray saved;
};

// For the checks that run in a child process under another locale: exit 1 naming the failure.
void require(bool ok, const char *what)
{
    if (!ok) {
        std::fprintf(stderr, "%s\n", what);
        std::exit(1);
    }
}

// Runs in a fresh process under LC_ALL=en_US, whose short date has a two-digit year.
[[noreturn]] void checkTwoDigitYears()
{
    require(QLocale::system().dateFormat(QLocale::ShortFormat) == QStringLiteral("M/d/yy"), "locale");
    require(datetime(Jan2).toSystemString() == QStringLiteral("1/2/20 03:04:05.006"), "toSystemString");
    require(datetime::fromSystemString(QStringLiteral("1/2/20 03:04:05.006")).data() == Jan2, "2020");
    // The shift is unconditional: 99 means 2099.
    require(datetime::fromSystemString(QStringLiteral("5/6/99"), true) == datetime(2099, 5, 6, 0, 0, 0, 0), "99");
    require(datetime::fromSystemString(QStringLiteral("5/6/99 junk"), true).isZero(), "junk");
    std::exit(0);
}

// Runs in a fresh process under LC_ALL=ar_EG, whose digits are Arabic-Indic.
[[noreturn]] void checkLatinDigitsUnderArabicLocale()
{
    const QLocale system = QLocale::system();
    require(system.zeroDigit() == QChar(0x0660), "locale");
    QLocale::setDefault(system);
    const QString text = QStringLiteral("2020.01.02 03:04:05.006");
    require(datetime(Jan2).toString() == text, "toString");
    require(datetime(Jan2).toVariant().toString() == text, "variant");
    require(datetime(Jan2).toString(QStringLiteral("d MMMM yyyy")) == "2 " + system.monthName(1) + " 2020",
            "names stay the locale's");
    const QString shown = datetime(Jan2).toSystemString();
    require(shown.endsWith(QStringLiteral("2020 03:04:05.006")) && shown.startsWith(QLatin1Char('2')), "toSystemString");
    const QRegularExpression clock(QStringLiteral("^[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}$"));
    require(clock.match(LogFile::timestamp()).hasMatch(), "timestamp");
    // Reading is unchanged: the locale's own digits are still accepted.
    const QString native = system.toString(QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5, 6)), datetime::defaultFormat());
    require(native != text && datetime(native).data() == Jan2, "reading");
    require(datetime::fromSystemString(shown).data() == Jan2, "round trip");
    std::exit(0);
}

} // namespace

TEST(Datetime, StoredTimeIgnoresTheLocalZone)
{
    for (const char *zone : {"UTC", "Europe/Berlin", "America/New_York", "Asia/Kathmandu", "Pacific/Kiritimati"}) {
        SCOPED_TRACE(zone);
        ScopedEnv tz("TZ", zone);
        EXPECT_EQ(datetime(2020, 1, 2, 3, 4, 5, 6).data(), Jan2);
        EXPECT_EQ(datetime(Jan2).getTime(), QTime(3, 4, 5, 6));
        EXPECT_EQ(datetime(Jan2).toString(), QStringLiteral("2020.01.02 03:04:05.006"));
        // A QDateTime is relabelled, not converted.
        EXPECT_EQ(datetime(QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5, 6), Qt::OffsetFromUTC, 3600)).data(), Jan2);
        // Spring-forward gaps of Berlin and New York must be neither rejected nor moved.
        for (const QDate &day : {QDate(2021, 3, 28), QDate(2021, 3, 14)}) {
            const datetime gap(day, QTime(2, 30));
            const QString text = day.toString(QStringLiteral("yyyy.MM.dd")) + QStringLiteral(" 02:30:00.000");
            EXPECT_EQ(gap.toString(), text);
            EXPECT_EQ(datetime(text), gap);
        }
        // now() is the local wall clock written as fields.
        const QDateTime before = QDateTime::currentDateTime();
        EXPECT_LE(qAbs(before.msecsTo(datetime::now())), 1000);
    }
}

TEST(Datetime, ParseChainTakesTheFirstFormatThatFits)
{
    const struct { const char *text; int64 count; } cases[] = {
        {"2020.01.02 03:04:05.006", Jan2},  {"2020-01-02 03:04:05", Jan2 - 6},
        {"2020.01.02", Jan2 - 11045006},    {"2020-01-02", Jan2 - 11045006},
        {"1969.12.31 23:59:59.999", -1},
        {"2020-01-02 03:04:05.006", 0}, // the dash format has no milliseconds
        {"", 0}, {"2020.01.02 03:04:05.006 UTC", 0}, {"\xd0\xb2\xd1\x87\xd0\xb5\xd1\x80\xd0\xb0", 0},
    };
    for (const auto &c : cases) {
        const QString padded = QLatin1Char('[') + QString::fromUtf8(c.text) + QLatin1Char(']');
        EXPECT_EQ(datetime(padded.midRef(1, padded.size() - 2)).data(), c.count) << c.text;
    }
    EXPECT_EQ(datetime(QString(200000, QLatin1Char('9'))).data(), 0);

    const QDate day(2020, 1, 2);
    EXPECT_EQ(datetime(day, QStringLiteral("1999.05.06 03:04:05.006")).data(), Jan2);
    EXPECT_EQ(datetime(day, QStringLiteral("03:04:05")).data(), Jan2 - 6);
    EXPECT_EQ(datetime(day, QStringLiteral("noon")), datetime(day));
}

TEST(Datetime, SpansAndCalendarSteps)
{
    const datetime base(Jan2);
    EXPECT_EQ(base.addDays(-24).data(), Jan2 - 24 * Day);
    // 25 days overflow the 32-bit product and wrap to a negative span.
    EXPECT_EQ(base.addDays(25).data(), Jan2 + 25 * Day - 4294967296LL);
    EXPECT_EQ(base.addDays(-25).data(), Jan2 - 25 * Day + 4294967296LL);
    EXPECT_EQ(datetime(0).secsTo(datetime(1999)), 1);
    EXPECT_EQ(datetime(0).secsTo(datetime(-1999)), -1);
    EXPECT_EQ((base + datetime(1000) - datetime(3000)).data(), Jan2 - 2000);

    EXPECT_EQ(datetime(2020, 1, 31, 3, 4, 5, 6).addMonths(1), datetime(2020, 2, 29, 3, 4, 5, 6));
    EXPECT_EQ(datetime(2020, 2, 29, 3, 4, 5, 6).addYears(1), datetime(2021, 2, 28, 3, 4, 5, 6));
    EXPECT_EQ(datetime(1969, 12, 31, 23, 0, 0, 0).toDate(), datetime(1969, 12, 31, 0, 0, 0, 0));

    // Counts wrap instead of overflowing.
    const datetime top(std::numeric_limits<int64>::max());
    EXPECT_EQ(top.addMSecs(1).data(), std::numeric_limits<int64>::min());
    EXPECT_EQ(datetime(std::numeric_limits<int64>::min()).msecsTo(top), -1);
    EXPECT_TRUE(datetime().toString().isEmpty());
    EXPECT_TRUE(datetime().toSystemString().isEmpty());
}

TEST(Datetime, SystemStringMovesTwoDigitYearsACentury)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ScopedEnv locale("LC_ALL", "en_US.UTF-8");
    EXPECT_EXIT(checkTwoDigitYears(), ::testing::ExitedWithCode(0), "");
}

TEST(Datetime, TextsUseLatinDigitsInAnyLocale)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ScopedEnv locale("LC_ALL", "ar_EG.UTF-8");
    EXPECT_EXIT(checkLatinDigitsUnderArabicLocale(), ::testing::ExitedWithCode(0), "");
}

TEST(Datetime, RegisteredMetaType)
{
    const int id = datetime::metatypeId();
    const QVariant v = datetime(Jan2).toVariant();
    EXPECT_EQ(v.toString(), QStringLiteral("2020.01.02 03:04:05.006"));
    EXPECT_EQ(qvariant_cast<datetime>(v).data(), Jan2);
    int order = 0;
    ASSERT_TRUE(QMetaType::compare(datetime(-5).toVariant().constData(), v.constData(), id, &order));
    EXPECT_LT(order, 0);
    EXPECT_TRUE(QMetaType::equals(v.constData(), datetime(Jan2).toVariant().constData(), id, &order));
    EXPECT_EQ(order, 0);
}
