#ifndef TABLEDB_TABLE_FIELD_H
#define TABLEDB_TABLE_FIELD_H

#include "table/columndef.h"

// A view of one cell of a row. It owns nothing and is copied freely; it must not
// outlive the row it was taken from. Writing through it tells no index.
class TABLEDB_EXPORT Field
{
public:
    Field() : def(nullptr), m_data(nullptr), nullByte(nullptr), nullMask(0) { }

    FieldType::Type type() const { return def->type; }
    int length() const { return def->length; }
    unsigned char *data() const { return m_data; }
    const TableColumnDef *columnDef() const { return def; }

    // Plain reads with no conversion and no check of the type.
    int asInteger() const { return FieldType::getInt(m_data); }
    int64 asInteger64() const { return FieldType::getInt64(m_data); }
    double asDouble() const { return FieldType::getDouble(m_data); }

    bool isNull() const { return (*nullByte & nullMask) != nullMask; }
    void setNull() { *nullByte &= ~nullMask; }
    void clearNull() { *nullByte |= nullMask; }

    // The cell as text; empty for NULL.
    QString toString() const;

protected:
    // `cells` is the start of the row's cell area.
    Field(TableColumnDef *columnDef, unsigned char *cells)
        : def(columnDef),
          m_data(cells + columnDef->offset),
          nullByte(cells + columnDef->nullOffset),
          nullMask(columnDef->nullMask)
    {
    }

    TableColumnDef *def;
    unsigned char *m_data; // the cell
    unsigned char *nullByte; // the bitmap byte holding this column's bit
    quint32 nullMask;

    friend class Record;
    friend class Table;
};

#endif // TABLEDB_TABLE_FIELD_H
