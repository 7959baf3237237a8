#include "livesession.h"

#include <QThreadPool>

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
            m_market->quoteTransaction(Market::RoundQuoteUpdates);
            m_market->orderTransaction(Market::RoundOrderOperations);
            m_market->tradeTransaction(Market::RoundTrades);
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
