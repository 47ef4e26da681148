#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

// Several ways of doing one job, measured in turns: other load on the machine affects all of them
// equally, so their ratios are more meaningful than their times.
namespace tarvik::bench {

struct Batch {
    std::size_t requests = 0;
    double wall_us = 0;  // from the first request to the last answer
    double cpu_us = 0;   // of this process
    std::vector<double> latencies_us;
};

// One way of doing the job. `requests` is done by each of `threads` threads.
struct Contender {
    std::string name;
    std::size_t threads;
    std::size_t requests;
    int core;  // of these threads; kAnyCore: the system decides
    // One request of thread `thread`; false if it was lost, which ends the program.
    std::function<bool(std::size_t thread)> request;
};

// Figures of one batch, or the medians of all batches.
struct Figures {
    double each_us;  // wall time divided by requests: 1 / throughput
    double p50_us;   // of the latency
    double p99_us;
    double per_second;  // requests
    double cpu_us;      // per request
};

class Rounds {
public:
    explicit Rounds(std::vector<Contender> contenders);

    // Runs one batch of each contender. A batch before the first round is for warm-up and not
    // counted.
    void RunOne();

    std::size_t Count() const { return contenders_.size(); }
    const std::string& Name(std::size_t contender) const { return contenders_[contender].name; }
    std::size_t Threads(std::size_t contender) const { return contenders_[contender].threads; }
    Figures Last(std::size_t contender) const { return history_[contender].back(); }
    Figures Medians(std::size_t contender) const;
    // The median over the rounds of one contender's figure divided by another's in the same round.
    double Ratio(std::size_t contender, std::size_t to, double Figures::*figure) const;

private:
    std::vector<Contender> contenders_;
    std::vector<std::vector<Figures>> history_;  // by contender, then by round
};

double Median(std::vector<double> values);

}  // namespace tarvik::bench
