#ifndef TABLEDB_IO_FIELDDEFCONVERTOR_H
#define TABLEDB_IO_FIELDDEFCONVERTOR_H

#include "runtime/global.h"

class Field;
struct TableColumnDef;

// Moves one cell of a row read from a file into a row of the table. The base
// converts through Field::operator= (and throws what that throws); the copy
// classes of TableIO take cells of an unchanged column as they are.
class TABLEDB_EXPORT FieldDefConvertor
{
public:
    FieldDefConvertor() : from(nullptr), to(nullptr) { }
    virtual ~FieldDefConvertor();
    virtual void convert(Field &to, const Field &from);

    TableColumnDef *from; // the file's column; not owned
    TableColumnDef *to; // the table's column; not owned
};

#endif // TABLEDB_IO_FIELDDEFCONVERTOR_H
