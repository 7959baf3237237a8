#include "marketcheck.h"

#include "index/indexsort.h"
#include "index/indexvector.h"
#include "index/masterindex.h"
#include "table/table.h"

#include <QHash>
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

bool isSameCell(const Field &a, const Field &b)
{
    return a.isNull() == b.isNull() && (a.isNull() || a.compare(b) == 0);
}

// The check of any view: `held` as the view holds it, `accepts` its filter,
// `compare` its order.
template <typename Accepts, typename Compare>
QString checkRows(const Table &table, std::vector<Record> held, Accepts accepts, Compare compare)
{
    std::vector<Record> expected;
    for (const Record &row : masterRows(table)) {
        if (accepts(row))
            expected.push_back(row);
    }
    const size_t count = held.size();
    int misordered = 0, first = -1;
    for (size_t i = 1; i < held.size(); ++i) {
        if (compare(held[i - 1], held[i]) > 0) {
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
                .arg(count)
                .arg(expected.size())
                .arg(wrong.join(QStringLiteral("; ")));
    if (misordered > 0)
        return QStringLiteral("%1 neighbours out of order, the first at position %2")
                .arg(misordered)
                .arg(first);
    return QString();
}

} // namespace

QString MarketCheck::view(const IndexSort &view)
{
    Table *table = const_cast<Table *>(view.table());
    TableLocker locker(table);
    return checkRows(
            *table, std::vector<Record>(view.begin(), view.end()),
            [&](const Record &r) { return view.filter(r); },
            [&](const Record &a, const Record &b) { return view.compare(a, b); });
}

QString MarketCheck::view(const IndexVector &view)
{
    TableLocker locker(view.table());
    std::vector<Record> held;
    for (int i = 0; i < view.count(); ++i)
        held.push_back(view.get(i));
    return checkRows(
            *view.table(), held, [&](const Record &r) { return view.filter(r); },
            [&](const Record &a, const Record &b) { return view.compare(a, b); });
}

QString MarketCheck::join(const Table &joined, const Table &source, const QStringList &keys,
                          const QStringList &columns)
{
    // The order in which join maintenance takes them: the source, then the join table.
    TableLocker sourceLocker(const_cast<Table *>(&source));
    TableLocker joinedLocker(const_cast<Table *>(&joined));
    auto keyOf = [&](const Table &table, const Record &row) {
        QStringList parts;
        for (const QString &key : keys)
            parts.append(row.data(table.columnIndex(key)).toString());
        return parts.join(QChar(0));
    };
    QHash<QString, Record> sources;
    for (const Record &row : masterRows(source))
        sources.insert(keyOf(source, row), row);
    qint64 wrong = 0;
    QString first;
    for (const Record &row : masterRows(joined)) {
        const Record match = sources.value(keyOf(joined, row));
        for (const QString &column : columns) {
            const Field mine = row.data(joined.columnIndex(column));
            const bool equal = match.isNull()
                    ? mine.isNull()
                    : isSameCell(mine, match.data(source.columnIndex(column)));
            if (!equal) {
                if (++wrong == 1)
                    first = QStringLiteral("row %1, column %2: \"%3\" where the source has \"%4\"")
                                    .arg(row.toString(), column, mine.toString(),
                                         match.isNull() ? QStringLiteral("no row")
                                                        : match.data(source.columnIndex(column))
                                                                  .toString());
            }
        }
    }
    return wrong == 0 ? QString()
                      : QStringLiteral("%1 stale cells, the first at %2").arg(wrong).arg(first);
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
            if (!isSameCell(x, y))
                return QStringLiteral("row %1 (%2), column %3: \"%4\" where the table has \"%5\"")
                        .arg(i)
                        .arg(a[i].toString(), live.columnName(c), y.toString(), x.toString());
        }
    }
    return QString();
}
