#ifndef TABLEDB_NUMERIC_BCDII_H
#define TABLEDB_NUMERIC_BCDII_H

#include "runtime/global.h"

// The BCDII kernel: fixed-point decimal numbers held as base-100 bytes, the
// engine under xdecimal.
//
// A number is a type word T and digit bytes d. T's low byte is the scale s
// (signed, digits after the point, -62..62), its high byte the precision p
// (decimal digits, 1..63). d holds ((p | s) & 1) + (p >> 1) bytes, most
// significant first, each 0..99; the decimal point always lies between two
// bytes, so with an odd scale the last byte holds its digit in the tens place,
// and with an odd number of integer digits (p - s) the first byte holds one
// digit. Bit 7 of d[0] is the sign; negative zero is malformed. A first byte of
// 101 is the marker: the number is not a number (overflow, bad parse).
//
// Every function returns a status bit mask and never throws:
//   1 overflow, 2 zero result, 4 negative result, 16 error, 32 malformed
//   operand, 64 inexact (digits dropped), 128 marker operand.
// A destination that cannot hold a result gets the marker in its first byte
// and keeps its other bytes. A type word outside the ranges above is refused
// with 48 (the marker goes to the destination's first byte when it has one).
//
// Rounding modes: 0 half away from zero, 1 toward +infinity, 2 toward
// -infinity, 3 away from zero, 4 truncate; any other value acts as 0.
//
// Buffers are the caller's and must hold the total bytes of their type word.
// Apart from BCDIIToText nothing allocates; all functions are thread-safe.

typedef unsigned short BCDIIType;

enum BCDIIStatus {
    BCDII_Overflow = 1,
    BCDII_Zero = 2,
    BCDII_Negative = 4,
    BCDII_Error = 16,
    BCDII_Malformed = 32,
    BCDII_Inexact = 64,
    BCDII_Marker = 128
};

enum BCDIIRounding {
    BCDII_HalfUp = 0,
    BCDII_Ceiling = 1,
    BCDII_Floor = 2,
    BCDII_Up = 3,
    BCDII_Truncate = 4
};

// The marker value of the first digit byte.
const unsigned char BCDII_MARKER = 101;

// Number of digit bytes of a type word (0 when the precision is 0).
TABLEDB_EXPORT int BCDIITotalBytes(BCDIIType t);

// Validates a number: 0, 2 or 4 for a good one, 160 for the marker, 32 for a
// bad type word, a digit out of place or a negative zero.
TABLEDB_EXPORT int BCDIICheck(const unsigned char *d, BCDIIType t);

// Copies src into dst at dst's type, rounding half up. dst may be src.
// A marker source gives 176.
TABLEDB_EXPORT int BCDIICopy(unsigned char *dst, BCDIIType tdst,
                             const unsigned char *src, BCDIIType tsrc);

// Copies src into dst at dst's type, rounding in `mode` where digits go.
// REQUIRES: dst and src do not overlap.
TABLEDB_EXPORT int BCDIIRescale(unsigned char *dst, BCDIIType tdst,
                                const unsigned char *src, BCDIIType tsrc, int mode);

// Rounds d in place to the lower scale `scale` (dropped digits become zero;
// the type word stays).
TABLEDB_EXPORT int BCDIIRound(unsigned char *d, BCDIIType t, int scale, int mode);

// The digit at power of ten `position` (0 units, -1 tenths); 0 outside the
// number's capacity. Returns the digit, not a status.
TABLEDB_EXPORT int BCDIIDigitAt(const unsigned char *d, BCDIIType t, int position);

// Adds one unit at the digit `index`, counted from the left of the capacity
// (0 is the top digit). Overflow past the top gives the marker and 17.
TABLEDB_EXPORT int BCDIIIncrement(unsigned char *d, BCDIIType t, int index);

// -1, 0 or 1. Both numbers must have the type t (a byte comparison).
TABLEDB_EXPORT int BCDIICompareSame(const unsigned char *a, const unsigned char *b, BCDIIType t);

// -1, 0 or 1 comparing the magnitudes of two numbers of any types.
TABLEDB_EXPORT int BCDIICompareAbs(const unsigned char *a, BCDIIType ta,
                                   const unsigned char *b, BCDIIType tb);

// dst = a + b at dst's type. dst may be a or b.
TABLEDB_EXPORT int BCDIIAdd(unsigned char *dst, BCDIIType tdst,
                            const unsigned char *a, BCDIIType ta,
                            const unsigned char *b, BCDIIType tb);

// dst = |a| + |b| with the sign `negative`. dst may be a or b.
TABLEDB_EXPORT int BCDIIAddAbs(unsigned char *dst, BCDIIType tdst,
                               const unsigned char *a, BCDIIType ta,
                               const unsigned char *b, BCDIIType tb, bool negative);

// dst = |a| - |b| with the sign `negative`. REQUIRES: |a| >= |b|.
// dst may be a or b.
TABLEDB_EXPORT int BCDIISubAbs(unsigned char *dst, BCDIIType tdst,
                               const unsigned char *a, BCDIIType ta,
                               const unsigned char *b, BCDIIType tb, bool negative);

// dst = a * b at dst's type, rounded half up. dst may be a or b. A multiplier
// of up to six significant digits takes a single pass; longer ones go through
// base-10000 limbs.
TABLEDB_EXPORT int BCDIIMultiply(unsigned char *dst, BCDIIType tdst,
                                 const unsigned char *a, BCDIIType ta,
                                 const unsigned char *b, BCDIIType tb);

// dst = value / 10^scale, truncating digits that dst's scale cannot hold.
TABLEDB_EXPORT int BCDIIFromUInt64(unsigned char *dst, BCDIIType tdst, uint64 value, int scale);

// *out = the number times 10^scale, rounded half up. 17 when it does not fit
// in a signed 64-bit integer; 176 for a marker. *out is 0 on any failure.
TABLEDB_EXPORT int BCDIIToInt64(int64 *out, const unsigned char *d, BCDIIType t, int scale);

// dst = x rounded half up to dst's scale. 17 when it does not fit; 48 for a NaN.
TABLEDB_EXPORT int BCDIIFromDouble(unsigned char *dst, double x, BCDIIType tdst);

// *out = the number as a double (0.0 on failure).
TABLEDB_EXPORT int BCDIIToDouble(double *out, const unsigned char *d, BCDIIType t);

// 10^n, one factor of ten at a time.
TABLEDB_EXPORT double BCDIIPow10(int n);

// Reads [blanks][+-]digits[.|,digits] from NUL-terminated text and stops at the
// first character that does not fit. Replaces the scale byte of *t by the
// number of fraction digits (a zero keeps *t). More integer digits than *t can
// hold, or more than 62 fraction digits, give the marker and 17 with *t
// unchanged; text without digits gives the marker and 48. Any length of text
// is safe. The scale read decides the size of the result, so dst must hold
// (p >> 1) + 1 bytes, the most that precision p takes at any scale.
TABLEDB_EXPORT int BCDIIParse(unsigned char *dst, BCDIIType *t, const char *text);

// The number as NUL-terminated text, "-" and digits with no leading zeros
// (0.5 is ".5", zero at scale 0 is ""). Allocated with malloc: the caller
// frees it with free(). Null only when memory runs out.
TABLEDB_EXPORT char *BCDIIToText(const unsigned char *d, BCDIIType t);

#endif // TABLEDB_NUMERIC_BCDII_H
