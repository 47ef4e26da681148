#include <gtest/gtest.h>
#include <windows.h>

#include "platform/thread.h"
#include "platform/thread_stack.h"

namespace tarvik {
namespace {

// While it lives, the headers of this program state this size for the stacks of its threads.
class ProgramStack {
public:
    explicit ProgramStack(std::size_t size) : before_(*Stated()) { State(size); }
    ~ProgramStack() { State(before_); }
    ProgramStack(const ProgramStack&) = delete;
    ProgramStack& operator=(const ProgramStack&) = delete;

private:
    static ULONGLONG* Stated() {
        auto* program = reinterpret_cast<std::uint8_t*>(::GetModuleHandleW(nullptr));
        auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(program);
        auto* headers = reinterpret_cast<IMAGE_NT_HEADERS64*>(program + dos->e_lfanew);
        return &headers->OptionalHeader.SizeOfStackReserve;
    }
    static void State(std::size_t size) {
        DWORD protection = 0;
        EXPECT_TRUE(::VirtualProtect(Stated(), sizeof(ULONGLONG), PAGE_READWRITE, &protection));
        *Stated() = size;
        ::VirtualProtect(Stated(), sizeof(ULONGLONG), protection, &protection);
    }

    std::size_t before_;
};

void MeasureStack(void* size) {
    ULONG_PTR low = 0;
    ULONG_PTR high = 0;
    ::GetCurrentThreadStackLimits(&low, &high);
    *static_cast<std::size_t*>(size) = high - low;
}

std::size_t StackOfThread() {
    std::size_t size = 0;
    OsThread* thread = OsThreadStart(&MeasureStack, &size, "Tarvik test");
    EXPECT_TRUE(OsThreadJoin(thread, -1));
    OsThreadClose(thread);
    return size;
}

TEST(ThreadStack, IsAMegabyteWhereTheProgramStatesLess) {
    EXPECT_EQ(ThreadStackSize(256 << 10), kMinThreadStack);
    const ProgramStack small(256 << 10);
    EXPECT_GE(StackOfThread(), kMinThreadStack);  // with Wine always
}

TEST(ThreadStack, IsWhatTheProgramStatesIfThatIsMore) {
    constexpr std::size_t kLarge = 4 << 20;
    const ProgramStack large(kLarge);
    EXPECT_GE(StackOfThread(), kLarge);
}

}  // namespace
}  // namespace tarvik
