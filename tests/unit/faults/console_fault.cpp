#include "unit/faults/console_fault.h"

#include <atomic>

namespace {

std::atomic<int> file_type_questions{0};

}  // namespace

// The platform's source, with its OsStandardOutputMayWait renamed and the system's function
// counted. This object then defines all that the source does, so the linker takes nothing of it
// from the library.
#define OsStandardOutputMayWait SystemOutputMayWait
#ifdef _WIN32
#include <windows.h>

static DWORD CountedFileType(HANDLE file) {
    ++file_type_questions;
    return ::GetFileType(file);
}

#define GetFileType CountedFileType
#include "platform/win32/console.cpp"
#undef GetFileType
#else
#include "platform/posix/console.cpp"
#endif
#undef OsStandardOutputMayWait

namespace tarvik {
namespace {

std::atomic<void (*)()> on_question{nullptr};

}  // namespace

bool OsStandardOutputMayWait() {
    if (void (*const action)() = on_question) action();
    return SystemOutputMayWait();
}

namespace test {

void OnOutputQuestion(void (*action)()) { on_question = action; }

int FileTypeQuestions() { return file_type_questions; }

}  // namespace test
}  // namespace tarvik
