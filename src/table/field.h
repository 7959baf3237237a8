#ifndef TABLEDB_TABLE_FIELD_H
#define TABLEDB_TABLE_FIELD_H

#include "table/columndef.h"

#include <QChar>
#include <QVariant>

class FieldValue;
class QDate;
class QStringRef;
class QTime;
class StringPool;
class decimal;
class datetime;
class xdecimal;
struct boardlist;

// A view of one cell of a row. It owns nothing and is copied freely; it must not
// outlive the row it was taken from. Writing through it tells no index.
//
// Copy construction copies the view; assignment (operator=) writes the other
// cell's value into this cell, converting as needed.
//
// Failures are thrown by value: Exception for conversion errors (with the
// stack), a bare QString for "Incorrect type of field." and the QChar length
// message. Every write converts first and stores last, so a throw leaves the
// cell and its NULL bit as they were. Writes other than storeString() set the
// cell's bit (not NULL), unless they are documented to set NULL.
class TABLEDB_EXPORT Field
{
public:
    Field() : def(nullptr), m_data(nullptr), nullByte(nullptr), nullMask(0) { }
    Field(const Field &other) = default;

    FieldType::Type type() const { return def->type; }
    int length() const { return def->length; }
    unsigned char *data() const { return m_data; }
    const TableColumnDef *columnDef() const { return def; }
    // This class's own names: 0 "Invalid", 1..8 those of FieldType,
    // anything else (BoardList included) "undefined".
    QString typeName() const;

    // Plain reads with no conversion and no check of the type.
    int asInteger() const { return FieldType::getInt(m_data); }
    int64 asInteger64() const { return FieldType::getInt64(m_data); }
    double asDouble() const { return FieldType::getDouble(m_data); }
    // References into the cell; the decimal is the stored word, whatever the
    // column's scale.
    decimal &asDecimal();
    const decimal &asDecimal() const;
    xdecimal &asXDecimal();
    const xdecimal &asXDecimal() const;
    datetime &asDatetime();
    const datetime &asDatetime() const;
    boardlist &asBoardlist();
    const boardlist &asBoardlist() const;

    bool isNull() const { return (*nullByte & nullMask) != nullMask; }
    void setNull() { *nullByte &= ~nullMask; }
    void clearNull() { *nullByte |= nullMask; }

    // Converting reads. NULL gives zero (or the invalid value); a type that
    // the read does not accept throws Exception "Incorrect type conversion.".
    // Reads are stricter than writes: toInteger() of a Double throws.
    int toInteger() const; // Integer; Integer64 saturated
    int64 toInteger64() const; // Integer, Integer64
    double toDouble() const; // the numeric types
    decimal toDecimal() const; // Decimal, read at the column's scale
    xdecimal toXDecimal() const; // Decimal, XDecimal
    datetime toDatetime() const; // DateTime; VarChar and String parsed
    QDateTime toQDateTime() const; // DateTime, with the UTC spec
    QDate toQDate() const;
    QTime toQTime() const;
    boardlist toBoardlist() const;
    // VarChar of length 1 or a String of at most one character; otherwise a
    // QString is thrown.
    QChar toChar() const;
    // The cell as text; empty for NULL. Throws the QString "Incorrect type of
    // field." beyond the known types.
    QString toString() const;
    // The system locale's form, for display.
    QString toSystemString() const;
    // An invalid QVariant for NULL.
    QVariant toVariant() const;
    // The VarChar cell without a copy; it must not outlive the row. Throws
    // the QString "Incorrect type of field." for other types.
    StaticString asStaticString() const;

    // Writes with conversion; see the class comment.
    Field &operator=(const Field &other); // NULL copies NULL, whatever the types
    Field &operator=(const FieldValue &other);
    Field &operator=(int value);
    Field &operator=(int64 value);
    Field &operator=(double value);
    // Empty text makes a nullable cell NULL.
    Field &operator=(const QStringRef &text);
    Field &operator=(const QString &text);
    Field &operator=(const char *text); // UTF-8, as QString reads it
    Field &operator=(QChar value);
    Field &operator=(const decimal &value); // a Decimal cell keeps the value's scale
    Field &operator=(const xdecimal &value); // an XDecimal cell keeps the value's scale
    Field &operator=(const datetime &value);
    Field &operator=(const QDateTime &value); // invalid: NULL
    Field &operator=(const boardlist &value);
    Field &operator=(const QVariant &value);
    // Arithmetic on the numeric and DateTime cells. A NULL operand does
    // nothing; a NULL cell starts from zero.
    Field &operator+=(const Field &other);
    Field &operator-=(const Field &other);

    // Stores the pool's shared copy of the text in a String cell (the table's
    // pool, the global one for a detached value) and does not touch the NULL
    // bit. Takes the pool's mutex.
    void storeString(const QStringRef &text);
    void storeString(const QString &text);
    // Up to the first zero unit. Takes no lock: the caller must be the only
    // writer of the pool at the time.
    void storeString(const ushort *units, int size);

    // The order of sorted indexes: NULL first, then by type number, then by
    // value. Allocates nothing. A NaN compares equal to everything and
    // BoardList cells compare equal; isEqual() differs there on purpose.
    int compare(const Field &other) const;
    bool operator==(const Field &o) const { return compare(o) == 0; }
    bool operator!=(const Field &o) const { return compare(o) != 0; }
    bool operator<(const Field &o) const { return compare(o) < 0; }
    bool operator<=(const Field &o) const { return compare(o) <= 0; }
    bool operator>(const Field &o) const { return compare(o) > 0; }
    bool operator>=(const Field &o) const { return compare(o) >= 0; }
    // Value equality: NaN is unequal to itself, decimals are compared across
    // scales, and BoardList throws Exception "Can't equal; two fields.".
    bool isEqual(const Field &other) const;

    // Throw Exception "Can't convert from <source> to <own>".
    [[noreturn]] static void incompatibleType(FieldType::Type own, FieldType::Type source);
    [[noreturn]] void incompatibleType(FieldType::Type source) const;

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

private:
    // Text that came from a number, a value or a character: the same path as
    // operator=(QStringRef), reached only by VarChar and String cells.
    void assignText(const QString &text);
    QString &stringCell() const { return *reinterpret_cast<QString *>(m_data); }
    // The DateTime cell; throws "Incorrect type conversion." for other types.
    datetime dateTimeCell() const;
    StringPool *stringPool() const;

    friend class Record;
    friend class Table;
};

#endif // TABLEDB_TABLE_FIELD_H
