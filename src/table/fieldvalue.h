#ifndef TABLEDB_TABLE_FIELDVALUE_H
#define TABLEDB_TABLE_FIELDVALUE_H

#include "table/field.h"

#include <QList>

class Table;

// A Field that owns its cell and a private copy of its column definition (with
// no table), so that a value lives without any row: a search key, a filter's
// constant, the text form of a key. A new value is NULL until written.
//
// String cells written through Field share the global StringPool.
class TABLEDB_EXPORT FieldValue : public Field
{
public:
    // Integer, nullable, NULL.
    FieldValue();
    // Throws the QString of FieldType::typeLength (a VarChar of length 0).
    FieldValue(FieldType::Type type, int length, bool nullable);
    // A NULL value of that column's definition.
    explicit FieldValue(const TableColumnDef *def);
    // Throw the QString "Column '%1' not found." for a column the table does
    // not have.
    FieldValue(Table *table, int column);
    FieldValue(Table *table, const QString &columnName);
    // The definition, the content and the NULL state. A default Field (on no
    // cell) gives FieldValue().
    FieldValue(const Field &other);
    FieldValue(const FieldValue &other);
    // Destroys the old cell as the destructor does (a String cell's QString
    // included), then rebuilds as the copy constructor does; self-assignment
    // has no effect. Deliberate: releasing the old text here keeps assigning
    // in a loop from pinning every old string, the pooled ones included.
    FieldValue &operator=(const FieldValue &other);
    virtual ~FieldValue();

    using Field::operator=;

    // Field::toString().
    QString toText() const;
    // A String value takes the text as it is, without the pool and without
    // touching the NULL bit; other types go through Field::operator=(QStringRef).
    void fromText(const QString &text);
    // As above, except that a String value's bit is set.
    void fromText(const QStringRef &text);

protected:
    // Places the cell at offset 0 of a new zeroed buffer, the null byte behind
    // it. Takes ownership of `columnDef`.
    void init(TableColumnDef *columnDef);

private:
    void copyFrom(const Field &other);
    void release();
};

// The container of values; instantiated once, in the library.
extern template class TABLEDB_EXPORT QList<FieldValue>;

#endif // TABLEDB_TABLE_FIELDVALUE_H
