#include "viewindex.h"

#include "model/celltext.h"

ViewIndex::ViewIndex(Table *table, int column, Qt::SortOrder order, const Index *admits,
                     const QString &filter, const QVector<int> &filterColumns)
    : IndexSort(table, true),
      m_column(column),
      m_descending(order == Qt::DescendingOrder),
      m_admits(admits),
      m_filter(filter),
      m_filterColumns(filterColumns)
{
}

int ViewIndex::compare(const Record &a, const Record &b) const
{
    if (m_column < 0)
        return 0;
    const int c = a.data(m_column).compare(b.data(m_column));
    return m_descending ? -c : c;
}

bool ViewIndex::filter(const Record &record) const
{
    if (m_admits && !m_admits->filter(record))
        return false;
    if (m_filter.isEmpty())
        return true;
    for (int column : m_filterColumns) {
        if (CellText::text(record.data(column)).contains(m_filter, Qt::CaseInsensitive))
            return true;
    }
    return false;
}
