#ifndef TABLEDB_RUNTIME_ELAPSED_P_H
#define TABLEDB_RUNTIME_ELAPSED_P_H

#include "numeric/decimal.h"

// The share of `own` in `total` nanoseconds, in percent with two decimals, as
// tables and indexes report it. The unit is truncated, so a share of all the
// time reads a little above 100 when `total` is not a multiple of 10000.
inline decimal elapsedPercent(int64 own, int64 total)
{
    const int64 unit = total / 10000;
    if (unit == 0)
        return decimal::zero;
    int64 v = own / unit;
    short scale = 2;
    while ((v & 0x7F00000000000000LL) != 0 && scale >= -63) {
        --scale;
        v /= 10;
    }
    return decimal(v, scale);
}

#endif // TABLEDB_RUNTIME_ELAPSED_P_H
