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

    explicit Num(BCDIIType type_, const Bytes &bytes = Bytes()) : t(type_)
    {
        for (int j = 0; j < 32; ++j)
            d[j] = j < BCDIITotalBytes(t) ? (j < int(bytes.size()) ? (unsigned char)bytes[j] : 0) : 0xEE;
    }
    Bytes bytes() const { return Bytes(d, d + BCDIITotalBytes(t)); }
    bool paddingIntact() const
    {
        for (int j = BCDIITotalBytes(t); j < 32; ++j)
            if (d[j] != 0xEE)
                return false;
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
    struct Case { BCDIIType t; Bytes in; int status; } cases[] = {
        {type(4, 2), {12, 34}, 0}, {type(4, 2), {0x80 | 12, 34}, 4}, {type(4, 2), {0, 0}, 2},
        {type(4, 2), {0x80, 0}, 32},               // negative zero
        {type(3, 1), {1, 95}, 32}, {type(3, 1), {1, 90}, 0}, // odd scale: a tens digit only at the end
        {type(3, 0), {10, 0}, 32}, {type(4, 0), {12, 100}, 32}, // one digit up front; bytes over 99
        {type(4, 0), {101, 0}, 160},
        {type(0, 0), {}, 32}, {type(64, 0), {}, 32}, {type(26, 63), {}, 32}, {type(26, -63), {}, 32},
    };
    for (const Case &c : cases) {
        Num n(type(4, 0), c.in);
        EXPECT_EQ(BCDIICheck(n.d, c.t), c.status) << std::hex << c.t;
    }
}

TEST(BCDIIText, LayoutsAndLeadingZeros)
{
    EXPECT_EQ(BCDIITotalBytes(0x1AC2), 13); // 26 digits at scale -62
    EXPECT_EQ(Num(0x1AC2, {5}).text(), "5" + std::string(86, '0'));
    // More decimals than digits: the first byte lies behind the point.
    Num small(type(26, 30), {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7});
    EXPECT_EQ(small.text(), "." + std::string(29, '0') + "7");
    EXPECT_EQ(BCDIIDigitAt(small.d, small.t, -30), 7);
    EXPECT_EQ(BCDIIDigitAt(small.d, small.t, -29), 0);
    EXPECT_EQ(Num(type(3, -1), {4, 50}).text(), "450");
    // No integer zeros: 0.5 is ".5", zero is "" at scale 0 and ".00" at scale 2.
    EXPECT_EQ(Num(type(2, 1), {0, 50}).text(), ".5");
    EXPECT_EQ(Num(type(26, 0)).text(), "");
    EXPECT_EQ(Num(type(4, 2), {0, 0}).text(), ".00");
    EXPECT_EQ(Num(type(5, 1), {0x80 | 1, 23, 40}).text(), "-123.4");
    char *text = BCDIIToText(small.d, type(0, 0));
    EXPECT_STREQ(text, "");
    std::free(text);
}

TEST(BCDIIRescale, RoundsOnTheWholeRemainderInEveryMode)
{
    // 3.2 -> 2.1, half up.
    struct Exact { Bytes in; Bytes out; int status; } exact[] = {
        {{1, 25}, {1, 30}, 64}, {{0x80 | 1, 25}, {0x80 | 1, 30}, 68}, {{1, 20}, {1, 20}, 0},
        {{1, 24}, {1, 20}, 64}, {{0, 4}, {0, 0}, 66}, {{0, 5}, {0, 10}, 64},
    };
    for (const Exact &c : exact) {
        Num dst(type(2, 1));
        EXPECT_EQ(BCDIIRescale(dst.d, dst.t, Num(type(3, 2), c.in).d, type(3, 2), 0), c.status);
        EXPECT_EQ(dst.bytes(), c.out);
        EXPECT_TRUE(dst.paddingIntact());
    }
    // 4.2 -> 2.0 in each mode.
    struct Mode { Bytes in; int mode; std::string out; int status; } modes[] = {
        {{2, 50}, 0, "3", 64},     {{0x80 | 2, 50}, 0, "-3", 68},
        {{2, 49}, 0, "2", 64},     {{0x80 | 2, 49}, 0, "-2", 68},
        {{2, 50}, 1, "3", 64},     {{0x80 | 2, 50}, 1, "-2", 68},
        {{2, 50}, 2, "2", 64},     {{0x80 | 2, 50}, 2, "-3", 68},
        {{2, 1}, 3, "3", 64},      {{0x80 | 2, 1}, 3, "-3", 68},
        {{2, 99}, 4, "2", 64},     {{0x80 | 2, 99}, 4, "-2", 68},
        {{0x80 | 1, 99}, 1, "-1", 68}, {{0x80 | 1, 99}, 2, "-2", 68},
        {{2, 50}, 9, "3", 64},     {{2, 0}, 3, "2", 0},
    };
    for (const Mode &c : modes) {
        Num n(type(4, 2), c.in), dst(type(2, 0));
        EXPECT_EQ(BCDIIRescale(dst.d, dst.t, n.d, n.t, c.mode), c.status) << n.text() << " mode " << c.mode;
        EXPECT_EQ(dst.text(), c.out) << n.text() << " mode " << c.mode;
    }
    // A digit dropped two places down still counts against an exact result.
    Num dst(type(26, 0));
    EXPECT_EQ(BCDIIRescale(dst.d, dst.t, Num(type(4, 2), {1, 1}).d, type(4, 2), 3), 64);
    EXPECT_EQ(dst.text(), "2");
}

TEST(BCDIIRescale, OverflowAndNothingRemaining)
{
    // 99.5 to scale 0 in two digits: the carry leaves the capacity.
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

    // 0.4 rounded to hundreds in a type with no digits left; 0.5 to units likewise.
    struct Case { Bytes in; int scale, mode, status; } cases[] = {
        {{40}, -2, 3, 17}, {{40}, -2, 0, 66}, {{40}, -2, 4, 66}, {{40}, -2, 1, 21}, {{40}, -2, 2, 66},
        {{0x80 | 40}, -2, 2, 21}, {{0x80 | 40}, -2, 1, 66}, {{50}, 0, 0, 17},
    };
    for (const Case &c : cases) {
        Num n(type(1, 1), c.in);
        EXPECT_EQ(BCDIIRound(n.d, n.t, c.scale, c.mode), c.status) << c.mode;
        EXPECT_EQ(BCDIICheck(n.d, n.t), c.status & 1 ? 160 : 2) << c.mode;
    }
    Num z(type(4, 2));
    EXPECT_EQ(BCDIIRound(z.d, z.t, 0, 3), 2);
}

TEST(BCDIICompare, SameTypeAndAcrossTypes)
{
    const BCDIIType t = type(4, 2);
    const struct { Bytes a, b; int result; } same[] = {
        {{1, 50}, {1, 49}, 1}, {{0x80 | 1, 50}, {0x80 | 1, 49}, -1}, {{0x80 | 1, 50}, {0, 1}, -1}, {{3, 0}, {3, 0}, 0}};
    for (const auto &c : same)
        EXPECT_EQ(BCDIICompareSame(Num(t, c.a).d, Num(t, c.b).d, t), c.result) << Num(t, c.a).text();
    // Magnitudes in other layouts: 1.5 = 0001.50, 100.00 > 9.9 < 9.9001,
    // 5 < 1e6 (wholly above), and zeros of both.
    struct Case { Num a, b; int result; } cases[] = {
        {Num(type(2, 1), {1, 50}), Num(type(8, 2), {0, 0, 1, 50}), 0},
        {Num(type(8, 2), {0, 1, 0, 0}), Num(type(2, 1), {9, 90}), 1},
        {Num(type(2, 1), {9, 90}), Num(type(6, 4), {9, 90, 1}), -1},
        {Num(type(2, 0), {5}), Num(type(2, -6), {1}), -1},
        {Num(type(2, 0)), Num(type(2, -6)), 0},
    };
    for (const Case &c : cases)
        EXPECT_EQ(BCDIICompareAbs(c.a.d, c.a.t, c.b.d, c.b.t), c.result) << c.a.text() << " vs " << c.b.text();
}

TEST(BCDIIAdd, CapacityInPlaceAndMarkers)
{
    const BCDIIType t = type(26, 0);
    // 26 nines + 1: the work buffer holds 27 digits, the destination does not.
    Num nines(t, Bytes(13, 99)), one(t), dst(t);
    one.d[12] = 1;
    EXPECT_EQ(BCDIIAdd(dst.d, t, nines.d, t, one.d, t), 17);
    EXPECT_EQ(dst.d[0], 101);
    EXPECT_TRUE(dst.paddingIntact());
    Num wide(type(27, 0));
    EXPECT_EQ(BCDIIAdd(wide.d, wide.t, nines.d, t, one.d, t), 0);
    EXPECT_EQ(wide.text(), "1" + std::string(26, '0'));

    // Mixed precisions and signs: -1.5 + 0.25 = -1.25; then 1000.00 - 0.01 in place.
    Num a(type(2, 1), {0x80 | 1, 50}), b(type(2, 2), {25}), r(type(4, 2));
    EXPECT_EQ(BCDIIAdd(r.d, r.t, a.d, a.t, b.d, b.t), 4);
    EXPECT_EQ(r.text(), "-1.25");
    Num big(type(6, 2), {10, 0, 0}), cent(type(2, 2), {0x80 | 1});
    EXPECT_EQ(BCDIIAdd(big.d, big.t, big.d, big.t, cent.d, cent.t), 0);
    EXPECT_EQ(big.text(), "999.99");
    EXPECT_TRUE(big.paddingIntact());

    Num marker(t, {101});
    EXPECT_EQ(BCDIIAdd(dst.d, t, marker.d, t, one.d, t), 176);
    // Type words that no number has are refused without touching the digits.
    EXPECT_EQ(BCDIIAdd(dst.d, dst.t, r.d, type(26, 90), r.d, r.t), 48);
    EXPECT_EQ(BCDIICopy(dst.d, type(100, 0), r.d, r.t), 48);
    EXPECT_TRUE(dst.paddingIntact());
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
        const BCDIIType ta = type(26, int(rng() % 13) - 2), tb = type(26, int(rng() % 13) - 2);
        const BCDIIType td = type(26, int(rng() % 13) - 2);
        Num a = randomNumber(ta, BCDIITotalBytes(ta));
        Num b = randomNumber(tb, i % 2 ? 1 + int(rng() % 3) : BCDIITotalBytes(tb));
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

    // Exact products, statuses of sign, zero, rounding and marker.
    const BCDIIType t = type(26, 0);
    Num dst(t), a(type(8, 0), {99, 99, 99, 99}), small(type(2, 0), {0x80 | 7}), z(type(4, 2));
    EXPECT_EQ(BCDIIMultiply(dst.d, t, a.d, a.t, small.d, small.t), 4);
    EXPECT_EQ(dst.text(), "-699999993");
    EXPECT_EQ(BCDIIMultiply(dst.d, t, a.d, a.t, z.d, z.t), 2);
    Num h(type(2, 1), {1, 50}), r(type(2, 1));
    EXPECT_EQ(BCDIIMultiply(r.d, r.t, h.d, h.t, h.d, h.t), 64);
    EXPECT_EQ(r.text(), "2.3");
    Num marker(t, {101});
    EXPECT_EQ(BCDIIMultiply(dst.d, t, marker.d, t, a.d, a.t), 176);
}

TEST(BCDIIInt64, LimitsBothWaysAtEvenAndOddScales)
{
    const uint64 maxI = uint64(std::numeric_limits<int64>::max());
    int64 out = 1;
    for (int scale : {0, 1}) {
        SCOPED_TRACE(scale);
        Num n(type(26, scale));
        EXPECT_EQ(BCDIIFromUInt64(n.d, n.t, maxI, scale), 0);
        EXPECT_EQ(n.text(), scale ? "922337203685477580.7" : "9223372036854775807");
        EXPECT_EQ(BCDIIToInt64(&out, n.d, n.t, scale), 0);
        EXPECT_EQ(out, std::numeric_limits<int64>::max());
        EXPECT_EQ(BCDIIFromUInt64(n.d, n.t, maxI + 1, scale), 0);
        EXPECT_EQ(BCDIIToInt64(&out, n.d, n.t, scale), 17);
        EXPECT_EQ(out, 0);
        n.d[0] |= 0x80;
        EXPECT_EQ(BCDIIToInt64(&out, n.d, n.t, scale), 4);
        EXPECT_EQ(out, std::numeric_limits<int64>::min());
    }
    // Reading at another scale rounds half up; zero and the marker.
    Num m(type(26, 1));
    EXPECT_EQ(BCDIIFromUInt64(m.d, m.t, 25, 1), 0);
    EXPECT_EQ(BCDIIToInt64(&out, m.d, m.t, 0), 64);
    EXPECT_EQ(out, 3);
    EXPECT_EQ(BCDIIFromUInt64(m.d, m.t, 0, 1), 2);
    EXPECT_EQ(BCDIIToInt64(&out, m.d, m.t, 0), 2);
    m.d[0] = 101;
    EXPECT_EQ(BCDIIToInt64(&out, m.d, m.t, 0), 176);
    // A mantissa with more decimals than the destination keeps is cut.
    Num c(type(4, 1));
    EXPECT_EQ(BCDIIFromUInt64(c.d, c.t, 12399, 3), 64);
    EXPECT_EQ(c.text(), "12.3");
}

TEST(BCDIIDouble, BothWays)
{
    Num n(type(26, 2)), o(type(5, 3));
    double x = 0;
    EXPECT_EQ(BCDIIFromDouble(n.d, 0.004, n.t), 2);
    EXPECT_EQ(BCDIIFromDouble(n.d, -1234.5678, n.t), 4);
    EXPECT_EQ(n.text(), "-1234.57");
    EXPECT_EQ(BCDIIToDouble(&x, n.d, n.t), 4);
    EXPECT_DOUBLE_EQ(x, -1234.57);
    EXPECT_EQ(BCDIIFromDouble(o.d, 12.3456, o.t), 0); // odd scale
    EXPECT_EQ(o.text(), "12.346");
    EXPECT_EQ(BCDIIToDouble(&x, o.d, o.t), 0);
    EXPECT_DOUBLE_EQ(x, 12.346);
    EXPECT_EQ(BCDIIFromDouble(n.d, 1e30, n.t), 17);
    EXPECT_EQ(n.d[0], 101);
    EXPECT_EQ(BCDIIToDouble(&x, n.d, n.t), 176);
    EXPECT_EQ(BCDIIFromDouble(n.d, std::nan(""), n.t), 48);
    EXPECT_EQ(BCDIIFromDouble(n.d, HUGE_VAL, n.t), 17);
}

TEST(BCDIIParse, FormsOfText)
{
    const std::string zeros(100000, '0');
    // scale -1: unchanged, as a zero or a failure keeps the type word.
    struct Case { std::string text; int status; std::string out; int scale; } cases[] = {
        {".005", 0, ".005", 3},          {"10.00", 0, "10.00", 2},
        {"  \t-12.5", 4, "-12.5", 1},     {"+007", 0, "7", 0},
        {"1,5", 0, "1.5", 1},            {"3.x", 0, "3", 0},
        {"-0.050", 4, "-.050", 3},       {"12345678901234567890123456", 0, "12345678901234567890123456", 0},
        {"0.00", 2, "", -1},             {zeros + "5", 0, "5", 0},
        {"." + zeros, 2, "", -1},        {"." + std::string(61, '0') + "5", 0, "", 62},
        // Too long for the type, or for the scale byte.
        {"123456789012345678901234567", 17, "", -1}, {std::string(100000, '7'), 17, "", -1},
        {"0." + zeros + "1", 17, "", -1}, {"1." + zeros, 17, "", -1},
        {"." + std::string(62, '0') + "5", 17, "", -1},
        // No digits.
        {"", 48, "", -1}, {"-", 48, "", -1}, {std::string(100000, '-'), 48, "", -1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text.substr(0, 40));
        BCDIIType t = 0x1A00;
        Num n(t);
        EXPECT_EQ(BCDIIParse(n.d, &t, c.text.c_str()), c.status);
        EXPECT_EQ(int8_t(t & 0xFF), c.scale < 0 ? 0 : c.scale);
        n.t = t; // an odd scale takes one byte more
        EXPECT_TRUE(n.paddingIntact());
        if (c.status & (1 | 16)) {
            EXPECT_EQ(n.d[0], 101);
        }
        if (!c.out.empty()) {
            EXPECT_EQ(n.text(), c.out);
        }
    }
    // 20 + 10 digits: the scale comes from the text and leaves 16 integer digits.
    BCDIIType t = 0x1A00;
    Num n(t);
    EXPECT_EQ(BCDIIParse(n.d, &t, "12345678901234567890.1234567890"), 17);
    EXPECT_EQ(t, 0x1A0A);
}

TEST(BCDIIIncrement, CarriesOverflowsAndCopies)
{
    Num n(type(5, 0), {0, 99, 99}), m(type(5, 0), {0x80 | 9, 99, 99}), t(type(4, 0), {12, 34});
    EXPECT_EQ(BCDIIIncrement(n.d, n.t, 4), 0);
    EXPECT_EQ(n.bytes(), Bytes({1, 0, 0}));
    EXPECT_EQ(BCDIIIncrement(m.d, m.t, 4), 17);
    EXPECT_EQ(m.d[0], 101);
    EXPECT_EQ(BCDIIIncrement(t.d, t.t, 2), 0); // tens
    EXPECT_EQ(t.bytes(), Bytes({12, 44}));
    EXPECT_EQ(BCDIIIncrement(t.d, t.t, 4), 48); // past the number
    EXPECT_TRUE(t.paddingIntact());

    // Copy in place to a lower scale, and of the marker.
    Num c(type(4, 2), {12, 34}), dst(type(4, 0));
    EXPECT_EQ(BCDIICopy(c.d, type(4, 1), c.d, c.t), 64);
    c.t = type(4, 1);
    EXPECT_EQ(c.text(), "12.3");
    EXPECT_EQ(BCDIICopy(dst.d, dst.t, Num(type(4, 0), {101}).d, type(4, 0)), 176);
    EXPECT_EQ(dst.d[0], 101);
}

} // namespace
