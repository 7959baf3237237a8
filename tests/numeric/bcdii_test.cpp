#include "numeric/bcdii.h"
#include "numeric/bcdii_p.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

typedef std::vector<int> Bytes;

BCDIIType type(int precision, int scale)
{
    return BCDIIType((precision << 8) | (scale & 0xFF));
}

// A number's bytes padded to 32, so that a faulty write past the type's
// length shows up as a change in the padding.
struct Num
{
    BCDIIType t;
    unsigned char d[32];

    explicit Num(BCDIIType type_, const Bytes &bytes = Bytes())
        : t(type_)
    {
        for (int j = 0; j < 32; ++j)
            d[j] = 0xEE;
        const int n = BCDIITotalBytes(t);
        for (int j = 0; j < n; ++j)
            d[j] = j < int(bytes.size()) ? (unsigned char)bytes[j] : 0;
    }
    Bytes bytes() const
    {
        Bytes out;
        for (int j = 0; j < BCDIITotalBytes(t); ++j)
            out.push_back(d[j]);
        return out;
    }
    bool paddingIntact() const
    {
        for (int j = BCDIITotalBytes(t); j < 32; ++j) {
            if (d[j] != 0xEE)
                return false;
        }
        return true;
    }
    std::string text() const
    {
        char *raw = BCDIIToText(d, t);
        std::string s = raw;
        std::free(raw);
        return s;
    }
};

TEST(BCDIICheck, ClassifiesNumbers)
{
    EXPECT_EQ(BCDIICheck(Num(type(4, 2), {12, 34}).d, type(4, 2)), 0);
    EXPECT_EQ(BCDIICheck(Num(type(4, 2), {0x80 | 12, 34}).d, type(4, 2)), 4);
    EXPECT_EQ(BCDIICheck(Num(type(4, 2), {0, 0}).d, type(4, 2)), 2);
    // Negative zero is malformed.
    EXPECT_EQ(BCDIICheck(Num(type(4, 2), {0x80, 0}).d, type(4, 2)), 32);
    // Odd scale: the last byte holds a tens digit only.
    EXPECT_EQ(BCDIICheck(Num(type(3, 1), {1, 95}).d, type(3, 1)), 32);
    EXPECT_EQ(BCDIICheck(Num(type(3, 1), {1, 90}).d, type(3, 1)), 0);
    // Odd integer digits: the first byte holds one digit.
    EXPECT_EQ(BCDIICheck(Num(type(3, 0), {10, 0}).d, type(3, 0)), 32);
    EXPECT_EQ(BCDIICheck(Num(type(4, 0), {12, 100}).d, type(4, 0)), 32);
    EXPECT_EQ(BCDIICheck(Num(type(4, 0), {101, 0}).d, type(4, 0)), 160);
    // Type words out of range.
    EXPECT_EQ(BCDIICheck(Num(type(4, 0)).d, type(0, 0)), 32);
    EXPECT_EQ(BCDIICheck(Num(type(4, 0)).d, type(64, 0)), 32);
    EXPECT_EQ(BCDIICheck(Num(type(4, 0)).d, type(26, 63)), 32);
    EXPECT_EQ(BCDIICheck(Num(type(4, 0)).d, type(26, -63)), 32);
}

TEST(BCDIILayout, NegativeAndLargeScales)
{
    // 26 digits at scale -62: thirteen bytes.
    EXPECT_EQ(BCDIITotalBytes(0x1AC2), 13);
    Num big(0x1AC2, {5});
    EXPECT_EQ(big.text(), "5" + std::string(86, '0'));
    // More decimals than digits: the first byte lies behind the point.
    Num small(type(26, 30), {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7});
    EXPECT_EQ(small.text(), "." + std::string(29, '0') + "7");
    EXPECT_EQ(BCDIIDigitAt(small.d, small.t, -30), 7);
    EXPECT_EQ(BCDIIDigitAt(small.d, small.t, -29), 0);
    EXPECT_EQ(Num(type(3, -1), {4, 50}).text(), "450");
}

TEST(BCDIIText, LeadingZerosAndScales)
{
    EXPECT_EQ(Num(type(2, 1), {0, 50}).text(), ".5");
    EXPECT_EQ(Num(type(26, 0)).text(), "");
    EXPECT_EQ(Num(type(4, 2), {0, 0}).text(), ".00");
    EXPECT_EQ(Num(type(5, 1), {0x80 | 1, 23, 40}).text(), "-123.4");
    EXPECT_EQ(Num(type(4, 0), {0, 7}).text(), "7");
}

TEST(BCDIIRescale, RoundsHalfUpOnTheWholeRemainder)
{
    const BCDIIType from = type(3, 2), to = type(2, 1);
    struct Case { Bytes in; Bytes out; int status; } cases[] = {
        {{1, 25}, {1, 30}, 64},
        {{0x80 | 1, 25}, {0x80 | 1, 30}, 68},
        {{1, 20}, {1, 20}, 0},
        {{1, 24}, {1, 20}, 64},
        {{0, 4}, {0, 0}, 66},
        {{0, 5}, {0, 10}, 64},
    };
    for (const Case &c : cases) {
        Num dst(to);
        EXPECT_EQ(BCDIIRescale(dst.d, to, Num(from, c.in).d, from, 0), c.status);
        EXPECT_EQ(dst.bytes(), c.out);
        EXPECT_TRUE(dst.paddingIntact());
    }
    // A digit dropped two places down still counts against an exact result.
    Num dst(type(26, 0));
    EXPECT_EQ(BCDIIRescale(dst.d, dst.t, Num(type(4, 2), {1, 1}).d, type(4, 2), 3), 64);
    EXPECT_EQ(dst.text(), "2");
}

TEST(BCDIIRescale, CarryOutOfTheCapacityOverflows)
{
    // 99.5 to scale 0 in two digits.
    Num dst(type(2, 0), {7});
    EXPECT_EQ(BCDIIRescale(dst.d, dst.t, Num(type(3, 1), {99, 50}).d, type(3, 1), 0), 81);
    EXPECT_EQ(dst.d[0], 101);
    // Overflow before any rounding: only the marker is written.
    Num dst2(type(4, 0), {1, 2});
    EXPECT_EQ(BCDIIRescale(dst2.d, dst2.t, Num(type(6, 0), {1, 0, 0}).d, type(6, 0), 0), 17);
    EXPECT_EQ(dst2.bytes(), Bytes({101, 2}));
    // Leading zeros are not counted against the capacity.
    Num dst3(type(2, 0));
    EXPECT_EQ(BCDIIRescale(dst3.d, dst3.t, Num(type(6, 0), {0x80, 0, 42}).d, type(6, 0), 0), 4);
    EXPECT_EQ(dst3.bytes(), Bytes({0x80 | 42}));
}

TEST(BCDIIRound, ModesAroundHalf)
{
    struct Case { Bytes in; int mode; std::string out; int status; } cases[] = {
        {{2, 50}, 0, "3", 64},     {{0x80 | 2, 50}, 0, "-3", 68},
        {{2, 49}, 0, "2", 64},     {{0x80 | 2, 49}, 0, "-2", 68},
        {{2, 50}, 1, "3", 64},     {{0x80 | 2, 50}, 1, "-2", 68},
        {{2, 50}, 2, "2", 64},     {{0x80 | 2, 50}, 2, "-3", 68},
        {{2, 1}, 3, "3", 64},      {{0x80 | 2, 1}, 3, "-3", 68},
        {{2, 99}, 4, "2", 64},     {{0x80 | 2, 99}, 4, "-2", 68},
        {{1, 99}, 4, "1", 64},     {{1, 1}, 3, "2", 64},
        {{0x80 | 1, 99}, 1, "-1", 68}, {{0x80 | 1, 99}, 2, "-2", 68},
        {{2, 50}, 9, "3", 64},     {{2, 0}, 3, "2", 0},
        {{0x80 | 2, 0}, 3, "-2", 4},
    };
    for (const Case &c : cases) {
        Num n(type(4, 2), c.in);
        SCOPED_TRACE(n.text() + " mode " + std::to_string(c.mode));
        Num dst(type(2, 0));
        EXPECT_EQ(BCDIIRescale(dst.d, dst.t, n.d, n.t, c.mode), c.status);
        EXPECT_EQ(dst.text(), c.out);
    }
}

TEST(BCDIIRound, NothingRemains)
{
    // 0.4 rounded to scale -2 (hundreds) in a type with no digits left.
    struct Case { Bytes in; int mode; int status; bool marker; } cases[] = {
        {{40}, 3, 17, true},  {{40}, 0, 66, false}, {{40}, 4, 66, false},
        {{40}, 1, 21, true},  {{40}, 2, 66, false},
        {{0x80 | 40}, 2, 21, true}, {{0x80 | 40}, 1, 66, false},
    };
    for (const Case &c : cases) {
        Num n(type(1, 1), c.in);
        SCOPED_TRACE(c.mode);
        EXPECT_EQ(BCDIIRound(n.d, n.t, -2, c.mode), c.status);
        if (c.marker)
            EXPECT_EQ(n.d[0], 101);
        else
            EXPECT_EQ(BCDIICheck(n.d, n.t), 2);
    }
    // Half a unit that would need an integer digit the type lacks.
    Num half(type(1, 1), {50});
    EXPECT_EQ(BCDIIRound(half.d, half.t, 0, 0), 17);
    EXPECT_EQ(half.d[0], 101);
    Num z(type(4, 2));
    EXPECT_EQ(BCDIIRound(z.d, z.t, 0, 3), 2);
}

TEST(BCDIIIncrement, CarriesAndOverflows)
{
    Num n(type(5, 0), {0, 99, 99});
    EXPECT_EQ(BCDIIIncrement(n.d, n.t, 4), 0);
    EXPECT_EQ(n.bytes(), Bytes({1, 0, 0}));
    Num m(type(5, 0), {0x80 | 9, 99, 99});
    EXPECT_EQ(BCDIIIncrement(m.d, m.t, 4), 17);
    EXPECT_EQ(m.d[0], 101);
    Num t(type(4, 0), {12, 34});
    EXPECT_EQ(BCDIIIncrement(t.d, t.t, 2), 0); // tens
    EXPECT_EQ(t.bytes(), Bytes({12, 44}));
    EXPECT_EQ(BCDIIIncrement(t.d, t.t, 4), 48); // past the number
    EXPECT_TRUE(t.paddingIntact());
}

TEST(BCDIICompare, SameTypeAndAcrossTypes)
{
    const BCDIIType t = type(4, 2);
    EXPECT_EQ(BCDIICompareSame(Num(t, {1, 50}).d, Num(t, {1, 49}).d, t), 1);
    EXPECT_EQ(BCDIICompareSame(Num(t, {0x80 | 1, 50}).d, Num(t, {0x80 | 1, 49}).d, t), -1);
    EXPECT_EQ(BCDIICompareSame(Num(t, {0x80 | 1, 50}).d, Num(t, {0, 1}).d, t), -1);
    EXPECT_EQ(BCDIICompareSame(Num(t, {3, 0}).d, Num(t, {3, 0}).d, t), 0);
    // 1.5 against 1.50 and 0001.50 and 15e-1 in other layouts.
    EXPECT_EQ(BCDIICompareAbs(Num(type(2, 1), {1, 50}).d, type(2, 1), Num(type(8, 2), {0, 0, 1, 50}).d,
                              type(8, 2)), 0);
    EXPECT_EQ(BCDIICompareAbs(Num(type(8, 2), {0, 1, 0, 0}).d, type(8, 2), Num(type(2, 1), {9, 90}).d,
                              type(2, 1)), 1);
    EXPECT_EQ(BCDIICompareAbs(Num(type(2, 1), {9, 90}).d, type(2, 1), Num(type(6, 4), {9, 90, 1}).d,
                              type(6, 4)), -1);
    // One number lying wholly above the other.
    EXPECT_EQ(BCDIICompareAbs(Num(type(2, 0), {5}).d, type(2, 0), Num(type(2, -6), {1}).d,
                              type(2, -6)), -1);
    EXPECT_EQ(BCDIICompareAbs(Num(type(2, 0)).d, type(2, 0), Num(type(2, -6)).d, type(2, -6)), 0);
}

TEST(BCDIIAdd, SignsZerosAndCarries)
{
    const BCDIIType t = type(26, 0);
    Num five(t), minusFive(t), dst(t);
    five.d[12] = 5;
    minusFive.d[0] = 0x80;
    minusFive.d[12] = 5;
    EXPECT_EQ(BCDIIAdd(dst.d, t, five.d, t, minusFive.d, t), 2);
    EXPECT_EQ(BCDIICheck(dst.d, t), 2);

    // 26 nines + 1: the work buffer holds 27 digits, the destination does not.
    Num nines(t, Bytes(13, 99)), one(t);
    one.d[12] = 1;
    EXPECT_EQ(BCDIIAdd(dst.d, t, nines.d, t, one.d, t), 17);
    EXPECT_EQ(dst.d[0], 101);
    EXPECT_TRUE(dst.paddingIntact());
    // The same sum fits one digit more.
    Num wide(type(27, 0));
    EXPECT_EQ(BCDIIAdd(wide.d, wide.t, nines.d, t, one.d, t), 0);
    EXPECT_EQ(wide.text(), "1" + std::string(26, '0'));

    // Mixed scales and signs: 1.5 + -0.25 = 1.25, -1.5 + 0.25 = -1.25.
    Num a(type(2, 1), {1, 50}), b(type(2, 2), {0x80 | 25}), r(type(4, 2));
    EXPECT_EQ(BCDIIAdd(r.d, r.t, a.d, a.t, b.d, b.t), 0);
    EXPECT_EQ(r.text(), "1.25");
    a.d[0] |= 0x80;
    b.d[0] &= 0x7F;
    EXPECT_EQ(BCDIIAdd(r.d, r.t, a.d, a.t, b.d, b.t), 4);
    EXPECT_EQ(r.text(), "-1.25");
    // A borrow across a run of zeros: 1000.00 - 0.01.
    Num big(type(6, 2), {10, 0, 0}), cent(type(2, 2), {0x80 | 1});
    Num r2(type(6, 2));
    EXPECT_EQ(BCDIIAdd(r2.d, r2.t, big.d, big.t, cent.d, cent.t), 0);
    EXPECT_EQ(r2.text(), "999.99");
    // In place, and with a marker operand.
    EXPECT_EQ(BCDIIAdd(big.d, big.t, big.d, big.t, cent.d, cent.t), 0);
    EXPECT_EQ(big.text(), "999.99");
    Num marker(t, {101});
    EXPECT_EQ(BCDIIAdd(dst.d, t, marker.d, t, one.d, t), 176);
}

TEST(BCDIIMultiply, ShortAndLongPathsAgree)
{
    std::mt19937 rng(20240501);
    auto randomNumber = [&rng](BCDIIType t, int significantBytes) {
        Num n(t);
        const int total = BCDIITotalBytes(t);
        const int p = t >> 8, s = int8_t(t & 0xFF);
        for (int j = total - significantBytes; j < total; ++j)
            n.d[j] = (unsigned char)(rng() % 100);
        if ((p - s) & 1)
            n.d[0] %= 10;
        if (s & 1)
            n.d[total - 1] = (unsigned char)(n.d[total - 1] / 10 * 10);
        if (rng() & 1)
            n.d[0] |= 0x80;
        return n;
    };
    int shortRuns = 0;
    for (int i = 0; i < 3000; ++i) {
        const BCDIIType ta = type(26, int(rng() % 13) - 2);
        const BCDIIType tb = type(26, int(rng() % 13) - 2);
        const BCDIIType td = type(26, int(rng() % 13) - 2);
        const int nb = BCDIITotalBytes(tb);
        Num a = randomNumber(ta, BCDIITotalBytes(ta));
        Num b = randomNumber(tb, i % 2 ? 1 + int(rng() % 3) : nb);
        Num viaAuto(td), viaLong(td), viaShort(td);
        const int st = BCDIIMultiply(viaAuto.d, td, a.d, ta, b.d, tb);
        EXPECT_EQ(BCDIIMultiplyLong(viaLong.d, td, a.d, ta, b.d, tb), st);
        EXPECT_EQ(viaLong.bytes(), viaAuto.bytes());
        const int sShort = BCDIIMultiplyShort(viaShort.d, td, a.d, ta, b.d, tb);
        if (sShort != 48) {
            ++shortRuns;
            EXPECT_EQ(sShort, st);
            EXPECT_EQ(viaShort.bytes(), viaAuto.bytes());
        }
        EXPECT_TRUE(viaAuto.paddingIntact());
    }
    EXPECT_GT(shortRuns, 1000);
}

TEST(BCDIIMultiply, ExactProductsAndZeros)
{
    const BCDIIType t = type(26, 0);
    Num dst(t);
    // 99999999 * 99999999 through both paths.
    Num a(type(8, 0), {99, 99, 99, 99});
    EXPECT_EQ(BCDIIMultiply(dst.d, t, a.d, a.t, a.d, a.t), 0);
    EXPECT_EQ(dst.text(), "9999999800000001");
    Num small(type(2, 0), {0x80 | 7});
    EXPECT_EQ(BCDIIMultiply(dst.d, t, a.d, a.t, small.d, small.t), 4);
    EXPECT_EQ(dst.text(), "-699999993");
    Num z(type(4, 2));
    EXPECT_EQ(BCDIIMultiply(dst.d, t, a.d, a.t, z.d, z.t), 2);
    // 1.5 * 1.5 at scale 1 rounds half up.
    Num h(type(2, 1), {1, 50}), r(type(2, 1));
    EXPECT_EQ(BCDIIMultiply(r.d, r.t, h.d, h.t, h.d, h.t), 64);
    EXPECT_EQ(r.text(), "2.3");
    Num marker(t, {101});
    EXPECT_EQ(BCDIIMultiply(dst.d, t, marker.d, t, a.d, a.t), 176);
}

TEST(BCDIIInt64, LimitsBothWays)
{
    const BCDIIType t = type(26, 0);
    const uint64 maxI = uint64(std::numeric_limits<int64>::max());
    Num n(t);
    int64 out = 1;
    EXPECT_EQ(BCDIIFromUInt64(n.d, t, maxI, 0), 0);
    EXPECT_EQ(BCDIIToInt64(&out, n.d, t, 0), 0);
    EXPECT_EQ(out, std::numeric_limits<int64>::max());
    EXPECT_EQ(BCDIIFromUInt64(n.d, t, maxI + 1, 0), 0);
    EXPECT_EQ(BCDIIToInt64(&out, n.d, t, 0), 17);
    n.d[0] |= 0x80;
    EXPECT_EQ(BCDIIToInt64(&out, n.d, t, 0), 4);
    EXPECT_EQ(out, std::numeric_limits<int64>::min());
    // The odd-scale limits: the same integers read at scale 1.
    const BCDIIType t1 = type(26, 1);
    Num m(t1);
    EXPECT_EQ(BCDIIFromUInt64(m.d, t1, maxI, 1), 0);
    EXPECT_EQ(m.text(), "922337203685477580.7");
    EXPECT_EQ(BCDIIToInt64(&out, m.d, t1, 1), 0);
    EXPECT_EQ(out, std::numeric_limits<int64>::max());
    EXPECT_EQ(BCDIIFromUInt64(m.d, t1, maxI + 1, 1), 0);
    EXPECT_EQ(BCDIIToInt64(&out, m.d, t1, 1), 17);
    m.d[0] |= 0x80;
    EXPECT_EQ(BCDIIToInt64(&out, m.d, t1, 1), 4);
    EXPECT_EQ(out, std::numeric_limits<int64>::min());
    // Reading at another scale rounds half up; zero and the marker.
    EXPECT_EQ(BCDIIFromUInt64(m.d, t1, 25, 1), 0);
    EXPECT_EQ(BCDIIToInt64(&out, m.d, t1, 0), 64);
    EXPECT_EQ(out, 3);
    EXPECT_EQ(BCDIIFromUInt64(m.d, t1, 0, 1), 2);
    EXPECT_EQ(BCDIIToInt64(&out, m.d, t1, 0), 2);
    EXPECT_EQ(out, 0);
    m.d[0] = 101;
    EXPECT_EQ(BCDIIToInt64(&out, m.d, t1, 0), 176);
    // A mantissa with more decimals than the destination keeps is cut.
    Num c(type(4, 1));
    EXPECT_EQ(BCDIIFromUInt64(c.d, c.t, 12399, 3), 64);
    EXPECT_EQ(c.text(), "12.3");
}

TEST(BCDIIDouble, BothWays)
{
    const BCDIIType t = type(26, 2);
    Num n(t);
    EXPECT_EQ(BCDIIFromDouble(n.d, 0.0, t), 2);
    EXPECT_EQ(BCDIIFromDouble(n.d, 0.004, t), 2);
    EXPECT_EQ(BCDIIFromDouble(n.d, -1234.5678, t), 4);
    EXPECT_EQ(n.text(), "-1234.57");
    double x = 0;
    EXPECT_EQ(BCDIIToDouble(&x, n.d, t), 4);
    EXPECT_DOUBLE_EQ(x, -1234.57);
    EXPECT_EQ(BCDIIFromDouble(n.d, 1e30, t), 17);
    EXPECT_EQ(n.d[0], 101);
    EXPECT_EQ(BCDIIToDouble(&x, n.d, t), 176);
    EXPECT_EQ(BCDIIFromDouble(n.d, std::nan(""), t), 48);
    EXPECT_EQ(BCDIIFromDouble(n.d, HUGE_VAL, t), 17);
    const BCDIIType odd = type(5, 3);
    Num o(odd);
    EXPECT_EQ(BCDIIFromDouble(o.d, 12.3456, odd), 0);
    EXPECT_EQ(o.text(), "12.346");
    EXPECT_EQ(BCDIIToDouble(&x, o.d, odd), 0);
    EXPECT_DOUBLE_EQ(x, 12.346);
    EXPECT_DOUBLE_EQ(BCDIIPow10(-3), 0.001);
    EXPECT_DOUBLE_EQ(BCDIIPow10(5), 100000.0);
}

TEST(BCDIIParse, FormsOfText)
{
    struct Case { const char *text; int status; std::string out; int scale; } cases[] = {
        {".005", 0, ".005", 3},       {"10.00", 0, "10.00", 2},
        {"  \t-12.5", 4, "-12.5", 1},  {"+007", 0, "7", 0},
        {"1,5", 0, "1.5", 1},         {"3.x", 0, "3", 0},
        {"-0.050", 4, "-.050", 3},    {"12345678901234567890123456", 0,
                                        "12345678901234567890123456", 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        BCDIIType t = 0x1A00;
        Num n(t);
        EXPECT_EQ(BCDIIParse(n.d, &t, c.text), c.status);
        n.t = t;
        EXPECT_EQ(int8_t(t & 0xFF), c.scale);
        EXPECT_EQ(n.text(), c.out);
        EXPECT_TRUE(n.paddingIntact());
    }
}

TEST(BCDIIParse, ZerosFailuresAndAnyLength)
{
    BCDIIType t = 0x1A05;
    Num n(t);
    EXPECT_EQ(BCDIIParse(n.d, &t, "0"), 2);
    EXPECT_EQ(BCDIIParse(n.d, &t, "0.00"), 2);
    EXPECT_EQ(t, 0x1A05); // a zero keeps the type word
    EXPECT_EQ(BCDIIParse(n.d, &t, "-"), 48);
    EXPECT_EQ(n.d[0], 101);
    EXPECT_EQ(BCDIIParse(n.d, &t, ""), 48);

    t = 0x1A00;
    EXPECT_EQ(BCDIIParse(n.d, &t, "123456789012345678901234567"), 17);
    EXPECT_EQ(t, 0x1A00);
    // 20 + 10 digits: the scale comes from the text and leaves 16 integer digits.
    EXPECT_EQ(BCDIIParse(n.d, &t, "12345678901234567890.1234567890"), 17);
    EXPECT_EQ(t, 0x1A0A);

    const std::string zeros(100000, '0');
    const std::string cases[] = {
        std::string(100000, '7'),
        "0." + zeros + "1",
        "1." + zeros,
        zeros + "5",
        "." + zeros,
        std::string(100000, '-'),
    };
    const int expected[] = {17, 17, 17, 0, 2, 48};
    for (int i = 0; i < 6; ++i) {
        t = 0x1A00;
        Num m(t);
        EXPECT_EQ(BCDIIParse(m.d, &t, cases[i].c_str()), expected[i]) << i;
        EXPECT_TRUE(m.paddingIntact());
    }
    // 62 decimals are the most a scale holds.
    t = 0x1A00;
    EXPECT_EQ(BCDIIParse(n.d, &t, ("." + std::string(61, '0') + "5").c_str()), 0);
    EXPECT_EQ(t, type(26, 62));
    t = 0x1A00;
    EXPECT_EQ(BCDIIParse(n.d, &t, ("." + std::string(62, '0') + "5").c_str()), 17);
}

TEST(BCDIICopy, InPlaceAndBadTypeWords)
{
    Num n(type(4, 2), {12, 34});
    EXPECT_EQ(BCDIICopy(n.d, type(4, 1), n.d, n.t), 64);
    n.t = type(4, 1);
    EXPECT_EQ(n.text(), "12.3");
    Num m(type(4, 0), {101});
    Num dst(type(4, 0));
    EXPECT_EQ(BCDIICopy(dst.d, dst.t, m.d, m.t), 176);
    EXPECT_EQ(dst.d[0], 101);
    // Type words that no number has are refused without touching the digits.
    EXPECT_EQ(BCDIICopy(dst.d, type(100, 0), n.d, n.t), 48);
    EXPECT_EQ(BCDIIAdd(dst.d, dst.t, n.d, type(26, 90), n.d, n.t), 48);
    EXPECT_TRUE(dst.paddingIntact());
    char *text = BCDIIToText(n.d, type(0, 0));
    EXPECT_STREQ(text, "");
    std::free(text);
}

} // namespace
