#include "feedsession.h"

#include "marketcheck.h"

#include <QElapsedTimer>
#include <QFile>

namespace {

// The process's resident memory in bytes, or 0 where it cannot be read.
double residentBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields.at(1).toDouble() * 4096.0 : 0;
}

// Sizes of the transactions of one round of the streams.
const int kQuoteUpdates = 200;
const int kOrderOperations = 100;
const int kTrades = 20;

} // namespace

FeedSession::FeedSession(const FeedOptions &options, QTextStream *out, ProgressStyle style)
    : m_options(options), m_out(out), m_style(out ? style : NoProgress)
{
}

FeedSession::~FeedSession() = default;

void FeedSession::prepare()
{
    if (m_market)
        return;
    Market::Config config;
    config.instruments = m_options.instruments;
    config.orders = m_options.orders;
    config.seed = m_options.seed;
    const double before = residentBytes();
    m_market.reset(new Market(config));
    int rows = 0;
    for (Table *table : m_market->tables())
        rows += table->rowCount();
    m_bytesPerRow = rows > 0 ? (residentBytes() - before) / rows : 0;
}

FeedSummary FeedSession::run()
{
    prepare();
    std::vector<double> latencies;
    qint64 transactions = 0, rowChanges = 0;
    QElapsedTimer clock;
    clock.start();
    QElapsedTimer step;
    auto timed = [&](int rows, auto &&work) {
        step.start();
        work();
        latencies.push_back(double(step.nsecsElapsed()) / 1e6);
        ++transactions;
        rowChanges += rows;
    };
    auto done = [&] {
        if (m_options.seconds > 0)
            return clock.elapsed() >= qint64(m_options.seconds * 1000);
        return transactions >= m_options.transactions;
    };
    while (!done()) {
        timed(kQuoteUpdates, [&] { m_market->quoteTransaction(kQuoteUpdates); });
        if (done())
            break;
        timed(kOrderOperations, [&] { m_market->orderTransaction(kOrderOperations); });
        if (done())
            break;
        timed(kTrades, [&] { m_market->tradeTransaction(kTrades); });
        if (done())
            break;
        timed(kTrades, [&] { m_market->positionTransaction(); });
        printProgress(transactions, clock.elapsed() / 1000.0, false);
    }
    const double seconds = clock.nsecsElapsed() / 1e9;
    printProgress(transactions, seconds, true);
    return finish(transactions, rowChanges, seconds, latencies);
}

void FeedSession::printProgress(qint64 transactions, double seconds, bool last)
{
    if (m_style == NoProgress)
        return;
    const double interval = m_style == LiveLine ? 0.1 : 2.0;
    if (!last && m_lastProgress >= 0 && seconds - m_lastProgress < interval)
        return;
    if (last && m_style == PlainLines)
        return;
    m_lastProgress = seconds;
    QStringList tables;
    for (Table *table : m_market->tables())
        tables.append(QStringLiteral("%1 %2").arg(table->name()).arg(table->rowCount()));
    const QString line = QStringLiteral("%1 transactions, %2/s | %3")
                                 .arg(transactions)
                                 .arg(seconds > 0 ? transactions / seconds : 0.0, 0, 'f', 0)
                                 .arg(tables.join(QStringLiteral(", ")));
    if (m_style == LiveLine)
        *m_out << '\r' << line << "\x1b[K" << (last ? "\n" : "");
    else
        *m_out << line << '\n';
    m_out->flush();
}

FeedSummary FeedSession::finish(qint64 transactions, qint64 rowChanges, double seconds,
                                std::vector<double> &latencies)
{
    FeedSummary summary;
    summary.transactions = transactions;
    summary.rowChanges = rowChanges;
    summary.seconds = seconds;
    summary.p50Ms = FeedSummary::percentile(latencies, 0.5);
    summary.p99Ms = FeedSummary::percentile(latencies, 0.99);
    summary.bytesPerRow = m_bytesPerRow;
    for (Table *table : m_market->tables())
        summary.rows.append({ table->name(), table->rowCount() });

    summary.viewsExact = true;
    for (const MarketView &view : m_market->views()) {
        const QString problem = MarketCheck::view(*view.index);
        if (!problem.isEmpty()) {
            summary.viewsExact = false;
            summary.problems.append(QStringLiteral("view \"%1\" %2").arg(view.name, problem));
        }
    }
    return summary;
}
