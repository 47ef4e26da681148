// The system's serial port on Windows, where the driver does not do what it is asked.
//
// The port is a named pipe; what a pipe cannot do is played by functions that take the place of the
// system's.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstdint>

#include "support/memory.h"
#include "transport/serial/serial_port.h"
#include "unit/test_support.h"

namespace {

enum class Driver : std::uint8_t {
    kTakesMasks,    // a new mask ends a wait for a comm event, which cannot be cancelled
    kTakesCancels,  // the reverse, as a port that was removed
    kTakesNothing,
};
std::atomic<Driver> driver{Driver::kTakesMasks};
std::atomic<OVERLAPPED*> pending{nullptr};

void EndWait() {
    if (OVERLAPPED* wait = pending.exchange(nullptr)) ::SetEvent(wait->hEvent);
}

BOOL WINAPI AnswerSetCommMask(HANDLE, DWORD mask) {
    if (mask != 0) return TRUE;
    if (driver != Driver::kTakesMasks) {
        ::SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    EndWait();
    return TRUE;
}

BOOL WINAPI AnswerWaitCommEvent(HANDLE, DWORD*, OVERLAPPED* wait) {
    wait->Internal = 0x103;  // STATUS_PENDING
    pending = wait;
    ::SetLastError(ERROR_IO_PENDING);
    return FALSE;
}

BOOL WINAPI AnswerClearCommError(HANDLE, DWORD*, COMSTAT* status) {
    status->cbInQue = 0;
    return TRUE;
}

BOOL WINAPI AnswerCancelIoEx(HANDLE, OVERLAPPED* operation) {
    if (driver != Driver::kTakesCancels || operation != pending) {
        ::SetLastError(ERROR_NOT_FOUND);
        return FALSE;
    }
    EndWait();
    return TRUE;
}

}  // namespace

// The library's calls lead through these pointers.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
decltype(&SetCommMask) __imp_SetCommMask = AnswerSetCommMask;
decltype(&WaitCommEvent) __imp_WaitCommEvent = AnswerWaitCommEvent;
decltype(&ClearCommError) __imp_ClearCommError = AnswerClearCommError;
decltype(&CancelIoEx) __imp_CancelIoEx = AnswerCancelIoEx;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace tarvik::test {
namespace {

constexpr char kPipe[] = "\\\\.\\pipe\\tarvik_serial_port_test";

class CommWait : public testing::Test {
protected:
    void SetUp() override {
        pipe_ = ::CreateNamedPipeA(kPipe, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED, PIPE_TYPE_BYTE,
                                   PIPE_UNLIMITED_INSTANCES, 64, 64, 0, nullptr);
        ASSERT_NE(pipe_, INVALID_HANDLE_VALUE);
        port_ = OpenPort(kPipe);
        ASSERT_NE(port_, nullptr) << ::GetLastError();
        transfer_ = CreateTransfer(port_, TransferKind::kReceive);
        ASSERT_NE(transfer_, nullptr);
        ASSERT_TRUE(WaitForData(transfer_, 1));
        ASSERT_NE(pending, nullptr);
    }
    void TearDown() override {
        if (port_ != nullptr) ClosePort(port_);
        ::CloseHandle(pipe_);
    }
    // True if closing the transfer returns; it is helped if it does not.
    bool Closes(Driver how) {
        driver = how;
        std::atomic<bool> closed{false};
        Thread closer([this, &closed] {
            CloseTransfer(transfer_);
            closed = true;
        });
        const bool returned = Eventually([&] { return closed.load(); });
        if (!returned) EndWait();
        return returned;
    }

private:
    HANDLE pipe_ = INVALID_HANDLE_VALUE;
    PortHandle* port_ = nullptr;
    PortTransfer* transfer_ = nullptr;
};

TEST_F(CommWait, EndsByANewMask) {
    EXPECT_TRUE(Closes(Driver::kTakesMasks));
    EXPECT_EQ(pending, nullptr);
}

TEST_F(CommWait, IsCancelledIfThePortRefusesANewMask) {
    EXPECT_TRUE(Closes(Driver::kTakesCancels));
    EXPECT_EQ(pending, nullptr);
}

TEST_F(CommWait, ThatNeverEndsKeepsItsRecordAndItsEvent) {
    const std::uint64_t blocks = LiveMemory().blocks;
    EXPECT_TRUE(Closes(Driver::kTakesNothing));
    EXPECT_EQ(LiveMemory().blocks, blocks);
    OVERLAPPED* wait = pending.exchange(nullptr);
    ASSERT_NE(wait, nullptr);
    EXPECT_TRUE(::SetEvent(wait->hEvent)) << "closed";
}

}  // namespace
}  // namespace tarvik::test
