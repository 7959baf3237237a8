#ifndef TABLEDB_TOOLS_FEEDSESSION_H
#define TABLEDB_TOOLS_FEEDSESSION_H

#include "feedoptions.h"
#include "feedsummary.h"
#include "market.h"

#include <QTextStream>

#include <memory>

// One run of the feed: the market built from the options, the streams applied
// until the count or the time is reached, then the checks.
class FeedSession
{
public:
    enum ProgressStyle {
        NoProgress,
        LiveLine, // one line rewritten in place, for a terminal
        PlainLines // a line every few seconds, for a log or a pipe
    };

    // `out` receives the progress; it may be null with NoProgress.
    FeedSession(const FeedOptions &options, QTextStream *out, ProgressStyle style);
    ~FeedSession();

    // Builds the market; run() does it if it was not done.
    void prepare();
    FeedSummary run();

    // The live market, for tests that tamper with it between prepare() and run().
    Market &market() { return *m_market; }

private:
    void printProgress(qint64 transactions, double seconds, bool last);
    FeedSummary finish(qint64 transactions, qint64 rowChanges, double seconds,
                       std::vector<double> &latencies);

    FeedOptions m_options;
    QTextStream *m_out;
    ProgressStyle m_style;
    std::unique_ptr<Market> m_market;
    double m_bytesPerRow = 0;
    double m_lastProgress = -1;
};

#endif // TABLEDB_TOOLS_FEEDSESSION_H
