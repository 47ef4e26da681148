#pragma once

#include <functional>
#include <string>
#include <vector>

namespace conformance {

// Counts the steps of a client's session that went as expected.
class Score {
public:
    // Runs one step. It passes unless an expectation in it fails, which also fails the test.
    void Step(const std::string& what, const std::function<void()>& body);

    int Passed() const { return passed_; }
    int Steps() const { return static_cast<int>(lines_.size()); }
    void Print() const;

private:
    std::vector<std::string> lines_;
    int passed_ = 0;
};

}  // namespace conformance
