#include "table/fieldconstvalue.h"

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/xdecimal.h"

#include <QVector>

#include <cstring>

FieldConstValue::FieldConstValue() : FieldValue() { }

void FieldConstValue::setText(const ushort *units, int size)
{
    FieldType::stringToVarChar(m_data, def->length, units, size);
    clearNull();
}

FieldConstValue::FieldConstValue(const QChar &value) : FieldValue(FieldType::VarChar, 1, false)
{
    const ushort unit = value.unicode();
    setText(&unit, 1);
}

FieldConstValue::FieldConstValue(const QString &value)
    : FieldValue(FieldType::VarChar, value.size(), false)
{
    setText(value.utf16(), value.size());
}

FieldConstValue::FieldConstValue(const char *value)
    : FieldValue(FieldType::VarChar, value ? int(std::strlen(value)) : 0, false)
{
    const QString text = QString::fromLatin1(value);
    setText(text.utf16(), text.size());
}

FieldConstValue::FieldConstValue(const decimal &value) : FieldValue(FieldType::Decimal, 0, false)
{
    FieldType::setInt64(m_data, value.data());
    clearNull();
}

FieldConstValue::FieldConstValue(const xdecimal &value) : FieldValue(FieldType::XDecimal, 0, false)
{
    std::memcpy(m_data, value.data(), 16);
    clearNull();
}

FieldConstValue::FieldConstValue(const datetime &value) : FieldValue(FieldType::DateTime, 0, false)
{
    FieldType::setDatetime(m_data, value);
    clearNull();
}

FieldConstValue::FieldConstValue(const int &value) : FieldValue(FieldType::Integer, 0, false)
{
    FieldType::setInt(m_data, value);
    clearNull();
}

FieldConstValue::FieldConstValue(const int64 &value) : FieldValue(FieldType::Integer64, 0, false)
{
    FieldType::setInt64(m_data, value);
    clearNull();
}

FieldConstValue::FieldConstValue(const double &value) : FieldValue(FieldType::Double, 0, false)
{
    FieldType::setDouble(m_data, value);
    clearNull();
}

FieldConstValue FieldConstValue::fromValue(const Field &field)
{
    if (!field.columnDef() || field.isNull())
        return FieldConstValue();
    switch (field.type()) {
    case FieldType::Integer:
        return FieldConstValue(field.asInteger());
    case FieldType::Integer64:
        return FieldConstValue(field.asInteger64());
    case FieldType::Double:
        return FieldConstValue(field.asDouble());
    case FieldType::Decimal:
        return FieldConstValue(field.toDecimal());
    case FieldType::XDecimal:
        return FieldConstValue(field.toXDecimal());
    case FieldType::DateTime:
        return FieldConstValue(field.toDatetime());
    case FieldType::VarChar:
        if (field.length() == 1)
            return FieldConstValue(field.toChar());
        return FieldConstValue(field.toString());
    default:
        // String cells do not carry over: the constant would need a pool.
        return FieldConstValue();
    }
}
