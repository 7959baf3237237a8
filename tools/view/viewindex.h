#ifndef TABLEDB_TOOLS_VIEWINDEX_H
#define TABLEDB_TOOLS_VIEWINDEX_H

#include "index/indexsort.h"

#include <QString>
#include <QVector>

// The viewer's sorted view of a table: by one column, up or down (rows of
// equal cells in the order they came), keeping only the rows that another
// index admits and whose text holds the filter in one of the given columns.
// Made and deleted under the table's lock: it joins and leaves the table's
// index list, which the writer walks.
class ViewIndex : public IndexSort
{
public:
    // `column` -1 keeps the order of arrival. `admits` may be null; it must
    // outlive this index.
    ViewIndex(Table *table, int column, Qt::SortOrder order, const Index *admits,
              const QString &filter, const QVector<int> &filterColumns);

    int compare(const Record &a, const Record &b) const override;
    bool filter(const Record &record) const override;

private:
    int m_column;
    bool m_descending;
    const Index *m_admits;
    QString m_filter;
    QVector<int> m_filterColumns;
};

#endif // TABLEDB_TOOLS_VIEWINDEX_H
