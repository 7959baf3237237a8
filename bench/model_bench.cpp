// A live TableModel under the feed's quote stream. A writer thread applies
// Market::quoteTransaction (100 instruments a transaction, back to back) to
// the instruments of a market session; the main thread runs an event loop as
// a GUI thread does, with a TableModel over the instruments sorted by last
// price, refreshing at its default interval, and after each refresh it reads
// the cells of the 40 rows a window shows, as a paint would. Phases without
// the model and with it alternate, so that both see the same machine.
//
// Printed: the GUI thread's share of each second spent in refreshes (and with
// the paints), and the writer's row updates per second with the model against
// without it. Targets: at most 10% and at least 0.9. Shares are of wall time,
// lock waits and preemption included; the GUI thread's own CPU time in each
// second is given as well, which a busy machine disturbs less.
//
// The ratio of throughputs is the median of the rounds' own ratios; it is
// also given per second of the writer thread's CPU time, which other work on
// a shared machine disturbs less (but which leaves out the writer's waits
// for the lock).
//
// Options: --seconds N per phase (default 2), --rounds N (default 6),
// --orders N in the market (default 0: the order book that the feed joins to
// the instruments makes each quote transaction rewrite its orders' cells too,
// which join_bench measures, and keeps the stream far below 100,000 updates a
// second on two cores).

#include "market.h"

#include "model/tablemodel.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <thread>
#include <vector>

namespace {

const int kUpdatesPerTransaction = 100;
const int kVisibleRows = 40;

struct Phase
{
    double updatesPerSecond = 0;
    double updatesPerCpuSecond = 0; // of the writer thread's own CPU time
    std::vector<double> refreshShare; // per second, of wall time
    std::vector<double> paintShare;
    std::vector<double> guiCpuShare; // the GUI thread's CPU time, all of it
    qint64 refreshes = 0;
};

double threadCpuSeconds()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + t.tv_nsec / 1e9;
}

double median(std::vector<double> v)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// Runs the writer for `seconds` while the event loop turns; with `shown`, a
// model over it refreshes and paints.
Phase run(Market &market, IndexSort *view, bool shown, int seconds)
{
    Phase phase;
    std::unique_ptr<TableModel> model;
    int64 paintNsecs = 0;
    if (shown) {
        model.reset(new TableModel(view));
        QObject::connect(model.get(), &TableModel::refreshed, [&] {
            QElapsedTimer paint;
            paint.start();
            const int rows = std::min(kVisibleRows, model->rowCount());
            for (int r = 0; r < rows; ++r) {
                for (int c = 0; c < model->columnCount(); ++c) {
                    const QModelIndex index = model->index(r, c);
                    index.data(Qt::DisplayRole);
                    index.data(Qt::TextAlignmentRole);
                    index.data(TableModel::ChangedAgoRole);
                }
            }
            paintNsecs += paint.nsecsElapsed();
        });
    }

    std::atomic<bool> stop { false };
    std::atomic<qint64> transactions { 0 };
    double cpuSeconds = 0;
    std::thread writer([&] {
        const double start = threadCpuSeconds();
        while (!stop.load(std::memory_order_relaxed)) {
            market.quoteTransaction(kUpdatesPerTransaction);
            transactions.fetch_add(1, std::memory_order_relaxed);
        }
        cpuSeconds = threadCpuSeconds() - start;
    });

    QElapsedTimer wall;
    wall.start();
    QEventLoop loop;
    QTimer second;
    int64 lastRefresh = 0, lastPaint = 0;
    qint64 lastWall = 0;
    double lastCpu = threadCpuSeconds();
    int ticks = 0;
    QObject::connect(&second, &QTimer::timeout, [&] {
        const qint64 now = wall.nsecsElapsed();
        if (model) {
            phase.refreshShare.push_back(double(model->nsecsElapsed() - lastRefresh) / (now - lastWall));
            phase.paintShare.push_back(double(paintNsecs - lastPaint) / (now - lastWall));
            phase.guiCpuShare.push_back((threadCpuSeconds() - lastCpu) * 1e9 / (now - lastWall));
            lastRefresh = model->nsecsElapsed();
            lastPaint = paintNsecs;
        }
        lastWall = now;
        lastCpu = threadCpuSeconds();
        if (++ticks == seconds)
            loop.quit();
    });
    second.start(1000);
    loop.exec();
    stop = true;
    writer.join();
    phase.updatesPerSecond = double(transactions) * kUpdatesPerTransaction / (wall.nsecsElapsed() / 1e9);
    phase.updatesPerCpuSecond = double(transactions) * kUpdatesPerTransaction / cpuSeconds;
    if (model)
        phase.refreshes = model->refreshCount();
    return phase;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int seconds = 2, rounds = 6;
    Market::Config config;
    config.orders = 0;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--seconds"))
            seconds = std::max(1, std::atoi(argv[i + 1]));
        else if (!std::strcmp(argv[i], "--rounds"))
            rounds = std::max(1, std::atoi(argv[i + 1]));
        else if (!std::strcmp(argv[i], "--orders"))
            config.orders = std::max(0, std::atoi(argv[i + 1]));
    }
    Market market(config);
    IndexSort *byLast = nullptr;
    for (const MarketView &view : market.views()) {
        if (view.name == QLatin1String("instruments by last price"))
            byLast = view.index;
    }
    std::printf("%d instruments, %d orders; %d rounds of %d s without and with the model\n",
                config.instruments, config.orders, rounds, seconds);

    std::vector<double> wallRatios, cpuRatios, refreshShares, guiShares, cpuShares, rates;
    qint64 refreshes = 0;
    for (int round = 0; round < rounds; ++round) {
        const Phase bare = run(market, byLast, false, seconds);
        const Phase shown = run(market, byLast, true, seconds);
        wallRatios.push_back(shown.updatesPerSecond / bare.updatesPerSecond);
        cpuRatios.push_back(shown.updatesPerCpuSecond / bare.updatesPerCpuSecond);
        rates.push_back(shown.updatesPerSecond);
        refreshes += shown.refreshes;
        std::printf("round %d: %.0f row updates/s without the model, %.0f with it; "
                    "GUI share per second in refreshes:",
                    round + 1, bare.updatesPerSecond, shown.updatesPerSecond);
        for (size_t s = 0; s < shown.refreshShare.size(); ++s) {
            std::printf(" %.1f%%", 100 * shown.refreshShare[s]);
            refreshShares.push_back(shown.refreshShare[s]);
            guiShares.push_back(shown.refreshShare[s] + shown.paintShare[s]);
            cpuShares.push_back(shown.guiCpuShare[s]);
        }
        std::printf("\n");
    }
    std::printf("\nmedian %.0f row updates/s with the model, %lld refreshes, %.1f a second\n",
                median(rates), refreshes, double(refreshes) / (double(rounds) * seconds));
    std::printf("\nRatios (same run):\n");
    std::printf("  %-60s %.3f\n", "GUI share of a second in refreshes, median (target <= 0.10)",
                median(refreshShares));
    std::printf("  %-60s %.3f\n", "GUI share of a second in refreshes, worst",
                refreshShares.empty() ? 0.0 : *std::max_element(refreshShares.begin(), refreshShares.end()));
    std::printf("  %-60s %.3f\n", "GUI share with the 40-row paints, median",
                median(guiShares));
    std::printf("  %-60s %.3f\n", "GUI thread's CPU time in a second, all of it, median",
                median(cpuShares));
    std::printf("  %-60s %.3f\n", "writer throughput with the model / without (target >= 0.9)",
                median(wallRatios));
    std::printf("  %-60s %.3f\n", "the same per second of the writer's own CPU time",
                median(cpuRatios));
    return 0;
}
