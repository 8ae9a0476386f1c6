#include "table_reporter.h"

#include <cstdio>

#include "support.h"

namespace dme {
namespace bench {

namespace {

double nanosecondsPer(benchmark::TimeUnit unit) {
    switch (unit) {
        case benchmark::kSecond:
            return 1e9;
        case benchmark::kMillisecond:
            return 1e6;
        case benchmark::kMicrosecond:
            return 1e3;
        default:
            return 1;
    }
}

std::string printed(const char* format, double value, const char* unit) {
    char text[64];
    std::snprintf(text, sizeof text, format, value, unit);
    return text;
}

std::string formatTime(double nanoseconds) {
    if (nanoseconds < 1e3) return printed("%.1f %s", nanoseconds, "ns");
    if (nanoseconds < 1e6) return printed("%.2f %s", nanoseconds / 1e3, "us");
    if (nanoseconds < 1e9) return printed("%.2f %s", nanoseconds / 1e6, "ms");
    return printed("%.2f %s", nanoseconds / 1e9, "s");
}

std::string formatRatio(double ratio) {
    return printed("%.2f %s", ratio, "x");
}

}  // namespace

TableReporter::TableReporter(OutputOptions options) : ConsoleReporter(options) {}

void TableReporter::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        Result& result = results_[run.run_name.function_name];
        if (run.error_occurred) {
            result.failed = true;
            result.error = run.error_message;
            continue;
        }
        const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        if (run.run_type == Run::RT_Aggregate && !median) continue;
        if (result.median && !median) continue;
        result.median = median;
        // A benchmark that times itself (the notification burst) measures waiting on another
        // thread: its real time is the figure. The others run on this thread alone, and their
        // CPU time is what other processes on a busy machine disturb least.
        const bool timedByItself = !run.run_name.time_type.empty();
        const double time = timedByItself ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
        result.nanoseconds = time * nanosecondsPer(run.time_unit);
        for (const auto& [name, counter] : run.counters) result.counters[name] = counter.value;
    }
}

int TableReporter::printTable(std::ostream& out) const {
    struct Figure {
        bool present = false;
        bool failed = false;
        double value = 0;
        std::string text = "-";
    };
    int failures = 0;
    for (const auto& [name, result] : results_) {
        if (result.failed) ++failures;
    }
    out << "\n| Case | Engine | Floor | Engine/Floor | Hand-written | Engine/Hand-written | Target "
           "| Met |\n|---|---:|---:|---:|---:|---:|---|---|\n";
    for (const CaseInfo& info : declaredCases()) {
        auto figure = [&](const char* variant) {
            Figure shown;
            const auto found = results_.find(info.id + "/" + variant);
            if (found == results_.end()) return shown;
            const Result& result = found->second;
            shown.present = true;
            if (result.failed) {
                shown.failed = true;
                shown.text = "error";
                return shown;
            }
            if (info.counter.empty()) {
                shown.value = result.nanoseconds;
                shown.text = formatTime(shown.value);
                return shown;
            }
            const auto counter = result.counters.find(info.counter);
            if (counter == result.counters.end()) return shown;
            shown.value = counter->second;
            shown.text = printed("%.0f %s", shown.value, info.counterUnit.c_str());
            return shown;
        };
        const Figure engine = figure("engine");
        if (!engine.present) continue;
        const Figure floor = figure("floor");
        const Figure hand = figure("handwritten");
        auto ratio = [&](const Figure& baseline) {
            const bool usable = !engine.failed && !baseline.failed && baseline.value > 0;
            return usable ? formatRatio(engine.value / baseline.value) : std::string("-");
        };
        std::string met;
        if (engine.failed) {
            met = "error";
        } else if (info.maxFloorRatio > 0 || info.maxEngineValue > 0 ||
                   info.maxHandWrittenRatio > 0) {
            bool reached = true;
            if (info.maxFloorRatio > 0) {
                reached = !floor.failed && floor.value > 0 &&
                          engine.value / floor.value <= info.maxFloorRatio;
            }
            if (info.maxEngineValue > 0) reached = reached && engine.value <= info.maxEngineValue;
            if (info.maxHandWrittenRatio > 0) {
                reached = reached && !hand.failed && hand.value > 0 &&
                          engine.value / hand.value <= info.maxHandWrittenRatio;
            }
            met = reached ? "yes" : "NO";
        }
        out << "| " << info.id << " | " << engine.text << " | " << floor.text << " | "
            << ratio(floor) << " | " << hand.text << " | " << ratio(hand) << " | "
            << info.targetText << " | " << met << " |\n";
    }
    out << "\nTimes are CPU time per operation (real time for the notification burst), the median "
           "of the repetitions when repeated; "
           "floor: the same cxxtools document built directly and formatted with dme::formatJson "
           "(update: parsed with dme::parseJson; parse: the cxxtools JSON parser); hand-written: "
           "RapidJSON.\n";
    for (const CaseInfo& info : declaredCases())
        out << "- " << info.id << ": " << info.title << "\n";
    for (const auto& [name, result] : results_) {
        if (result.failed) out << "FAILED " << name << ": " << result.error << "\n";
    }
    return failures;
}

}  // namespace bench
}  // namespace dme
