#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>
#include <vector>

#include "rounds.h"

// Reports of the programs in this folder: through Google Benchmark, and as rows of the tables that
// scripts/bench.sh assembles.
namespace tarvik::bench {

// Runs the registered benchmarks. Meanwhile, console output of the library goes to /dev/null and
// the report to the original standard output.
int RunBenchmarks(int argc, char** argv);

// Runs one round per iteration; the reported time is that of one request of contender 1. Contender
// 0 is by convention the floor.
void RunRounds(benchmark::State& state, Rounds* rounds);

struct Goals {
    double time = 0;  // maximum as a multiple of the floor; 0: none
    double p99 = 0;
};
inline constexpr Goals kGoalsOff = {.time = 1.35, .p99 = 1.5};  // debug log and trace off
inline constexpr Goals kGoalsOn = {.time = 2.5};                // both on
// One thread is judged by its median latency, several by their total throughput.
void AddRoundTripRow(const std::string& name, const Rounds& rounds, std::size_t contender,
                     std::size_t floor, const Goals& goals);
void AddFindingRow(const std::string& what, const std::string& measured, const std::string& goal,
                   bool met);
void AddStepRow(const std::string& what, double nanoseconds);

std::string Text(const char* format, double value);

}  // namespace tarvik::bench
