#ifndef TABLEDB_TABLE_COLUMNDEF_H
#define TABLEDB_TABLE_COLUMNDEF_H

#include "table/fieldtype.h"

#include <QString>

class QDataStream;
class Table;

// A column's type and length.
struct TABLEDB_EXPORT FieldDef
{
    FieldDef() : type(FieldType::Integer), length(0) { }
    FieldDef(FieldType::Type t) : type(t), length(0) { }
    FieldDef(FieldType::Type t, int l) : type(t), length(l) { }

    FieldType::Type type;
    qint32 length; // VarChar: maximum UTF-16 units; Decimal, XDecimal: scale
};

// A column's type plus its names and flags.
struct TABLEDB_EXPORT ColumnDef : public FieldDef
{
    // Leaves `nullable` and `flag` unset: every path that builds a real column
    // sets them.
    ColumnDef() { }

    QString name;
    bool nullable; // new rows start NULL here, and empty text makes the cell NULL
    QString title;
    bool flag; // carried and saved, never read by the store
    QString description;
};

// A column's definition and its place in the row.
struct TABLEDB_EXPORT TableColumnDef : public ColumnDef
{
    TableColumnDef();
    explicit TableColumnDef(Table *owner);
    // Copies the definition, not the place: offset and null data start at 0.
    TableColumnDef(Table *owner, const TableColumnDef &other);

    uint64 lenAligned() const { return (len + 7) & ~uint64(7); }
    // Places the column's null bit for a row whose cell area is `rowLength` long.
    void update(uint64 rowLength, int index);

    // Name, title, description, length, type, len, nullable, flag. The place in
    // the row is not stored; it is computed when the column joins a table.
    void write(QDataStream &stream) const;
    void read(QDataStream &stream);

    Table *table;
    uint64 offset; // from the start of the cell area
    uint64 len; // cell width before alignment
    qint32 nullIndex; // column number, also its bit in the null bitmap
    uint64 nullOffset; // from the start of the cell area to the bitmap byte
    quint8 nullMask; // the bit within that byte
};

TABLEDB_EXPORT QDataStream &operator<<(QDataStream &stream, const TableColumnDef &def);
TABLEDB_EXPORT QDataStream &operator>>(QDataStream &stream, TableColumnDef &def);

#endif // TABLEDB_TABLE_COLUMNDEF_H
