#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace dme {
namespace bench {

// Shows the runs as Google Benchmark's console reporter does and keeps, for every benchmark, its
// time and counters: the median of the repetitions when there are several, else its one
// run. Afterwards prints one row per declared case: the engine beside its floor and hand-written
// baselines, the ratios, and whether the case's target is met. Not thread-safe.
class TableReporter : public benchmark::ConsoleReporter {
  public:
    explicit TableReporter(OutputOptions options);

    void ReportRuns(const std::vector<Run>& runs) override;
    // Prints the table (Markdown) and a legend of the cases; returns the number of benchmarks
    // that failed.
    int printTable(std::ostream& out) const;

  private:
    struct Result {
        bool failed = false;
        std::string error;
        bool median = false;
        double nanoseconds = 0;
        std::map<std::string, double> counters;
    };

    std::map<std::string, Result> results_;
};

}  // namespace bench
}  // namespace dme
