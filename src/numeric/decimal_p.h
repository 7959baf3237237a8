#ifndef TABLEDB_NUMERIC_DECIMAL_P_H
#define TABLEDB_NUMERIC_DECIMAL_P_H

#include <QRegExp>

// The five text patterns of decimal, built once (library start-up, or the first
// use if that comes earlier) and never changed afterwards. QRegExp keeps its
// match state in the object, so every reader matches on a copy of its own; the
// shared objects are only copied from, which is safe across threads.
class DecimalPatterns
{
public:
    static const DecimalPatterns &instance();

    QRegExp integer;       // "-12"
    QRegExp dot;           // "-1.25", ".5"
    QRegExp dotExponent;   // "125e2", "1.25e-3": the exponent is read as a scale
    QRegExp comma;         // "1,25": accepted by canConvert only
    QRegExp commaExponent; // "1,25e2": accepted by canConvert only

private:
    DecimalPatterns();
};

#endif // TABLEDB_NUMERIC_DECIMAL_P_H
