// The system's serial port, when the system refuses something.

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/thread.h"
#include "transport/serial/serial_port.h"
#include "unit/faults/system_call_fault.h"
#include "unit/faults/tracked_memory_fault.h"
#include "unit/transport/opened_port.h"

namespace tarvik::test {
namespace {

class FaultyPort : public testing::Test {
protected:
    FaultyPort() : terminal_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
        EXPECT_EQ(::grantpt(terminal_), 0);
        EXPECT_EQ(::unlockpt(terminal_), 0);
        char name[64];
        EXPECT_EQ(::ptsname_r(terminal_, name, sizeof name), 0);
        path_ = name;
    }
    ~FaultyPort() override { ::close(terminal_); }

    struct Refusal {
        bool refused;
        std::int32_t error;
    };
    Refusal OpenWhile(const char* function, int error) const {
        const SystemCallFault fault(function, error);
        PortHandle* port = OpenPort(path_.c_str());
        const Refusal refusal = {port == nullptr, OsLastError()};
        if (port != nullptr) ClosePort(port);
        return refusal;
    }
    static Refusal CreateTransferWhile(const OpenedPort& port, const char* function, int error,
                                       int allowed = 0) {
        const SystemCallFault fault(function, error, SystemCallFault::kAlways, allowed);
        PortTransfer* transfer = CreateTransfer(port.handle(), TransferKind::kReceive);
        const Refusal refusal = {transfer == nullptr, OsLastError()};
        if (transfer != nullptr) CloseTransfer(transfer);
        return refusal;
    }
    static TransferOutcome WriteWhile(const OpenedPort& port, const char* function, int error,
                                      int failures, int allowed = 0) {
        static constexpr std::uint8_t kBytes[4] = {1, 2, 3, 4};
        const SystemCallFault fault(function, error, failures, allowed);
        return WritePort(port.transmit(), kBytes, sizeof kBytes, 10'000);
    }
    // Bytes that were written reach the other end a little later.
    std::vector<std::uint8_t> Receive(std::size_t size) const {
        std::vector<std::uint8_t> bytes;
        EXPECT_TRUE(Eventually([&] {
            std::uint8_t piece[64];
            const ssize_t got = ::read(terminal_, piece, sizeof piece);
            if (got > 0) bytes.insert(bytes.end(), piece, piece + got);
            return bytes.size() >= size;
        }));
        return bytes;
    }
    void Arrives() const {
        const std::uint8_t byte = 7;
        ASSERT_EQ(::write(terminal_, &byte, 1), 1);
    }

    int terminal_;
    std::string path_;
};

TEST_F(FaultyPort, IsNotOpenedIfTheSystemRefusesAnyPart) {
    const int next = NextDescriptor();
    for (const char* function : {"eventfd", "open", "tcgetattr"}) {
        const Refusal refusal = OpenWhile(function, EMFILE);
        EXPECT_TRUE(refusal.refused) << function;
        EXPECT_EQ(refusal.error, EMFILE) << function;
    }
    EXPECT_EQ(NextDescriptor(), next);
    EXPECT_TRUE(OpenedPort(path_).IsOpen());
}

TEST_F(FaultyPort, IsNotOpenedWithoutMemory) {
    Refusal refusal{};
    {
        const RefusedRequests none(1, 1);
        refusal = {OpenPort(path_.c_str()) == nullptr, OsLastError()};
    }
    EXPECT_TRUE(refusal.refused);
    EXPECT_EQ(refusal.error, ENOMEM);
}

TEST_F(FaultyPort, HasNoTransfersIfTheSystemRefusesAnyPart) {
    const OpenedPort port(path_);
    ASSERT_TRUE(port.IsOpen());
    const int next = NextDescriptor();
    const std::array refusals = {CreateTransferWhile(port, "epoll_create1", EMFILE),
                                 CreateTransferWhile(port, "epoll_ctl", ENOSPC),
                                 CreateTransferWhile(port, "epoll_ctl", ENOSPC, 1)};
    for (const Refusal& refusal : refusals)
        EXPECT_TRUE(refusal.refused);
    EXPECT_EQ(refusals[0].error, EMFILE);
    EXPECT_EQ(refusals[1].error, ENOSPC);
    EXPECT_EQ(refusals[2].error, ENOSPC);
    EXPECT_EQ(NextDescriptor(), next);
}

TEST_F(FaultyPort, HasNoTransfersWithoutMemory) {
    const OpenedPort port(path_);
    ASSERT_TRUE(port.IsOpen());
    Refusal refusal{};
    {
        const RefusedRequests none(1, 1);
        refusal = {CreateTransfer(port.handle(), TransferKind::kTransmit) == nullptr,
                   OsLastError()};
    }
    EXPECT_TRUE(refusal.refused);
    EXPECT_EQ(refusal.error, ENOMEM);
}

TEST_F(FaultyPort, WaitEndsAtASignalAndFailsAtAnError) {
    const OpenedPort port(path_);
    ASSERT_TRUE(port.IsOpen());
    const auto wait_while = [&](int error) {
        const SystemCallFault fault("epoll_wait", error);
        return WaitForData(port.receive(), 3'600'000);
    };
    EXPECT_TRUE(wait_while(EINTR));
    EXPECT_FALSE(wait_while(EBADF));
}

TEST_F(FaultyPort, ReadThatASignalInterruptsIsRepeated) {
    const OpenedPort port(path_);
    ASSERT_TRUE(port.IsOpen());
    Arrives();
    ASSERT_TRUE(WaitForData(port.receive(), 10'000));
    std::uint32_t queued = 99;
    bool works = false;
    {
        const SystemCallFault fault("read", EINTR, 1);
        works = QueuedBytes(port.receive(), &queued);
    }
    EXPECT_TRUE(works);
    EXPECT_EQ(queued, 0u);
    EXPECT_TRUE(QueuedBytes(port.receive(), &queued));
    EXPECT_EQ(queued, 1u);
}

TEST_F(FaultyPort, ReadThatFailsIsAnErrorOfThePort) {
    const OpenedPort port(path_);
    ASSERT_TRUE(port.IsOpen());
    Arrives();
    ASSERT_TRUE(WaitForData(port.receive(), 10'000));
    std::uint32_t queued = 99;
    bool works = true;
    std::int32_t error = 0;
    {
        const SystemCallFault fault("read", ENXIO);
        works = QueuedBytes(port.receive(), &queued);
        error = OsLastError();
    }
    EXPECT_FALSE(works);
    EXPECT_EQ(error, ENXIO);
}

TEST_F(FaultyPort, WriteGoesOnAfterASignalAndAfterAPart) {
    const OpenedPort port(path_);
    ASSERT_TRUE(port.IsOpen());
    for (const int error : {EINTR, SystemCallFault::kOneByte}) {
        const TransferOutcome outcome = WriteWhile(port, "write", error, 2);
        EXPECT_EQ(outcome.step, TransferStep::kDone);
        EXPECT_EQ(outcome.bytes, 4u);
        EXPECT_EQ(Receive(4), (std::vector<std::uint8_t>{1, 2, 3, 4}));
    }
}

TEST_F(FaultyPort, WriteThatFailsReportsTheStepAndTheError) {
    const OpenedPort port(path_);
    ASSERT_TRUE(port.IsOpen());
    const TransferOutcome outcome = WriteWhile(port, "write", ENXIO, SystemCallFault::kAlways);
    EXPECT_EQ(outcome.step, TransferStep::kStart);
    EXPECT_EQ(outcome.bytes, 0u);
    EXPECT_EQ(outcome.code, static_cast<std::uint32_t>(ENXIO));
}

// A full tty, and then no way to wait for it.
TEST_F(FaultyPort, WriteThatCannotWaitReportsIt) {
    const OpenedPort port(path_);
    ASSERT_TRUE(port.IsOpen());
    static constexpr std::array<std::uint8_t, 1 << 20> kMuch{};
    TransferOutcome outcome{};
    {
        const SystemCallFault fault("epoll_wait", EBADF);
        outcome = WritePort(port.transmit(), kMuch.data(), static_cast<std::uint32_t>(kMuch.size()),
                            60'000);
    }
    EXPECT_EQ(outcome.step, TransferStep::kWait);
    EXPECT_GT(outcome.bytes, 0u);
    EXPECT_LT(outcome.bytes, kMuch.size());
}

}  // namespace
}  // namespace tarvik::test
