#include "numeric/xdecimal.h"
#include "numeric/xdecimal_p.h"

#include "numeric/bcdii.h"

#include <QByteArray>
#include <QDataStream>
#include <QLocale>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>

void PrintTo(const xdecimal &x, std::ostream *os)
{
    *os << x.toString().toStdString() << " (scale " << x.scale() << ")";
}

namespace {

const std::string kBad = "xdecimal:bad operand";

// What f throws, a QString or a C string, as text; "" when it throws nothing.
template <typename F>
std::string thrown(F f)
{
    try {
        f();
    } catch (const QString &e) {
        return e.toStdString();
    } catch (const char *e) {
        return e;
    }
    return "";
}

// An exact reference: sign, decimal digits of the mantissa, scale.
struct Ref
{
    bool neg = false;
    std::string mag = "0";
    int scale = 0;
};

Ref make(bool neg, const std::string &mag, int scale)
{
    const size_t nz = mag.find_first_not_of('0');
    Ref r;
    r.mag = nz == std::string::npos ? "0" : mag.substr(nz);
    r.neg = neg && r.mag != "0";
    r.scale = scale;
    return r;
}

int cmpMag(const std::string &a, const std::string &b)
{
    return a.size() != b.size() ? (a.size() < b.size() ? -1 : 1) : (a > b) - (a < b);
}

// Column addition (sign 1) or subtraction (sign -1, a >= b) of digit strings.
std::string addMag(const std::string &a, const std::string &b, int sign = 1)
{
    std::string r;
    int carry = 0;
    for (size_t i = 0; i < a.size() || i < b.size() || carry; ++i) {
        const int v = carry + (i < a.size() ? a[a.size() - 1 - i] - '0' : 0)
            + sign * (i < b.size() ? b[b.size() - 1 - i] - '0' : 0);
        carry = v < 0 ? -1 : v / 10;
        r.push_back(char('0' + (v + 10) % 10));
    }
    std::reverse(r.begin(), r.end());
    return make(false, r, 0).mag;
}

// Long multiplication as shifts and repeated additions.
std::string mulMag(const std::string &a, const std::string &b)
{
    std::string r = "0";
    for (const char d : b) {
        r = addMag(r + "0", "0");
        for (int k = 0; k < d - '0'; ++k)
            r = addMag(r, a);
    }
    return r;
}

// Exact when raising the scale; half away from zero when lowering it.
Ref rescale(const Ref &r, int s)
{
    if (s >= r.scale)
        return make(r.neg, r.mag + std::string(size_t(s - r.scale), '0'), s);
    const size_t k = size_t(r.scale - s);
    std::string kept = r.mag.size() > k ? r.mag.substr(0, r.mag.size() - k) : "0";
    if (r.mag.size() >= k && r.mag[r.mag.size() - k] >= '5')
        kept = addMag(kept, "1");
    return make(r.neg, kept, s);
}

int compare(const Ref &a, const Ref &b)
{
    const Ref x = rescale(a, std::max(a.scale, b.scale)), y = rescale(b, std::max(a.scale, b.scale));
    if (x.neg != y.neg)
        return x.neg ? -1 : 1;
    return x.neg ? -cmpMag(x.mag, y.mag) : cmpMag(x.mag, y.mag);
}

// The canonical text: every decimal of the scale, "0." in front of a fraction.
std::string text(const Ref &r)
{
    std::string t = r.mag;
    if (r.scale > 0) {
        if (t.size() < size_t(r.scale) + 1)
            t.insert(0, size_t(r.scale) + 1 - t.size(), '0');
        t.insert(t.size() - size_t(r.scale), ".");
    } else if (r.scale < 0 && t != "0") {
        t.append(size_t(-r.scale), '0');
    }
    return (r.neg ? "-" : "") + t;
}

bool fits(const Ref &r) { return r.mag.size() <= 26; }

bool isMarker(const xdecimal &x)
{
    const unsigned char *d = x.data();
    return BCDIICheck(d + 2, BCDIIType(d[0] | (d[1] << 8))) == 160;
}

xdecimal toX(const Ref &r)
{
    xdecimal x = xdecimal::fromString(QString::fromStdString(text(r.scale < 0 ? rescale(r, 0) : r)));
    x.setScale(short(r.scale));
    return x;
}

// Scales -3..20, lengths up to the full 26 digits, often exactly 26.
Ref randomRef(std::mt19937_64 &rng)
{
    const int scale = int(rng() % 24) - 3;
    int len = rng() % 4 == 0 ? 26 : 1 + int(rng() % 26);
    if (scale < 0)
        len = std::min(len, 26 + scale);
    std::string m;
    for (int i = 0; i < len; ++i)
        m.push_back(char('0' + rng() % 10));
    return make(rng() & 1, m, scale);
}

TEST(xdecimalReference, AgreesWithExactDigitArithmetic)
{
    std::mt19937_64 rng(12);
    int overflows = 0, refusals = 0, productOverflows = 0, rounded = 0;
    for (int i = 0; i < 6000; ++i) {
        const Ref a = randomRef(rng), b = randomRef(rng);
        const xdecimal x = toX(a), y = toX(b);
        const std::string ab = text(a) + " , " + text(b);
        ASSERT_EQ(x.toString().toStdString(), text(a));
        ASSERT_EQ(x.scale(), a.scale);
        const int c = compare(a, b);
        ASSERT_EQ(x.compare(y), c) << ab;
        EXPECT_TRUE((x < y) == (c < 0) && (x >= y) == (c >= 0) && (x == y) == (c == 0)) << ab;
        // The exponent form is a true power of ten (a zero takes scale 0 from any exponent).
        if (a.scale >= 0 && a.mag != "0") {
            const std::string e = (a.neg ? "-" : "") + a.mag + "e" + std::to_string(-a.scale);
            EXPECT_EQ(xdecimal::fromString(QString::fromStdString(e)).toString().toStdString(), text(a)) << e;
        }

        const int s = i % 30 - 4;
        xdecimal z = x;
        if (!fits(rescale(a, s))) {
            EXPECT_EQ(thrown([&] { z.setScale(short(s)); }), kBad) << text(a) << " to " << s;
            EXPECT_TRUE(z.isEqual(x)); // nothing lost on failure
        } else {
            z.setScale(short(s));
            ASSERT_EQ(z.toString().toStdString(), text(rescale(a, s))) << text(a) << " to " << s;
            ASSERT_EQ(z.scale(), s);
        }

        // Products keep the left scale, rounding half up; too long a result is the marker.
        const Ref exact = make(a.neg != b.neg, mulMag(a.mag, b.mag), a.scale + b.scale);
        const Ref p = rescale(exact, a.scale);
        rounded += compare(p, exact) != 0;
        const xdecimal xy = x * y;
        if (!fits(p)) {
            ++productOverflows;
            EXPECT_TRUE(isMarker(xy)) << ab;
        } else {
            ASSERT_EQ(xy.toString().toStdString(), text(p)) << ab;
            ASSERT_EQ(xy.scale(), a.scale);
        }

        // Sums take the larger scale; an operand that cannot be raised to it is refused.
        const bool subtract = i & 1;
        const int top = std::max(a.scale, b.scale);
        if (!fits(rescale(a, top)) || !fits(rescale(b, top))) {
            ++refusals;
            z = x;
            EXPECT_EQ(thrown([&] { subtract ? z -= y : z += y; }), kBad) << ab;
            EXPECT_TRUE(z.isEqual(x));
            continue;
        }
        const Ref sum = [&] {
            const Ref u = rescale(a, top), v = rescale(make(b.neg != subtract, b.mag, b.scale), top);
            if (u.neg == v.neg)
                return make(u.neg, addMag(u.mag, v.mag), top);
            const bool uBigger = cmpMag(u.mag, v.mag) >= 0;
            return make(uBigger ? u.neg : v.neg, uBigger ? addMag(u.mag, v.mag, -1) : addMag(v.mag, u.mag, -1), top);
        }();
        const xdecimal r = subtract ? x - y : x + y;
        if (!fits(sum)) {
            ++overflows;
            EXPECT_TRUE(isMarker(r)) << ab;
            continue;
        }
        ASSERT_EQ(r.toString().toStdString(), text(sum)) << text(a) << (subtract ? " - " : " + ") << text(b);
        ASSERT_EQ(r.scale(), top);
    }
    EXPECT_GT(overflows, 10);
    EXPECT_GT(refusals, 100);
    EXPECT_GT(productOverflows, 100);
    EXPECT_GT(rounded, 100);
}

TEST(xdecimal, ConstructionLayoutAndBounds)
{
    EXPECT_EQ(xdecimal(15, 1).toString(), "1.5");
    EXPECT_EQ(xdecimal("1.5").value(), 15);
    EXPECT_EQ(xdecimal(-7, -2).toString(), "-700");
    EXPECT_EQ(xdecimal(-9223372036854775807LL - 1, 3).value(), -9223372036854775807LL - 1);
    EXPECT_TRUE(xdecimal("").isZero());
    EXPECT_FALSE(xdecimal(1, 30).isZero());
    EXPECT_EQ(thrown([] { xdecimal("99999999999999999999").value(); }), "xdecimal:overflow at xdecimal::value");
    EXPECT_EQ(thrown([] { xdecimal(1, 63); }), kBad);

    // The 16 bytes are the object: scale, digits, then the kernel's bytes.
    const xdecimal x(-12345, 2);
    const unsigned char expected[16] = {2, 26, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 23, 45, 0};
    EXPECT_EQ(0, std::memcmp(x.data(), expected, 16));
    EXPECT_EQ(&x, x.data()); // operator& hands out the bytes
    EXPECT_TRUE(xdecimal(static_cast<const void *>(x.data())).isEqual(x));
    QByteArray bytes;
    x.data(bytes);
    EXPECT_EQ(bytes, QByteArray(reinterpret_cast<const char *>(expected), 16));

    // Foreign bytes: 63 digits do not fit in 16 bytes; the marker; 27 digits at scale 1 do fit.
    const struct { unsigned char scale, digits, first; bool refused; } foreign[] = {
        {0, 63, 1, true}, {0, 26, 101, true}, {1, 27, 5, false}};
    for (const auto &f : foreign) {
        const unsigned char raw[16] = {f.scale, f.digits, f.first};
        EXPECT_EQ(thrown([&] { xdecimal y(static_cast<const void *>(raw)); }),
                  f.refused ? "xdecimal:BCDIICopy failed at xdecimal::xdecimal" : "") << int(f.digits);
    }

    const std::string digits = std::string(26, '9') + std::string(62, '0');
    EXPECT_EQ(xdecimal::maximum().toString().toStdString(), digits);
    EXPECT_EQ(xdecimal::minimum().toString().toStdString(), "-" + digits);
    EXPECT_EQ(xdecimal::maximum().negative(), xdecimal::minimum());
    EXPECT_EQ(xdecimal::zero.data()[1], 26);
    EXPECT_TRUE(xdecimal::zero.isZero());
}

TEST(xdecimal, ArithmeticCases)
{
    const xdecimal a("1.5");
    EXPECT_FALSE(xdecimal(10, 1).isEqual(xdecimal(100, 2)));
    EXPECT_TRUE(xdecimal(10, 1) == xdecimal(100, 2));
    EXPECT_EQ((a - a).toString(), "0.0");
    EXPECT_EQ(xdecimal().negative().data()[2], 0); // zero stays positive
    EXPECT_TRUE(a.negative().negative().isEqual(a));
    EXPECT_EQ(a.add(a), xdecimal(3, 0));

    // An unchecked overflow: the marker shows up at the next rescale.
    xdecimal nines("99999999999999999999999999");
    nines += xdecimal(1, 0);
    EXPECT_TRUE(isMarker(nines));
    EXPECT_EQ(thrown([&] { nines.setScale(0); }), kBad);
}

TEST(xdecimal, FromStringForms)
{
    const struct { const char *in, *out; } cases[] = {
        {"0.5", "0.5"}, {"-0.50", "-0.50"}, {"+12", "12"}, {".5", "0.5"}, {"-.5", "-0.5"},
        {"15e2", "1500"}, {"1.5e2", "150"}, {"1.5e-3", "0.0015"}, {"-25e-1", "-2.5"},
        {"0e999999", "0"}, {"1e99999999999", "1"}, {"007.10", "7.10"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(xdecimal::fromString(QString::fromLatin1(c.in)).toString(), QString::fromLatin1(c.out)) << c.in;

    // Dot texts name their sign in the message; the others do not.
    const struct { QString text; const char *sign; } failures[] = {
        {"123456789012345678901234567", nullptr}, {"12345678901234567890.1234567890", ""},
        {"-0." + QString(100000, QLatin1Char('0')) + "1", "-"}, {"5.", nullptr}, {"1,5", nullptr},
        {"1E3", nullptr}, {".", nullptr}, {"-", nullptr}, {"1.5e", nullptr}, {"1e999999", nullptr},
        {QString(100000, QLatin1Char('1')), nullptr}, {QString::fromUtf8("1\xd9\xa3"), nullptr}, {" 1", nullptr},
    };
    for (const auto &f : failures) {
        const QString message = QString::fromUtf8("Невозможно создать xdecimal по строке '%1'").arg(f.text);
        EXPECT_EQ(thrown([&] { xdecimal::fromString(f.text); }),
                  (f.sign ? message + QStringLiteral(" (%1)").arg(f.sign) : message).toStdString());
    }
    EXPECT_TRUE(xdecimal::canConvert(QStringLiteral("1,5e3"), false));
    EXPECT_TRUE(xdecimal::canConvert(QString(), true));
    EXPECT_FALSE(xdecimal::canConvert(QStringLiteral("1.5.5"), false));
}

TEST(xdecimal, LocaleForms)
{
    const QLocale ru(QLocale::Russian, QLocale::Russia), de(QLocale::German, QLocale::Germany);
    const QString g = ru.groupSeparator();
    // The C locale omits group separators, and they are printed all the same.
    const struct { const char *in; QLocale locale; bool isShort; QString out; } cases[] = {
        {"-1234567.5", ru, false, "-1" + g + "234" + g + "567,5"}, {"123", ru, false, "123"},
        {"-123456", ru, false, "-123" + g + "456"}, {"-1234567.5", QLocale::c(), false, "-1,234,567.5"},
        {"1234.500", de, true, "1.234,5"}, {"2.000", de, true, "2"}, {"100", de, true, "100"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.isShort ? xdecimalPrivate::toLocaleStringShort(xdecimal(c.in), c.locale)
                            : xdecimalPrivate::toLocaleString(xdecimal(c.in), c.locale), c.out) << c.in;
    EXPECT_EQ(xdecimal::fromLocaleString("1" + g + "234", ru).toString(), "1234");
    EXPECT_THROW(xdecimal::fromLocaleString("1" + g + "234,5", ru), QString);

    bool ok = false;
    EXPECT_EQ(xdecimal::fromAnyString("2.5", &ok).toString(), "2.5");
    EXPECT_TRUE(ok);
    EXPECT_TRUE(xdecimal::fromAnyString("abc", &ok).isZero());
    EXPECT_FALSE(ok);
    // A comma is a group separator for the system locale or else a point.
    EXPECT_EQ(xdecimal::fromAnyString("1,5", &ok).toString(), QLocale::system().groupSeparator() == ',' ? "15" : "1.5");
    EXPECT_TRUE(ok);
    EXPECT_EQ(xdecimal("1.5").toExcelString(), "1" + QString(QLocale::system().decimalPoint()) + "5");
}

TEST(xdecimal, DoublesAndVariants)
{
    EXPECT_EQ(xdecimal::fromDouble(2.5, 0).toString(), "3");
    EXPECT_EQ(xdecimal::fromDouble(-0.125, 2).toString(), "-0.13");
    EXPECT_DOUBLE_EQ(xdecimal("-1234.25").toDouble(), -1234.25);
    EXPECT_EQ(thrown([] { xdecimal::fromDouble(1e40, 2); }), "xdecimal:overflow");
    EXPECT_EQ(thrown([] { xdecimal::fromDouble(std::nan(""), 2); }), "xdecimal:nan");

    bool ok = false;
    EXPECT_EQ(xdecimal::fromVariant(QVariant(2), &ok).toString(), "2.00000");
    EXPECT_TRUE(ok);
    EXPECT_EQ(xdecimal::fromVariant(QVariant(QStringLiteral("1.25")), &ok).toString(), "1.25");
    EXPECT_THROW(xdecimal::fromVariant(QVariant(QStringLiteral("x"))), QString);
    xdecimal::fromVariant(QVariant(QByteArray("1")), &ok);
    EXPECT_FALSE(ok);
    xdecimal::fromVariant(QVariant(), &ok);
    EXPECT_TRUE(ok);

    const xdecimal x("-3.75");
    const QVariant v = x.toVariant();
    EXPECT_TRUE(xdecimal::fromVariant(v).isEqual(x));
    EXPECT_TRUE(xdecimal::canConvert(v));
    EXPECT_FALSE(xdecimal::canConvert(QVariant(1.5)));
    EXPECT_EQ(v.value<double>(), -3.75);
    EXPECT_EQ(v.toString(), x.toSystemString());
    EXPECT_TRUE(v == QVariant::fromValue(xdecimal("-3.750")));
    const xdecimal one("1"), more("1.01");
    int order = 0;
    EXPECT_TRUE(QMetaType::compare(&one, &more, xdecimal::metatypeId(), &order));
    EXPECT_EQ(order, -1);
}

TEST(xdecimal, StreamsSixteenRawBytes)
{
    const xdecimal x("-98765432109876543210.123456");
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << x << QVariant::fromValue(x);
    }
    EXPECT_EQ(bytes.left(16), QByteArray(reinterpret_cast<const char *>(x.data()), 16));
    QDataStream in(bytes);
    xdecimal y;
    QVariant v;
    in >> y >> v;
    EXPECT_TRUE(y.isEqual(x));
    EXPECT_TRUE(v.value<xdecimal>().isEqual(x));

    QDataStream truncated(bytes.left(10));
    truncated >> y;
    EXPECT_EQ(truncated.status(), QDataStream::ReadPastEnd);
    EXPECT_TRUE(y.isZero());

    // Bytes whose type word cannot be held are refused when used, not read.
    QByteArray foreign(16, '\0');
    foreign[1] = char(63);
    QDataStream in2(foreign);
    in2 >> y;
    EXPECT_EQ(thrown([&] { y.toString(); }), kBad);
    EXPECT_EQ(thrown([&] { y.compare(x); }), kBad);
    EXPECT_EQ(thrown([&] { (void)(y * x); }), kBad);
}

} // namespace
