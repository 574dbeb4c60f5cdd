// A console reporter that also keeps each run's CPU time per iteration, for the ratio tables
// the benchmark programs print after their runs (CPU time, so that a busy machine descheduling
// the process does not skew one side).
#pragma once

#include <benchmark/benchmark.h>

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
                times_[run.benchmark_name()] = run.GetAdjustedCPUTime();
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
    std::map<std::string, double> times_;
};

} // namespace pu::bench
