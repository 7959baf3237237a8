#include "table/columndef.h"

#include <QDataStream>

TableColumnDef::TableColumnDef()
    : table(nullptr), offset(0), len(0), nullIndex(0), nullOffset(0), nullMask(0)
{
    nullable = true;
    flag = true;
}

TableColumnDef::TableColumnDef(Table *owner) : TableColumnDef()
{
    table = owner;
}

TableColumnDef::TableColumnDef(Table *owner, const TableColumnDef &other) : TableColumnDef(owner)
{
    type = other.type;
    length = other.length;
    name = other.name;
    title = other.title;
    description = other.description;
    len = other.len;
    nullable = other.nullable;
    flag = other.flag;
}

void TableColumnDef::update(uint64 rowLength, int index)
{
    nullIndex = index;
    nullOffset = uint64(index >> 3) + rowLength;
    nullMask = quint8(1u << (index & 7));
}

void TableColumnDef::write(QDataStream &stream) const
{
    stream << name << title << description << qint32(length) << qint8(type) << qint32(len)
           << nullable << flag;
}

void TableColumnDef::read(QDataStream &stream)
{
    qint32 storedLength = 0;
    qint8 storedType = 0;
    qint32 storedLen = 0;
    stream >> name >> title >> description >> storedLength >> storedType >> storedLen >> nullable
        >> flag;
    length = storedLength;
    type = FieldType::Type(storedType);
    // A String cell holds a QString object, whatever width an old file claims.
    len = (type == FieldType::String) ? 8 : uint64(quint32(storedLen));
}

QDataStream &operator<<(QDataStream &stream, const TableColumnDef &def)
{
    def.write(stream);
    return stream;
}

QDataStream &operator>>(QDataStream &stream, TableColumnDef &def)
{
    def.read(stream);
    return stream;
}
