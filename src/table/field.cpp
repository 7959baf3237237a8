#include "table/field.h"

#include "numeric/decimal.h"
#include "table/boardlist.h"

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
    case FieldType::Decimal: {
        // The column's scale rules over the scale bits standing in the cell.
        const uint64 word = (uint64(FieldType::getInt64(m_data)) & ~(uint64(0x7F) << 56))
                            | (uint64(def->length & 0x7F) << 56);
        return decimal::from56s7(int64(word)).toString();
    }
    case FieldType::VarChar:
        return FieldType::varCharToString(m_data, def->length);
    case FieldType::String:
        return *reinterpret_cast<const QString *>(m_data);
    case FieldType::BoardList:
        return QStringLiteral("[BoardList]");
    default:
        break;
    }
    throw QString(QStringLiteral("Incorrect type of field."));
}
