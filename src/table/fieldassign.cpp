#include "table/field.h"

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/stringpool.h"
#include "numeric/xdecimal.h"
#include "runtime/exception.h"
#include "table/boardlist.h"
#include "table/fieldvalue.h"
#include "table/table.h"

#include <QStringRef>

#include <cmath>
#include <cstring>
#include <limits>

// The writing half of Field: every assignment converts first and stores last.

namespace {

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

const xdecimal zeroXDecimal;

} // namespace

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
