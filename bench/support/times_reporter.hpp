// SPDX-License-Identifier: MIT
// What every benchmark program shares: a console reporter that also keeps each run's CPU time per
// iteration, for the ratio tables the programs print after their runs (CPU time, so that a busy
// machine descheduling the process does not skew one side), and the main() around it. With
// --benchmark_repetitions a benchmark's time is the median of its repetitions, so one slow
// phase of a shared machine does not decide a ratio.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

namespace pu::bench {

class TimesReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                std::vector<double> &samples = samples_[run.run_name.str()];
                samples.push_back(run.GetAdjustedCPUTime());
                std::vector<double> sorted = samples;
                std::sort(sorted.begin(), sorted.end());
                times_[run.run_name.str()] = sorted[sorted.size() / 2];
            }
        }
    }

    // Time per iteration of every run so far, by benchmark name.
    const std::map<std::string, double> &times() const { return times_; }

    // The time of run a over the time of run b; 0 when either is missing.
    double ratio(const std::string &a, const std::string &b) const {
        auto x = times_.find(a);
        auto y = times_.find(b);
        return x != times_.end() && y != times_.end() && y->second > 0 ? x->second / y->second
                                                                       : 0.0;
    }

  private:
    std::map<std::string, std::vector<double>> samples_;
    std::map<std::string, double> times_;
};

// One line of a ratio table: the time of run `over` divided by the time of run `under`.
struct RatioRow {
    const char *label;
    const char *over;
    const char *under;
    const char *note = "";
};

// Prints heading, then one aligned line per row.
inline void printRatios(const TimesReporter &times, const char *heading,
                        std::initializer_list<RatioRow> rows) {
    int width = 0;
    for (const RatioRow &row : rows) {
        width = std::max(width, static_cast<int>(std::strlen(row.label)));
    }
    std::printf("\n%s\n", heading);
    for (const RatioRow &row : rows) {
        std::printf("  %-*s %5.2f%s\n", width, row.label, times.ratio(row.over, row.under),
                    row.note);
    }
}

// The body of every benchmark program's main(): runs the benchmarks selected on the command line
// through a TimesReporter, then hands it to summary for the program's own table.
template <typename Summary> int runBenchmarks(int argc, char **argv, Summary summary) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    TimesReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    summary(static_cast<const TimesReporter &>(reporter));
    benchmark::Shutdown();
    return 0;
}

} // namespace pu::bench
