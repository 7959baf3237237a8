#include "numeric/decimal.h"
#include "numeric/decimal_p.h"

#include <QDataStream>
#include <QLocale>
#include <QStringRef>

#include <cmath>
#include <limits>

namespace {

const uint64 kSignBit = 0x8000000000000000ULL;
const uint64 kScaleBits = 0x7F00000000000000ULL;
const uint64 kMantissaBits = 0x00FFFFFFFFFFFFFFULL;

// The mantissa arithmetic wraps by design; doing it unsigned keeps it defined.
inline int64 wrapMul(int64 a, int64 b) { return int64(uint64(a) * uint64(b)); }
inline int64 wrapAdd(int64 a, int64 b) { return int64(uint64(a) + uint64(b)); }
inline int64 wrapNeg(int64 a) { return int64(0 - uint64(a)); }

// True when a positive v needs more than the 56 mantissa bits.
inline bool overflows56(int64 v) { return int8_t(uint8_t(uint64(v) >> 56)) > 0; }

// Keeps v's sign bit and low 56 bits and puts the low seven bits of the scale
// between them; an out-of-range scale wraps on purpose.
inline int64 pack(int64 v, short scale)
{
    return int64((uint64(v) & (kSignBit | kMantissaBits)) | ((uint64(scale) & 0x7F) << 56));
}

QString badTextMessage(const QString &text)
{
    return decimal::tr("Невозможно создать decimal по строке '%1'").arg(text);
}

int registerMetaType()
{
    const int id = qRegisterMetaType<decimal>("decimal");
    QMetaType::registerComparators<decimal>();
    qRegisterMetaTypeStreamOperators<decimal>("decimal");
    QMetaType::registerConverter<decimal, QString>(&decimal::toSystemString);
    QMetaType::registerConverter<decimal, double>(&decimal::toDouble);
    return id;
}

} // namespace

// Constant-initialised, so that other libraries' static initialisers may use them.
const decimal decimal::zero = decimal::from56s7(0);
const decimal decimal::minimum = decimal::from56s7(int64(0xC1F0000000000001ULL));
const decimal decimal::maximum = decimal::from56s7(int64(0x410FFFFFFFFFFFFFULL));

DecimalPatterns::DecimalPatterns()
    : integer(QStringLiteral("([+-]?\\d+)"))
    , dot(QStringLiteral("([+-]?)(\\d*)[\\.](\\d+)"))
    , dotExponent(QStringLiteral("([+-]?)(\\d+)[\\.]?(\\d*)e([+-]?\\d+)"))
    , comma(QStringLiteral("([+-]?)(\\d*)[,](\\d+)"))
    , commaExponent(QStringLiteral("([+-]?)(\\d+)[,]?(\\d*)e([+-]?\\d+)"))
{
    // Copying a QRegExp compiles the source's engine if it has none yet, which
    // writes to the source. Do it here, once, so that later copies only read.
    for (const QRegExp *rx : {&integer, &dot, &dotExponent, &comma, &commaExponent}) {
        QRegExp warm(*rx);
        warm.exactMatch(QString());
    }
}

const DecimalPatterns &DecimalPatterns::instance()
{
    static const DecimalPatterns patterns;
    return patterns;
}

namespace {

// This thread's own copies of the patterns: a match writes its state into the
// QRegExp, and copying them on every call would cost more than the match.
const DecimalPatterns &threadPatterns()
{
    thread_local const DecimalPatterns copies(DecimalPatterns::instance());
    return copies;
}

} // namespace

decimal::decimal(const QString &text)
    : m_data(fromString(text).m_data)
{
}

decimal::decimal(const QStringRef &text)
    : m_data(fromString(text.toString()).m_data)
{
}

void decimal::set(int64 value, short scale)
{
    // Only positive overflow is reduced; a negative value out of range is packed
    // as it stands. The asymmetry is deliberate: stored words depend on it.
    while (overflows56(value)) {
        if (scale < -63)
            break;
        --scale;
        value /= 10;
    }
    m_data = pack(value, scale);
}

int decimal::compareScaled(const decimal &other) const
{
    const uint64 a = uint64(m_data);
    const uint64 b = uint64(other.m_data);

    const bool az = (a & ~kScaleBits) == 0;
    const bool bz = (b & ~kScaleBits) == 0;
    if (az && bz)
        return 0;
    const bool aneg = (a & kSignBit) != 0;
    const bool bneg = (b & kSignBit) != 0;
    if (az)
        return bneg ? 1 : -1;
    if (bz)
        return aneg ? -1 : 1;
    if (aneg != bneg)
        return bneg ? 1 : -1;

    // Past 16 orders the scaled mantissa would leave 64 bits, so the scale alone
    // decides. Saved sort orders rely on this exact shortcut.
    int d = int(other.scale()) - int(scale());
    if (d > 16)
        return aneg ? -1 : 1;
    if (d < -16)
        return aneg ? 1 : -1;

    const uint64 twoTo56 = uint64(1) << 56;
    uint64 ma = aneg ? twoTo56 - (a & kMantissaBits) : (a & kMantissaBits);
    uint64 mb = bneg ? twoTo56 - (b & kMantissaBits) : (b & kMantissaBits);
    bool flip = aneg;
    if (d < 0) {
        qSwap(ma, mb);
        d = -d;
        flip = !flip;
    }
    if (d & 1) {
        ma *= 10;
        --d;
    }
    while (d > 0) {
        // Leaving early once ma is ahead keeps the products below 2^63.
        if (ma > mb)
            return flip ? -1 : 1;
        ma *= 100;
        d -= 2;
    }
    if (ma > mb)
        return flip ? -1 : 1;
    if (ma == mb)
        return 0;
    return flip ? 1 : -1;
}

decimal &decimal::operator+=(const decimal &other)
{
    decimal rhs = other;
    short s = qMax(scale(), rhs.scale());
    setScale(s);
    rhs.setScale(s);
    if (scale() != rhs.scale()) {
        // One side could not take the larger scale without overflowing.
        s = qMin(scale(), rhs.scale());
        setScale(s);
        rhs.setScale(s);
    }
    set(value() + rhs.value(), s);
    return *this;
}

decimal &decimal::operator-=(const decimal &other)
{
    return *this += other.negative();
}

decimal decimal::operator+(const decimal &other) const
{
    decimal result = *this;
    result += other;
    return result;
}

decimal decimal::operator-(const decimal &other) const
{
    decimal result = *this;
    result -= other;
    return result;
}

decimal decimal::operator*(const int64 &factor) const
{
    return decimal(wrapMul(value(), factor), scale());
}

decimal decimal::operator*(const int &factor) const
{
    return decimal(wrapMul(value(), int64(factor)), scale());
}

decimal decimal::negative() const
{
    return decimal(-value(), scale());
}

void decimal::setScale(short scale)
{
    const short old = this->scale();
    const int d = int(scale) - int(old);
    if (d == 0)
        return;
    int64 v = value();
    if (m_data == 0 || v == 0) {
        m_data = int64((uint64(scale) & 0x7F) << 56);
        return;
    }
    if (d > 0) {
        for (int i = 0; i < d; ++i) {
            const int64 t = wrapMul(v, 10);
            if (overflows56(t)) {
                // Stop short rather than lose digits; negatives are not checked
                // and may wrap.
                set(v, short(scale - (d - i)));
                return;
            }
            v = t;
        }
    } else {
        // Half away from zero on the last dropped digit only; the digits
        // before it are cut.
        for (int i = 0, n = -d; i < n; ++i) {
            if (i == n - 1)
                v += (v > 0) ? 5 : -5;
            v /= 10;
        }
    }
    set(v, scale);
}

double decimal::toDouble() const
{
    return std::floor(double(value()) + 0.5) / std::pow(10.0, scale());
}

decimal decimal::fromDouble(double value, short scale)
{
    if (scale > 0) {
        for (short i = 0; i < scale; ++i)
            value *= 10.0;
        value += (value > 0) ? 0.5 : -0.5;
    } else {
        // Scales 0 and below truncate: no rounding term.
        for (int i = 0; i < -int(scale); ++i)
            value /= 10.0;
    }
    if (value <= -72057594037927936.0 || value >= 72057594037927936.0)
        throw QString(QStringLiteral("decimal:overflow"));
    // NaN passes the range test and becomes the integer minimum, as a plain
    // conversion on the platform would make it; done explicitly to stay defined.
    const int64 v = std::isnan(value) ? std::numeric_limits<int64>::min() : int64(value);
    return decimal(v, scale);
}

QString decimal::toString() const
{
    const int64 v = value();
    const short s = scale();
    QString text = QStringLiteral("%1");
    if (s < 1) {
        text = text.arg(v);
        if (v != 0)
            text.append(QString(-s, QLatin1Char('0')));
        return text;
    }
    // Printed through double on purpose: mantissas past 2^53 show double's
    // rounding, and stored texts were written that way.
    text = text.arg(double(qAbs(v)), 0, 'f', 0, QLatin1Char(' '));
    if (text.length() - s < 1)
        text.prepend(QString(s - text.length() + 1, QLatin1Char('0')));
    text.insert(text.length() - s, QLatin1Char('.'));
    if (v < 0)
        text.insert(0, QLatin1Char('-'));
    return text;
}

QString decimal::toSystemString() const
{
    const short s = scale();
    return QLocale::system().toString(toDouble(), 'f', s >= 1 ? s : 0);
}

QString decimal::toSystemStringShort() const
{
    QString text = toSystemString();
    const QChar point = QLocale::system().decimalPoint();
    if (text.contains(point)) {
        while (text.endsWith(QLatin1Char('0')))
            text.chop(1);
    }
    if (text.endsWith(point))
        text.chop(1);
    return text;
}

QString decimal::toExcelString() const
{
    return toString().replace(QLatin1Char('.'), QLocale::system().decimalPoint());
}

QVariant decimal::toVariant() const
{
    return QVariant(metatypeId(), this);
}

decimal decimal::fromString(const QString &text)
{
    if (text.isEmpty())
        return zero;
    const DecimalPatterns &patterns = threadPatterns();
    bool ok = false;

    const QRegExp *rx = &patterns.integer;
    if (rx->exactMatch(text)) {
        const int64 v = rx->cap(1).toLongLong(&ok, 10);
        if (!ok)
            throw badTextMessage(text);
        return decimal(v, 0);
    }

    rx = &patterns.dot;
    if (rx->exactMatch(text)) {
        const QString sign = rx->cap(1);
        const QString whole = rx->cap(2);
        const QString fraction = rx->cap(3);
        const short s = short(fraction.length());
        int64 v = 0;
        if (!whole.isEmpty()) {
            v = whole.toLongLong(&ok, 10);
            if (!ok)
                throw tr("Невозможно создать decimal по строке '%1' (%2)").arg(text, sign);
        }
        for (short i = 0; i < s; ++i)
            v = wrapMul(v, 10);
        v = wrapAdd(v, fraction.toLongLong(&ok, 10));
        if (sign == QLatin1String("-"))
            v = wrapNeg(v);
        if (!ok)
            throw badTextMessage(text);
        return decimal(v, s);
    }

    rx = &patterns.dotExponent;
    if (rx->exactMatch(text)) {
        int64 v = rx->cap(2).toLongLong(&ok, 10);
        if (!ok)
            throw badTextMessage(text);
        const bool negative = rx->cap(1) == QLatin1String("-");
        // The exponent counts decimal places, not powers of ten ("15e2" is
        // 0.15). Files and settings were written that way and must read back.
        const int e = rx->cap(4).toInt(&ok, 10);
        if (!ok)
            throw badTextMessage(text);
        const QString fraction = rx->cap(3);
        const int n = fraction.length();
        for (int i = 0; i < n; ++i)
            v = wrapMul(v, 10);
        if (n > 0) {
            v = wrapAdd(v, fraction.toLongLong(&ok, 10));
            if (!ok)
                throw badTextMessage(text);
        }
        if (negative)
            v = wrapNeg(v);
        return decimal(v, short(e - n));
    }

    throw badTextMessage(text);
}

decimal decimal::fromAnyString(const QString &text, bool *ok, int scale)
{
    decimal result;
    bool done = true;
    try {
        result = fromString(text);
    } catch (const QString &) {
        try {
            result = fromSystemString(text, scale);
        } catch (const QString &) {
            try {
                QString dotted = text;
                dotted.replace(QLatin1Char(','), QLatin1Char('.'));
                result = fromString(dotted);
            } catch (const QString &) {
                result = decimal();
                done = false;
            }
        }
    }
    if (ok)
        *ok = done;
    return result;
}

decimal decimal::fromSystemString(const QString &text, int scale)
{
    return fromLocaleString(text, QLocale::system(), scale);
}

decimal decimal::fromLocaleString(const QString &text, const QLocale &locale, int scale)
{
    bool ok = false;
    const double value = locale.toDouble(text, &ok);
    if (!ok)
        throw QString(QStringLiteral("Error in input local string '%1'")).arg(text);
    return fromDouble(value, short(scale));
}

decimal decimal::fromVariant(const QVariant &value, bool *ok)
{
    decimal result;
    if (ok)
        *ok = true;
    const int type = value.userType();
    if (type == metatypeId())
        return value.value<decimal>();
    switch (type) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return fromDouble(value.toDouble(), 5);
    case QMetaType::QString:
        return fromString(value.toString());
    default:
        if (ok && value.isValid() && !value.isNull())
            *ok = false;
        return result;
    }
}

bool decimal::canConvert(const QString &text, bool emptyResult)
{
    if (text.isEmpty())
        return emptyResult;
    const DecimalPatterns &patterns = threadPatterns();
    for (const QRegExp *rx : {&patterns.integer, &patterns.dot, &patterns.dotExponent,
                              &patterns.comma, &patterns.commaExponent}) {
        if (rx->exactMatch(text))
            return true;
    }
    return false;
}

bool decimal::canConvert(const QVariant &value)
{
    const int type = value.userType();
    if (type == metatypeId())
        return true;
    if (type == QMetaType::QString)
        return canConvert(value.toString(), false);
    return false;
}

int decimal::metatypeId()
{
    static const int id = registerMetaType();
    return id;
}

QDataStream &operator<<(QDataStream &stream, const decimal &value)
{
    return stream << qint64(value.data());
}

QDataStream &operator>>(QDataStream &stream, decimal &value)
{
    qint64 word = 0;
    stream >> word;
    value = decimal::from56s7(word);
    return stream;
}
