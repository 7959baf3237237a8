#ifndef TABLEDB_NUMERIC_BCDII_P_H
#define TABLEDB_NUMERIC_BCDII_P_H

#include "numeric/bcdii.h"

// The two multiplication paths of BCDIIMultiply, callable on their own so that
// they can be checked against each other on the same operands.

// The single-pass path. REQUIRES: one operand has at most three significant
// bytes; otherwise 48 and the marker.
TABLEDB_EXPORT int BCDIIMultiplyShort(unsigned char *dst, BCDIIType tdst,
                                      const unsigned char *a, BCDIIType ta,
                                      const unsigned char *b, BCDIIType tb);

// The base-10000 path, for any operands.
TABLEDB_EXPORT int BCDIIMultiplyLong(unsigned char *dst, BCDIIType tdst,
                                     const unsigned char *a, BCDIIType ta,
                                     const unsigned char *b, BCDIIType tb);

#endif // TABLEDB_NUMERIC_BCDII_P_H
