#include "report.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace tarvik::bench {

int RunBenchmarks(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    std::ofstream report("/dev/fd/" + std::to_string(::dup(STDOUT_FILENO)), std::ios::app);
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(nowhere, STDOUT_FILENO);
    ::close(nowhere);
    benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Defaults);
    reporter.SetOutputStream(&report);
    reporter.SetErrorStream(&report);
    const std::size_t ran = benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return ran > 0 ? 0 : 1;
}

void RunRounds(benchmark::State& state, Rounds* rounds) {
    for ([[maybe_unused]] auto iteration : state) {
        rounds->RunOne();
        state.SetIterationTime(rounds->Last(1).each_us / 1e6);
    }
    for (std::size_t i = 0; i < rounds->Count(); ++i) {
        const Figures figures = rounds->Medians(i);
        state.counters[rounds->Name(i) + ":us"] = figures.each_us;
        state.counters[rounds->Name(i) + ":p99_us"] = figures.p99_us;
    }
}

std::string Text(const char* format, double value) {
    char text[64];
    // Only literals of this folder are passed.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(text, sizeof text, format, value);
#pragma GCC diagnostic pop
    return text;
}

namespace {

void AddRow(const char* table, const std::vector<std::string>& cells) {
    const char* folder = std::getenv("TARVIK_BENCH_ROWS");
    if (folder == nullptr) return;
    std::ofstream rows(std::string(folder) + "/" + table, std::ios::app);
    for (const std::string& cell : cells)
        rows << "| " << cell << ' ';
    rows << "|\n";
}

std::string Against(double ratio, double goal) {
    std::string measured = Text("%.2f", ratio);
    if (goal <= 0) return measured;
    return measured + (ratio <= goal ? " (≤ " : " (**missed**: ≤ ") + Text("%.2f", goal) + ")";
}

}  // namespace

void AddRoundTripRow(const std::string& name, const Rounds& rounds, std::size_t contender,
                     std::size_t floor, const Goals& goals) {
    const Figures own = rounds.Medians(contender);
    const Figures bare = rounds.Medians(floor);
    const auto time = rounds.Threads(contender) == 1 ? &Figures::p50_us : &Figures::each_us;
    AddRow("round_trips",
           {name, Text("%.1f", own.*time), Text("%.1f", bare.*time),
            Against(rounds.Ratio(contender, floor, time), goals.time), Text("%.1f", own.p99_us),
            Text("%.1f", bare.p99_us),
            Against(rounds.Ratio(contender, floor, &Figures::p99_us), goals.p99),
            Text("%.0f", own.per_second), Text("%.1f", own.cpu_us), Text("%.1f", bare.cpu_us)});
}

void AddFindingRow(const std::string& what, const std::string& measured, const std::string& goal,
                   bool met) {
    AddRow("findings", {what, measured, goal, met ? "yes" : "**no**"});
}

void AddStepRow(const std::string& what, double nanoseconds) {
    AddRow("steps", {what, Text("%.0f", nanoseconds)});
}

}  // namespace tarvik::bench
