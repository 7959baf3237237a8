#ifndef TABLEDB_RUNTIME_UTILS_H
#define TABLEDB_RUNTIME_UTILS_H

#include "runtime/global.h"

#include <QVariant>

// Helpers the library exports for its users; it does not call them itself.

// CRC-64/WE: polynomial 0x42F0E1EBA9EA3693 (ECMA-182), not reflected, initial
// register all ones, result inverted. 0 for zero length. O(length), table-driven.
TABLEDB_EXPORT uint64 qChecksum64(const char *data, unsigned int length);

// Orders `b` against `a`, reading `b` as the type of `a`: negative, 0 or
// positive. An invalid variant is below every valid one. Among Qt types only
// QString, QChar (both with `cs`), Int, Double, QDateTime, QDate and QTime are
// ordered, after QVariant's own equality; decimal, xdecimal and datetime by
// value. Every other type compares as equal (0).
TABLEDB_EXPORT int variant_compare(const QVariant &a, const QVariant &b,
                                   Qt::CaseSensitivity cs = Qt::CaseSensitive);

// `value` converted to the meta-type `type`: Qt types by QVariant::convert
// (a QChar target takes the first character of the text); a Qt value into
// decimal, xdecimal or datetime by their variant or text readers; those three
// into QString by their toString(). Any other pair gives an invalid variant.
// Throws the QString of decimal::fromVariant (or xdecimal's error) on bad text.
TABLEDB_EXPORT QVariant variant_convert(const QVariant &value, unsigned int type);

// Equality of doubles to 1e-12 relative; both within 1e-12 of zero are equal,
// and a value within 1e-12 of zero equals no value outside.
TABLEDB_EXPORT bool commonFuzzyCompare(double a, double b);

#endif // TABLEDB_RUNTIME_UTILS_H
