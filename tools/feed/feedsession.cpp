#include "feedsession.h"

#include "changeconsumer.h"
#include "feedhub.h"
#include "io/tableio.h"
#include "join/tablejoin.h"
#include "marketcheck.h"
#include "runtime/exception.h"
#include "runtime/runnablemanager.h"

#include <QDir>
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

// Saves during the run: this many, spread over it.
const int kSaves = 3;

} // namespace

FeedSession::FeedSession(const FeedOptions &options, QTextStream *out, ProgressStyle style)
    : m_options(options), m_out(out), m_style(out ? style : NoProgress)
{
    m_consumerPool.setMaxThreadCount(1);
}

FeedSession::~FeedSession()
{
    // The consumer reads the orders table: it stops before the market goes.
    m_consumerPool.waitForDone();
    m_consumer.reset();
    m_market.reset();
    m_hub.reset();
}

void FeedSession::prepare()
{
    if (m_market)
        return;
    QThreadPool::globalInstance()->setMaxThreadCount(m_options.threads);
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
    m_hub.reset(new FeedHub(m_market->tables(), m_options.compress));
}

FeedSummary FeedSession::run()
{
    prepare();
    FeedSummary summary;
    QDir().mkpath(m_options.dataDir);
    m_consumer.reset(new ChangeConsumer(
            m_market->orderLog(), QDir(m_options.dataDir).filePath(QStringLiteral("feed.log"))));
    RunnableManager manager;
    const HRunnable consumerTask = manager.startRunnable(m_consumer.get(), &m_consumerPool);

    std::vector<double> latencies;
    qint64 transactions = 0, rowChanges = 0;
    const qint64 joinRowsBefore = m_market->joinRowsWritten();
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
    // Progress through the run, from 0 to 1, for the saves.
    auto progress = [&] {
        if (m_options.seconds > 0)
            return clock.elapsed() / (m_options.seconds * 1000);
        return m_options.transactions > 0 ? double(transactions) / m_options.transactions : 1.0;
    };
    auto done = [&] { return progress() >= 1.0; };
    double saveTime = 0;
    int savesDone = 0;
    while (!done()) {
        timed(Market::RoundQuoteUpdates,
              [&] { m_market->quoteTransaction(Market::RoundQuoteUpdates); });
        if (done())
            break;
        timed(Market::RoundOrderOperations,
              [&] { m_market->orderTransaction(Market::RoundOrderOperations); });
        if (done())
            break;
        timed(Market::RoundTrades, [&] { m_market->tradeTransaction(Market::RoundTrades); });
        if (done())
            break;
        timed(Market::RoundTrades, [&] { m_market->positionTransaction(); });
        if (savesDone < kSaves && progress() >= double(savesDone + 1) / (kSaves + 1)) {
            QElapsedTimer saving;
            saving.start();
            saveAll(summary);
            saveTime += saving.nsecsElapsed() / 1e9;
            ++savesDone;
        }
        printProgress(transactions, clock.elapsed() / 1000.0, false);
    }
    // Saves are not transactions: their time is reported on its own.
    const double seconds = clock.nsecsElapsed() / 1e9 - saveTime;
    printProgress(transactions, clock.elapsed() / 1000.0, true);

    manager.stopRunnable(consumerTask, true);
    m_consumer->drain();

    summary.transactions = transactions;
    summary.rowChanges = rowChanges;
    summary.joinRows = m_market->joinRowsWritten() - joinRowsBefore;
    summary.seconds = seconds;
    summary.p50Ms = FeedSummary::percentile(latencies, 0.5);
    summary.p99Ms = FeedSummary::percentile(latencies, 0.99);
    summary.bytesPerRow = m_bytesPerRow;
    for (Table *table : m_market->tables())
        summary.rows.append({ table->name(), table->rowCount() });
    summary.consumerPickups = m_consumer->pickups();
    summary.consumerInserted = m_consumer->inserted();
    summary.consumerRemoved = m_consumer->removed();
    summary.consumerUpdated = m_consumer->updated();
    check(summary);

    QElapsedTimer saving;
    saving.start();
    saveAll(summary);
    summary.saves = savesDone + 1;
    summary.lastSaveMs = saving.nsecsElapsed() / 1e6;
    reload(summary);
    return summary;
}

void FeedSession::saveAll(FeedSummary &summary)
{
    const QDir dir(m_options.dataDir);
    for (Table *table : m_market->tables()) {
        try {
            TableIO(table).write(dir);
        } catch (const Exception &e) {
            summary.problems.append(QStringLiteral("save of %1: %2").arg(table->name(), e.message()));
        }
    }
}

void FeedSession::check(FeedSummary &summary)
{
    summary.viewsExact = true;
    auto note = [&](const QString &name, const QString &problem) {
        if (problem.isEmpty())
            return true;
        summary.problems.append(QStringLiteral("view \"%1\" %2").arg(name, problem));
        return false;
    };
    for (const MarketView &view : m_market->views())
        summary.viewsExact &= note(view.name, MarketCheck::view(*view.index));
    summary.viewsExact &= note(QStringLiteral("top movers"),
                               MarketCheck::view(*m_market->topMovers()));

    const QString join = MarketCheck::join(
            *m_market->orders(), *m_market->instruments(),
            { QStringLiteral("board"), QStringLiteral("code") },
            { QStringLiteral("last"), QStringLiteral("lot") });
    summary.joinsExact = join.isEmpty();
    if (!join.isEmpty())
        summary.problems.append(QStringLiteral("join of orders and instruments: %1").arg(join));

    // Every order placed or cancelled reached the consumer exactly once.
    summary.changesSeen = summary.consumerInserted == m_market->ordersPlaced()
            && summary.consumerRemoved == m_market->ordersCancelled();
    if (!summary.changesSeen)
        summary.problems.append(
                QStringLiteral("change log: the consumer saw %1 inserts and %2 removals of %3 "
                               "placed and %4 cancelled orders")
                        .arg(summary.consumerInserted)
                        .arg(summary.consumerRemoved)
                        .arg(m_market->ordersPlaced())
                        .arg(m_market->ordersCancelled()));
}

void FeedSession::reload(FeedSummary &summary)
{
    summary.reloadEqual = true;
    const QDir dir(m_options.dataDir);
    for (Table *table : m_market->tables()) {
        Table loaded(table->name());
        TableIO io(&loaded);
        io.read(dir, true);
        QString problem = io.lastError();
        if (problem.isEmpty())
            problem = MarketCheck::sameRows(*table, loaded);
        if (!problem.isEmpty()) {
            summary.reloadEqual = false;
            summary.problems.append(QStringLiteral("reload of %1: %2").arg(table->name(), problem));
        }
    }
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
