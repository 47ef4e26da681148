#pragma once

#include <string>
#include <vector>

namespace tarvik::test {

// The warning boxes that the library has shown since the object was made, each closed at once, and
// a calendar that can be moved. One at a time.
class FailureBoxes {
public:
    FailureBoxes();
    ~FailureBoxes() = default;
    FailureBoxes(const FailureBoxes&) = delete;
    FailureBoxes& operator=(const FailureBoxes&) = delete;

    static std::vector<std::string> Texts();
    static std::vector<std::string> Captions();
    static void AdvanceCalendar(int seconds);
};

}  // namespace tarvik::test
