#include "unit/cloud/failure_box.h"

#include <atomic>
#include <cstdint>
#include <mutex>

#include "platform/message_box.h"

namespace tarvik::test {

static std::mutex lock;
static std::vector<std::string> texts, captions;  // guarded by lock
static std::atomic<std::int64_t> ahead{0};

FailureBoxes::FailureBoxes() {
    AdvanceCalendar(60);  // what was shown before is long ago
    const std::lock_guard hold(lock);
    texts.clear();
    captions.clear();
}

std::vector<std::string> FailureBoxes::Texts() {
    const std::lock_guard hold(lock);
    return texts;
}

std::vector<std::string> FailureBoxes::Captions() {
    const std::lock_guard hold(lock);
    return captions;
}

void FailureBoxes::AdvanceCalendar(int seconds) { ahead += seconds; }

}  // namespace tarvik::test

namespace tarvik {

void OsWarningBox(const char* text, const char* caption) {
    const std::lock_guard hold(test::lock);
    test::texts.emplace_back(text);
    test::captions.emplace_back(caption);
}

}  // namespace tarvik

extern "C" std::int64_t __real__ZN6tarvik16OsCalendarSecondEv();
extern "C" std::int64_t __wrap__ZN6tarvik16OsCalendarSecondEv();
std::int64_t __wrap__ZN6tarvik16OsCalendarSecondEv() {
    return __real__ZN6tarvik16OsCalendarSecondEv() + tarvik::test::ahead;
}
