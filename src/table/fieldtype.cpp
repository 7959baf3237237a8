#include "table/fieldtype.h"

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/stringpool.h"
#include "numeric/xdecimal.h"

#include <QStringRef>

#include <cstring>

uint64 FieldType::typeLength(Type type, int length)
{
    switch (type) {
    case Integer:
        return 4;
    case Integer64:
    case Double:
    case Decimal:
    case DateTime:
    case String:
        return 8;
    case XDecimal:
        return 16;
    case VarChar:
        if (length == 0)
            throw QString(QStringLiteral("Length of string can't be zero"));
        return uint64(length) * 2;
    case BoardList:
        return 404;
    default:
        throw QString(QStringLiteral("Type is undefined."));
    }
}

bool FieldType::typeHasLength(Type type)
{
    return type == Decimal || type == XDecimal || type == VarChar;
}

const char *FieldType::typeName(Type type)
{
    switch (type) {
    case Integer:
        return "Integer";
    case Integer64:
        return "Integer64";
    case Double:
        return "Double";
    case Decimal:
        return "Decimal";
    case XDecimal:
        return "XDecimal";
    case VarChar:
        return "VarChar";
    case DateTime:
        return "DateTime";
    case String:
        return "String";
    case BoardList:
        return "BoardList";
    default:
        return "Undefined";
    }
}

QString FieldType::typeNameWithLength(Type type, int length)
{
    QString name = QString::fromLatin1(typeName(type));
    if (type == Decimal || type == XDecimal || type == VarChar)
        name += QStringLiteral("[%1]").arg(length);
    return name;
}

bool FieldType::typeLessThan(Type a, int lengthA, Type b, int lengthB)
{
    if (a != b)
        return a == Integer && b == Integer64;
    if (lengthA == lengthB)
        return true;
    if (a == VarChar)
        return lengthA <= lengthB;
    return false;
}

QDateTime FieldType::getQDateTime(const unsigned char *p)
{
    return QDateTime::fromMSecsSinceEpoch(getInt64(p));
}

void FieldType::setQDateTime(unsigned char *p, const QDateTime &value)
{
    setInt64(p, value.toMSecsSinceEpoch());
}

namespace {
int unitCount(const unsigned char *p, int length)
{
    const ushort *units = reinterpret_cast<const ushort *>(p);
    int n = 0;
    while (n < length && units[n] != 0)
        ++n;
    return n;
}
} // namespace

QString FieldType::varCharToString(const unsigned char *p, int length)
{
    return QString(reinterpret_cast<const QChar *>(p), unitCount(p, length));
}

StaticString FieldType::varCharToStaticString(const unsigned char *p, int length)
{
    return StaticString(reinterpret_cast<const ushort *>(p), unitCount(p, length));
}

void FieldType::stringToVarChar(unsigned char *p, int length, const QString &text)
{
    stringToVarChar(p, length, text.utf16(), text.size());
}

void FieldType::stringToVarChar(unsigned char *p, int length, const QStringRef &text)
{
    stringToVarChar(p, length, reinterpret_cast<const ushort *>(text.unicode()), text.size());
}

void FieldType::stringToVarChar(unsigned char *p, int length, const ushort *units, int size)
{
    if (length <= 0)
        return;
    const int n = qBound(0, size, length);
    if (n > 0)
        std::memmove(p, units, size_t(n) * 2);
    if (n < length)
        std::memset(p + size_t(n) * 2, 0, size_t(length - n) * 2);
}

datetime FieldType::getDatetime(const unsigned char *p)
{
    return datetime(getInt64(p));
}

void FieldType::setDatetime(unsigned char *p, const datetime &value)
{
    setInt64(p, value.data());
}

namespace {
const uint64 scaleBits = uint64(0x7F) << 56;
}

decimal FieldType::getDecimal(const unsigned char *p, int scale)
{
    const uint64 word = (uint64(getInt64(p)) & ~scaleBits) | (uint64(scale & 0x7F) << 56);
    return decimal::from56s7(int64(word));
}

void FieldType::setDecimal(unsigned char *p, int scale, decimal value)
{
    if (value.scale() != scale)
        value.setScale(short(scale));
    setInt64(p, value.data());
}

xdecimal FieldType::getXDecimal(const unsigned char *p, int scale)
{
    xdecimal value;
    std::memcpy(value.data(), p, 16);
    value.setScale(short(scale));
    return value;
}

void FieldType::setXDecimal(unsigned char *p, int scale, xdecimal value)
{
    std::memcpy(p, value.data(), 16);
    if (value.scale() != scale)
        value.setScale(short(scale));
}

QString FieldType::stringToStringFromPool(const QString &text, StringPool *pool)
{
    // insert() holds the mutex only while it looks the text up; the copy that
    // shares the element is made after it is released.
    const QString &shared = pool->insert(text);
    return shared;
}

QString FieldType::stringToStringFromPool(const QStringRef &text, StringPool *pool)
{
    return stringToStringFromPool(text.toString(), pool);
}

QString FieldType::stringToStringFromPool(const ushort *units, int size, StringPool *pool)
{
    const QString text(reinterpret_cast<const QChar *>(units), unitCount(reinterpret_cast<const unsigned char *>(units), size));
    return *pool->m_strings.insert(text).first;
}
