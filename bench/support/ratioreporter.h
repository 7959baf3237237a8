#ifndef TABLEDB_BENCH_RATIOREPORTER_H
#define TABLEDB_BENCH_RATIOREPORTER_H

// A console reporter that also prints, after all runs, the ratios of the
// times of named benchmarks measured in the same run.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

class RatioReporter : public benchmark::ConsoleReporter
{
public:
    // Prints time(numerator) / time(denominator) under `label`; with
    // `subtrahend`, (time(numerator) - time(subtrahend)) / time(denominator).
    void addRatio(const std::string &label, const std::string &numerator,
                  const std::string &denominator, const std::string &subtrahend = std::string())
    {
        m_ratios.push_back({ label, numerator, denominator, subtrahend, {} });
    }

    // Prints time(numerator) / sum(weight * time(term)): a measured time
    // against a budget made of other measured times.
    void addBudget(const std::string &label, const std::string &numerator,
                   const std::vector<std::pair<std::string, double>> &terms)
    {
        m_ratios.push_back({ label, numerator, std::string(), std::string(), terms });
    }

    void ReportRuns(const std::vector<Run> &runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs)
            m_times[run.benchmark_name()] = run.GetAdjustedRealTime();
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        std::printf("\nRatios (same run):\n");
        for (const Ratio &r : m_ratios) {
            if (!r.terms.empty()) {
                printBudget(r);
                continue;
            }
            const auto n = m_times.find(r.numerator);
            const auto d = m_times.find(r.denominator);
            const auto s = m_times.find(r.subtrahend);
            if (n == m_times.end() || d == m_times.end() || d->second <= 0
                || (!r.subtrahend.empty() && s == m_times.end())) {
                std::printf("  %-60s n/a\n", r.label.c_str());
                continue;
            }
            const double minus = r.subtrahend.empty() ? 0.0 : s->second;
            std::printf("  %-60s %.2f\n", r.label.c_str(), (n->second - minus) / d->second);
        }
    }

private:
    struct Ratio
    {
        std::string label;
        std::string numerator;
        std::string denominator;
        std::string subtrahend;
        std::vector<std::pair<std::string, double>> terms;
    };

    void printBudget(const Ratio &r) const
    {
        const auto n = m_times.find(r.numerator);
        double budget = 0;
        for (const auto &term : r.terms) {
            const auto t = m_times.find(term.first);
            if (t == m_times.end()) {
                budget = 0;
                break;
            }
            budget += term.second * t->second;
        }
        if (n == m_times.end() || budget <= 0)
            std::printf("  %-60s n/a\n", r.label.c_str());
        else
            std::printf("  %-60s %.3f\n", r.label.c_str(), n->second / budget);
    }

    std::vector<Ratio> m_ratios;
    std::map<std::string, double> m_times;
};

// Runs the registered benchmarks with `reporter`.
#define RATIO_BENCHMARK_MAIN(setupRatios)                                                  \
    int main(int argc, char **argv)                                                        \
    {                                                                                      \
        benchmark::Initialize(&argc, argv);                                                \
        RatioReporter reporter;                                                            \
        setupRatios(reporter);                                                             \
        benchmark::RunSpecifiedBenchmarks(&reporter);                                      \
        benchmark::Shutdown();                                                             \
        return 0;                                                                          \
    }

#endif // TABLEDB_BENCH_RATIOREPORTER_H
