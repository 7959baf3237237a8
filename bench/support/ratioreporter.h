#ifndef TABLEDB_BENCH_RATIOREPORTER_H
#define TABLEDB_BENCH_RATIOREPORTER_H

// A console reporter that also keeps each run's time per iteration by name,
// so that a benchmark program can print the ratios it exists to show.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

class RatioReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration)
                m_seconds[run.benchmark_name()] = run.GetAdjustedRealTime()
                    * benchmark::GetTimeUnitMultiplier(run.time_unit);
        }
    }

    bool has(const std::string &name) const { return m_seconds.count(name) != 0; }
    double seconds(const std::string &name) const { return m_seconds.at(name); }

    // Prints "label: a / b = ratio (target)" when both runs were made.
    void printRatio(const std::string &label, const std::string &a, const std::string &b,
                    const char *target) const
    {
        if (!has(a) || !has(b))
            return;
        std::printf("%-60s %8.2f   (%s)\n", label.c_str(), seconds(a) / seconds(b), target);
    }

private:
    std::map<std::string, double> m_seconds;
};

#endif // TABLEDB_BENCH_RATIOREPORTER_H
