#include "unit/cloud/failure_boxes.h"

#include <mutex>

#include "platform/message_box.h"
#include "unit/faults/calendar_fault.h"

namespace tarvik {
namespace test {
namespace {

std::mutex box_lock;
std::vector<std::string> texts, captions;  // guarded by box_lock

}  // namespace

FailureBoxes::FailureBoxes() {
    AdvanceCalendar(60);  // earlier boxes are long ago
    const std::lock_guard hold(box_lock);
    texts.clear();
    captions.clear();
}

std::vector<std::string> FailureBoxes::Texts() {
    const std::lock_guard hold(box_lock);
    return texts;
}

std::vector<std::string> FailureBoxes::Captions() {
    const std::lock_guard hold(box_lock);
    return captions;
}

}  // namespace test

void OsMessageBox(const char* text, const char* caption, BoxIcon) {
    const std::lock_guard hold(test::box_lock);
    test::texts.emplace_back(text);
    test::captions.emplace_back(caption);
}

}  // namespace tarvik
