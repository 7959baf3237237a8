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
#include <functional>
#include <random>
#include <string>

void PrintTo(const xdecimal &x, std::ostream *os)
{
    *os << x.toString().toStdString() << " (scale " << x.scale() << ")";
}

namespace {

// An exact reference: sign, decimal digits of the mantissa, scale.
struct Ref
{
    bool neg = false;
    std::string mag = "0";
    int scale = 0;
};

std::string strip(const std::string &m)
{
    const size_t nz = m.find_first_not_of('0');
    return nz == std::string::npos ? "0" : m.substr(nz);
}

int cmpMag(const std::string &a, const std::string &b)
{
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    const int c = a.compare(b);
    return (c > 0) - (c < 0);
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
    return strip(r);
}

std::string mulMag(const std::string &a, const std::string &b)
{
    std::vector<int> r(a.size() + b.size(), 0);
    for (size_t i = 0; i < a.size(); ++i)
        for (size_t j = 0; j < b.size(); ++j)
            r[i + j + 1] += (a[i] - '0') * (b[j] - '0');
    for (size_t k = r.size() - 1; k > 0; --k) {
        r[k - 1] += r[k] / 10;
        r[k] %= 10;
    }
    std::string s;
    for (int v : r)
        s.push_back(char('0' + v));
    return strip(s);
}

Ref make(bool neg, const std::string &mag, int scale)
{
    Ref r;
    r.mag = strip(mag);
    r.neg = neg && r.mag != "0";
    r.scale = scale;
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

// Both at the same scale.
Ref add(const Ref &a, const Ref &b)
{
    if (a.neg == b.neg)
        return make(a.neg, addMag(a.mag, b.mag), a.scale);
    const bool aBigger = cmpMag(a.mag, b.mag) >= 0;
    return make(aBigger ? a.neg : b.neg, aBigger ? addMag(a.mag, b.mag, -1) : addMag(b.mag, a.mag, -1), a.scale);
}

int compare(const Ref &a, const Ref &b)
{
    const int s = std::max(a.scale, b.scale);
    const Ref x = rescale(a, s), y = rescale(b, s);
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

bool throwsBadOperand(const std::function<void()> &f)
{
    try {
        f();
    } catch (const char *message) {
        return std::strcmp(message, "xdecimal:bad operand") == 0;
    }
    return false;
}

TEST(xdecimalReference, TextCompareAndSetScale)
{
    std::mt19937_64 rng(11);
    for (int i = 0; i < 3000; ++i) {
        const Ref a = randomRef(rng), b = randomRef(rng);
        const xdecimal x = toX(a), y = toX(b);
        ASSERT_EQ(x.toString().toStdString(), text(a));
        ASSERT_EQ(x.scale(), a.scale);
        const int c = compare(a, b);
        ASSERT_EQ(x.compare(y), c) << text(a) << " vs " << text(b);
        EXPECT_EQ(x < y, c < 0);
        EXPECT_EQ(x >= y, c >= 0);
        EXPECT_EQ(x == y, c == 0);
        // The exponent form is a true power of ten.
        if (a.scale >= 0 && a.mag != "0") { // a zero takes scale 0 from any exponent
            const std::string e = (a.neg ? "-" : "") + a.mag + "e" + std::to_string(-a.scale);
            EXPECT_EQ(xdecimal::fromString(QString::fromStdString(e)).toString().toStdString(), text(a)) << e;
        }

        const int s = int(i % 30) - 4;
        const Ref r = rescale(a, s);
        xdecimal z = x;
        if (!fits(r)) {
            EXPECT_TRUE(throwsBadOperand([&] { z.setScale(short(s)); }));
            EXPECT_TRUE(z.isEqual(x)); // nothing lost on failure
            continue;
        }
        z.setScale(short(s));
        ASSERT_EQ(z.toString().toStdString(), text(r)) << text(a) << " to " << s;
        ASSERT_EQ(z.scale(), s);
    }
}

TEST(xdecimalReference, SumsDifferencesAndProducts)
{
    std::mt19937_64 rng(12);
    int overflows = 0, refusals = 0, productOverflows = 0, rounded = 0;
    for (int i = 0; i < 6000; ++i) {
        const Ref a = randomRef(rng), b = randomRef(rng);
        const xdecimal x = toX(a), y = toX(b);

        // Products keep the left scale, rounding half up.
        const Ref exact = make(a.neg != b.neg, mulMag(a.mag, b.mag), a.scale + b.scale);
        const Ref p = rescale(exact, a.scale);
        rounded += compare(p, exact) != 0;
        const xdecimal xy = x * y;
        if (!fits(p)) {
            ++productOverflows;
            EXPECT_TRUE(isMarker(xy)) << text(a) << " * " << text(b);
        } else {
            ASSERT_EQ(xy.toString().toStdString(), text(p)) << text(a) << " * " << text(b);
            ASSERT_EQ(xy.scale(), a.scale);
        }

        const bool subtract = i & 1;
        const int s = std::max(a.scale, b.scale);
        if (!fits(rescale(a, s)) || !fits(rescale(b, s))) {
            ++refusals;
            xdecimal z = x;
            EXPECT_TRUE(throwsBadOperand([&] { subtract ? z -= y : z += y; })) << text(a) << " " << text(b);
            EXPECT_TRUE(z.isEqual(x));
            continue;
        }
        const Ref sum = add(rescale(a, s), rescale(make(b.neg != subtract, b.mag, b.scale), s));
        const xdecimal r = subtract ? x - y : x + y;
        if (!fits(sum)) {
            ++overflows;
            EXPECT_TRUE(isMarker(r)) << text(a) << " " << text(b);
            continue;
        }
        ASSERT_EQ(r.toString().toStdString(), text(sum)) << text(a) << (subtract ? " - " : " + ") << text(b);
        ASSERT_EQ(r.scale(), s);
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
    try {
        xdecimal("99999999999999999999").value();
        ADD_FAILURE();
    } catch (const QString &e) {
        EXPECT_EQ(e, "xdecimal:overflow at xdecimal::value");
    }
    EXPECT_TRUE(throwsBadOperand([] { xdecimal(1, 63); }));

    // The 16 bytes: scale, digits, then the kernel's bytes.
    const xdecimal x(-12345, 2);
    const unsigned char *d = x.data();
    const unsigned char expected[16] = {2, 26, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 23, 45, 0};
    EXPECT_EQ(0, std::memcmp(d, expected, 16));
    EXPECT_EQ(&x, x.data());
    EXPECT_TRUE(xdecimal(static_cast<const void *>(d)).isEqual(x));
    QByteArray bytes;
    x.data(bytes);
    EXPECT_EQ(bytes, QByteArray(reinterpret_cast<const char *>(d), 16));

    // Foreign bytes: 63 digits do not fit in 16 bytes; the marker; 27 digits at scale 1 do fit.
    struct Foreign { unsigned char scale, digits, first; bool refused; } foreign[] = {
        {0, 63, 1, true}, {0, 26, 101, true}, {1, 27, 5, false},
    };
    for (const Foreign &f : foreign) {
        const unsigned char raw[16] = {f.scale, f.digits, f.first};
        QString error;
        try {
            xdecimal y(static_cast<const void *>(raw));
        } catch (const QString &e) {
            error = e;
        }
        EXPECT_EQ(error, f.refused ? "xdecimal:BCDIICopy failed at xdecimal::xdecimal" : "") << int(f.digits);
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
    EXPECT_EQ((xdecimal("1.50") * a).toString(), "2.25");
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
    EXPECT_TRUE(throwsBadOperand([&] { nines.setScale(0); }));
}

TEST(xdecimal, FromStringForms)
{
    struct Case { const char *in; const char *out; } cases[] = {
        {"0.5", "0.5"}, {"-0.50", "-0.50"}, {"+12", "12"}, {".5", "0.5"}, {"-.5", "-0.5"},
        {"15e2", "1500"}, {"1.5e2", "150"}, {"1.5e-3", "0.0015"}, {"-25e-1", "-2.5"},
        {"0e999999", "0"}, {"1e99999999999", "1"}, {"007.10", "7.10"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(xdecimal::fromString(QString::fromLatin1(c.in)).toString(), QString::fromLatin1(c.out)) << c.in;

    // Dot texts name their sign in the message; the others do not.
    struct Failure { QString text; const char *sign; } failures[] = {
        {"123456789012345678901234567", nullptr}, {"12345678901234567890.1234567890", ""},
        {"-0." + QString(100000, QLatin1Char('0')) + "1", "-"}, {"5.", nullptr}, {"1,5", nullptr},
        {"1E3", nullptr}, {".", nullptr}, {"-", nullptr}, {"1.5e", nullptr}, {"1e999999", nullptr},
        {QString(100000, QLatin1Char('1')), nullptr}, {QString::fromUtf8("1\xd9\xa3"), nullptr},
        {" 1", nullptr},
    };
    for (const Failure &f : failures) {
        QString expected = QString::fromUtf8("Невозможно создать xdecimal по строке '%1'").arg(f.text);
        if (f.sign)
            expected = QString::fromUtf8("Невозможно создать xdecimal по строке '%1' (%2)").arg(f.text, f.sign);
        try {
            xdecimal::fromString(f.text);
            ADD_FAILURE() << f.text.left(40).toStdString();
        } catch (const QString &e) {
            EXPECT_EQ(e, expected);
        }
    }
    EXPECT_TRUE(xdecimal::canConvert(QStringLiteral("1,5e3"), false));
    EXPECT_TRUE(xdecimal::canConvert(QString(), true));
    EXPECT_FALSE(xdecimal::canConvert(QStringLiteral("1.5.5"), false));
}

TEST(xdecimal, LocaleForms)
{
    const xdecimal x("-1234567.5");
    const QLocale ru(QLocale::Russian, QLocale::Russia);
    const QString g = ru.groupSeparator();
    EXPECT_EQ(xdecimalPrivate::toLocaleString(x, ru), "-1" + g + "234" + g + "567,5");
    EXPECT_EQ(xdecimalPrivate::toLocaleString(xdecimal("123"), ru), "123");
    EXPECT_EQ(xdecimalPrivate::toLocaleString(xdecimal("-123456"), ru), "-123" + g + "456");
    // The C locale omits group separators, and they are printed all the same.
    EXPECT_EQ(xdecimalPrivate::toLocaleString(x, QLocale::c()), "-1,234,567.5");
    const QLocale de(QLocale::German, QLocale::Germany);
    EXPECT_EQ(xdecimalPrivate::toLocaleStringShort(xdecimal("1234.500"), de), "1.234,5");
    EXPECT_EQ(xdecimalPrivate::toLocaleStringShort(xdecimal("2.000"), de), "2");
    EXPECT_EQ(xdecimalPrivate::toLocaleStringShort(xdecimal("100"), de), "100");
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
    for (const auto &c : {std::make_pair(1e40, "xdecimal:overflow"), std::make_pair(std::nan(""), "xdecimal:nan")}) {
        std::string thrown;
        try {
            xdecimal::fromDouble(c.first, 2);
        } catch (const char *e) {
            thrown = e;
        }
        EXPECT_EQ(thrown, c.second);
    }

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
    EXPECT_EQ(QMetaType::typeName(v.userType()), QByteArray("xdecimal"));
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
    EXPECT_TRUE(throwsBadOperand([&] { y.toString(); }));
    EXPECT_TRUE(throwsBadOperand([&] { y.compare(x); }));
    EXPECT_TRUE(throwsBadOperand([&] { (void)(y * x); }));
}

// Any text parses or throws a QString; any 16 bytes with a fitting type word
// work or throw "xdecimal:bad operand". The sanitizer build checks the rest.
TEST(xdecimal, ArbitraryInputIsSafe)
{
    std::mt19937 rng(77);
    const char alphabet[] = "0123456789012345.,+-e \t";
    for (int i = 0; i < 5000; ++i) {
        std::string s;
        const int len = int(rng() % (i % 100 == 0 ? 400 : 40));
        for (int j = 0; j < len; ++j)
            s.push_back(alphabet[rng() % (sizeof(alphabet) - 1)]);
        const QString text = QString::fromStdString(s);
        xdecimal::canConvert(text, false);
        try {
            const xdecimal x = xdecimal::fromString(text);
            // What was read prints and reads back as the same number.
            EXPECT_TRUE(xdecimal::fromString(x.toString()).isEqual(x)) << s;
        } catch (const QString &) {
        }
    }
    for (int i = 0; i < 5000; ++i) {
        unsigned char raw[16];
        for (unsigned char &b : raw)
            b = (unsigned char)rng();
        raw[1] = (unsigned char)(i % 2 ? 26 : rng() % 30);
        try {
            const xdecimal x(static_cast<const void *>(raw));
            const xdecimal y = x * x + x.negative();
            y.toString();
            y.compare(x);
            xdecimal z = x;
            z.setScale(short(int(rng() % 125) - 62));
        } catch (const QString &) {
        } catch (const char *e) {
            EXPECT_STREQ(e, "xdecimal:bad operand");
        }
    }
}

} // namespace
