#include "numeric/decimal.h"

#include <QDataStream>
#include <QDate>
#include <QLocale>
#include <QStringList>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <random>
#include <thread>

namespace {

typedef __int128 int128;

const int64 kTwo56 = int64(1) << 56;
const int64 kMaxMantissa = kTwo56 - 1;

int128 pow10(int n) { return n > 0 ? 10 * pow10(n - 1) : 1; }

// The value at scale `to` (>= the decimal's scale), exactly.
int128 mantissaAt(const decimal &d, int to) { return int128(d.value()) * pow10(to - d.scale()); }

bool fits(int128 v) { return v >= -kTwo56 && v <= kMaxMantissa; }

// Mantissas biased towards the edges of the 56-bit range, where the faults live.
class Generator
{
public:
    Generator() : m_rng(20240517) { }
    int64 mantissa()
    {
        switch (m_rng() % 4) {
        case 0: return int64(m_rng() % 2001) - 1000;
        case 1: return int64(m_rng() % uint64(kTwo56)) - int64(m_rng() % 2) * kTwo56;
        case 2: return (m_rng() % 2 ? kMaxMantissa : -kTwo56) + int64(m_rng() % 41) * (m_rng() % 2 ? 1 : -1);
        default: return int64(m_rng() % 100000000) * (m_rng() % 2 ? 1 : -1);
        }
    }
    short scale(int lo, int hi) { return short(lo + int(m_rng() % uint64(hi - lo + 1))); }
    decimal make(int lo, int hi) { const int64 v = mantissa(); return decimal(v, scale(lo, hi)); }

private:
    std::mt19937_64 m_rng;
};

// The QString that f throws, or "<nothing>".
template <typename F>
QString thrownBy(F f)
{
    try {
        f();
    } catch (const QString &message) {
        return message;
    }
    return QStringLiteral("<nothing>");
}

} // namespace

TEST(DecimalPacking, NormalisingPackAndWordLayout)
{
    struct Case { int64 value; short scale; int64 mantissa; short packedScale; };
    const Case cases[] = {
        {kTwo56, 0, 7205759403792793LL, -1},          // one truncated division
        {-(kTwo56 * 2), 0, -kTwo56, 0},               // negatives are not reduced
        {kMaxMantissa, 3, kMaxMantissa, 3},
        {-kTwo56, 3, -kTwo56, 3},
        {kTwo56 * 2, -63, 14411518807585587LL, -64},  // may still reduce to -64
        {kTwo56 * 16, -64, 0, -64},                   // ... but not past it: bits dropped
        {5, 64, 5, -64},                              // scale wraps in seven bits
        {5, -65, 5, 63},
    };
    for (const Case &c : cases) {
        const decimal d(c.value, c.scale);
        EXPECT_EQ(d.value(), c.mantissa) << c.value << " " << c.scale;
        EXPECT_EQ(d.scale(), c.packedScale) << c.value << " " << c.scale;
    }
    EXPECT_EQ(decimal(-1, -1).data(), int64(0xFFFFFFFFFFFFFFFFULL));
    EXPECT_EQ(decimal(1, 1).data(), int64(0x0100000000000001ULL));

    const decimal scaleOnly = decimal::from56s7(int64(0x0500000000000000ULL));
    EXPECT_TRUE(scaleOnly.isZero());
    EXPECT_EQ(scaleOnly, decimal::zero);
    EXPECT_FALSE(scaleOnly.isEqual(decimal::zero));
    EXPECT_FALSE(decimal::from56s7(int64(0x8000000000000000ULL)).isZero()); // -2^56

    EXPECT_EQ(decimal::minimum.data(), int64(0xC1F0000000000001ULL));
    EXPECT_EQ(decimal::minimum.value(), -((int64(1) << 52) - 1));
    EXPECT_EQ(decimal::maximum.value(), (int64(1) << 52) - 1);
    EXPECT_EQ(decimal::maximum.scale(), -63);
    EXPECT_LT(decimal::minimum, decimal::zero);
    EXPECT_GT(decimal::maximum, decimal(kMaxMantissa, -40));
}

TEST(DecimalArithmetic, DocumentedCases)
{
    struct Case { int64 v; short s; short to; int64 mantissa; short scale; };
    const Case rescales[] = {
        {12345, 3, 1, 123, 1},                         // 1234 then (1234 + 5) / 10
        {123449, 4, 2, 1234, 2},                       // earlier digits are cut, not rounded
        {123450, 4, 2, 1235, 2},
        {-123450, 4, 2, -1235, 2},
        {-5, 1, 0, -1, 0},
        {kTwo56 / 2, 0, 5, kTwo56 / 2, 0},             // cannot raise at all
        {7205759403792793LL, 0, 2, 72057594037927930LL, 1}, // stops one short
        {-(kTwo56 / 2), 0, 1, -kTwo56, 1},             // negatives wrap instead
        {0, 3, -2, 0, -2},
    };
    for (const Case &c : rescales) {
        decimal d(c.v, c.s);
        d.setScale(c.to);
        EXPECT_EQ(d.value(), c.mantissa) << c.v << " " << c.s << " -> " << c.to;
        EXPECT_EQ(d.scale(), c.scale) << c.v << " " << c.s << " -> " << c.to;
    }
    decimal rounded(4, 1);
    rounded.setScale(0);
    EXPECT_EQ(rounded.data(), 0); // a zero result takes the plain zero word

    const decimal sum = decimal(5, 2) + decimal(25, 3);
    EXPECT_TRUE(sum.isEqual(decimal(75, 3)));
    EXPECT_EQ(sum.toString(), "0.075");
    // The left side stops at scale 0, so the right is rounded down to it.
    EXPECT_TRUE((decimal(kTwo56 / 2, 0) + decimal(150000, 5)).isEqual(decimal(kTwo56 / 2 + 2, 0)));
    EXPECT_TRUE((decimal(kMaxMantissa, 0) + decimal(kMaxMantissa, 0)).isEqual(decimal(14411518807585587LL, -1)));
    EXPECT_EQ((decimal(-kTwo56, 0) + decimal(-1, 0)).value(), -1); // negative overflow wraps
    // -2^56 negated does not fit and loses a digit before the addition.
    EXPECT_TRUE((decimal::zero - decimal(-kTwo56, 0)).isEqual(decimal(72057594037927930LL, 0)));
    decimal acc(10, 1);
    acc -= decimal(3, 0);
    acc += decimal(25, 2);
    EXPECT_TRUE(acc.isEqual(decimal(-175, 2)));

    EXPECT_TRUE((decimal(25, 1) * 4).isEqual(decimal(100, 1)));
    EXPECT_TRUE((decimal(3, 2) * -2).isEqual(decimal(-6, 2)));
    EXPECT_TRUE((decimal(kTwo56 / 2, 0) * int64(4)).isEqual(decimal(14411518807585587LL, -1)));
    EXPECT_TRUE(decimal(7, 3).negative().isEqual(decimal(-7, 3)));
}

TEST(DecimalArithmetic, RandomAgainstExactArithmetic)
{
    Generator gen;
    for (int i = 0; i < 40000; ++i) {
        const decimal a = gen.make(-10, 10);
        const decimal b = gen.make(-10, 10);
        const int top = qMax(a.scale(), b.scale());
        const int128 x = mantissaAt(a, top);
        const int128 y = mantissaAt(b, top);

        const int expected = (x > y) - (x < y);
        ASSERT_EQ(a.compare(b), expected) << a.data() << " " << b.data();
        ASSERT_EQ(a < b, expected < 0);
        ASSERT_EQ(b.compare(a), -expected);

        for (const bool subtract : {false, true}) {
            if (subtract && b.value() == -kTwo56)
                continue; // -(-2^56) loses a digit first: in the table above
            const int128 other = subtract ? -y : y;
            const decimal r = subtract ? a - b : a + b;
            const int128 exact = x + other;
            if (fits(x) && fits(other) && fits(exact)) {
                ASSERT_EQ(r.scale(), top) << a.data() << (subtract ? " - " : " + ") << b.data();
                ASSERT_EQ(int128(r.value()), exact) << a.data() << (subtract ? " - " : " + ") << b.data();
            } else if (fits(x) && fits(other) && exact > kMaxMantissa) {
                // Positive overflow drops digits: the result is the sum cut to the first scale that fits.
                const int drop = top - r.scale();
                ASSERT_GT(drop, 0);
                ASSERT_EQ(int128(r.value()), exact / pow10(drop));
                ASSERT_GT(exact / pow10(drop - 1), kMaxMantissa);
            } else if (fits(x) && fits(other) && exact < -kTwo56) {
                ASSERT_EQ(int128(r.value()), exact + kTwo56); // wraps in 56 bits
                ASSERT_EQ(r.scale(), top);
            } else if (x > kMaxMantissa || other > kMaxMantissa) {
                // One side could not be raised: the common scale is lower and the
                // other side was rounded to it, so the result is off by under two units.
                ASSERT_LT(r.scale(), top);
                const int128 err = int128(r.value()) * pow10(top - r.scale()) - exact;
                ASSERT_LT(err < 0 ? -err : err, 2 * pow10(top - r.scale()));
            }
        }

        const int64 factor = int64(gen.mantissa() % 100); // keeps the product inside 64 bits
        const int128 product = int128(a.value()) * factor;
        const decimal p = a * factor;
        if (fits(product)) {
            ASSERT_EQ(int128(p.value()), product);
            ASSERT_EQ(p.scale(), a.scale());
        } else if (product > kMaxMantissa && a.scale() > -50) {
            const int drop = a.scale() - p.scale();
            ASSERT_EQ(int128(p.value()), product / pow10(drop));
        }
    }
}

TEST(DecimalArithmetic, RandomSetScale)
{
    Generator gen;
    for (int i = 0; i < 40000; ++i) {
        const decimal a = gen.make(-10, 10); // keeps every exact value inside 128 bits
        const short to = gen.scale(-10, 10);
        decimal r = a;
        r.setScale(to);
        if (a.value() == 0) {
            ASSERT_EQ(r.data(), decimal(0, to).data());
        } else if (to >= a.scale()) {
            // Raising keeps the value exactly and stops only where one more digit would overflow.
            const int128 target = mantissaAt(a, to);
            if (a.value() < 0 && target < -kTwo56)
                continue; // negatives wrap, covered by the table above
            ASSERT_LE(r.scale(), to);
            ASSERT_EQ(int128(r.value()), mantissaAt(a, r.scale())) << a.data() << " -> " << to;
            if (r.scale() < to) {
                ASSERT_GT(int128(r.value()) * 10, kMaxMantissa);
            }
        } else {
            // Lowering: digits cut, then the last one rounded half away from zero.
            const int drop = a.scale() - to;
            const int128 v = a.value();
            const int128 cut = v / pow10(drop - 1);
            const int128 mag = ((cut < 0 ? -cut : cut) + 5) / 10;
            ASSERT_EQ(int128(r.value()), cut < 0 ? -mag : mag) << a.data() << " -> " << to;
            ASSERT_EQ(r.scale(), to);
            const int128 err = int128(r.value()) * pow10(drop) - v;
            ASSERT_LT(err < 0 ? -err : err, pow10(drop));
        }
    }
}

TEST(DecimalCompare, ScaleShortcutAndZeros)
{
    EXPECT_EQ(decimal(1, 0).compare(decimal(1, 20)), 1);
    EXPECT_EQ(decimal(1, 0).compare(decimal(72000000000000000LL, 17)), 1);
    EXPECT_EQ(decimal(1, 0).compare(decimal(kMaxMantissa, 16)), -1); // 7.2 > 1: exact path
    EXPECT_EQ(decimal(-1, 0).compare(decimal(-kTwo56, 17)), -1);
    EXPECT_EQ(decimal(-3, 40).compare(decimal(-1, -40)), 1);
    EXPECT_EQ(decimal(0, 3).compare(decimal(0, -5)), 0);
    EXPECT_EQ(decimal(0, 3).compare(decimal(-1, 60)), 1);
    EXPECT_EQ(decimal(2, -60).compare(decimal(0, 1)), 1);
}

TEST(DecimalText, ToString)
{
    struct Case { int64 v; short s; const char *text; };
    const Case cases[] = {
        {-5, 3, "-0.005"}, {7, -2, "700"}, {0, 2, "0.00"}, {0, -2, "0"}, {-12, 0, "-12"},
        {12340, 2, "123.40"}, {5, 1, "0.5"}, {-kTwo56, 1, "-7205759403792793.6"},
        {kMaxMantissa, 2, "720575940379279.36"}, // printed through double: ...935 rounds up
    };
    for (const Case &c : cases)
        EXPECT_EQ(decimal(c.v, c.s).toString(), QString::fromLatin1(c.text)) << c.v << " " << c.s;

    const QChar point = QLocale::system().decimalPoint();
    EXPECT_EQ(decimal(-5, 3).toExcelString(), QString("-0") + point + "005");
    EXPECT_EQ(decimal(1500, 3).toSystemStringShort(), QString("1") + point + "5");
    EXPECT_EQ(decimal(1000, 3).toSystemStringShort(), "1");
    EXPECT_EQ(decimal(100, 0).toSystemStringShort(), "100"); // no point: zeros stay
    EXPECT_EQ(decimal(15, 1).toSystemString(), QString("1") + point + "5");
}

TEST(DecimalText, FromString)
{
    struct Case { const char *text; int64 mantissa; short scale; };
    const Case cases[] = {
        {"", 0, 0}, {".5", 5, 1}, {"-.5", -5, 1}, {"+5", 5, 0}, {"-0.50", -50, 2}, {"007", 7, 0},
        {"15e2", 15, 2}, {"1.5e2", 15, 1}, {"15e-2", 15, -2}, {"-1.25e+1", -125, -1}, {"3.e1", 3, 1},
        {"9223372036854775807", 9223372036854775LL, -3},
    };
    for (const Case &c : cases) {
        const decimal d = decimal::fromString(QString::fromLatin1(c.text));
        EXPECT_TRUE(d.isEqual(decimal(c.mantissa, c.scale))) << c.text << " gave " << qPrintable(d.toString());
    }
    EXPECT_TRUE(decimal(QStringLiteral("x1.25y").midRef(1, 4)).isEqual(decimal(125, 2)));

    for (const char *bad : {"5.", "1E3", "1,5", "abc", " 1", "1.5.2", "99999999999999999999", "-", "e5"})
        EXPECT_EQ(thrownBy([&] { decimal::fromString(QString::fromLatin1(bad)); }),
                  QString::fromUtf8("Невозможно создать decimal по строке '%1'").arg(bad));
    EXPECT_EQ(thrownBy([] { decimal::fromString("-99999999999999999999.5"); }),
              QString::fromUtf8("Невозможно создать decimal по строке '-99999999999999999999.5' (-)"));
}

TEST(DecimalText, LenientReaders)
{
    bool ok = false;
    EXPECT_EQ(decimal::fromAnyString("1,5", &ok, 2), decimal(15, 1)); // by locale or as "1.5"
    EXPECT_TRUE(ok);
    EXPECT_EQ(decimal::fromAnyString("abc", &ok, 2).data(), 0);
    EXPECT_FALSE(ok);
    EXPECT_NO_THROW(decimal::fromAnyString("abc", nullptr, 2));

    const QLocale russian(QLocale::Russian);
    EXPECT_TRUE(decimal::fromLocaleString("1234,5", russian, 2).isEqual(decimal(123450, 2)));
    EXPECT_TRUE(decimal::fromLocaleString("-2,5", russian, 0).isEqual(decimal(-2, 0)));
    EXPECT_EQ(thrownBy([&] { decimal::fromLocaleString("1.2.3", russian, 2); }),
              "Error in input local string '1.2.3'");

    struct Case { const char *text; bool empty; bool result; };
    const Case cases[] = {
        {"", true, true}, {"", false, false}, {"1,5", false, true}, {",5", false, true},
        {"1,5e3", false, true}, {"1.5e-3", false, true}, {"1.5E3", false, false}, {"1 5", false, false},
    };
    for (const Case &c : cases)
        EXPECT_EQ(decimal::canConvert(QString::fromLatin1(c.text), c.empty), c.result) << c.text;
}

TEST(DecimalDouble, Conversions)
{
    EXPECT_TRUE(decimal::fromDouble(2.5, 0).isEqual(decimal(2, 0)));
    EXPECT_TRUE(decimal::fromDouble(2.5, 1).isEqual(decimal(25, 1)));
    EXPECT_TRUE(decimal::fromDouble(-2.5, 0).isEqual(decimal(-2, 0)));
    EXPECT_TRUE(decimal::fromDouble(-0.25, 1).isEqual(decimal(-3, 1)));
    EXPECT_TRUE(decimal::fromDouble(259.0, -1).isEqual(decimal(25, -1))); // truncates
    EXPECT_TRUE(decimal::fromDouble(1.005, 2).isEqual(decimal(100, 2)));  // 100.4999.. + 0.5
    EXPECT_EQ(decimal::fromDouble(std::nan(""), 3).value(), -kTwo56);
    for (const double big : {72057594037927936.0, -72057594037927936.0, 1e300, -HUGE_VAL})
        EXPECT_EQ(thrownBy([&] { decimal::fromDouble(big, 0); }), "decimal:overflow") << big;
    EXPECT_DOUBLE_EQ(decimal(-15, 1).toDouble(), -1.5);
    EXPECT_DOUBLE_EQ(decimal(7, -2).toDouble(), 700.0);
}

TEST(DecimalVariant, MetaTypeStreamAndConversions)
{
    const int id = decimal::metatypeId();
    EXPECT_EQ(QMetaType::type("decimal"), id); // registered at library load
    EXPECT_EQ(int(QMetaType::typeFlags(id)), 259);
    EXPECT_EQ(QMetaType::sizeOf(id), 8);

    const QVariant v = decimal(15, 1).toVariant();
    EXPECT_EQ(v.userType(), id);
    EXPECT_DOUBLE_EQ(v.toDouble(), 1.5);
    EXPECT_EQ(v.toString(), decimal(15, 1).toSystemString());
    EXPECT_TRUE(v == decimal(150, 2).toVariant()); // registered comparators
    const decimal lo(15, 1), hi(16, 1);
    int order = 0;
    EXPECT_TRUE(QMetaType::compare(&lo, &hi, id, &order));
    EXPECT_EQ(order, -1);

    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << decimal::minimum << v;
    }
    EXPECT_EQ(bytes.left(8).toHex(), QByteArray("c1f0000000000001"));
    QDataStream in(bytes);
    decimal back;
    QVariant backVariant;
    in >> back >> backVariant;
    EXPECT_TRUE(back.isEqual(decimal::minimum));
    EXPECT_TRUE(qvariant_cast<decimal>(backVariant).isEqual(decimal(15, 1)));

    bool ok = false;
    EXPECT_TRUE(decimal::fromVariant(v, &ok).isEqual(decimal(15, 1)));
    EXPECT_TRUE(decimal::fromVariant(3, &ok).isEqual(decimal(300000, 5)));
    EXPECT_TRUE(decimal::fromVariant(1.5, &ok).isEqual(decimal(150000, 5)));
    EXPECT_TRUE(decimal::fromVariant(QString("1.25"), &ok).isEqual(decimal(125, 2)));
    EXPECT_TRUE(ok);
    EXPECT_THROW(decimal::fromVariant(QString("x"), &ok), QString);
    decimal::fromVariant(QDate(2020, 1, 1), &ok);
    EXPECT_FALSE(ok);
    decimal::fromVariant(QVariant(QDate()), &ok); // null: no value, but no failure either
    EXPECT_TRUE(ok);

    EXPECT_TRUE(decimal::canConvert(v));
    EXPECT_TRUE(decimal::canConvert(QVariant(QString("1,5"))));
    EXPECT_FALSE(decimal::canConvert(QVariant(5)));
    EXPECT_FALSE(decimal::canConvert(QVariant(QString())));
}

TEST(DecimalText, ParsingFromSeveralThreads)
{
    const QStringList texts = {"1.25", "-7", "15e2", "1,5", "x", ".5", "1,5e3", "12.3449"};
    QVector<int64> words; // as read on this thread; "x" alone is no number
    for (const QString &t : texts)
        words << decimal::fromAnyString(t, nullptr, 2).data();
    std::atomic<int> mismatches(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&]() {
            for (int i = 0; i < 3000; ++i) {
                const int k = i % texts.size();
                bool ok = false;
                if (decimal::canConvert(texts[k], false) != (k != 4)
                    || decimal::fromAnyString(texts[k], &ok, 2).data() != words[k] || ok != (k != 4))
                    ++mismatches;
            }
        });
    }
    for (std::thread &t : threads)
        t.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(words[0], decimal(125, 2).data());
}
