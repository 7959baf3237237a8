#ifndef TABLEDB_NUMERIC_XDECIMAL_P_H
#define TABLEDB_NUMERIC_XDECIMAL_P_H

#include "numeric/xdecimal.h"

#include <QRegExp>

class QLocale;

// The statics of xdecimal: the five text patterns (library start-up step 6)
// and the bounds (step 7). Each is built on first use if that comes before the
// start-up, and never changes afterwards. QRegExp keeps its match state in the
// object, so readers match on copies; the shared objects are only copied from.
class TABLEDB_EXPORT xdecimalPrivate
{
public:
    struct Patterns
    {
        Patterns();

        QRegExp integer;       // "-12"
        QRegExp dot;           // "-1.25", ".5"
        QRegExp exponent;      // "125e2", "1.25e-3": a power of ten
        QRegExp comma;         // "1,25": accepted by canConvert only
        QRegExp commaExponent; // "1,25e2": accepted by canConvert only
    };

    static const Patterns &patterns();
    static const xdecimalPrivate &bounds();

    // toSystemString and toSystemStringShort with the locale given.
    static QString toLocaleString(const xdecimal &value, const QLocale &locale);
    static QString toLocaleStringShort(const xdecimal &value, const QLocale &locale);

    xdecimal minimum; // -(10^26 - 1) x 10^62
    xdecimal maximum; // (10^26 - 1) x 10^62

private:
    xdecimalPrivate();
};

#endif // TABLEDB_NUMERIC_XDECIMAL_P_H
