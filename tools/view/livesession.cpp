#include "livesession.h"

#include <QThreadPool>

namespace {

// One round of the streams, with the sizes that tabledb-feed uses.
const int kQuoteUpdates = 100;
const int kOrderOperations = 100;
const int kTrades = 20;

} // namespace

LiveSession::LiveSession(const FeedOptions &options)
{
    QThreadPool::globalInstance()->setMaxThreadCount(options.threads);
    Market::Config config;
    config.instruments = options.instruments;
    config.orders = options.orders;
    config.seed = options.seed;
    m_market.reset(new Market(config));
}

LiveSession::~LiveSession()
{
    stop();
}

void LiveSession::start()
{
    if (m_worker.joinable())
        return;
    m_stop = false;
    m_worker = std::thread([this] {
        while (!m_stop.load(std::memory_order_relaxed)) {
            m_market->quoteTransaction(kQuoteUpdates);
            m_market->orderTransaction(kOrderOperations);
            m_market->tradeTransaction(kTrades);
            m_market->positionTransaction();
            m_transactions.fetch_add(4, std::memory_order_relaxed);
        }
    });
}

void LiveSession::stop()
{
    m_stop = true;
    if (m_worker.joinable())
        m_worker.join();
}
