#include "index/indexlimit.h"

#include "index/masterindex.h"
#include "table/table.h"

#include <algorithm>

IndexLimit::IndexLimit(int limit, Table *table)
    : IndexSort(table, true), m_limit(limit), m_master(table->masterIndex())
{
    table->setIndexName(QStringLiteral("IndexLimit"), this);
}

bool IndexLimit::containsRecord(const QList<Record> &list, const Record &record) const
{
    const auto bound = std::lower_bound(list.cbegin(), list.cend(), record,
                                        [this](const Record &element, const Record &key) {
                                            return m_master->compare(element, key) < 0;
                                        });
    return bound != list.cend() && m_master->compare(record, *bound) >= 0;
}

void IndexLimit::toRemove(int delta, QList<Record> &removed, const QList<Record> &updated)
{
    const int available = count();
    const int excess = available - m_limit + delta;
    if (excess <= 0)
        return;
    int i = 0;
    for (auto it = begin(); i < excess && i < available; ++it, ++i) {
        const Record &row = *it;
        if (containsRecord(removed, row) || containsRecord(updated, row))
            continue;
        const auto bound = std::upper_bound(removed.begin(), removed.end(), row,
                                            [this](const Record &key, const Record &element) {
                                                return m_master->compare(key, element) < 0;
                                            });
        removed.insert(bound, row);
    }
}

QString IndexLimit::getClassName() const
{
    return QStringLiteral("IndexLimit");
}
