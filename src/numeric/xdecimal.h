#ifndef TABLEDB_NUMERIC_XDECIMAL_H
#define TABLEDB_NUMERIC_XDECIMAL_H

#include "runtime/global.h"

#include <QCoreApplication>
#include <QMetaType>
#include <QString>
#include <QVariant>

class QByteArray;
class QDataStream;
class QLocale;
class QStringRef;

// A long exact number: up to 26 significant decimal digits with a scale, in a
// fixed 16 bytes that rows and table files store as they are:
//   byte 0      scale, signed, -62..62 (negative: trailing zeros)
//   byte 1      precision in digits, 26 in every value this class computes
//   bytes 2..15 the digits in the BCDII format (numeric/bcdii.h), base 100,
//               the sign in bit 7 of byte 2; unused bytes zero.
// Bytes 0-1 together are the kernel's type word, little-endian.
//
// Arithmetic allocates nothing and is not checked: a result that does not fit
// holds the kernel's marker, which prints through the kernel's text, compares
// by its bytes and makes setScale (and so +, -) throw. Failures are thrown by
// value, each form for its own cause:
//   QString       bad text, "xdecimal:overflow at %1", "xdecimal:BCDIICopy failed at %1"
//   const char *  "xdecimal:overflow", "xdecimal:nan", "xdecimal:bad operand"
// A value whose type word cannot be held in 16 bytes (raw bytes from
// elsewhere) throws "xdecimal:bad operand" wherever its digits would be read.
class TABLEDB_EXPORT xdecimal
{
    Q_DECLARE_TR_FUNCTIONS(xdecimal)

public:
    // Zero at scale 0.
    constexpr xdecimal() : m_data{0, 26, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0} { }
    // value / 10^scale: xdecimal(15, 1) is 1.5. REQUIRES: -62 <= scale <= 62,
    // otherwise throws "xdecimal:bad operand".
    xdecimal(int64 value, short scale) : xdecimal() { set(value, scale); }
    // The 16 stored bytes; the precision byte is kept as it stands. Throws the
    // QString "xdecimal:BCDIICopy failed at xdecimal::xdecimal" on a marker or
    // a type word that does not fit.
    explicit xdecimal(const void *bytes);
    // fromString.
    explicit xdecimal(const QString &text);
    explicit xdecimal(const QStringRef &text);
    explicit xdecimal(const char *text);

    void set(int64 value, short scale);

    // The mantissa at the number's own scale; throws the QString
    // "xdecimal:overflow at xdecimal::value" beyond 64 bits or on a marker.
    int64 value() const;
    short scale() const { return short(int8_t(m_data[0])); }
    bool isZero() const;

    // The first stored byte; the 16 bytes are the value.
    unsigned char *data() const { return const_cast<unsigned char *>(m_data); }
    unsigned char *operator&() const { return data(); }
    xdecimal &operator()() { return *this; }
    // Appends the 16 bytes.
    void data(QByteArray &out) const;

    static xdecimal minimum();
    static xdecimal maximum();

    // -1, 0 or 1 in numeric order across scales.
    int compare(const xdecimal &other) const;
    // Same scale and the same number: 1.0 and 1.00 are == but not isEqual.
    bool isEqual(const xdecimal &other) const
    {
        return m_data[0] == other.m_data[0] && compare(other) == 0;
    }
    bool operator==(const xdecimal &o) const { return compare(o) == 0; }
    bool operator!=(const xdecimal &o) const { return compare(o) != 0; }
    bool operator<(const xdecimal &o) const { return compare(o) < 0; }
    bool operator>(const xdecimal &o) const { return compare(o) > 0; }
    bool operator<=(const xdecimal &o) const { return compare(o) <= 0; }
    bool operator>=(const xdecimal &o) const { return compare(o) >= 0; }

    // The sum takes the larger scale; throws "xdecimal:bad operand" when an
    // operand's integer digits do not fit at that scale.
    xdecimal &operator+=(const xdecimal &other);
    xdecimal &operator-=(const xdecimal &other);
    xdecimal operator+(const xdecimal &other) const;
    xdecimal add(const xdecimal &other) const { return *this + other; }
    xdecimal operator-(const xdecimal &other) const;
    // The product at the left operand's scale, rounded half up.
    xdecimal operator*(const xdecimal &other) const;
    xdecimal negative() const;

    // Rescales in place, rounding half away from zero on the whole remainder.
    // Throws "xdecimal:bad operand" when the number does not fit the scale
    // (the object then holds the marker).
    void setScale(short scale);

    double toDouble() const;
    // Throws "xdecimal:overflow" when x does not fit, "xdecimal:nan" for a NaN,
    // "xdecimal:bad operand" for a scale outside -62..62.
    static xdecimal fromDouble(double x, short scale);

    // All decimals of the scale: 1.5 at scale 3 is "1.500". An exponent form
    // is never printed.
    QString toString() const;
    QString toSystemString() const;
    QString toSystemStringShort() const;
    QString toExcelString() const;
    QVariant toVariant() const;

    // Reads "-12", "1.25", ".5" and "1.25e3" (a true power of ten: 1250); an
    // empty text is zero. Throws a QString for any other text, and for one that
    // does not fit 26 digits at the text's scale.
    static xdecimal fromString(const QString &text);
    // fromString, then the system locale, then ',' read as '.'; never throws
    // on bad text: *ok says whether one of them worked (zero if none).
    static xdecimal fromAnyString(const QString &text, bool *ok);
    // Drops the locale's group separators, then fromString; the decimal point
    // stays '.'.
    static xdecimal fromSystemString(const QString &text);
    static xdecimal fromLocaleString(const QString &text, const QLocale &locale);
    // An xdecimal, a number (through double, at scale 5) or a text. *ok turns
    // false for any other type of a non-null variant.
    static xdecimal fromVariant(const QVariant &value, bool *ok = nullptr);

    // Whether the text has one of the number forms, comma forms included.
    static bool canConvert(const QString &text, bool emptyResult);
    static bool canConvert(const QVariant &value);

    // The id of the meta-type "xdecimal"; registers it on first use.
    static int metatypeId();

    static const xdecimal zero;

private:
    friend class xdecimalPrivate;

    unsigned short type() const { return (unsigned short)(m_data[0] | (m_data[1] << 8)); }
    void setType(unsigned short t)
    {
        m_data[0] = (unsigned char)(t & 0xFF);
        m_data[1] = (unsigned char)(t >> 8);
    }
    unsigned char *digits() { return m_data + 2; }
    const unsigned char *digits() const { return m_data + 2; }
    // The type word, after making sure that its digits lie inside the object.
    unsigned short checkedType() const;

    unsigned char m_data[16];
};

Q_DECLARE_METATYPE(xdecimal)

TABLEDB_EXPORT QDataStream &operator<<(QDataStream &stream, const xdecimal &value);
TABLEDB_EXPORT QDataStream &operator>>(QDataStream &stream, xdecimal &value);

#endif // TABLEDB_NUMERIC_XDECIMAL_H
