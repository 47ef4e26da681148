#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>

#include "unit/platform/application_stack.h"

namespace tarvik::test {
namespace {

ULONGLONG* Stated() {
    auto* program = reinterpret_cast<std::uint8_t*>(::GetModuleHandleW(nullptr));
    auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(program);
    auto* headers = reinterpret_cast<IMAGE_NT_HEADERS64*>(program + dos->e_lfanew);
    return &headers->OptionalHeader.SizeOfStackReserve;
}

void State(std::size_t size) {
    DWORD protection = 0;
    EXPECT_TRUE(::VirtualProtect(Stated(), sizeof(ULONGLONG), PAGE_READWRITE, &protection));
    *Stated() = size;
    ::VirtualProtect(Stated(), sizeof(ULONGLONG), protection, &protection);
}

}  // namespace

struct ApplicationStack::Before {
    std::size_t size = *Stated();
};

ApplicationStack::ApplicationStack(std::size_t size) : before_(std::make_unique<Before>()) {
    State(size);
}

ApplicationStack::~ApplicationStack() { State(before_->size); }

std::size_t StackOfThisThread() {
    ULONG_PTR low = 0;
    ULONG_PTR high = 0;
    ::GetCurrentThreadStackLimits(&low, &high);
    return high - low;
}

}  // namespace tarvik::test
