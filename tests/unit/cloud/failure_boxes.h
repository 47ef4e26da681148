#pragma once

#include <string>
#include <vector>

namespace tarvik::test {

// The warning boxes that the library has shown while this object lives; each is closed at once. One
// at a time.
class FailureBoxes {
public:
    FailureBoxes();
    ~FailureBoxes() = default;
    FailureBoxes(const FailureBoxes&) = delete;
    FailureBoxes& operator=(const FailureBoxes&) = delete;

    static std::vector<std::string> Texts();
    static std::vector<std::string> Captions();
};

}  // namespace tarvik::test
