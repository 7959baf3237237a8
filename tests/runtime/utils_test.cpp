#include "runtime/utils.h"

#include <QByteArray>

#include <gtest/gtest.h>

#include <limits>
#include <random>

// The table-driven CRC against a register shifted bit by bit, which shares
// nothing with the table.
TEST(Checksum64, MatchesTheCheckValueAndABitwiseRegister)
{
    EXPECT_EQ(qChecksum64("123456789", 9), Q_UINT64_C(0x62EC59E3F1A4F00A));
    EXPECT_EQ(qChecksum64(nullptr, 0), 0u);

    std::mt19937 random(20190101);
    for (int length = 1; length < 600; length += 7) {
        QByteArray data(length, '\0');
        uint64 crc = ~uint64(0);
        for (char &c : data) {
            c = char(random());
            crc ^= uint64(uchar(c)) << 56;
            for (int bit = 0; bit < 8; ++bit)
                crc = (crc >> 63) ? (crc << 1) ^ Q_UINT64_C(0x42F0E1EBA9EA3693) : crc << 1;
        }
        ASSERT_EQ(qChecksum64(data.constData(), uint(data.size())), ~crc) << length;
    }
}

TEST(FuzzyCompare, RelativeTolerance1e12AndAZeroBand)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct { double a, b; bool equal; } cases[] = {
        {0.0, 1e-13, true}, {0.0, 1e-11, false}, {1.0, 1.0 + 1e-13, true}, {1.0, 1.0 + 1e-11, false},
        {0.0, -0.0, true}, {-1e-12, 1e-12, true}, {1e-12, 1.1e-12, false}, {-5.0, -5.0, true}, {-5.0, 5.0, false},
        {1e300, 1e300 * (1 + 1e-13), true}, {1e-6, 1e-6 + 1e-19, true}, {1e-6, 1e-6 + 1e-17, false},
        {nan, nan, false}, {nan, 1.0, false},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(commonFuzzyCompare(c.a, c.b), c.equal) << c.a << " vs " << c.b;
        EXPECT_EQ(commonFuzzyCompare(c.b, c.a), c.equal) << c.b << " vs " << c.a;
    }
}
