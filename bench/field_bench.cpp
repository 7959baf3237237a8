// Field::compare on the cell types of sorted indexes (no allocation), the
// two key strategies of master indexes on a 1,000,000-row table, and a cache
// hit of MasterIndex_Fast_Cached::findKey against a std::unordered_map look-up
// of the same keys.

#include "support/alloccounter.h"
#include "support/ratioreporter.h"

#include "index/masterindex_column.h"
#include "index/masterindex_fast.h"
#include "index/masterindex_fast_cached.h"
#include "numeric/decimal.h"
#include "table/table.h"

#include <QRandomGenerator>

#include <benchmark/benchmark.h>

#include <memory>
#include <unordered_map>
#include <vector>

namespace {

const int rowCount = 1000000;
const int pairCount = 1 << 16;
const int hotKeys = 512; // fits the cache of 1000

// Runs `body` in the timed loop and reports heap allocations per iteration.
template <typename Body>
void timed(benchmark::State &state, Body body)
{
    const long before = alloccounter::count();
    for (auto _ : state)
        body();
    state.counters["allocs/iter"] = double(alloccounter::count() - before) / double(state.iterations());
}

// A table of `rowCount` rows keyed by the Integer64 column "id" through a
// MasterIndex_Fast_Cached, with a VarChar and a Decimal column beside it.
struct Fixture
{
    Fixture()
    {
        table = std::make_unique<Table>(QStringLiteral("Bench"));
        table->addColumn(QStringLiteral("id"), FieldType::Integer64, 0, false);
        table->addColumn(QStringLiteral("code"), FieldType::VarChar, 12, false);
        table->addColumn(QStringLiteral("price"), FieldType::Decimal, 4, false);
        cached = static_cast<MasterIndex_Fast_Cached *>(
            MasterIndex_Fast_Cached::createMasterIndex(table.get(), { QStringLiteral("id") }));
        QRandomGenerator random(11);
        QList<Record> rows;
        rows.reserve(rowCount);
        for (int i = 0; i < rowCount; ++i) {
            Record row(table.get());
            row.data(0) = int64(random.generate64() >> 1);
            row.data(1) = QStringLiteral("SEC%1").arg(i % 50000, 6, 10, QLatin1Char('0'));
            row.data(2) = decimal(int64(random.bounded(10000000)), 4);
            rows.append(row);
        }
        table->appendList(rows);
        for (int i = 0; i < pairCount; ++i)
            pairs.emplace_back(rows.at(int(random.bounded(rowCount))), rows.at(int(random.bounded(rowCount))));
        fast = std::make_unique<MasterIndex_Fast>(table.get(), QStringList { QStringLiteral("id") });
        column = std::make_unique<MasterIndex_Column>(table.get(), QStringList { QStringLiteral("id") });
        for (int i = 0; i < hotKeys; ++i) {
            const Record row = rows.at(int(random.bounded(rowCount)));
            const MasterKey key = cached->keyRecord(row);
            keys.push_back(key);
            map.emplace(key, row);
            cached->findKey(key, -1); // warms the cache
        }
    }

    struct KeyHash
    {
        size_t operator()(const MasterKey &key) const { return qHash(key, 0x9e3779b9u); }
    };

    std::unique_ptr<Table> table;
    MasterIndex_Fast_Cached *cached = nullptr; // owned by the table
    std::unique_ptr<MasterIndex_Fast> fast;
    std::unique_ptr<MasterIndex_Column> column;
    std::vector<std::pair<Record, Record>> pairs;
    std::vector<MasterKey> keys;
    std::unordered_map<MasterKey, Record, KeyHash> map;
};

Fixture &fixture()
{
    static Fixture f;
    return f;
}

void compareCells(benchmark::State &state, int columnNumber)
{
    Fixture &f = fixture();
    size_t i = 0;
    int sum = 0;
    timed(state, [&] {
        const auto &p = f.pairs[i++ & (pairCount - 1)];
        sum += p.first.data(columnNumber).compare(p.second.data(columnNumber));
    });
    benchmark::DoNotOptimize(sum);
}

void fieldCompareVarChar(benchmark::State &state) { compareCells(state, 1); }
void fieldCompareInteger64(benchmark::State &state) { compareCells(state, 0); }
void fieldCompareDecimal(benchmark::State &state) { compareCells(state, 2); }

template <typename Index>
void indexCompare(benchmark::State &state, const Index &index)
{
    Fixture &f = fixture();
    size_t i = 0;
    int sum = 0;
    timed(state, [&] {
        const auto &p = f.pairs[i++ & (pairCount - 1)];
        sum += index.compare(p.first, p.second);
    });
    benchmark::DoNotOptimize(sum);
}

void masterIndexFastCompare(benchmark::State &state) { indexCompare(state, *fixture().fast); }
void masterIndexColumnCompare(benchmark::State &state) { indexCompare(state, *fixture().column); }

void cachedFindKeyHit(benchmark::State &state)
{
    Fixture &f = fixture();
    size_t i = 0;
    timed(state, [&] {
        const Record row = f.cached->findKey(f.keys[i++ & (hotKeys - 1)], -1);
        benchmark::DoNotOptimize(row.rowPtr());
    });
}

void unorderedMapFind(benchmark::State &state)
{
    Fixture &f = fixture();
    size_t i = 0;
    timed(state, [&] {
        const auto it = f.map.find(f.keys[i++ & (hotKeys - 1)]);
        const Record row = it->second;
        benchmark::DoNotOptimize(row.rowPtr());
    });
}

void uncachedFindKey(benchmark::State &state)
{
    Fixture &f = fixture();
    size_t i = 0;
    timed(state, [&] {
        // The key search behind the cache, on the same filled index.
        const Record row = f.cached->MasterIndex_Fast::findKey(f.keys[i++ & (hotKeys - 1)], -1);
        benchmark::DoNotOptimize(row.rowPtr());
    });
}

void ratios(RatioReporter &reporter)
{
    reporter.addRatio("MasterIndex_Column / MasterIndex_Fast compare (>= 2)", "masterIndexColumnCompare",
                      "masterIndexFastCompare");
    reporter.addRatio("Fast_Cached findKey hit / unordered_map find (<= 3)", "cachedFindKeyHit",
                      "unorderedMapFind");
    reporter.addRatio("uncached findKey / Fast_Cached findKey hit", "uncachedFindKey", "cachedFindKeyHit");
}

} // namespace

BENCHMARK(fieldCompareVarChar);
BENCHMARK(fieldCompareInteger64);
BENCHMARK(fieldCompareDecimal);
BENCHMARK(masterIndexFastCompare);
BENCHMARK(masterIndexColumnCompare);
BENCHMARK(cachedFindKeyHit);
BENCHMARK(unorderedMapFind);
BENCHMARK(uncachedFindKey);

RATIO_BENCHMARK_MAIN(ratios)
