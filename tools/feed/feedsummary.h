#ifndef TABLEDB_TOOLS_FEEDSUMMARY_H
#define TABLEDB_TOOLS_FEEDSUMMARY_H

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

#include <vector>

// What a feed run did and found, for the final lines and --summary-json.
struct FeedSummary
{
    qint64 transactions = 0;
    qint64 rowChanges = 0; // rows inserted, updated or removed by the session
    qint64 joinRows = 0; // order rows the join rewrote besides
    QList<QPair<QString, int>> rows; // per table, in creation order
    double seconds = 0;
    double p50Ms = 0;
    double p99Ms = 0;
    double bytesPerRow = 0;
    qint64 consumerPickups = 0; // of the orders' change log
    qint64 consumerInserted = 0;
    qint64 consumerRemoved = 0;
    qint64 consumerUpdated = 0;
    int saves = 0;
    double lastSaveMs = 0;
    bool viewsExact = false;
    bool changesSeen = false;
    bool joinsExact = false;
    bool reloadEqual = false;
    QStringList problems; // one line per failed check

    double txPerSecond() const { return seconds > 0 ? transactions / seconds : 0; }
    double rowsPerSecond() const { return seconds > 0 ? rowChanges / seconds : 0; }
    double joinRowsPerSecond() const { return seconds > 0 ? joinRows / seconds : 0; }
    bool passed() const { return viewsExact && joinsExact && changesSeen && reloadEqual && problems.isEmpty(); }

    QString toText() const;
    QByteArray toJson() const;

    // The value below which `fraction` of the samples lie (nearest rank);
    // 0 for no samples. Sorts `samples`.
    static double percentile(std::vector<double> &samples, double fraction);
};

#endif // TABLEDB_TOOLS_FEEDSUMMARY_H
