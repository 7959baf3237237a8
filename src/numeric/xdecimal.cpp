#include "numeric/xdecimal.h"
#include "numeric/xdecimal_p.h"

#include "numeric/bcdii.h"

#include <QByteArray>
#include <QDataStream>
#include <QLocale>
#include <QStringRef>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

namespace {

const unsigned short kPrecision26 = 0x1A00;
const char *const kBadOperand = "xdecimal:bad operand";

inline unsigned short typeFor(short scale)
{
    return (unsigned short)((scale & 255) | kPrecision26);
}

inline bool scaleInRange(int scale)
{
    return scale >= -62 && scale <= 62;
}

// Whether the digits of type word t lie inside the 14 digit bytes.
bool typeFits(unsigned short t)
{
    const int p = int8_t(uint8_t(t >> 8));
    const int s = int8_t(uint8_t(t & 0xFF));
    return p >= 1 && p <= 63 && scaleInRange(s) && BCDIITotalBytes(t) <= 14;
}

QString copyFailed()
{
    return QStringLiteral("xdecimal:BCDIICopy failed at %1").arg(QLatin1String("xdecimal::xdecimal"));
}

QString badText(const QString &text)
{
    return xdecimal::tr("Невозможно создать xdecimal по строке '%1'").arg(text);
}

bool isAscii(const QString &text)
{
    for (const QChar c : text) {
        if (c.unicode() > 127)
            return false;
    }
    return true;
}

// The kernel's reading of a text that a pattern has accepted.
xdecimal parseChecked(const QString &text, const QString &failure)
{
    const std::string utf8 = text.toStdString();
    BCDIIType t = kPrecision26;
    unsigned char bytes[16] = {};
    BCDIIParse(bytes + 2, &t, utf8.c_str());
    if (BCDIICheck(bytes + 2, t) & 241)
        throw failure;
    bytes[0] = (unsigned char)(t & 0xFF);
    bytes[1] = (unsigned char)(t >> 8);
    return xdecimal(static_cast<const void *>(bytes));
}

// "1.5e2" is 150: the exponent moves the point, then the kernel reads the text.
xdecimal parseExponent(const QString &text, const QRegExp &rx)
{
    const QString exponent = rx.cap(7);
    const QString point = rx.cap(4);
    QString whole;
    QString fraction;
    if (!point.isEmpty()) {
        whole = rx.cap(3);
        fraction = rx.cap(5);
    } else {
        whole = rx.cap(2);
    }
    bool negative = false;
    if (whole.startsWith(QLatin1Char('-'))) {
        negative = true;
        whole.remove(0, 1);
    }
    if (whole.startsWith(QLatin1Char('+')))
        whole.remove(0, 1);

    QString digits = whole + fraction;
    bool allZero = true;
    for (const QChar c : digits) {
        if (c != QLatin1Char('0')) {
            allZero = false;
            break;
        }
    }
    if (allZero)
        return xdecimal::zero; // what any exponent gives, without the padding
    const qint64 e = exponent.toInt(); // an unreadable exponent counts as 0
    qint64 pos = whole.length() + e;
    // Past these bounds the text needs more than 26 integer or 62 fraction
    // digits; refusing here keeps a huge exponent from building a huge text.
    if (pos > digits.length() + 26 || pos < -62)
        throw badText(text);
    if (pos >= 0) {
        if (pos > digits.length())
            digits.append(QString(int(pos - digits.length()), QLatin1Char('0')));
    } else {
        digits.prepend(QString(int(-pos), QLatin1Char('0')));
        pos = 0;
    }
    if (pos < digits.length())
        digits.insert(int(pos), QLatin1Char('.'));
    if (negative)
        digits.prepend(QLatin1Char('-'));
    return parseChecked(digits, badText(text));
}

int registerMetaType()
{
    const int id = qRegisterMetaType<xdecimal>("xdecimal");
    QMetaType::registerComparators<xdecimal>();
    qRegisterMetaTypeStreamOperators<xdecimal>("xdecimal");
    QMetaType::registerConverter<xdecimal, QString>(&xdecimal::toSystemString);
    QMetaType::registerConverter<xdecimal, double>(&xdecimal::toDouble);
    return id;
}

} // namespace

// Constant-initialised, so that other libraries' static initialisers may use it.
const xdecimal xdecimal::zero;

xdecimalPrivate::Patterns::Patterns()
    : integer(QStringLiteral("([+-]?\\d+)"))
    , dot(QStringLiteral("([+-]?)(\\d*)[\\.](\\d+)"))
    , exponent(QStringLiteral("(([+-]?\\d+)|([+-]?\\d+)(\\.?)(\\d+))(e)([+-]?\\d+)"))
    , comma(QStringLiteral("([+-]?)(\\d*)[,](\\d+)"))
    , commaExponent(QStringLiteral("([+-]?)(\\d+)[,]?(\\d*)e([+-]?\\d+)"))
{
    // Copying a QRegExp compiles the source's engine if it has none yet, which
    // writes to the source. Do it here, once, so that later copies only read.
    for (const QRegExp *rx : {&integer, &dot, &exponent, &comma, &commaExponent}) {
        QRegExp warm(*rx);
        warm.exactMatch(QString());
    }
}

const xdecimalPrivate::Patterns &xdecimalPrivate::patterns()
{
    static const Patterns patterns;
    return patterns;
}

xdecimalPrivate::xdecimalPrivate()
{
    // 26 digits of 9 at scale -62: thirteen bytes of 99.
    for (xdecimal *bound : {std::addressof(minimum), std::addressof(maximum)}) {
        bound->setType(0x1AC2);
        std::memset(bound->digits(), 99, 13);
    }
    minimum.digits()[0] |= 128;
}

const xdecimalPrivate &xdecimalPrivate::bounds()
{
    static const xdecimalPrivate d;
    return d;
}

QString xdecimalPrivate::toLocaleString(const xdecimal &value, const QLocale &locale)
{
    QString text = value.toString();
    const QChar point = locale.decimalPoint();
    const QChar group = locale.groupSeparator();
    int p = text.indexOf(QLatin1Char('.'));
    const bool found = p >= 0;
    if (!found)
        p = text.length();
    if (p > 0 && found) {
        text.remove(p, 1);
        text.insert(p, point);
    }
    // Deliberately not suppressed by OmitGroupSeparator: saved texts and
    // displays depend on the separators being there.
    if (!group.isNull() || (locale.numberOptions() & QLocale::OmitGroupSeparator)) {
        const int first = text.startsWith(QLatin1Char('-')) ? 1 : 0;
        for (int i = p - 3; i > first; i -= 3)
            text.insert(i, group);
    }
    return text;
}

QString xdecimalPrivate::toLocaleStringShort(const xdecimal &value, const QLocale &locale)
{
    QString text = toLocaleString(value, locale);
    const QChar point = locale.decimalPoint();
    if (text.contains(point)) {
        while (text.endsWith(QLatin1Char('0')))
            text.chop(1);
    }
    if (text.endsWith(point))
        text.chop(1);
    return text;
}

xdecimal::xdecimal(const void *bytes)
    : xdecimal()
{
    const unsigned char *b = static_cast<const unsigned char *>(bytes);
    const unsigned short t = (unsigned short)(b[0] | (b[1] << 8));
    if (!typeFits(t))
        throw copyFailed();
    setType(t);
    if (BCDIICopy(digits(), t, b + 2, t) & 177)
        throw copyFailed();
}

xdecimal::xdecimal(const QString &text)
    : xdecimal(fromString(text))
{
}

xdecimal::xdecimal(const QStringRef &text)
    : xdecimal(fromString(text.toString()))
{
}

xdecimal::xdecimal(const char *text)
    : xdecimal(fromString(QString::fromUtf8(text)))
{
}

void xdecimal::set(int64 value, short scale)
{
    if (!scaleInRange(scale))
        throw kBadOperand;
    *this = xdecimal();
    setType(typeFor(scale));
    const uint64 magnitude = value < 0 ? 0 - uint64(value) : uint64(value);
    BCDIIFromUInt64(digits(), type(), magnitude, scale);
    if (value < 0)
        digits()[0] |= 128;
}

unsigned short xdecimal::checkedType() const
{
    const unsigned short t = type();
    // The common case first: 26 digits fit at any valid scale.
    if (m_data[1] == 26 && scaleInRange(int8_t(m_data[0])))
        return t;
    if (!typeFits(t))
        throw kBadOperand;
    return t;
}

int64 xdecimal::value() const
{
    int64 out = 0;
    if (BCDIIToInt64(&out, digits(), checkedType(), scale()) & (BCDII_Overflow | BCDII_Error))
        throw QStringLiteral("xdecimal:overflow at %1").arg(QLatin1String("xdecimal::value"));
    return out;
}

bool xdecimal::isZero() const
{
    return BCDIICheck(digits(), checkedType()) == BCDII_Zero;
}

void xdecimal::data(QByteArray &out) const
{
    out.append(reinterpret_cast<const char *>(m_data), int(sizeof(m_data)));
}

xdecimal xdecimal::minimum()
{
    return xdecimalPrivate::bounds().minimum;
}

xdecimal xdecimal::maximum()
{
    return xdecimalPrivate::bounds().maximum;
}

int xdecimal::compare(const xdecimal &other) const
{
    const unsigned short ta = checkedType();
    const unsigned short tb = other.checkedType();
    if (ta == tb)
        return BCDIICompareSame(digits(), other.digits(), ta);
    const bool negA = digits()[0] & 128;
    const bool negB = other.digits()[0] & 128;
    if (negA != negB)
        return negA ? -1 : 1;
    const int c = BCDIICompareAbs(digits(), ta, other.digits(), tb);
    return negA ? -c : c;
}

void xdecimal::setScale(short scale)
{
    if (!scaleInRange(scale))
        throw kBadOperand;
    // At its own type a well-formed number is already what the copy would give.
    if (type() == typeFor(scale) && !(BCDIICheck(digits(), type()) & BCDII_Malformed))
        return;
    xdecimal r;
    r.setType(typeFor(scale));
    BCDIICopy(r.digits(), r.type(), digits(), checkedType());
    // Thrown before the assignment, so that a failed rescale loses nothing.
    if (BCDIICheck(r.digits(), r.type()) & BCDII_Malformed)
        throw kBadOperand;
    *this = r;
}

xdecimal &xdecimal::operator+=(const xdecimal &other)
{
    xdecimal a = *this;
    xdecimal b = other;
    const short s = qMax(a.scale(), b.scale());
    a.setScale(s);
    b.setScale(s);
    // An overflow leaves the marker in the sum, unchecked here.
    BCDIIAdd(a.digits(), a.type(), a.digits(), a.type(), b.digits(), b.type());
    *this = a;
    return *this;
}

xdecimal &xdecimal::operator-=(const xdecimal &other)
{
    return *this += other.negative();
}

xdecimal xdecimal::operator+(const xdecimal &other) const
{
    xdecimal r = *this;
    r += other;
    return r;
}

xdecimal xdecimal::operator-(const xdecimal &other) const
{
    xdecimal r = *this;
    r += other.negative();
    return r;
}

xdecimal xdecimal::operator*(const xdecimal &other) const
{
    const unsigned short ta = checkedType();
    xdecimal r;
    r.setType(typeFor(scale()));
    BCDIIMultiply(r.digits(), r.type(), digits(), ta, other.digits(), other.checkedType());
    return r;
}

xdecimal xdecimal::negative() const
{
    const unsigned short t = checkedType();
    xdecimal r;
    r.setType(typeFor(scale()));
    if (t == r.type()) // the copy would change nothing but a negative zero
        std::memcpy(r.digits(), digits(), size_t(BCDIITotalBytes(t)));
    else
        BCDIICopy(r.digits(), r.type(), digits(), t);
    unsigned char *d = r.digits();
    if ((d[0] & 127) < 100) {
        bool any = false;
        for (int j = 0; j < 14; ++j)
            any = any || (d[j] & 127) != 0;
        if (any)
            d[0] ^= 128;
        else
            d[0] = 0; // a zero stays positive
    }
    return r;
}

double xdecimal::toDouble() const
{
    double out = 0.0;
    BCDIIToDouble(&out, digits(), checkedType());
    return out;
}

xdecimal xdecimal::fromDouble(double x, short scale)
{
    if (!scaleInRange(scale))
        throw kBadOperand;
    xdecimal r;
    r.setType(typeFor(scale));
    const int status = BCDIIFromDouble(r.digits(), x, r.type());
    if (status & BCDII_Overflow)
        throw "xdecimal:overflow";
    if (status & BCDII_Error)
        throw "xdecimal:nan";
    return r;
}

QString xdecimal::toString() const
{
    const unsigned short t = checkedType();
    const int status = BCDIICheck(digits(), t);
    char *raw = BCDIIToText(digits(), t);
    if (!raw)
        throw std::bad_alloc();
    QString text = QString::fromLatin1(raw);
    std::free(raw);
    if (text.isEmpty())
        text = QStringLiteral("0");
    const bool negative = status & BCDII_Negative;
    if (negative)
        text.remove(0, 1);
    if (text.startsWith(QLatin1Char('.')))
        text.prepend(QLatin1Char('0'));
    if (negative)
        text.prepend(QLatin1Char('-'));
    return text;
}

QString xdecimal::toSystemString() const
{
    return xdecimalPrivate::toLocaleString(*this, QLocale::system());
}

QString xdecimal::toSystemStringShort() const
{
    return xdecimalPrivate::toLocaleStringShort(*this, QLocale::system());
}

QString xdecimal::toExcelString() const
{
    return toString().replace(QLatin1Char('.'), QLocale::system().decimalPoint());
}

QVariant xdecimal::toVariant() const
{
    return QVariant(metatypeId(), this);
}

xdecimal xdecimal::fromString(const QString &text)
{
    if (text.isEmpty())
        return zero;
    // \d also takes digits of other scripts, which the kernel does not read.
    if (!isAscii(text))
        throw badText(text);
    const xdecimalPrivate::Patterns &patterns = xdecimalPrivate::patterns();

    QRegExp rx = patterns.integer;
    if (rx.exactMatch(text))
        return parseChecked(text, badText(text));
    rx = patterns.dot;
    if (rx.exactMatch(text))
        return parseChecked(text, tr("Невозможно создать xdecimal по строке '%1' (%2)").arg(text, rx.cap(1)));
    rx = patterns.exponent;
    if (rx.exactMatch(text))
        return parseExponent(text, rx);
    throw badText(text);
}

xdecimal xdecimal::fromAnyString(const QString &text, bool *ok)
{
    if (ok)
        *ok = true;
    try {
        return fromString(text);
    } catch (const QString &) {
    }
    try {
        return fromSystemString(text);
    } catch (const QString &) {
    }
    try {
        QString dotted = text;
        return fromString(dotted.replace(QLatin1Char(','), QLatin1Char('.')));
    } catch (const QString &) {
    }
    if (ok)
        *ok = false;
    return zero;
}

xdecimal xdecimal::fromSystemString(const QString &text)
{
    return fromLocaleString(text, QLocale::system());
}

xdecimal xdecimal::fromLocaleString(const QString &text, const QLocale &locale)
{
    QString plain = text;
    plain.remove(locale.groupSeparator());
    return fromString(plain);
}

xdecimal xdecimal::fromVariant(const QVariant &value, bool *ok)
{
    if (ok)
        *ok = true;
    const int type = value.userType();
    if (type == metatypeId())
        return value.value<xdecimal>();
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
        return zero;
    }
}

bool xdecimal::canConvert(const QString &text, bool emptyResult)
{
    if (text.isEmpty())
        return emptyResult;
    if (!isAscii(text))
        return false;
    // Copies, so that concurrent callers do not share match state.
    const xdecimalPrivate::Patterns &p = xdecimalPrivate::patterns();
    for (const QRegExp *shared : {&p.integer, &p.dot, &p.exponent, &p.comma, &p.commaExponent}) {
        QRegExp rx = *shared;
        if (rx.exactMatch(text))
            return true;
    }
    return false;
}

bool xdecimal::canConvert(const QVariant &value)
{
    const int type = value.userType();
    if (type == metatypeId())
        return true;
    if (type == QMetaType::QString)
        return canConvert(value.toString(), false);
    return false;
}

int xdecimal::metatypeId()
{
    static const int id = registerMetaType();
    return id;
}

QDataStream &operator<<(QDataStream &stream, const xdecimal &value)
{
    stream.writeRawData(reinterpret_cast<const char *>(value.data()), 16);
    return stream;
}

QDataStream &operator>>(QDataStream &stream, xdecimal &value)
{
    char bytes[16];
    if (stream.readRawData(bytes, 16) != 16) {
        value = xdecimal();
        if (stream.status() == QDataStream::Ok)
            stream.setStatus(QDataStream::ReadPastEnd);
        return stream;
    }
    // Stored as it stands: a foreign type word is refused when it is used.
    std::memcpy(value.data(), bytes, 16);
    return stream;
}
