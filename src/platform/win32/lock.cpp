#include "platform/lock.h"

#include <windows.h>

#include <new>

#include "platform/win32/shields.h"

namespace tarvik {

namespace {

CRITICAL_SECTION* Section(std::byte* storage) {
    static_assert(sizeof(CRITICAL_SECTION) <= 64);
    return std::launder(reinterpret_cast<CRITICAL_SECTION*>(storage));
}

CONDITION_VARIABLE* Condition(std::byte* storage) {
    static_assert(sizeof(CONDITION_VARIABLE) <= 64);
    return std::launder(reinterpret_cast<CONDITION_VARIABLE*>(storage));
}

}  // namespace

OsLock::OsLock() {
    auto* section = ::new (static_cast<void*>(storage_)) CRITICAL_SECTION;
    // Without debug information there is nothing to allocate, so this cannot fail.
    ::InitializeCriticalSectionEx(section, 0, CRITICAL_SECTION_NO_DEBUG_INFO);
}

OsLock::~OsLock() { ::DeleteCriticalSection(Section(storage_)); }

// The system's records of a thread that waits for a section, or sleeps inside it, are on that
// thread's stack.
void OsLock::Enter() {
    BeginTerminationShield();
    ::EnterCriticalSection(Section(storage_));
}

void OsLock::Leave() {
    ::LeaveCriticalSection(Section(storage_));
    EndTerminationShield();
}

OsCondition::OsCondition() {
    ::InitializeConditionVariable(::new (static_cast<void*>(storage_)) CONDITION_VARIABLE);
}

OsCondition::~OsCondition() = default;

bool OsCondition::Wait(OsLock& lock, std::int32_t timeout_ms) {
    const DWORD limit = timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms);
    return ::SleepConditionVariableCS(Condition(storage_), Section(lock.storage_), limit) != 0;
}

void OsCondition::WakeOne() { ::WakeConditionVariable(Condition(storage_)); }

void OsCondition::WakeAll() { ::WakeAllConditionVariable(Condition(storage_)); }

}  // namespace tarvik
