#include "unit/faults/debug_output_fault.h"

#include <mutex>

// The platform's source, with its OsDebugOutput under another name. This object then defines all
// that the source does, so the linker takes nothing of it from the library.
#define OsDebugOutput SystemDebugOutput
#ifdef _WIN32
#include "platform/win32/process.cpp"
#else
#include "platform/posix/process.cpp"
#endif
#undef OsDebugOutput

namespace tarvik {
namespace {

std::mutex debug_lock;
bool capturing = false;
std::string debug_text;

}  // namespace

void OsDebugOutput(const char* text) {
    {
        const std::lock_guard guard(debug_lock);
        if (capturing) debug_text += text;
    }
    SystemDebugOutput(text);
}

namespace test {

DebugOutputCapture::DebugOutputCapture() {
    const std::lock_guard guard(debug_lock);
    capturing = true;
    debug_text.clear();
}

DebugOutputCapture::~DebugOutputCapture() {
    const std::lock_guard guard(debug_lock);
    capturing = false;
}

std::string DebugOutputCapture::Text() const {
    const std::lock_guard guard(debug_lock);
    return debug_text;
}

}  // namespace test
}  // namespace tarvik
