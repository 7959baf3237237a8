#ifndef TABLEDB_JOIN_COL_H
#define TABLEDB_JOIN_COL_H

#include "runtime/global.h"

#include <QVector>

#include <algorithm>

// One column mapping of a join: cell `source` of one row is copied to cell
// `target` of another. Both are column numbers (positions in fieldDefs()) of
// the tables that the mapping names.
struct Col
{
    qint32 target; // the column written
    qint32 source; // the column read
};

Q_DECLARE_TYPEINFO(Col, Q_PRIMITIVE_TYPE);

inline bool operator==(const Col &a, const Col &b)
{
    return a.target == b.target && a.source == b.source;
}

// A copy ordered by `source`; equal sources keep their order.
inline QVector<Col> sortedBySource(QVector<Col> columns)
{
    std::stable_sort(columns.begin(), columns.end(),
                     [](const Col &a, const Col &b) { return a.source < b.source; });
    return columns;
}

#endif // TABLEDB_JOIN_COL_H
