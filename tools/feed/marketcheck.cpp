#include "marketcheck.h"

#include "index/indexsort.h"
#include "index/masterindex.h"
#include "table/table.h"

#include <algorithm>
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
    if (held.size() != expected.size())
        return QStringLiteral("holds %1 rows where the table has %2").arg(held.size()).arg(expected.size());

    int misordered = 0, first = -1;
    for (size_t i = 1; i < held.size(); ++i) {
        if (view.compare(held[i - 1], held[i]) > 0) {
            if (first < 0)
                first = int(i);
            ++misordered;
        }
    }

    std::sort(held.begin(), held.end());
    std::sort(expected.begin(), expected.end());
    const auto mismatch = std::mismatch(held.begin(), held.end(), expected.begin());
    if (mismatch.first != held.end()) {
        const Record &row = *mismatch.first < *mismatch.second ? *mismatch.first : *mismatch.second;
        const bool extra = *mismatch.first < *mismatch.second;
        return QStringLiteral("%1 row %2").arg(extra ? QStringLiteral("holds a foreign or doubled")
                                                     : QStringLiteral("misses the"),
                                               row.toString());
    }
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
