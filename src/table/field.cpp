#include "table/field.h"

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/stringpool.h"
#include "numeric/xdecimal.h"
#include "runtime/exception.h"
#include "table/boardlist.h"
#include "table/fieldvalue.h"
#include "table/table.h"

#include <QLocale>
#include <QStringRef>

#include <cmath>
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

// Truncation toward zero that stays defined outside the target's range: the
// result saturates there, and a NaN gives 0.
template <typename Int>
Int truncated(double value)
{
    if (std::isnan(value))
        return 0;
    if (value <= double(std::numeric_limits<Int>::min()))
        return std::numeric_limits<Int>::min();
    if (value >= double(std::numeric_limits<Int>::max()))
        return std::numeric_limits<Int>::max();
    return Int(value);
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

const xdecimal zeroXDecimal;

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

QDateTime Field::toQDateTime() const
{
    if (isNull())
        return QDateTime();
    if (def->type != FieldType::DateTime)
        throwIncorrectConversion();
    return FieldType::getDatetime(m_data).getDateTime();
}

QDate Field::toQDate() const
{
    if (isNull())
        return QDate();
    if (def->type != FieldType::DateTime)
        throwIncorrectConversion();
    return FieldType::getDatetime(m_data).getDate();
}

QTime Field::toQTime() const
{
    if (isNull())
        return QTime();
    if (def->type != FieldType::DateTime)
        throwIncorrectConversion();
    return FieldType::getDatetime(m_data).getTime();
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
// Writes

StringPool *Field::stringPool() const
{
    // A detached value has no table; its strings share the global pool.
    return def->table ? def->table->stringPool() : StringPool::global();
}

void Field::storeString(const QStringRef &text)
{
    stringCell() = FieldType::stringToStringFromPool(text, stringPool());
}

void Field::storeString(const QString &text)
{
    stringCell() = FieldType::stringToStringFromPool(text, stringPool());
}

void Field::storeString(const ushort *units, int size)
{
    stringCell() = FieldType::stringToStringFromPool(units, size, stringPool());
}

void Field::assignText(const QString &text)
{
    *this = QStringRef(&text);
}

Field &Field::operator=(const QStringRef &text)
{
    if (text.isEmpty() && def->nullable) {
        setNull();
        return *this;
    }
    bool ok = true;
    switch (def->type) {
    case FieldType::Integer: {
        const int v = text.toInt(&ok, 10);
        if (ok)
            FieldType::setInt(m_data, v);
        break;
    }
    case FieldType::Integer64: {
        const qlonglong v = text.toLongLong(&ok, 10);
        if (ok)
            FieldType::setInt64(m_data, v);
        break;
    }
    case FieldType::Double: {
        const double v = text.toDouble(&ok);
        if (ok)
            FieldType::setDouble(m_data, v);
        break;
    }
    case FieldType::Decimal:
        FieldType::setInt64(m_data, decimal(text).data());
        break;
    case FieldType::XDecimal:
        *this = xdecimal(text);
        return *this;
    case FieldType::DateTime:
        FieldType::setDatetime(m_data, datetime(text));
        break;
    case FieldType::VarChar:
        FieldType::stringToVarChar(m_data, def->length, text);
        break;
    case FieldType::String:
        storeString(text);
        break;
    default:
        incompatibleType(FieldType::VarChar);
    }
    if (!ok)
        throw Exception(QStringLiteral("Can't convert from '%1'' to %2")
                            .arg(text.toString(), QString::fromLatin1(FieldType::typeName(def->type))));
    clearNull();
    return *this;
}

Field &Field::operator=(const QString &text)
{
    return *this = QStringRef(&text);
}

Field &Field::operator=(const char *text)
{
    return *this = QString::fromUtf8(text);
}

Field &Field::operator=(int value)
{
    switch (def->type) {
    case FieldType::Integer:
        FieldType::setInt(m_data, value);
        break;
    case FieldType::Integer64:
        FieldType::setInt64(m_data, value);
        break;
    case FieldType::Double:
        FieldType::setDouble(m_data, value);
        break;
    case FieldType::Decimal:
        FieldType::setDecimal(m_data, def->length, decimal(value, 0));
        break;
    case FieldType::XDecimal:
        return *this = xdecimal(value, 0);
    case FieldType::VarChar:
    case FieldType::String:
        assignText(QStringLiteral("%1").arg(value, 0, 10));
        return *this;
    default:
        incompatibleType(FieldType::Integer);
    }
    clearNull();
    return *this;
}

Field &Field::operator=(int64 value)
{
    switch (def->type) {
    case FieldType::Integer:
        FieldType::setInt(m_data, saturated(value));
        break;
    case FieldType::Integer64:
        FieldType::setInt64(m_data, value);
        break;
    case FieldType::Double:
        FieldType::setDouble(m_data, double(value));
        break;
    case FieldType::Decimal:
        FieldType::setDecimal(m_data, def->length, decimal(value, 0));
        break;
    case FieldType::XDecimal:
        return *this = xdecimal(value, 0);
    case FieldType::VarChar:
    case FieldType::String:
        assignText(QStringLiteral("%1").arg(qlonglong(value), 0, 10));
        return *this;
    default:
        incompatibleType(FieldType::Integer64);
    }
    clearNull();
    return *this;
}

Field &Field::operator=(double value)
{
    switch (def->type) {
    case FieldType::Integer:
        FieldType::setInt(m_data, truncated<int>(value));
        break;
    case FieldType::Integer64:
        FieldType::setInt64(m_data, truncated<int64>(value));
        break;
    case FieldType::Double:
        FieldType::setDouble(m_data, value);
        break;
    case FieldType::Decimal:
        FieldType::setDecimal(m_data, def->length, decimal::fromDouble(value, 6));
        break;
    case FieldType::XDecimal:
        return *this = xdecimal::fromDouble(value, 6);
    case FieldType::VarChar:
    case FieldType::String:
        assignText(QStringLiteral("%1").arg(value, 0, 'f', 6));
        return *this;
    case FieldType::DateTime:
        throw Exception(QStringLiteral("Can't convert double to datetime."));
    default:
        incompatibleType(FieldType::Double);
    }
    clearNull();
    return *this;
}

Field &Field::operator=(const decimal &value)
{
    switch (def->type) {
    case FieldType::Integer:
        FieldType::setInt(m_data, truncated<int>(value.toDouble()));
        break;
    case FieldType::Integer64:
        FieldType::setInt64(m_data, truncated<int64>(value.toDouble()));
        break;
    case FieldType::Double:
        FieldType::setDouble(m_data, value.toDouble());
        break;
    case FieldType::Decimal:
        // No rescale: the word keeps its scale until getDecimal reads it.
        FieldType::setInt64(m_data, value.data());
        break;
    case FieldType::XDecimal:
        return *this = xdecimal(value.value(), value.scale());
    case FieldType::VarChar:
    case FieldType::String:
        assignText(value.toString());
        return *this;
    case FieldType::DateTime:
        throw Exception(QStringLiteral("Can't convert from decimal to datetime."));
    default:
        incompatibleType(FieldType::Decimal);
    }
    clearNull();
    return *this;
}

Field &Field::operator=(const xdecimal &value)
{
    switch (def->type) {
    case FieldType::Integer:
        FieldType::setInt(m_data, truncated<int>(value.toDouble()));
        break;
    case FieldType::Integer64:
        FieldType::setInt64(m_data, truncated<int64>(value.toDouble()));
        break;
    case FieldType::Double:
        FieldType::setDouble(m_data, value.toDouble());
        break;
    case FieldType::Decimal:
        FieldType::setInt64(m_data, decimal::fromString(value.toString()).data());
        break;
    case FieldType::XDecimal:
        if (value.scale() != def->length) {
            // setXDecimal rescales its argument after storing; a value that
            // cannot take the column's scale must throw before the cell changes.
            xdecimal probe(value);
            probe.setScale(short(def->length));
        }
        FieldType::setXDecimal(m_data, def->length, value);
        break;
    case FieldType::VarChar:
    case FieldType::String:
        assignText(value.toString());
        return *this;
    case FieldType::DateTime:
        // The message names decimal for both decimal kinds.
        throw Exception(QStringLiteral("Can't convert from decimal to datetime."));
    default:
        incompatibleType(FieldType::Decimal);
    }
    clearNull();
    return *this;
}

Field &Field::operator=(const datetime &value)
{
    switch (def->type) {
    case FieldType::DateTime:
        FieldType::setDatetime(m_data, value);
        break;
    case FieldType::VarChar:
    case FieldType::String:
        assignText(value.toString());
        return *this;
    default:
        incompatibleType(FieldType::DateTime);
    }
    clearNull();
    return *this;
}

Field &Field::operator=(const QDateTime &value)
{
    if (!value.isValid()) {
        setNull();
        return *this;
    }
    switch (def->type) {
    case FieldType::DateTime: {
        QDateTime utc(value);
        utc.setTimeSpec(Qt::UTC);
        FieldType::setInt64(m_data, utc.toMSecsSinceEpoch());
        break;
    }
    case FieldType::VarChar:
    case FieldType::String:
        assignText(value.toString(QStringLiteral("yyyy.MM.dd HH:mm:ss.zzz")));
        return *this;
    default:
        incompatibleType(FieldType::DateTime);
    }
    clearNull();
    return *this;
}

Field &Field::operator=(QChar value)
{
    switch (def->type) {
    case FieldType::VarChar: {
        const ushort unit = value.unicode();
        FieldType::stringToVarChar(m_data, def->length, &unit, 1);
        break;
    }
    case FieldType::String:
        storeString(QString(value));
        break;
    default:
        incompatibleType(FieldType::VarChar);
    }
    clearNull();
    return *this;
}

Field &Field::operator=(const boardlist &value)
{
    if (def->type != FieldType::BoardList)
        incompatibleType(FieldType::BoardList);
    std::memmove(m_data, &value, sizeof(boardlist));
    clearNull();
    return *this;
}

Field &Field::operator=(const Field &other)
{
    if (other.isNull()) {
        setNull();
        return *this;
    }
    const FieldType::Type source = other.def->type;
    if (source == def->type) {
        bool copied = true;
        switch (source) {
        case FieldType::Integer:
        case FieldType::Integer64:
        case FieldType::Double:
        case FieldType::DateTime:
            std::memmove(m_data, other.m_data, def->len);
            break;
        case FieldType::String:
            stringCell() = other.stringCell();
            break;
        case FieldType::BoardList:
            std::memmove(m_data, other.m_data, sizeof(boardlist));
            break;
        case FieldType::Decimal:
        case FieldType::XDecimal:
        case FieldType::VarChar:
            copied = def->length == other.def->length && def->len == other.def->len;
            if (copied)
                std::memmove(m_data, other.m_data, def->len);
            break;
        default:
            copied = false;
        }
        if (copied) {
            clearNull();
            return *this;
        }
    }
    switch (source) {
    case FieldType::Integer:
        return *this = other.asInteger();
    case FieldType::Integer64:
        return *this = other.asInteger64();
    case FieldType::Double:
        return *this = other.asDouble();
    case FieldType::Decimal:
        return *this = other.toDecimal();
    case FieldType::XDecimal:
        return *this = other.toXDecimal();
    case FieldType::VarChar:
    case FieldType::String:
        return *this = other.toString();
    case FieldType::DateTime:
        return *this = other.toDatetime();
    default:
        incompatibleType(source);
    }
}

Field &Field::operator=(const FieldValue &other)
{
    return *this = static_cast<const Field &>(other);
}

Field &Field::operator=(const QVariant &value)
{
    switch (def->type) {
    case FieldType::Integer:
        return *this = value.toInt();
    case FieldType::Integer64:
        return *this = int64(value.toLongLong());
    case FieldType::Double:
        return *this = value.toDouble();
    case FieldType::Decimal:
        return *this = decimal::fromVariant(value);
    case FieldType::XDecimal:
        return *this = xdecimal::fromVariant(value);
    case FieldType::VarChar:
    case FieldType::String: {
        const QString text = value.toString();
        return *this = QStringRef(&text);
    }
    case FieldType::DateTime:
        if (value.userType() == datetime::metatypeId())
            return *this = value.value<datetime>();
        if (value.userType() == QMetaType::QDateTime)
            return *this = value.toDateTime();
        // Anything else is read as a boardlist, which a DateTime cell refuses.
        Q_FALLTHROUGH();
    default:
        return *this = boardlist::fromText(value.toString());
    }
}

Field &Field::operator+=(const Field &other)
{
    if (other.isNull())
        return *this;
    // The operand is read before the cell changes, so a refused operand
    // leaves a NULL cell NULL.
    const bool wasNull = isNull();
    switch (def->type) {
    case FieldType::Integer: {
        const int v = other.toInteger();
        const int base = wasNull ? 0 : asInteger();
        FieldType::setInt(m_data, int(quint32(base) + quint32(v)));
        break;
    }
    case FieldType::Integer64: {
        const int64 v = other.toInteger64();
        const int64 base = wasNull ? 0 : asInteger64();
        FieldType::setInt64(m_data, int64(uint64(base) + uint64(v)));
        break;
    }
    case FieldType::Double: {
        const double v = other.toDouble();
        FieldType::setDouble(m_data, (wasNull ? 0.0 : asDouble()) + v);
        break;
    }
    case FieldType::Decimal: {
        const decimal v = other.toDecimal();
        decimal base = wasNull ? decimal() : toDecimal();
        base += v;
        FieldType::setDecimal(m_data, def->length, base);
        break;
    }
    case FieldType::XDecimal: {
        const xdecimal v = other.toXDecimal();
        xdecimal base = wasNull ? zeroXDecimal : toXDecimal();
        base += v;
        *this = base;
        break;
    }
    case FieldType::DateTime: {
        const datetime v = other.toDatetime();
        const int64 base = wasNull ? 0 : asInteger64();
        FieldType::setInt64(m_data, int64(uint64(base) + uint64(v.data())));
        break;
    }
    default:
        incompatibleType(FieldType::VarChar);
    }
    clearNull();
    return *this;
}

Field &Field::operator-=(const Field &other)
{
    if (other.isNull())
        return *this;
    const bool wasNull = isNull();
    switch (def->type) {
    case FieldType::Integer: {
        const int v = other.toInteger();
        const int base = wasNull ? 0 : asInteger();
        FieldType::setInt(m_data, int(quint32(base) - quint32(v)));
        break;
    }
    case FieldType::Integer64: {
        const int64 v = other.toInteger64();
        const int64 base = wasNull ? 0 : asInteger64();
        FieldType::setInt64(m_data, int64(uint64(base) - uint64(v)));
        break;
    }
    case FieldType::Double: {
        const double v = other.toDouble();
        FieldType::setDouble(m_data, (wasNull ? 0.0 : asDouble()) - v);
        break;
    }
    case FieldType::Decimal: {
        const decimal v = other.toDecimal();
        decimal base = wasNull ? decimal() : toDecimal();
        base -= v;
        FieldType::setDecimal(m_data, def->length, base);
        break;
    }
    case FieldType::XDecimal: {
        const xdecimal v = other.toXDecimal();
        xdecimal base = wasNull ? zeroXDecimal : toXDecimal();
        base -= v;
        *this = base;
        break;
    }
    case FieldType::DateTime: {
        const datetime v = other.toDatetime();
        const int64 base = wasNull ? 0 : asInteger64();
        FieldType::setInt64(m_data, int64(uint64(base) - uint64(v.data())));
        break;
    }
    default:
        incompatibleType(FieldType::VarChar);
    }
    clearNull();
    return *this;
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
