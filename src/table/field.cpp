#include "table/field.h"

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/xdecimal.h"
#include "runtime/exception.h"
#include "table/boardlist.h"

#include <QLocale>

#include <cstring>
#include <limits>

namespace {

const char incorrectConversion[] = "Incorrect type conversion.";
const char incorrectType[] = "Incorrect type of field.";

[[noreturn]] void throwIncorrectConversion()
{
    throw Exception(QString::fromLatin1(incorrectConversion));
}

[[noreturn]] void throwIncorrectType()
{
    throw QString(QString::fromLatin1(incorrectType));
}

int saturated(int64 value)
{
    return int(qBound(int64(std::numeric_limits<int>::min()), value,
                      int64(std::numeric_limits<int>::max())));
}

int sign(int64 a, int64 b)
{
    return a < b ? -1 : (a > b ? 1 : 0);
}

xdecimal rawXDecimal(const unsigned char *p)
{
    xdecimal value;
    std::memcpy(value.data(), p, 16);
    return value;
}

} // namespace

QString Field::typeName() const
{
    const int t = def->type;
    if (t == FieldType::Undefined)
        return QStringLiteral("Invalid");
    if (t >= FieldType::Integer && t <= FieldType::String)
        return QString::fromLatin1(FieldType::typeName(def->type));
    return QStringLiteral("undefined");
}

decimal &Field::asDecimal() { return *reinterpret_cast<decimal *>(m_data); }
const decimal &Field::asDecimal() const { return *reinterpret_cast<const decimal *>(m_data); }
xdecimal &Field::asXDecimal() { return *reinterpret_cast<xdecimal *>(m_data); }
const xdecimal &Field::asXDecimal() const { return *reinterpret_cast<const xdecimal *>(m_data); }
datetime &Field::asDatetime() { return *reinterpret_cast<datetime *>(m_data); }
const datetime &Field::asDatetime() const { return *reinterpret_cast<const datetime *>(m_data); }
boardlist &Field::asBoardlist() { return *reinterpret_cast<boardlist *>(m_data); }
const boardlist &Field::asBoardlist() const { return *reinterpret_cast<const boardlist *>(m_data); }

void Field::incompatibleType(FieldType::Type own, FieldType::Type source)
{
    throw Exception(QStringLiteral("Can't convert from %1 to %2")
                        .arg(QString::fromLatin1(FieldType::typeName(source)),
                             QString::fromLatin1(FieldType::typeName(own))));
}

void Field::incompatibleType(FieldType::Type source) const
{
    incompatibleType(def->type, source);
}

// ---------------------------------------------------------------------------
// Converting reads

int Field::toInteger() const
{
    if (isNull())
        return 0;
    switch (def->type) {
    case FieldType::Integer:
        return asInteger();
    case FieldType::Integer64:
        return saturated(asInteger64());
    default:
        throwIncorrectConversion();
    }
}

int64 Field::toInteger64() const
{
    if (isNull())
        return 0;
    switch (def->type) {
    case FieldType::Integer:
        return asInteger();
    case FieldType::Integer64:
        return asInteger64();
    default:
        throwIncorrectConversion();
    }
}

double Field::toDouble() const
{
    if (isNull())
        return 0.0;
    switch (def->type) {
    case FieldType::Integer:
        return asInteger();
    case FieldType::Integer64:
        return double(asInteger64());
    case FieldType::Double:
        return asDouble();
    case FieldType::Decimal:
        return FieldType::getDecimal(m_data, def->length).toDouble();
    case FieldType::XDecimal:
        return FieldType::getXDecimal(m_data, def->length).toDouble();
    default:
        throwIncorrectConversion();
    }
}

decimal Field::toDecimal() const
{
    if (isNull())
        return decimal();
    if (def->type != FieldType::Decimal)
        throwIncorrectConversion();
    return FieldType::getDecimal(m_data, def->length);
}

xdecimal Field::toXDecimal() const
{
    if (isNull())
        return xdecimal();
    switch (def->type) {
    case FieldType::Decimal: {
        // Mantissa and scale as the word holds them.
        const decimal word = asDecimal();
        return xdecimal(word.value(), word.scale());
    }
    case FieldType::XDecimal:
        return FieldType::getXDecimal(m_data, def->length);
    default:
        throwIncorrectConversion();
    }
}

datetime Field::toDatetime() const
{
    if (isNull())
        return datetime();
    switch (def->type) {
    case FieldType::DateTime:
        return FieldType::getDatetime(m_data);
    case FieldType::VarChar:
    case FieldType::String:
        return datetime(toString());
    default:
        throwIncorrectConversion();
    }
}

datetime Field::dateTimeCell() const
{
    if (def->type != FieldType::DateTime)
        throwIncorrectConversion();
    return FieldType::getDatetime(m_data);
}

QDateTime Field::toQDateTime() const
{
    return isNull() ? QDateTime() : dateTimeCell().getDateTime();
}

QDate Field::toQDate() const
{
    return isNull() ? QDate() : dateTimeCell().getDate();
}

QTime Field::toQTime() const
{
    return isNull() ? QTime() : dateTimeCell().getTime();
}

boardlist Field::toBoardlist() const
{
    boardlist list {};
    if (isNull())
        return list;
    if (def->type != FieldType::BoardList)
        throwIncorrectConversion();
    std::memcpy(&list, m_data, sizeof(boardlist));
    return list;
}

QChar Field::toChar() const
{
    if (isNull())
        return QChar();
    switch (def->type) {
    case FieldType::VarChar:
        if (def->length != 1)
            throw QString(QStringLiteral("String length is not 1 for QChar: %1.").arg(def->length));
        return QChar(*reinterpret_cast<const ushort *>(m_data));
    case FieldType::String: {
        const QString &text = stringCell();
        if (text.isEmpty())
            return QChar();
        if (text.size() != 1)
            throw QString(QStringLiteral("String length is not 1 for QChar: %1.").arg(text.size()));
        return text.at(0);
    }
    default:
        throwIncorrectType();
    }
}

StaticString Field::asStaticString() const
{
    if (isNull())
        return StaticString();
    if (def->type != FieldType::VarChar)
        throwIncorrectType();
    return FieldType::varCharToStaticString(m_data, def->length);
}

QString Field::toString() const
{
    if (!def || isNull())
        return QString();
    switch (def->type) {
    case FieldType::Undefined:
        return QString();
    case FieldType::Integer:
        return QString::number(asInteger());
    case FieldType::Integer64:
        return QString::number(asInteger64());
    case FieldType::Double:
        return QStringLiteral("%1").arg(asDouble(), 0, 'g', -1);
    case FieldType::Decimal:
        return FieldType::getDecimal(m_data, def->length).toString();
    case FieldType::XDecimal:
        return FieldType::getXDecimal(m_data, def->length).toString();
    case FieldType::DateTime:
        return FieldType::getDatetime(m_data).toString();
    case FieldType::VarChar:
        return FieldType::varCharToString(m_data, def->length);
    case FieldType::String:
        return stringCell();
    case FieldType::BoardList:
        return QStringLiteral("[BoardList]");
    default:
        break;
    }
    throwIncorrectType();
}

QString Field::toSystemString() const
{
    if (!def || isNull())
        return QString();
    switch (def->type) {
    case FieldType::Undefined:
        return QString();
    case FieldType::Integer:
        return QLocale::system().toString(asInteger());
    case FieldType::Integer64:
        return QLocale::system().toString(qlonglong(asInteger64()));
    case FieldType::Double:
        return QLocale::system().toString(asDouble(), 'g', 6);
    case FieldType::Decimal:
        return FieldType::getDecimal(m_data, def->length).toSystemString();
    case FieldType::XDecimal:
        return FieldType::getXDecimal(m_data, def->length).toSystemString();
    case FieldType::DateTime:
        return FieldType::getDatetime(m_data).toSystemString(false, QLocale::ShortFormat);
    case FieldType::VarChar:
        return FieldType::varCharToString(m_data, def->length);
    case FieldType::String:
        return stringCell();
    case FieldType::BoardList:
        return asBoardlist().toString();
    default:
        break;
    }
    throwIncorrectType();
}

QVariant Field::toVariant() const
{
    if (!def || isNull())
        return QVariant();
    switch (def->type) {
    case FieldType::Integer:
        return QVariant(asInteger());
    case FieldType::Integer64:
        return QVariant(qlonglong(asInteger64()));
    case FieldType::Double:
        return QVariant(asDouble());
    case FieldType::Decimal:
        return FieldType::getDecimal(m_data, def->length).toVariant();
    case FieldType::XDecimal:
        return FieldType::getXDecimal(m_data, def->length).toVariant();
    case FieldType::VarChar:
    case FieldType::String:
        return QVariant(toString());
    case FieldType::DateTime:
        // The UTC spec, so that operator=(QDateTime) reads the same fields back.
        return QVariant(toQDateTime());
    case FieldType::BoardList:
        return QVariant(asBoardlist().toString());
    default:
        return QVariant();
    }
}

// ---------------------------------------------------------------------------
// Order

int Field::compare(const Field &other) const
{
    const bool aNull = isNull();
    const bool bNull = other.isNull();
    if (aNull || bNull)
        return aNull == bNull ? 0 : (aNull ? -1 : 1);
    const FieldType::Type type = def->type;
    if (type != other.def->type)
        return int(type) - int(other.def->type);
    switch (type) {
    case FieldType::Integer:
        return sign(asInteger(), other.asInteger());
    case FieldType::Integer64:
    case FieldType::DateTime:
        return sign(asInteger64(), other.asInteger64());
    case FieldType::Double: {
        // The sign of the difference: a NaN is equal to everything.
        const double d = asDouble() - other.asDouble();
        return d < 0 ? -1 : (d > 0 ? 1 : 0);
    }
    case FieldType::Decimal: {
        const decimal &a = asDecimal();
        const decimal &b = other.asDecimal();
        if (((uint64(a.data()) ^ uint64(b.data())) & (uint64(0x7F) << 56)) == 0)
            return sign(a.data(), b.data());
        return a.compare(b);
    }
    case FieldType::XDecimal:
        return rawXDecimal(m_data).compare(rawXDecimal(other.m_data));
    case FieldType::VarChar: {
        const StaticString a = FieldType::varCharToStaticString(m_data, def->length);
        const StaticString b = FieldType::varCharToStaticString(other.m_data, other.def->length);
        return QString::compare(a.string(), b.string(), Qt::CaseSensitive);
    }
    case FieldType::String:
        return QString::compare(stringCell(), other.stringCell(), Qt::CaseSensitive);
    default:
        return 0;
    }
}

bool Field::isEqual(const Field &other) const
{
    const bool aNull = isNull();
    const bool bNull = other.isNull();
    if (aNull || bNull)
        return aNull && bNull;
    const FieldType::Type type = def->type;
    if (type != other.def->type)
        return false;
    switch (type) {
    case FieldType::Undefined:
        return false;
    case FieldType::Integer:
        return asInteger() == other.asInteger();
    case FieldType::Integer64:
    case FieldType::DateTime:
        return asInteger64() == other.asInteger64();
    case FieldType::Double:
        return asDouble() == other.asDouble();
    case FieldType::Decimal:
        return asDecimal().compare(other.asDecimal()) == 0;
    case FieldType::XDecimal:
        return rawXDecimal(m_data).compare(rawXDecimal(other.m_data)) == 0;
    case FieldType::VarChar: {
        const StaticString a = FieldType::varCharToStaticString(m_data, def->length);
        const StaticString b = FieldType::varCharToStaticString(other.m_data, other.def->length);
        return a.string() == b.string();
    }
    case FieldType::String:
        return stringCell() == other.stringCell();
    default:
        throw Exception(QStringLiteral("Can't equal; two fields."));
    }
}
