#include "numeric/datetime.h"

#include <QStringRef>

#include <gtest/gtest.h>

// Readable failure output for QString comparisons.
inline void PrintTo(const QString &s, std::ostream *os)
{
    *os << '"' << s.toStdString() << '"';
}

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>

namespace {

// 2020-01-02 03:04:05.006 with the fields taken as UTC.
const int64 Jan2 = 1577934245006LL;

// Switches the process time zone for one scope.
class ScopedTimeZone
{
public:
    explicit ScopedTimeZone(const char *zone)
        : m_had(qEnvironmentVariableIsSet("TZ")), m_saved(qgetenv("TZ"))
    {
        qputenv("TZ", zone);
        tzset();
    }
    ~ScopedTimeZone()
    {
        if (m_had)
            qputenv("TZ", m_saved);
        else
            qunsetenv("TZ");
        tzset();
    }

private:
    bool m_had;
    QByteArray m_saved;
};

// Zones with whole, fractional and far-east offsets and opposite DST seasons.
const char *const Zones[] = {"UTC", "Europe/Berlin", "America/New_York", "Asia/Kathmandu",
                             "Pacific/Kiritimati", "Australia/Sydney"};

} // namespace

TEST(Datetime, StoredTimeIgnoresTheLocalZone)
{
    for (const char *zone : Zones) {
        SCOPED_TRACE(zone);
        ScopedTimeZone tz(zone);

        const datetime fields(2020, 1, 2, 3, 4, 5, 6);
        EXPECT_EQ(fields.data(), Jan2);
        EXPECT_EQ(fields.getTime(), QTime(3, 4, 5, 6));
        EXPECT_EQ(fields.getDate(), QDate(2020, 1, 2));
        EXPECT_EQ(fields.getDateTime().timeSpec(), Qt::UTC);
        EXPECT_EQ(QDateTime(fields).timeSpec(), Qt::LocalTime);
        EXPECT_EQ(datetime(QDate(2020, 1, 2), QTime(3, 4, 5, 6)).data(), Jan2);
        EXPECT_EQ(datetime(QStringLiteral("2020.01.02 03:04:05.006")).data(), Jan2);
        EXPECT_EQ(datetime(Jan2).toString(), QStringLiteral("2020.01.02 03:04:05.006"));

        // A QDateTime is relabelled, not converted: the same fields in any spec agree.
        EXPECT_EQ(datetime(QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5, 6), Qt::OffsetFromUTC, 3600)).data(), Jan2);
        EXPECT_EQ(datetime(QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5, 6), Qt::LocalTime)).data(), Jan2);

        // Times that fall into the spring-forward gap of Berlin and New York.
        for (const QDate &day : {QDate(2021, 3, 28), QDate(2021, 3, 14)}) {
            const datetime gap(day, QTime(2, 30));
            EXPECT_EQ(gap.getTime(), QTime(2, 30));
            const QString text = day.toString(QStringLiteral("yyyy.MM.dd")) + QStringLiteral(" 02:30:00.000");
            EXPECT_EQ(gap.toString(), text);
            EXPECT_EQ(datetime(text), gap);
            EXPECT_EQ(datetime::fromString(text, datetime::defaultFormat()), gap);
            EXPECT_EQ(datetime(day, text), gap);
            EXPECT_EQ(gap.addYears(1).addYears(-1), gap);
        }
    }
}

TEST(Datetime, NowStampsTheLocalWallClock)
{
    for (const char *zone : {"UTC", "Asia/Kathmandu"}) {
        ScopedTimeZone tz(zone);
        const QDateTime before = QDateTime::currentDateTime();
        const datetime stamp = datetime::now();
        const QDateTime after = QDateTime::currentDateTime();
        const QDateTime shown = stamp;
        EXPECT_GE(shown, before.addMSecs(-1)) << zone;
        EXPECT_LE(shown, after) << zone;
    }
}

TEST(Datetime, ParseChainTakesTheFirstFormatThatFits)
{
    const struct {
        const char *text;
        int64 count;
    } cases[] = {
        {"2020.01.02 03:04:05.006", Jan2},
        {"2020-01-02 03:04:05", Jan2 - 6},
        {"2020.01.02", Jan2 - 11045006},
        {"2020-01-02", Jan2 - 11045006},
        {"1969.12.31 23:59:59.999", -1},
        // The dash format has no milliseconds: every format fails.
        {"2020-01-02 03:04:05.006", 0},
        {"2020.13.02", 0},
        {"", 0},
        {"yesterday", 0},
        {"2020.01.02 03:04:05.006 trailing", 0},
        {"\xd0\xb2\xd1\x87\xd0\xb5\xd1\x80\xd0\xb0", 0},
    };
    for (const auto &c : cases) {
        const QString text = QString::fromUtf8(c.text);
        EXPECT_EQ(datetime(text).data(), c.count) << c.text;
        const QString padded = QStringLiteral("[") + text + QStringLiteral("]");
        EXPECT_EQ(datetime(padded.midRef(1, text.size())).data(), c.count) << c.text;
    }
    const QString huge(200000, QLatin1Char('9'));
    EXPECT_EQ(datetime(huge).data(), 0);
    EXPECT_EQ(datetime::fromString(huge, datetime::sqlFormat(true)).data(), 0);
    EXPECT_EQ(datetime::fromString(QStringLiteral("2020-01-02 03:04:05.006"), datetime::sqlFormat(true)).data(), Jan2);
}

TEST(Datetime, MutatedTextEitherParsesToARoundTripOrToZero)
{
    // Valid texts of each format with a few random edits, so that texts near
    // every format boundary come up.
    const QString stems[] = {QStringLiteral("2020.01.02 03:04:05.006"), QStringLiteral("2020-01-02 03:04:05"),
                             QStringLiteral("2020.01.02"), QStringLiteral("2020-01-02")};
    const QString alphabet = QStringLiteral("0123456789.-: x");
    quint32 seed = 12345;
    const auto next = [&seed](int bound) {
        seed = seed * 1664525u + 1013904223u;
        return int((seed >> 8) % quint32(bound));
    };
    int parsedCount = 0;
    for (int i = 0; i < 1000; ++i) {
        QString text = stems[next(4)];
        for (int edits = next(4); edits > 0; --edits) {
            const int at = next(text.size() + 1);
            const QChar c = alphabet.at(next(alphabet.size()));
            switch (next(3)) {
            case 0: text.insert(at, c); break;
            case 1: text.remove(at, 1); break;
            default: if (at < text.size()) text[at] = c; break;
            }
        }
        const datetime parsed(text);
        if (parsed.isZero())
            continue;
        ++parsedCount;
        EXPECT_EQ(datetime(parsed.toString()), parsed) << text.toStdString();
    }
    EXPECT_GT(parsedCount, 200);
}

TEST(Datetime, TimeTextOnAGivenDate)
{
    const QDate day(2020, 1, 2);
    EXPECT_EQ(datetime(day, QStringLiteral("1999.05.06 03:04:05.006")).data(), Jan2);
    EXPECT_EQ(datetime(day, QStringLiteral("03:04:05.006")).data(), Jan2);
    EXPECT_EQ(datetime(day, QStringLiteral("03:04:05")).data(), Jan2 - 6);
    EXPECT_EQ(datetime(day, QStringLiteral("noon")), datetime(day));
}

TEST(Datetime, SpansAndCalendarSteps)
{
    const datetime base(Jan2);
    EXPECT_EQ(base.addDays(1).data(), Jan2 + 86400000);
    EXPECT_EQ(base.addDays(-24).data(), Jan2 - 24 * 86400000LL);
    // 25 days no longer fit the 32-bit product and wrap to a negative span.
    EXPECT_EQ(base.addDays(25).data(), Jan2 + (2160000000LL - 4294967296LL));
    EXPECT_EQ(base.addDays(-25).data(), Jan2 - (2160000000LL - 4294967296LL));

    EXPECT_EQ(datetime(0).secsTo(datetime(1999)), 1);
    EXPECT_EQ(datetime(0).secsTo(datetime(-1999)), -1);
    EXPECT_EQ(base.msecsTo(datetime(Jan2 - 5)), -5);
    EXPECT_EQ(base.addSecs(-2).data(), Jan2 - 2000);

    EXPECT_EQ(datetime(2020, 1, 31, 3, 4, 5, 6).addMonths(1), datetime(2020, 2, 29, 3, 4, 5, 6));
    EXPECT_EQ(datetime(2020, 2, 29, 3, 4, 5, 6).addYears(1), datetime(2021, 2, 28, 3, 4, 5, 6));
    EXPECT_EQ(datetime(1969, 12, 31, 23, 0, 0, 0).toDate(), datetime(1969, 12, 31, 0, 0, 0, 0));
    EXPECT_EQ(base.toDate(), datetime(QDate(2020, 1, 2)));

    datetime span(1000);
    EXPECT_EQ((base + span).data(), Jan2 + 1000);
    span += datetime(500);
    span -= datetime(2000);
    EXPECT_EQ(span.data(), -500);
    EXPECT_EQ((base - span).data(), Jan2 + 500);

    // Overflowing counts wrap instead of invoking undefined behaviour.
    const datetime top(std::numeric_limits<int64>::max());
    EXPECT_EQ(top.addMSecs(1).data(), std::numeric_limits<int64>::min());
    EXPECT_EQ(datetime(std::numeric_limits<int64>::min()).msecsTo(top), -1);
    EXPECT_LT(datetime(-1), datetime(0));
    EXPECT_EQ(datetime(-1).compare(datetime(0)), -1);
    EXPECT_EQ(top.toMSecsSinceEpoch(), uint64(std::numeric_limits<int64>::max()));
}

TEST(Datetime, FieldsAndFormats)
{
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, ms = 0;
    datetime(Jan2).get(&y, &mo, &d, &h, &mi, &s, &ms);
    EXPECT_EQ(QList<int>({y, mo, d, h, mi, s, ms}), QList<int>({2020, 1, 2, 3, 4, 5, 6}));
    datetime(1, 1, 1, 0, 0, 0, 0).get(&y, &mo, &d);
    EXPECT_EQ(QList<int>({y, mo, d}), QList<int>({1, 1, 1}));

    EXPECT_TRUE(datetime().isZero());
    EXPECT_EQ(datetime().toString(), QString());
    EXPECT_EQ(datetime().toSystemString(), QString());
    EXPECT_EQ(datetime(Jan2).toString(datetime::sqlFormat(false)), QStringLiteral("2020-01-02 03:04:05"));
    EXPECT_EQ(datetime(Jan2).toString(datetime::dateNoTimeFormat()), QStringLiteral("2020.01.02"));
    EXPECT_EQ(datetime(Jan2).toString(datetime::timeNoDateFormat()), QStringLiteral("03:04:05.006"));
}

TEST(Datetime, SystemStringFollowsTheLocaleYearWidth)
{
    const QString format = QLocale::system().dateFormat(QLocale::ShortFormat);
    const datetime late(1999, 5, 6, 7, 8, 9, 10);
    const datetime parsed = datetime::fromSystemString(late.toSystemString());
    const int shift = format.contains(QStringLiteral("yyyy")) ? 0 : 100;
    EXPECT_EQ(parsed, late.addYears(shift));
    EXPECT_EQ(datetime::fromSystemString(late.toSystemString(true), true), late.toDate().addYears(shift));
    EXPECT_EQ(datetime::fromSystemString(QStringLiteral("rubbish")).data(), 0);
}

namespace {

// Runs in a fresh process started with LC_ALL=en_US, whose short date format
// has a two-digit year.
[[noreturn]] void checkTwoDigitYears()
{
    const auto fail = [](const char *what) {
        std::fprintf(stderr, "%s\n", what);
        std::exit(1);
    };
    if (QLocale::system().dateFormat(QLocale::ShortFormat) != QStringLiteral("M/d/yy"))
        fail("system locale did not switch");
    if (datetime(Jan2).toSystemString() != QStringLiteral("1/2/20 03:04:05.006"))
        fail("toSystemString");
    if (datetime::fromSystemString(QStringLiteral("1/2/20 03:04:05.006")).data() != Jan2)
        fail("2020 read back");
    // The shift is unconditional: 99 means 2099, not 1999.
    if (datetime::fromSystemString(QStringLiteral("5/6/99"), true) != datetime(2099, 5, 6, 0, 0, 0, 0))
        fail("99 shifted");
    std::exit(0);
}

} // namespace

TEST(Datetime, SystemStringMovesTwoDigitYearsACentury)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const QByteArray saved = qgetenv("LC_ALL");
    const bool had = qEnvironmentVariableIsSet("LC_ALL");
    qputenv("LC_ALL", "en_US.UTF-8");
    EXPECT_EXIT(checkTwoDigitYears(), ::testing::ExitedWithCode(0), "");
    if (had)
        qputenv("LC_ALL", saved);
    else
        qunsetenv("LC_ALL");
}

TEST(Datetime, RegisteredMetaType)
{
    const int id = datetime::metatypeId();
    EXPECT_EQ(id, datetime::metatypeId());
    EXPECT_EQ(QMetaType::type("datetime"), id);
    // Qt 5.15 adds MovableType by itself to any trivially copyable type.
    const int flags = int(QMetaType::typeFlags(id));
    EXPECT_EQ(flags & 259, 259);
    EXPECT_EQ(QMetaType::sizeOf(id), 8);

    const QVariant v = datetime(Jan2).toVariant();
    EXPECT_EQ(v.userType(), id);
    EXPECT_EQ(v.toString(), QStringLiteral("2020.01.02 03:04:05.006"));
    EXPECT_EQ(qvariant_cast<datetime>(v).data(), Jan2);

    const QVariant earlier = datetime(-5).toVariant();
    int order = 0;
    ASSERT_TRUE(QMetaType::compare(earlier.constData(), v.constData(), id, &order));
    EXPECT_LT(order, 0);
    ASSERT_TRUE(QMetaType::compare(v.constData(), v.constData(), id, &order));
    EXPECT_EQ(order, 0);
    EXPECT_TRUE(QMetaType::equals(v.constData(), datetime(Jan2).toVariant().constData(), id, &order));
    EXPECT_EQ(order, 0);
}
