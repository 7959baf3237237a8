#ifndef TABLEDB_TABLE_FIELDTYPE_H
#define TABLEDB_TABLE_FIELDTYPE_H

#include "runtime/global.h"
#include "table/staticstring.h"

#include <QDateTime>
#include <QString>

class QStringRef;
class StringPool;
class datetime;
class decimal;
class xdecimal;

// The cell types of a table and the static functions that read and write a cell
// given only a pointer to its first byte. No other code knows cell widths.
class TABLEDB_EXPORT FieldType
{
public:
    enum Type : qint32 {
        Undefined = 0,
        Integer = 1,
        Integer64 = 2,
        Double = 3,
        Decimal = 4,
        XDecimal = 5,
        VarChar = 6,
        DateTime = 7,
        String = 8,
        BoardList = 9
    };

    // Cell width in bytes. Throws QString "Length of string can't be zero" for a
    // VarChar of length 0, and "Type is undefined." outside 1..9.
    static uint64 typeLength(Type type, int length);
    static bool typeHasLength(Type type);
    static const char *typeName(Type type);
    static QString typeNameWithLength(Type type, int length);
    // Whether a column of the first kind fits into one of the second; true for
    // identical definitions despite the name.
    static bool typeLessThan(Type a, int lengthA, Type b, int lengthB);

    static int getInt(const unsigned char *p) { return *reinterpret_cast<const qint32 *>(p); }
    static void setInt(unsigned char *p, int value) { *reinterpret_cast<qint32 *>(p) = value; }
    static int64 getInt64(const unsigned char *p) { return *reinterpret_cast<const qint64 *>(p); }
    static void setInt64(unsigned char *p, int64 value) { *reinterpret_cast<qint64 *>(p) = value; }
    static double getDouble(const unsigned char *p) { return *reinterpret_cast<const double *>(p); }
    static void setDouble(unsigned char *p, double value) { *reinterpret_cast<double *>(p) = value; }

    static QDateTime getQDateTime(const unsigned char *p);
    static void setQDateTime(unsigned char *p, const QDateTime &value);

    // The UTF-16 units up to the first zero unit, at most `length` of them.
    static QString varCharToString(const unsigned char *p, int length);
    // The same text without a copy; see StaticString for its limits.
    static StaticString varCharToStaticString(const unsigned char *p, int length);
    // Copies at most `length` units and zero-fills the rest; longer text is cut.
    static void stringToVarChar(unsigned char *p, int length, const QString &text);
    static void stringToVarChar(unsigned char *p, int length, const QStringRef &text);
    static void stringToVarChar(unsigned char *p, int length, const ushort *units, int size);

    static datetime getDatetime(const unsigned char *p);
    static void setDatetime(unsigned char *p, const datetime &value);
    // The stored word with its scale bits replaced by `scale`: the column's
    // scale rules, whatever scale stands in the cell.
    static decimal getDecimal(const unsigned char *p, int scale);
    // Stores the word as it is when its scale is `scale`, else rescaled.
    static void setDecimal(unsigned char *p, int scale, decimal value);
    // The 16 stored bytes, rescaled to `scale`.
    static xdecimal getXDecimal(const unsigned char *p, int scale);
    // Stores the value's 16 bytes with its own scale; the rescale that follows
    // works on the argument only. Readers rescale in getXDecimal; the stored
    // scale is what saved rows hold, so this order is kept.
    static void setXDecimal(unsigned char *p, int scale, xdecimal value);

    // The pool's shared copy of the text. These two take the pool's mutex.
    static QString stringToStringFromPool(const QString &text, StringPool *pool);
    static QString stringToStringFromPool(const QStringRef &text, StringPool *pool);
    // Up to the first zero unit within `size`. Takes no lock: the caller must
    // be the only writer of the pool at the time.
    static QString stringToStringFromPool(const ushort *units, int size, StringPool *pool);
};

#endif // TABLEDB_TABLE_FIELDTYPE_H
