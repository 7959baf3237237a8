#ifndef TABLEDB_RUNTIME_UTILS_H
#define TABLEDB_RUNTIME_UTILS_H

#include "runtime/global.h"

#include <QVariant>

// Helpers the library exports for its users; it does not call them itself.

// CRC-64/WE: polynomial 0x42F0E1EBA9EA3693 (ECMA-182), not reflected, initial
// register all ones, result inverted. 0 for zero length. O(length), table-driven.
TABLEDB_EXPORT uint64 qChecksum64(const char *data, unsigned int length);

// Equality of doubles to 1e-12 relative; both within 1e-12 of zero are equal,
// and a value within 1e-12 of zero equals no value outside.
TABLEDB_EXPORT bool commonFuzzyCompare(double a, double b);

#endif // TABLEDB_RUNTIME_UTILS_H
