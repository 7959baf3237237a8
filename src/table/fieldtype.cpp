#include "table/fieldtype.h"

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
