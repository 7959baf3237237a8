#ifndef TABLEDB_NUMERIC_DECIMAL_H
#define TABLEDB_NUMERIC_DECIMAL_H

#include "runtime/global.h"

#include <QCoreApplication>
#include <QMetaType>
#include <QString>
#include <QVariant>

class QDataStream;
class QLocale;
class QStringRef;

// An exact scaled integer in one 64-bit word ("56s7"): bit 63 is the sign,
// bits 56..62 a two's complement scale (-64..63, the number of decimal places),
// bits 0..55 the low bits of the mantissa. The word is what rows, keys and table
// files store, so its layout is a storage format.
//
// Errors are thrown as a QString by value (bad text, locale failure, fromDouble
// out of range). Arithmetic never throws: a positive overflow drops digits, a
// negative one wraps.
class TABLEDB_EXPORT decimal
{
    Q_DECLARE_TR_FUNCTIONS(decimal)

public:
    constexpr decimal() : m_data(0) { }
    // The normalising pack: a positive value that does not fit 56 bits loses
    // digits (and scale) until it fits.
    decimal(int64 value, short scale) { set(value, scale); }
    explicit decimal(const QString &text);
    explicit decimal(const QStringRef &text);

    void set(int64 value, short scale);

    constexpr int64 data() const { return m_data; }
    constexpr int64 to56s7() const { return m_data; }
    static constexpr decimal from56s7(int64 word)
    {
        decimal d;
        d.m_data = word;
        return d;
    }

    int64 value() const
    {
        return (m_data < 0) ? (m_data | int64(0xFF00000000000000ULL))
                            : (m_data & int64(0x00FFFFFFFFFFFFFFULL));
    }
    short scale() const { return short(int8_t(uint8_t(uint64(m_data) >> 56) << 1) >> 1); }

    bool isZero() const { return (uint64(m_data) & 0x80FFFFFFFFFFFFFFULL) == 0; }
    // Identical words: 1.0 and 1.00 are equal numbers but not isEqual.
    bool isEqual(const decimal &other) const { return m_data == other.m_data; }
    // -1, 0 or 1 in numeric order across scales. Numbers more than 16 orders
    // apart in scale are ordered by scale alone; saved orders rely on that.
    // At equal scale this is one comparison of the words.
    int compare(const decimal &other) const
    {
        if (((uint64(m_data) ^ uint64(other.m_data)) & 0x7F00000000000000ULL) == 0)
            return (m_data > other.m_data) - (m_data < other.m_data);
        return compareScaled(other);
    }

    bool operator==(const decimal &o) const { return compare(o) == 0; }
    bool operator!=(const decimal &o) const { return compare(o) != 0; }
    bool operator<(const decimal &o) const { return compare(o) < 0; }
    bool operator>(const decimal &o) const { return compare(o) > 0; }
    bool operator<=(const decimal &o) const { return compare(o) <= 0; }
    bool operator>=(const decimal &o) const { return compare(o) >= 0; }

    decimal &operator+=(const decimal &other);
    decimal &operator-=(const decimal &other);
    decimal operator+(const decimal &other) const;
    decimal add(const decimal &other) const { return *this + other; }
    decimal operator-(const decimal &other) const;
    decimal operator*(const int64 &factor) const;
    decimal operator*(const int &factor) const;
    decimal negative() const;

    // Rescales in place. Raising the scale may stop short of `scale` when the
    // mantissa would no longer fit; lowering it rounds half away from zero on
    // the last dropped digit only.
    void setScale(short scale);

    double toDouble() const;
    // Throws the QString "decimal:overflow" outside +-2^56.
    static decimal fromDouble(double value, short scale);

    // The canonical text: '.', every place of the scale ("0.00"), trailing
    // zeros for a negative scale. Mantissas past 2^53 print with double's
    // rounding, as stored texts always did.
    QString toString() const;
    // Through toDouble in the system locale, with scale places (none below 1).
    QString toSystemString() const;
    // toSystemString without trailing fractional zeros and a bare point.
    QString toSystemStringShort() const;
    // toString with the system locale's decimal point.
    QString toExcelString() const;
    QVariant toVariant() const;

    // Throws a QString on text that none of the patterns accepts. An exponent
    // counts decimal places: "15e2" is 0.15 (stored texts were written so).
    // Safe to call from several threads.
    static decimal fromString(const QString &text);
    // Tries fromString, the system locale, then ',' read as '.'; never throws
    // on bad text: *ok says whether any of them worked.
    static decimal fromAnyString(const QString &text, bool *ok, int scale);
    // Through double and fromDouble; throws a QString when the locale cannot
    // read the text or the value is out of range.
    static decimal fromSystemString(const QString &text, int scale);
    static decimal fromLocaleString(const QString &text, const QLocale &locale, int scale);
    // A decimal as it is, numbers through fromDouble at scale 5, text through
    // fromString (both may throw). *ok turns false only for a valid, non-null
    // variant of another type.
    static decimal fromVariant(const QVariant &value, bool *ok = nullptr);

    // Whether the text has the form of a number, ',' allowed for '.'; an empty
    // text answers emptyResult. Safe to call from several threads.
    static bool canConvert(const QString &text, bool emptyResult);
    // True for a decimal or a QString that passes the above; false otherwise.
    static bool canConvert(const QVariant &value);

    // The id of the meta-type "decimal"; registers it on first use.
    static int metatypeId();

    // Fixed words, usable from static initialisers. The bounds are +-(2^52-1)
    // at scale -63; nothing clamps to them.
    static const decimal zero;
    static const decimal minimum;
    static const decimal maximum;

private:
    int compareScaled(const decimal &other) const;

    int64 m_data;
};

TABLEDB_DECLARE_VALUE_TYPEINFO(decimal);
Q_DECLARE_METATYPE(decimal)

TABLEDB_EXPORT QDataStream &operator<<(QDataStream &stream, const decimal &value);
TABLEDB_EXPORT QDataStream &operator>>(QDataStream &stream, decimal &value);

#endif // TABLEDB_NUMERIC_DECIMAL_H
