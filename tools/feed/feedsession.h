#ifndef TABLEDB_TOOLS_FEEDSESSION_H
#define TABLEDB_TOOLS_FEEDSESSION_H

#include "feedoptions.h"
#include "feedsummary.h"
#include "market.h"

#include <QTextStream>
#include <QThreadPool>

#include <memory>

class ChangeConsumer;
class FeedHub;
class RunnableManager;

// One run of the feed: the market built from the options, the streams applied
// until the count or the time is reached with periodic saves and a consumer
// of the orders' changes on a pool thread, then the checks.
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
    // Saves every table into the data directory; a failure becomes a problem.
    void saveAll(FeedSummary &summary);
    void check(FeedSummary &summary);
    void reload(FeedSummary &summary);

    FeedOptions m_options;
    QTextStream *m_out;
    ProgressStyle m_style;
    std::unique_ptr<Market> m_market;
    std::unique_ptr<FeedHub> m_hub;
    QThreadPool m_consumerPool; // apart from the global pool, which the joins use
    std::unique_ptr<ChangeConsumer> m_consumer;
    double m_bytesPerRow = 0;
    double m_lastProgress = -1;
};

#endif // TABLEDB_TOOLS_FEEDSESSION_H
