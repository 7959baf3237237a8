// Join maintenance on orders joined with instruments: 1,000,000 orders, 200
// per traded instrument, 10,000 instruments of which half are traded. One
// transaction updates the price of all 10,000 instruments, with and without
// the join; the join's extra cost beyond writing the 1,000,000 changed join
// cells (measured alone as the same writes in one transaction on the orders)
// is the ratio to watch. That extra cost is small beside the cells, so it is
// also measured in its parts: the look-ups are the join's only work beyond
// writing. Then the range search at 100,000 rows on the pool
// against the same work on the calling thread.

#include "index/masterindex_column.h"
#include "join/tablejoin.h"
#include "table/recordstrans.h"
#include "table/table.h"

#include "support/ratioreporter.h"

#include <benchmark/benchmark.h>

#include <QtConcurrent/QtConcurrentMap>

#include <algorithm>
#include <climits>
#include <memory>

namespace {

const int Instruments = 10000;
const int OrdersPerInstrument = 200;
const int Orders = 1000000;

struct Fixture
{
    explicit Fixture(bool joined)
    {
        instruments.reset(new Table(QStringLiteral("Instruments")));
        instruments->addColumn(QStringLiteral("Instr"), FieldType::Integer, 0, false);
        instruments->addColumn(QStringLiteral("Price"), FieldType::Integer64);
        MasterIndex_Column::createMasterIndex(instruments.get(), { QStringLiteral("Instr") });
        QList<Record> rows;
        for (int i = 0; i < Instruments; ++i) {
            Record r(instruments.get());
            r.data(0) = i;
            r.data(1) = int64(i);
            rows.append(r);
        }
        instruments->appendList(rows);

        orders.reset(new Table(QStringLiteral("Orders")));
        orders->addColumn(QStringLiteral("Id"), FieldType::Integer, 0, false);
        orders->addColumn(QStringLiteral("Instr"), FieldType::Integer, 0, false);
        orders->addColumn(QStringLiteral("Qty"), FieldType::Integer);
        MasterIndex_Column::createMasterIndex(orders.get(), { QStringLiteral("Id") });
        byInstr = MasterIndex_Column::createIndex(
            QStringLiteral("byInstr"), orders.get(), { QStringLiteral("Instr") });
        rows.clear();
        for (int i = 0; i < Orders; ++i) {
            Record r(orders.get());
            r.data(0) = i;
            r.data(1) = 2 * (i / OrdersPerInstrument); // the even instruments are traded
            r.data(2) = 1;
            rows.append(r);
        }
        orders->appendList(rows);
        rows.clear(); // the join adds a column, which moves every row
        if (joined)
            join.reset(
                new TableJoin(byInstr, { instruments.get() }, { QStringLiteral("Price") }, false));
    }
    ~Fixture()
    {
        join.reset();
        orders->removeIndex(byInstr);
        delete byInstr;
    }

    std::unique_ptr<Table> instruments;
    std::unique_ptr<Table> orders;
    MasterIndex *byInstr;
    std::unique_ptr<TableJoin> join;
};

// One at a time: the two together would not fit beside other work.
Fixture &fixture(bool joined)
{
    static std::unique_ptr<Fixture> current;
    static bool currentJoined = false;
    if (!current || currentJoined != joined) {
        current.reset();
        current.reset(new Fixture(joined));
        currentJoined = joined;
    }
    return *current;
}

// Every instrument's price, in one transaction.
void BM_PriceUpdate(benchmark::State &state)
{
    Fixture &f = fixture(state.range(0) != 0);
    int64 price = 0;
    for (auto _ : state) {
        ++price;
        TableUpdater bracket(f.instruments.get());
        RecordsTrans trans(f.instruments.get());
        for (auto it = f.instruments->masterIndex()->begin(),
                  end = f.instruments->masterIndex()->end();
             it != end; ++it) {
            RecordUpdater row(*it, trans);
            row.data(1) = price;
        }
        trans.extendColumns(1, 1);
    }
    state.SetItemsProcessed(state.iterations() * Instruments);
}

// The join's own writing: the copied price of every traded order, in one
// transaction on the orders.
void BM_JoinCellsAlone(benchmark::State &state)
{
    Fixture &f = fixture(true);
    const int column = f.orders->columnIndex(QStringLiteral("Price"));
    int64 price = 1000000;
    for (auto _ : state) {
        ++price;
        TableUpdater bracket(f.orders.get());
        RecordsTrans trans(f.orders.get());
        for (auto it = f.byInstr->begin(), end = f.byInstr->end(); it != end; ++it) {
            RecordUpdater row(*it, trans);
            row.data(column) = price;
        }
        trans.extendColumns(column, column);
    }
    state.SetItemsProcessed(state.iterations() * Orders);
}

// The join's own work beyond writing: the look-up of the 10,000 updated
// instruments' orders in the 1,000,000-row index.
void BM_JoinLookUps(benchmark::State &state)
{
    Fixture &f = fixture(true);
    QList<Record> rows;
    for (auto it = f.instruments->masterIndex()->begin(); it != f.instruments->masterIndex()->end();
         ++it)
        rows.append(*it);
    const QVector<Col> mapping { { 1, 0 } }; // orders' Instr from the instrument's
    for (auto _ : state) {
        const RecordsRanges ranges = rangesOf(
            rows, rows, f.byInstr, &mapping, state.range(0) ? JoinParallelFrom : INT_MAX);
        benchmark::DoNotOptimize(ranges.count());
    }
    state.SetItemsProcessed(state.iterations() * rows.size());
}

// The look-up of 100,000 orders' instrument ranges in the 1,000,000-row index.
void BM_RangesOf(benchmark::State &state)
{
    Fixture &f = fixture(false);
    QList<Record> rows;
    for (int i = 0; i < 100000; ++i)
        rows.append(f.orders->at(i * 10));
    const QVector<Col> mapping { { 1, 1 } };
    const int parallelFrom = state.range(0) ? JoinParallelFrom : INT_MAX;
    for (auto _ : state) {
        const RecordsRanges ranges = rangesOf(rows, rows, f.byInstr, &mapping, parallelFrom);
        benchmark::DoNotOptimize(ranges.count());
    }
    state.SetItemsProcessed(state.iterations() * rows.size());
}

// The ceiling of the ratio above on this machine at this moment: the same
// pure arithmetic in 32 pieces on the pool and on the calling thread. Other
// work on the machine shows here first.
void BM_PoolCeiling(benchmark::State &state)
{
    QVector<quint64> pieces(32);
    auto work = [](quint64 &piece) {
        quint64 x = piece;
        for (int i = 0; i < 2000000; ++i)
            x = x * 6364136223846793005ULL + 1442695040888963407ULL;
        piece = x;
    };
    for (auto _ : state) {
        if (state.range(0))
            QtConcurrent::blockingMap(pieces, work);
        else
            std::for_each(pieces.begin(), pieces.end(), work);
        benchmark::DoNotOptimize(pieces.data());
    }
}

} // namespace

BENCHMARK(BM_PoolCeiling)->Arg(0)->Arg(1)->ArgName("pool")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PriceUpdate)->Arg(0)->ArgName("join")->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_RangesOf)->Arg(0)->Arg(1)->ArgName("pool")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PriceUpdate)->Arg(1)->ArgName("join")->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_JoinCellsAlone)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_JoinLookUps)->Arg(0)->Arg(1)->ArgName("pool")->Unit(benchmark::kMillisecond);

void ratios(RatioReporter &reporter)
{
    reporter.addRatio("with join / without, 10,000 price updates",
        "BM_PriceUpdate/join:1/iterations:3", "BM_PriceUpdate/join:0/iterations:3");
    // The target itself. The subtraction below it is its noisy reading: two
    // 2.5-second figures whose difference is compared with 12 ms.
    reporter.addBudget("with join / (2 x without + join cells alone) (<= 1)",
        "BM_PriceUpdate/join:1/iterations:3",
        { { "BM_PriceUpdate/join:0/iterations:3", 2.0 }, { "BM_JoinCellsAlone/iterations:3", 1.0 } });
    reporter.addRatio("(with join - join cells alone) / without",
        "BM_PriceUpdate/join:1/iterations:3", "BM_PriceUpdate/join:0/iterations:3",
        "BM_JoinCellsAlone/iterations:3");
    reporter.addRatio("join cells alone / without", "BM_JoinCellsAlone/iterations:3",
        "BM_PriceUpdate/join:0/iterations:3");
    reporter.addRatio("join look-ups alone, one thread / without", "BM_JoinLookUps/pool:0",
        "BM_PriceUpdate/join:0/iterations:3");
    reporter.addRatio("join look-ups alone, pool / without", "BM_JoinLookUps/pool:1",
        "BM_PriceUpdate/join:0/iterations:3");
    reporter.addRatio(
        "pool ceiling now, one thread / pool", "BM_PoolCeiling/pool:0", "BM_PoolCeiling/pool:1");
    reporter.addRatio("range search, one thread / pool, 100,000 rows (>= 1.5)",
        "BM_RangesOf/pool:0", "BM_RangesOf/pool:1");
}

RATIO_BENCHMARK_MAIN(ratios)
