#pragma once

#include <functional>
#include <string>
#include <vector>

namespace conformance {

// How many of the steps of a client's day went as it expects.
class Score {
public:
    // Runs one step. It has passed unless an expectation inside it fails, which fails the test,
    // too.
    void Step(const std::string& what, const std::function<void()>& body);

    int Passed() const { return passed_; }
    int Steps() const { return static_cast<int>(lines_.size()); }
    void Print() const;

private:
    std::vector<std::string> lines_;
    int passed_ = 0;
};

}  // namespace conformance
