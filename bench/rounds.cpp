#include "rounds.h"

#include <time.h>

#include <algorithm>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

#include "placement.h"

namespace tarvik::bench {

using Clock = std::chrono::steady_clock;

namespace {

double Microseconds(Clock::duration time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

double ProcessCpuUs() {
    timespec used{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e6 + static_cast<double>(used.tv_nsec) / 1e3;
}

struct Span {
    Clock::time_point start;
    Clock::time_point end;
};

Span RunRequests(const Contender& contender, std::size_t thread, double* latencies_us) {
    const Clock::time_point begin = Clock::now();
    Clock::time_point start = begin;
    for (std::size_t i = 0; i < contender.requests; ++i) {
        if (!contender.request(thread)) {
            std::fprintf(stderr, "bench: %s: request %zu of thread %zu was lost\n",
                         contender.name.c_str(), i, thread);
            std::_Exit(1);
        }
        const Clock::time_point end = Clock::now();
        latencies_us[i] = Microseconds(end - start);
        start = end;
    }
    return {begin, start};
}

// From the first request of the first thread to the last answer of the last thread.
double WallUs(const std::vector<Span>& spans) {
    Span all = spans.front();
    for (const Span& span : spans) {
        all.start = std::min(all.start, span.start);
        all.end = std::max(all.end, span.end);
    }
    return Microseconds(all.end - all.start);
}

Batch RunBatch(const Contender& contender) {
    Batch batch;
    batch.requests = contender.threads * contender.requests;
    batch.latencies_us.resize(batch.requests);
    std::vector<Span> spans(contender.threads);
    std::barrier gate(static_cast<std::ptrdiff_t>(contender.threads) + 1);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < contender.threads; ++i) {
        threads.emplace_back([&, i] {
            PlaceThisThread(contender.core);
            gate.arrive_and_wait();
            spans[i] = RunRequests(contender, i, &batch.latencies_us[i * contender.requests]);
            gate.arrive_and_wait();
        });
    }
    const double cpu_before = ProcessCpuUs();
    gate.arrive_and_wait();
    gate.arrive_and_wait();
    batch.cpu_us = ProcessCpuUs() - cpu_before;
    batch.wall_us = WallUs(spans);
    for (std::thread& thread : threads)
        thread.join();
    return batch;
}

double Percentile(std::vector<double>& values, std::size_t percent) {
    const std::size_t position = std::min(values.size() * percent / 100, values.size() - 1);
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(position);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

Figures FiguresOf(Batch batch) {
    const auto requests = static_cast<double>(batch.requests);
    return {.each_us = batch.wall_us / requests,
            .p50_us = Percentile(batch.latencies_us, 50),
            .p99_us = Percentile(batch.latencies_us, 99),
            .per_second = requests / batch.wall_us * 1e6,
            .cpu_us = batch.cpu_us / requests};
}

double MedianOf(const std::vector<Figures>& rounds, double Figures::*figure) {
    std::vector<double> values;
    values.reserve(rounds.size());
    for (const Figures& round : rounds)
        values.push_back(round.*figure);
    return Median(std::move(values));
}

}  // namespace

double Median(std::vector<double> values) { return values.empty() ? 0 : Percentile(values, 50); }

Rounds::Rounds(std::vector<Contender> contenders)
    : contenders_(std::move(contenders)), history_(contenders_.size()) {
    for (const Contender& contender : contenders_)
        RunBatch(contender);
}

void Rounds::RunOne() {
    for (std::size_t i = 0; i < contenders_.size(); ++i) {
        history_[i].push_back(FiguresOf(RunBatch(contenders_[i])));
    }
}

Figures Rounds::Medians(std::size_t contender) const {
    const std::vector<Figures>& rounds = history_[contender];
    return {.each_us = MedianOf(rounds, &Figures::each_us),
            .p50_us = MedianOf(rounds, &Figures::p50_us),
            .p99_us = MedianOf(rounds, &Figures::p99_us),
            .per_second = MedianOf(rounds, &Figures::per_second),
            .cpu_us = MedianOf(rounds, &Figures::cpu_us)};
}

double Rounds::Ratio(std::size_t contender, std::size_t to, double Figures::*figure) const {
    std::vector<double> ratios;
    for (std::size_t round = 0; round < history_[contender].size(); ++round) {
        ratios.push_back(history_[contender][round].*figure / history_[to][round].*figure);
    }
    return Median(std::move(ratios));
}

}  // namespace tarvik::bench
