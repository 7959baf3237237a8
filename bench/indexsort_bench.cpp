// Batch maintenance of a sorted index against a full resort and against
// single-row insertion, on an index of 1,000,000 rows; the parallel sort
// against std::stable_sort; and a middle insert/removeAt of a PartitionList at
// 100,000 and at 10,000,000 elements.

#include "index/concurrentsort.h"
#include "index/indexsort.h"
#include "index/partitionlist.h"
#include "table/table.h"

#include <benchmark/benchmark.h>

#include <QAtomicInt>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

const int indexRows = 1000000;
const int batchRows = 10000;

int keyOf(const Record &r)
{
    return FieldType::getInt(r.data(0).data());
}

class KeyIndex : public IndexSort
{
public:
    explicit KeyIndex(Table *table) : IndexSort(table, false) { }
    int compare(const Record &a, const Record &b) const override
    {
        // Counted only on request: a shared counter would slow the parallel sorts.
        if (counting)
            compares.fetchAndAddRelaxed(1);
        const int x = keyOf(a);
        const int y = keyOf(b);
        return (x > y) - (x < y);
    }
    bool filter(const Record &) const override { return true; }
    void append(const Record &r) { m_list.append(r); }
    bool counting = false;
    mutable QAtomicInt compares;
};

// One table and one sorted index of a million rows, shared by all benchmarks.
struct Fixture
{
    Fixture() : table(QStringLiteral("bench")), rng(42)
    {
        table.addColumn(QStringLiteral("k"), FieldType::Integer, 0, false);
        index.reset(new KeyIndex(&table));
        // As build() does it: append in blocks of 9999, then sort.
        for (int i = 0; i < indexRows; ++i)
            index->append(newRow(int(rng() % 1000000000u)));
        index->resort();
    }

    Record newRow(int key)
    {
        Record r(&table);
        FieldType::setInt(r.data(0).data(), key);
        return r;
    }

    // `n` distinct rows of the index, at random.
    QList<Record> pick(int n)
    {
        std::vector<Record> rows(index->begin(), index->end());
        std::shuffle(rows.begin(), rows.end(), rng);
        QList<Record> out;
        for (int i = 0; i < n; ++i)
            out.append(rows[size_t(i)]);
        return out;
    }

    Table table;
    std::unique_ptr<KeyIndex> index;
    std::mt19937 rng;
};

Fixture &fixture()
{
    static Fixture f;
    return f;
}

// CPU time of the whole process, pool threads included: on a shared machine
// wall time mostly measures the neighbours, and the ratios are about work.
class CpuTimer
{
public:
    void start() { m_start = now(); }
    double seconds() const { return now() - m_start; }

private:
    static double now()
    {
        timespec ts;
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
        return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
    }
    double m_start = 0;
};

void BM_Resort(benchmark::State &state)
{
    Fixture &f = fixture();
    for (auto _ : state) {
        CpuTimer t;
        t.start();
        f.index->resort();
        state.SetIterationTime(t.seconds());
    }
}

void BM_ProcessUnchangedKeys(benchmark::State &state)
{
    Fixture &f = fixture();
    const QList<Record> updated = f.pick(batchRows);
    for (auto _ : state) {
        CpuTimer t;
        t.start();
        f.index->process({}, updated, -1, -1, {});
        state.SetIterationTime(t.seconds());
    }
}

void BM_ProcessRemoveAndInsert(benchmark::State &state)
{
    Fixture &f = fixture();
    QList<Record> out = f.pick(batchRows / 2);
    QList<Record> in;
    for (int i = 0; i < batchRows / 2; ++i)
        in.append(f.newRow(int(f.rng() % 1000000000u)));
    for (auto _ : state) {
        CpuTimer t;
        t.start();
        f.index->process(out, {}, -1, -1, in);
        state.SetIterationTime(t.seconds());
        out.swap(in); // the next round puts the removed rows back
    }
}

void BM_ProcessOnePlace(benchmark::State &state)
{
    Fixture &f = fixture();
    QList<Record> rows;
    for (int i = 0; i < batchRows; ++i)
        rows.append(f.newRow(500000000));
    for (auto _ : state) {
        const int blocksBefore = f.index->list().partitionCount();
        CpuTimer t;
        t.start();
        f.index->process({}, {}, -1, -1, rows);
        state.SetIterationTime(t.seconds());
        state.counters["blocks_added"] = f.index->list().partitionCount() - blocksBefore;
        state.PauseTiming();
        f.index->process(rows, {}, -1, -1, {});
        state.ResumeTiming();
    }
}

void BM_SingleAddsOnePlace(benchmark::State &state)
{
    Fixture &f = fixture();
    QList<Record> rows;
    for (int i = 0; i < batchRows; ++i)
        rows.append(f.newRow(500000000));
    for (auto _ : state) {
        CpuTimer t;
        t.start();
        for (const Record &r : qAsConst(rows))
            f.index->add(r);
        state.SetIterationTime(t.seconds());
        state.PauseTiming();
        f.index->process(rows, {}, -1, -1, {});
        state.ResumeTiming();
    }
}

// 1,000,000 rows by an Integer64 cell, wall time: the parallel sort is there
// to use the other cores.
struct SortInput
{
    SortInput() : table(QStringLiteral("sort"))
    {
        table.addColumn(QStringLiteral("v"), FieldType::Integer64, 0, false);
        std::mt19937_64 rng(5);
        for (int i = 0; i < indexRows; ++i) {
            Record r(&table);
            FieldType::setInt64(r.data(0).data(), int64(rng() % 100000));
            rows.append(r);
        }
    }
    static bool less(const Record &a, const Record &b)
    {
        return FieldType::getInt64(a.data(0).data()) < FieldType::getInt64(b.data(0).data());
    }
    Table table;
    QList<Record> rows;
};

SortInput &sortInput()
{
    static SortInput input;
    return input;
}

template <bool Parallel>
void BM_SortRecords(benchmark::State &state)
{
    const SortInput &input = sortInput();
    for (auto _ : state) {
        QList<Record> rows = input.rows;
        rows.detach();
        const auto start = std::chrono::steady_clock::now();
        if (Parallel)
            ConcurrentSort::sort(rows.begin(), rows.end(), &SortInput::less);
        else
            std::stable_sort(rows.begin(), rows.end(), &SortInput::less);
        state.SetIterationTime(
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        if (!std::is_sorted(rows.begin(), rows.end(), &SortInput::less))
            state.SkipWithError("not sorted");
    }
}

// 1,000 insertions and removals in the middle of a list of `range(0)` elements.
void BM_PartitionListMiddle(benchmark::State &state)
{
    const int n = int(state.range(0));
    PartitionList<int> list;
    for (int i = 0; i < n; ++i)
        list.append(i);
    for (auto _ : state) {
        for (int i = 0; i < 1000; ++i) {
            list.insert(n / 2, i);
            list.removeAt(n / 2 + 1);
        }
    }
    benchmark::DoNotOptimize(list.at(n / 2));
}

BENCHMARK_TEMPLATE(BM_SortRecords, false)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_TEMPLATE(BM_SortRecords, true)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_PartitionListMiddle)->Arg(100000)->Arg(10000000)->Unit(benchmark::kMicrosecond);

BENCHMARK(BM_Resort)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_ProcessUnchangedKeys)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK(BM_ProcessRemoveAndInsert)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK(BM_ProcessOnePlace)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_SingleAddsOnePlace)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

// Keeps each benchmark's mean time for the ratios printed at the end.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs)
            times[run.benchmark_name()] = run.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }
    double time(const std::string &prefix) const
    {
        for (const auto &t : times)
            if (t.first.compare(0, prefix.size(), prefix) == 0)
                return t.second;
        return 0;
    }
    std::map<std::string, double> times;
};

// Compares a batch of rows whose keys still fit between their neighbours makes:
// the lookup's share is measured apart, the rest must be two per row.
void reportNeutralBatchCompares()
{
    Fixture &f = fixture();
    QList<Record> rows = f.pick(batchRows);
    std::sort(rows.begin(), rows.end());
    const std::vector<Record> before(f.index->begin(), f.index->end());
    f.index->counting = true;
    f.index->compares.storeRelaxed(0);
    f.index->indexOfs(rows);
    const int lookup = f.index->compares.loadRelaxed();
    f.index->compares.storeRelaxed(0);
    f.index->process({}, rows, -1, -1, {});
    const int total = f.index->compares.loadRelaxed();
    const bool unmoved = std::equal(before.begin(), before.end(), f.index->begin());
    std::printf("neutral batch of %d rows: lookup %d compares, process %d compares, "
                "%.2f extra compares per row, rows unmoved: %s\n",
                batchRows, lookup, total, double(total - lookup) / batchRows,
                unmoved ? "yes" : "NO");
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    const double resort = reporter.time("BM_Resort");
    const double unchanged = reporter.time("BM_ProcessUnchangedKeys");
    const double mixed = reporter.time("BM_ProcessRemoveAndInsert");
    const double onePlace = reporter.time("BM_ProcessOnePlace");
    const double singles = reporter.time("BM_SingleAddsOnePlace");
    if (unchanged > 0)
        std::printf("resort / process(10000 unchanged updates)            = %.1fx (need >= 20)\n",
                    resort / unchanged);
    if (mixed > 0)
        std::printf("resort / process(5000 removals + 5000 insertions)    = %.1fx (need >= 20)\n",
                    resort / mixed);
    if (onePlace > 0)
        std::printf("10000 single add() / process(10000 rows, one place)  = %.1fx (need >= 10)\n",
                    singles / onePlace);
    const double stable = reporter.time("BM_SortRecords<false>");
    const double parallel = reporter.time("BM_SortRecords<true>");
    if (parallel > 0)
        std::printf("std::stable_sort / ConcurrentSort::sort (1000000 rows) = %.2fx (need >= 1.6)\n",
                    stable / parallel);
    const double small = reporter.time("BM_PartitionListMiddle/100000");
    const double large = reporter.time("BM_PartitionListMiddle/10000000");
    if (small > 0)
        std::printf("middle insert+removeAt, 10000000 / 100000 elements    = %.2fx (need <= 2)\n",
                    large / small);
    reportNeutralBatchCompares();
    benchmark::Shutdown();
    return 0;
}
