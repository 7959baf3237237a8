#include "runtime/utils.h"

#include <algorithm>
#include <cmath>

namespace {

struct Crc64Table
{
    uint64 entries[256];

    Crc64Table()
    {
        const uint64 polynomial = Q_UINT64_C(0x42F0E1EBA9EA3693);
        for (int i = 0; i < 256; ++i) {
            uint64 crc = uint64(i) << 56;
            for (int bit = 0; bit < 8; ++bit)
                crc = (crc & (Q_UINT64_C(1) << 63)) ? (crc << 1) ^ polynomial : crc << 1;
            entries[i] = crc;
        }
    }
};

} // namespace

uint64 qChecksum64(const char *data, unsigned int length)
{
    if (length == 0)
        return 0;
    static const Crc64Table table;
    uint64 crc = ~uint64(0);
    const unsigned char *p = reinterpret_cast<const unsigned char *>(data);
    for (unsigned int i = 0; i < length; ++i)
        crc = table.entries[(crc >> 56) ^ p[i]] ^ (crc << 8);
    return ~crc;
}

bool commonFuzzyCompare(double a, double b)
{
    const double limit = 1e-12;
    const bool aNull = std::fabs(a) <= limit;
    const bool bNull = std::fabs(b) <= limit;
    if (aNull || bNull)
        return aNull && bNull;
    return std::fabs(a - b) * 1e12 <= std::min(std::fabs(a), std::fabs(b));
}
