#ifndef TABLEDB_TABLE_FIELDCONSTVALUE_H
#define TABLEDB_TABLE_FIELDCONSTVALUE_H

#include "table/fieldvalue.h"

// A non-NULL, non-nullable FieldValue made from a constant.
class TABLEDB_EXPORT FieldConstValue : public FieldValue
{
public:
    // Integer, nullable, NULL.
    FieldConstValue();
    FieldConstValue(const QChar &value); // VarChar[1]
    // VarChar of the text's length; empty text throws the QString "Length of
    // string can't be zero".
    FieldConstValue(const QString &value);
    FieldConstValue(const char *value); // Latin-1
    FieldConstValue(const decimal &value); // Decimal[0], the word as it is
    FieldConstValue(const xdecimal &value); // XDecimal[0], the bytes as they are
    FieldConstValue(const datetime &value);
    FieldConstValue(const int &value);
    FieldConstValue(const int64 &value);
    FieldConstValue(const double &value);

    // The field's value as a constant: NULL, String and BoardList give
    // FieldConstValue(); a VarChar takes the length of its text.
    static FieldConstValue fromValue(const Field &field);

private:
    void setText(const ushort *units, int size);
};

#endif // TABLEDB_TABLE_FIELDCONSTVALUE_H
