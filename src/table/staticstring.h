#ifndef TABLEDB_TABLE_STATICSTRING_H
#define TABLEDB_TABLE_STATICSTRING_H

#include "runtime/global.h"

#include <QString>

// A QString that reads a VarChar cell in place: a static string-data header
// (reference count -1, no allocation) whose offset leads to the cell. Copies of
// the QString share the cell, so neither may outlive the row, and the object
// itself must not be moved: the offset is relative to its own address.
class TABLEDB_EXPORT StaticString
{
public:
    // An empty string.
    StaticString();
    // `size` units starting at `units`, which must stay valid and unmoved.
    StaticString(const ushort *units, int size);

    StaticString(const StaticString &) = delete;
    StaticString &operator=(const StaticString &) = delete;

    const QString &string() const { return m_string; }
    operator const QString &() const { return m_string; }
    int size() const { return m_header.size; }

private:
    QStringData m_header;
    QString m_string;
};

#endif // TABLEDB_TABLE_STATICSTRING_H
