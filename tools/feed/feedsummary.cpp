#include "feedsummary.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>

namespace {

QString verdict(bool ok)
{
    return ok ? QStringLiteral("yes") : QStringLiteral("NO");
}

} // namespace

QString FeedSummary::toText() const
{
    QString text;
    text += QStringLiteral("transactions   %1 in %2 s: %3 per second\n")
                    .arg(transactions)
                    .arg(seconds, 0, 'f', 2)
                    .arg(txPerSecond(), 0, 'f', 0);
    text += QStringLiteral("row changes    %1 per second written, %2 per second rewritten by "
                           "the join\n")
                    .arg(rowsPerSecond(), 0, 'f', 0)
                    .arg(joinRowsPerSecond(), 0, 'f', 0);
    text += QStringLiteral("latency        median %1 ms, 99th percentile %2 ms\n")
                    .arg(p50Ms, 0, 'f', 3)
                    .arg(p99Ms, 0, 'f', 3);
    QStringList tables;
    for (const auto &table : rows)
        tables.append(QStringLiteral("%1 %2").arg(table.first).arg(table.second));
    text += QStringLiteral("rows           %1\n").arg(tables.join(QStringLiteral(", ")));
    text += QStringLiteral("memory         %1 bytes per row\n").arg(bytesPerRow, 0, 'f', 0);
    text += QStringLiteral("change log     %1 pick-ups: %2 inserted, %3 removed, %4 updated\n")
                    .arg(consumerPickups)
                    .arg(consumerInserted)
                    .arg(consumerRemoved)
                    .arg(consumerUpdated);
    text += QStringLiteral("saves          %1, the last %2 ms\n").arg(saves).arg(lastSaveMs, 0, 'f', 1);
    text += QStringLiteral("views exact    %1\njoins exact    %2\nchanges seen   %3\n"
                           "reload equal   %4\n")
                    .arg(verdict(viewsExact), verdict(joinsExact), verdict(changesSeen),
                         verdict(reloadEqual));
    for (const QString &problem : problems)
        text += QStringLiteral("  problem: %1\n").arg(problem);
    return text;
}

QByteArray FeedSummary::toJson() const
{
    QJsonObject tables;
    for (const auto &table : rows)
        tables.insert(table.first, table.second);
    QJsonObject object {
        { QStringLiteral("transactions"), double(transactions) },
        { QStringLiteral("rows"), tables },
        { QStringLiteral("seconds"), seconds },
        { QStringLiteral("tx_per_s"), txPerSecond() },
        { QStringLiteral("row_changes_per_s"), rowsPerSecond() },
        { QStringLiteral("join_rows_per_s"), joinRowsPerSecond() },
        { QStringLiteral("p50_ms"), p50Ms },
        { QStringLiteral("p99_ms"), p99Ms },
        { QStringLiteral("bytes_per_row"), bytesPerRow },
        { QStringLiteral("consumer"),
          QJsonObject { { QStringLiteral("pickups"), double(consumerPickups) },
                        { QStringLiteral("inserted"), double(consumerInserted) },
                        { QStringLiteral("removed"), double(consumerRemoved) },
                        { QStringLiteral("updated"), double(consumerUpdated) } } },
        { QStringLiteral("saves"), saves },
        { QStringLiteral("last_save_ms"), lastSaveMs },
        { QStringLiteral("views_exact"), viewsExact },
        { QStringLiteral("changes_seen"), changesSeen },
        { QStringLiteral("joins_exact"), joinsExact },
        { QStringLiteral("reload_equal"), reloadEqual },
        { QStringLiteral("problems"), QJsonArray::fromStringList(problems) },
    };
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

double FeedSummary::percentile(std::vector<double> &samples, double fraction)
{
    if (samples.empty())
        return 0;
    std::sort(samples.begin(), samples.end());
    const size_t rank = size_t(std::ceil(fraction * double(samples.size())));
    return samples[std::min(samples.size() - 1, rank == 0 ? 0 : rank - 1)];
}
