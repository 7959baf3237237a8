#include "marketcheck.h"

#include "index/indexsort.h"
#include "index/masterindex.h"
#include "table/table.h"

#include <QStringList>

#include <algorithm>
#include <iterator>
#include <vector>

namespace {

std::vector<Record> masterRows(const Table &table)
{
    std::vector<Record> rows;
    rows.reserve(size_t(table.rowCount()));
    const MasterIndex *master = table.masterIndex();
    for (auto it = master->begin(); it != master->end(); ++it)
        rows.push_back(*it);
    return rows;
}

} // namespace

QString MarketCheck::view(const IndexSort &view)
{
    Table *table = const_cast<Table *>(view.table());
    TableLocker locker(table);
    std::vector<Record> expected;
    for (const Record &row : masterRows(*table)) {
        if (view.filter(row))
            expected.push_back(row);
    }
    std::vector<Record> held(view.begin(), view.end());
    int misordered = 0, first = -1;
    for (size_t i = 1; i < held.size(); ++i) {
        if (view.compare(held[i - 1], held[i]) > 0) {
            if (first < 0)
                first = int(i);
            ++misordered;
        }
    }

    // Identity, not key: the same row must stand there once.
    std::sort(held.begin(), held.end());
    std::sort(expected.begin(), expected.end());
    QStringList wrong;
    const auto doubled = std::adjacent_find(held.begin(), held.end());
    if (doubled != held.end())
        wrong.append(QStringLiteral("holds row %1 twice").arg(doubled->toString()));
    held.erase(std::unique(held.begin(), held.end()), held.end());
    std::vector<Record> difference;
    std::set_difference(expected.begin(), expected.end(), held.begin(), held.end(),
                        std::back_inserter(difference));
    if (!difference.empty())
        wrong.append(QStringLiteral("misses %1 rows, the first %2")
                             .arg(difference.size())
                             .arg(difference.front().toString()));
    difference.clear();
    std::set_difference(held.begin(), held.end(), expected.begin(), expected.end(),
                        std::back_inserter(difference));
    if (!difference.empty())
        wrong.append(QStringLiteral("holds %1 rows that are not in the table or fail its filter")
                             .arg(difference.size()));
    if (!wrong.isEmpty())
        return QStringLiteral("holds %1 rows where the table has %2: %3")
                .arg(view.count())
                .arg(expected.size())
                .arg(wrong.join(QStringLiteral("; ")));
    if (misordered > 0)
        return QStringLiteral("%1 neighbours out of order, the first at position %2")
                .arg(misordered)
                .arg(first);
    return QString();
}

QString MarketCheck::sameRows(const Table &live, const Table &loaded)
{
    TableLocker liveLocker(const_cast<Table *>(&live));
    TableLocker loadedLocker(const_cast<Table *>(&loaded));
    if (live.columnCount() != loaded.columnCount())
        return QStringLiteral("%1 columns where the table has %2")
                .arg(loaded.columnCount())
                .arg(live.columnCount());
    for (int c = 0; c < live.columnCount(); ++c) {
        if (live.columnName(c) != loaded.columnName(c) || live.columnType(c) != loaded.columnType(c))
            return QStringLiteral("column %1 is %2 %3 where the table has %4 %5")
                    .arg(c)
                    .arg(loaded.columnName(c), loaded.columnTypeName(c), live.columnName(c),
                         live.columnTypeName(c));
    }
    const std::vector<Record> a = masterRows(live);
    const std::vector<Record> b = masterRows(loaded);
    if (a.size() != b.size())
        return QStringLiteral("%1 rows where the table has %2").arg(b.size()).arg(a.size());
    for (size_t i = 0; i < a.size(); ++i) {
        for (int c = 0; c < live.columnCount(); ++c) {
            const Field x = a[i].data(c), y = b[i].data(c);
            if (x.isNull() != y.isNull() || (!x.isNull() && x.compare(y) != 0))
                return QStringLiteral("row %1 (%2), column %3: \"%4\" where the table has \"%5\"")
                        .arg(i)
                        .arg(a[i].toString(), live.columnName(c), y.toString(), x.toString());
        }
    }
    return QString();
}
