// What decimal costs where tables spend it: comparisons (sorted indexes) at the
// same and at different scales, addition, and the text forms. Prints how much
// dearer the cross-scale comparison and the parsing are than the plain one.

#include "numeric/decimal.h"

#include <QCoreApplication>
#include <QStringList>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <random>
#include <vector>

namespace {

std::vector<decimal> values(bool mixedScales)
{
    std::mt19937_64 rng(7);
    std::vector<decimal> out;
    for (int i = 0; i < 4096; ++i)
        out.emplace_back(int64(rng() % 100000000) - 50000000, short(mixedScales ? rng() % 8 : 2));
    return out;
}

void compareAll(benchmark::State &state, bool mixedScales)
{
    const std::vector<decimal> v = values(mixedScales);
    int sum = 0;
    for (auto _ : state) {
        for (size_t i = 1; i < v.size(); ++i)
            sum += v[i - 1].compare(v[i]);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(int64(state.iterations()) * int64(v.size() - 1));
}

void BM_CompareSameScale(benchmark::State &state) { compareAll(state, false); }
void BM_CompareMixedScale(benchmark::State &state) { compareAll(state, true); }

void BM_AddMixedScale(benchmark::State &state)
{
    const std::vector<decimal> v = values(true);
    for (auto _ : state) {
        decimal total;
        for (const decimal &d : v)
            total += d;
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(int64(state.iterations()) * int64(v.size()));
}

void BM_FromString(benchmark::State &state)
{
    const QStringList texts = {"123.45", "-0.5", "1000", "15e2", "99999.9999"};
    for (auto _ : state) {
        for (const QString &t : texts)
            benchmark::DoNotOptimize(decimal::fromString(t));
    }
    state.SetItemsProcessed(int64(state.iterations()) * texts.size());
}

void BM_ToString(benchmark::State &state)
{
    const std::vector<decimal> v = values(true);
    for (auto _ : state) {
        for (size_t i = 0; i < 64; ++i)
            benchmark::DoNotOptimize(v[i].toString());
    }
    state.SetItemsProcessed(int64(state.iterations()) * 64);
}

BENCHMARK(BM_CompareSameScale);
BENCHMARK(BM_CompareMixedScale);
BENCHMARK(BM_AddMixedScale);
BENCHMARK(BM_FromString);
BENCHMARK(BM_ToString);

// Keeps the time per item of each run so that main can print the ratios.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    std::map<std::string, double> nsPerItem;

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            const auto items = run.counters.find("items_per_second");
            if (items != run.counters.end() && items->second.value > 0)
                nsPerItem[run.benchmark_name()] = 1e9 / items->second.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    const double base = reporter.nsPerItem["BM_CompareSameScale"];
    if (base > 0) {
        std::printf("\nper item, relative to a same-scale compare (%.2f ns):\n", base);
        for (const auto &entry : reporter.nsPerItem)
            std::printf("  %-22s %8.1fx\n", entry.first.c_str(), entry.second / base);
    }
    return 0;
}
