// Runs the engine benchmarks and prints the results table.
//
// Defaults (each can be overridden on the command line): three repetitions of at least 0.2 s,
// only their aggregates shown on the console. Add --benchmark_out=FILE
// --benchmark_out_format=json for the raw results.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <iostream>
#include <vector>

#include "table_reporter.h"

int main(int argc, char** argv) {
    std::vector<char*> arguments{argv[0]};
    char minTime[] = "--benchmark_min_time=0.2";
    char repetitions[] = "--benchmark_repetitions=3";
    char aggregatesOnly[] = "--benchmark_display_aggregates_only=true";
    arguments.insert(arguments.end(), {minTime, repetitions, aggregatesOnly});
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 1;

    dme::bench::TableReporter reporter(isatty(STDOUT_FILENO)
                                           ? benchmark::ConsoleReporter::OO_ColorTabular
                                           : benchmark::ConsoleReporter::OO_Tabular);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return reporter.printTable(std::cout) == 0 ? 0 : 1;
}
