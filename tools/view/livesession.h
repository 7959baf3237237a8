#ifndef TABLEDB_TOOLS_LIVESESSION_H
#define TABLEDB_TOOLS_LIVESESSION_H

#include "feedoptions.h"
#include "market.h"

#include <atomic>
#include <memory>
#include <thread>

// tabledb-feed's market session inside the viewer: the market built from the
// feed's options on the calling thread, then its streams applied round after
// round on a worker thread until stop(), as the feed applies them (without
// the feed's saves and checks).
class LiveSession
{
public:
    explicit LiveSession(const FeedOptions &options);
    // Stops the worker first.
    ~LiveSession();

    Market &market() { return *m_market; }
    void start();
    void stop();
    // Transactions applied so far; any thread.
    qint64 transactions() const { return m_transactions.load(std::memory_order_relaxed); }

private:
    std::unique_ptr<Market> m_market;
    std::thread m_worker;
    std::atomic<bool> m_stop { false };
    std::atomic<qint64> m_transactions { 0 };
};

#endif // TABLEDB_TOOLS_LIVESESSION_H
