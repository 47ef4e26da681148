// The system's serial port, on a pseudo terminal whose other end plays the dongle.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "platform/tick.h"
#include "support/config.h"
#include "transport/serial/serial_port.h"
#include "transport/serial/serial_state.h"
#include "transport/transport.h"
#include "unit/test_support.h"
#include "unit/transport/fake_discovery.h"
#include "unit/transport/opened_port.h"
#include "unit/transport/patient_limits.h"

namespace tarvik {

const SerialLimits& GetSerialLimits() { return test::kPatientLimits; }

}  // namespace tarvik

namespace tarvik::test {

namespace {

using Bytes = std::vector<std::uint8_t>;
const Bytes kSync = {0x43, 0x4E, 0x59, 0x53, 8, 0, 0, 0};

// The dongle's end. Closing it unplugs the dongle.
class Terminal {
public:
    Terminal() : file_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
        EXPECT_GE(file_, 0);
        EXPECT_EQ(::grantpt(file_), 0);
        EXPECT_EQ(::unlockpt(file_), 0);
        char name[64];
        EXPECT_EQ(::ptsname_r(file_, name, sizeof name), 0);
        path = name;
    }
    ~Terminal() { Unplug(); }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void Unplug() {
        if (file_ >= 0) ::close(file_);
        file_ = -1;
    }
    void Send(const Bytes& bytes) {
        for (std::size_t at = 0; at < bytes.size();) {
            pollfd ready = {file_, POLLOUT, 0};
            ASSERT_EQ(::poll(&ready, 1, 10'000), 1);
            const ssize_t put = ::write(file_, bytes.data() + at, bytes.size() - at);
            if (put < 0 && errno == EAGAIN) continue;
            ASSERT_GT(put, 0);
            at += static_cast<std::size_t>(put);
        }
    }
    // Exactly `size` bytes, or those that arrived before patience ran out.
    Bytes Receive(std::size_t size) {
        Bytes bytes;
        Eventually([&] {
            pollfd ready = {file_, POLLIN, 0};
            if (::poll(&ready, 1, 10'000) <= 0) return true;
            std::uint8_t piece[4096];
            const std::size_t wanted = std::min(sizeof piece, size - bytes.size());
            const ssize_t got = ::read(file_, piece, wanted);
            if (got < 0 && errno == EIO) return false;  // nobody has opened the other end yet
            if (got <= 0) return true;
            bytes.insert(bytes.end(), piece, piece + got);
            return bytes.size() >= size;
        });
        return bytes;
    }

    std::string path;

private:
    int file_;
};

class OpenTerminal : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(port.IsOpen()); }

    Terminal terminal;
    OpenedPort port{terminal.path};
};

// ---------------------------------------------------------------- the port itself

TEST(SerialPortPosix, MissingPortIsRefusedWithTheSystemError) {
    EXPECT_EQ(OpenPort("/dev/there-is-no-such-port"), nullptr);
    EXPECT_EQ(OsLastError(), ENOENT);
}

TEST(SerialPortPosix, FileThatIsNotATtyIsRefused) {
    EXPECT_EQ(OpenPort("/dev/null"), nullptr);
    EXPECT_EQ(OsLastError(), ENOTTY);
}

TEST_F(OpenTerminal, EveryByteValuePassesUnchangedInBothDirections) {
    Bytes all(256);
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i] = static_cast<std::uint8_t>(i);

    const TransferOutcome written = WritePort(port.transmit(), all.data(), 256, 500);
    EXPECT_EQ(written.step, TransferStep::kDone);
    EXPECT_EQ(written.bytes, 256u);
    EXPECT_EQ(terminal.Receive(256), all);

    terminal.Send(all);
    EXPECT_EQ(port.ReadAtLeast(256), all);
}

TEST_F(OpenTerminal, DataLongerThanOneReadArrivesWhole) {
    Bytes much(100'000);
    for (std::size_t i = 0; i < much.size(); ++i)
        much[i] = static_cast<std::uint8_t>(i * 7);
    Thread sender([&] { terminal.Send(much); });
    EXPECT_EQ(port.ReadAtLeast(much.size()), much);
}

TEST_F(OpenTerminal, NothingIsEchoed) {
    terminal.Send({1, 2, 3});
    ASSERT_EQ(port.ReadAtLeast(3).size(), 3u);
    const std::uint8_t mark = 0xA5;
    ASSERT_EQ(WritePort(port.transmit(), &mark, 1, 500).step, TransferStep::kDone);
    EXPECT_EQ(terminal.Receive(1), Bytes{0xA5}) << "the first byte back is not an echo";
}

TEST(SerialPortPosix, PortIsMarkedExclusiveWhileItIsOpen) {
    Terminal terminal;
    const int watch = ::open(terminal.path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(watch, 0);
    int exclusive = -1;
    {
        const OpenedPort port(terminal.path);
        ASSERT_TRUE(port.IsOpen());
        ASSERT_EQ(::ioctl(watch, TIOCGEXCL, &exclusive), 0);
        EXPECT_EQ(exclusive, 1);
    }
    ASSERT_EQ(::ioctl(watch, TIOCGEXCL, &exclusive), 0);
    EXPECT_EQ(exclusive, 0);
    ::close(watch);
}

// True if another open of the terminal can be locked.
bool CanBeLocked(int terminal) {
    if (::flock(terminal, LOCK_EX | LOCK_NB) != 0) return false;
    ::flock(terminal, LOCK_UN);
    return true;
}

bool IsMarked(int terminal) {
    int exclusive = -1;
    EXPECT_EQ(::ioctl(terminal, TIOCGEXCL, &exclusive), 0);
    return exclusive == 1;
}

// Another program, which looks at the terminal whenever the library has dropped its bytes.
class Onlooker {
public:
    explicit Onlooker(const Terminal& terminal)
        : file_(::open(terminal.path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        EXPECT_GE(file_, 0);
        current = this;
    }
    ~Onlooker() {
        current = nullptr;
        ::close(file_);
    }
    Onlooker(const Onlooker&) = delete;
    Onlooker& operator=(const Onlooker&) = delete;

    void Look() {
        ++looks;
        port_was_ours = IsMarked(file_) && !CanBeLocked(file_);
    }
    bool CanHave() const { return !IsMarked(file_) && CanBeLocked(file_); }

    int looks = 0;
    bool port_was_ours = false;  // at the last look

    static inline Onlooker* current = nullptr;

private:
    int file_;
};

TEST(SerialPortPosix, BytesAreDroppedBeforeOthersCanOpenThePort) {
    Terminal terminal;
    Onlooker other(terminal);
    {
        const OpenedPort port(terminal.path);
        ASSERT_TRUE(port.IsOpen());
        EXPECT_EQ(other.looks, 0);
    }
    EXPECT_EQ(other.looks, 1);
    EXPECT_TRUE(other.port_was_ours);
    EXPECT_TRUE(other.CanHave());
}

// The mark does not keep out root's programs; the lock does.
TEST(SerialPortPosix, PortIsLockedWhileItIsOpen) {
    Terminal terminal;
    const int watch = ::open(terminal.path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(watch, 0);
    {
        const OpenedPort port(terminal.path);
        ASSERT_TRUE(port.IsOpen());
        EXPECT_FALSE(CanBeLocked(watch));
        EXPECT_EQ(OpenPort(terminal.path.c_str()), nullptr);
        EXPECT_EQ(OsLastError(), EBUSY);
        int exclusive = -1;
        ASSERT_EQ(::ioctl(watch, TIOCGEXCL, &exclusive), 0);
        EXPECT_EQ(exclusive, 1) << "the refused open has cleared the mark";
    }
    EXPECT_TRUE(CanBeLocked(watch));
    ::close(watch);
}

TEST(SerialPortPosix, PortThatAnotherProgramHasLockedIsBusy) {
    Terminal terminal;
    const int other = ::open(terminal.path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(other, 0);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    EXPECT_EQ(OpenPort(terminal.path.c_str()), nullptr);
    EXPECT_EQ(OsLastError(), EBUSY);
    ASSERT_EQ(::flock(other, LOCK_UN), 0);
    EXPECT_TRUE(OpenedPort(terminal.path).IsOpen());
    ::close(other);
}

TEST(SerialPortPosix, PortCanBeOpenedAgainWhileAForkedProcessKeepsItsDescriptor) {
    Terminal terminal;
    int until_killed[2];
    ASSERT_EQ(::pipe2(until_killed, O_CLOEXEC), 0);
    pid_t child = -1;
    {
        const OpenedPort port(terminal.path);
        ASSERT_TRUE(port.IsOpen());
        child = ::fork();
        if (child == 0) {
            char byte = 0;
            ::close(until_killed[1]);
            _exit(static_cast<int>(::read(until_killed[0], &byte, 1)));
        }
    }
    EXPECT_TRUE(OpenedPort(terminal.path).IsOpen());
    ::close(until_killed[0]);
    ::close(until_killed[1]);
    EXPECT_EQ(::waitpid(child, nullptr, 0), child);
}

TEST(SerialPortPosix, OtherLineSettingsThanRawModeAreKept) {
    Terminal terminal;
    const int watch = ::open(terminal.path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(watch, 0);
    termios before{};
    ASSERT_EQ(::tcgetattr(watch, &before), 0);
    ::cfsetspeed(&before, B19200);
    before.c_cflag |= HUPCL;
    ASSERT_EQ(::tcsetattr(watch, TCSANOW, &before), 0);
    const OpenedPort port(terminal.path);
    ASSERT_TRUE(port.IsOpen());
    termios after{};
    ASSERT_EQ(::tcgetattr(watch, &after), 0);
    EXPECT_EQ(::cfgetospeed(&after), static_cast<speed_t>(B19200));
    EXPECT_NE(after.c_cflag & HUPCL, 0u);
    EXPECT_EQ(after.c_lflag & (ECHO | ICANON | ISIG), 0u);
    EXPECT_EQ(after.c_oflag & OPOST, 0u);
    ::close(watch);
}

TEST_F(OpenTerminal, WaitTimesOutWithoutData) {
    EXPECT_TRUE(WaitForData(port.receive(), 1));
    std::uint32_t queued = 99;
    EXPECT_TRUE(QueuedBytes(port.receive(), &queued));
    EXPECT_EQ(queued, 0u);
}

TEST_F(OpenTerminal, ArrivingByteEndsTheWait) {
    Thread sender([this] { terminal.Send({7}); });
    EXPECT_TRUE(WaitForData(port.receive(), 3'600'000));
    EXPECT_EQ(port.ReadAtLeast(1), Bytes{7});
}

TEST_F(OpenTerminal, WakeEndsTheWaitAndAllLaterOnes) {
    Thread waker([this] { WakePort(port.handle()); });
    EXPECT_TRUE(WaitForData(port.receive(), 3'600'000));
    EXPECT_TRUE(WaitForData(port.receive(), 3'600'000));
}

TEST_F(OpenTerminal, UnreadWriteTimesOut) {
    const Bytes much(1 << 20, 0x55);
    const TransferOutcome outcome =
        WritePort(port.transmit(), much.data(), static_cast<std::uint32_t>(much.size()), 50);
    EXPECT_EQ(outcome.step, TransferStep::kTimeout);
    EXPECT_LT(outcome.bytes, much.size());
}

TEST_F(OpenTerminal, WakeEndsAnUnreadWrite) {
    const Bytes much(1 << 20, 0x55);
    Thread waker([this] { WakePort(port.handle()); });
    const TransferOutcome outcome =
        WritePort(port.transmit(), much.data(), static_cast<std::uint32_t>(much.size()), 3'600'000);
    EXPECT_EQ(outcome.step, TransferStep::kWait);
}

TEST_F(OpenTerminal, WriteLongerThanTheTtyBufferCompletes) {
    Bytes much(100'000);
    for (std::size_t i = 0; i < much.size(); ++i)
        much[i] = static_cast<std::uint8_t>(i * 7);
    Bytes received;
    {
        Thread reader([&] { received = terminal.Receive(much.size()); });
        const TransferOutcome outcome = WritePort(port.transmit(), much.data(),
                                                  static_cast<std::uint32_t>(much.size()), 10'000);
        EXPECT_EQ(outcome.step, TransferStep::kDone);
        EXPECT_EQ(outcome.bytes, much.size());
    }
    EXPECT_EQ(received, much);
}

TEST_F(OpenTerminal, UnpluggedPortEndsTheWaitAndFails) {
    terminal.Unplug();
    EXPECT_TRUE(WaitForData(port.receive(), 3'600'000));
    std::uint32_t queued = 0;
    EXPECT_FALSE(QueuedBytes(port.receive(), &queued));
    EXPECT_EQ(OsLastError(), EIO);
    std::uint8_t byte = 0;
    const TransferOutcome written = WritePort(port.transmit(), &byte, 1, 500);
    EXPECT_EQ(written.step, TransferStep::kStart);
    EXPECT_EQ(written.code, static_cast<std::uint32_t>(EIO));
}

TEST(SerialPortPosix, ManyOpensLeaveNoDescriptorBehind) {
    Terminal terminal;
    const auto next_descriptor = [] {
        const int probe = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ::close(probe);
        return probe;
    };
    const int before = next_descriptor();
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(OpenedPort(terminal.path).IsOpen());
        EXPECT_EQ(OpenPort("/dev/null"), nullptr);
    }
    EXPECT_EQ(next_descriptor(), before);
}

// ---------------------------------------------------------------- the transport on it

class SerialOnPty : public testing::Test {
protected:
    void SetUp() override {
        config = {};
        config.useSerial = true;
        kSerialTransport.Init();
        kSerialTransport.Start();
    }
    void TearDown() override {
        kSerialTransport.Deinit();
        UnplugAllPorts();
    }
    static PortState State() { return serial->port_states[3]; }
    static DeviceQueues* Queues() { return &serial->ports[3].queues; }
    // Plugs the terminal in as port 3 and plays the dongle's part of the handshake.
    static bool Connect(Terminal& terminal) {
        PlugPort(3, terminal.path);
        if (terminal.Receive(8) != kSync) return false;
        terminal.Send(kSync);
        return Eventually([] { return State() == PortState::kConnected; });
    }
};

Bytes Wire(std::uint32_t type, std::size_t length) {
    Bytes packet(length);
    StoreU32(packet.data(), type);
    StoreU32(packet.data() + 4, static_cast<std::uint32_t>(length));
    return packet;
}

TEST_F(SerialOnPty, PacketsTravelBothWays) {
    Terminal terminal;
    ASSERT_TRUE(Connect(terminal));
    PacketPtr request = MakePacket(kTypeCreq, 4096);
    request->Bytes()[4095] = 0x0A;
    const Bytes expected(request->Bytes(), request->Bytes() + 4096);
    ASSERT_TRUE(EnqueueTransmitPacket(Queues(), request));
    EXPECT_EQ(terminal.Receive(4096), expected);

    Bytes answer = Wire(kTypeCres, 300);
    StoreU32(answer.data() + 16, 42);
    answer[299] = 0x0D;
    terminal.Send(Bytes(answer.begin(), answer.begin() + 5));
    terminal.Send(Bytes(answer.begin() + 5, answer.end()));
    const PacketPtr packet = WaitForPacket(Queues(), kTypeCres, 10'000, 42);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(Bytes(packet->Bytes(), packet->Bytes() + packet->length), answer);
}

TEST_F(SerialOnPty, UnplugInTheMiddleOfAPacketClosesThePort) {
    LogCapture log;
    Terminal terminal;
    ASSERT_TRUE(Connect(terminal));
    Bytes half = Wire(kTypeCres, 300);
    half.resize(100);
    terminal.Send(half);
    UnplugPort(3);
    terminal.Unplug();
    EXPECT_TRUE(Eventually([] { return State() == PortState::kUnused; }));
    EXPECT_TRUE(Eventually([] { return !Queues()->available; }));
    EXPECT_TRUE(Eventually([&] { return log.Has("[SerialThreadFunc] COM3 Instance stopped"); }));
}

TEST_F(SerialOnPty, ReplugConnectsAgain) {
    for (int i = 0; i < 3; ++i) {
        Terminal terminal;
        ASSERT_TRUE(Connect(terminal)) << i;
        terminal.Send(Wire(kTypePing, 8));
        EXPECT_EQ(terminal.Receive(8), Wire(kTypeRepl, 8));
        UnplugPort(3);
        terminal.Unplug();
        {
            // A scan that found it before may still try to open it.
            const LockGuard end_of_scan(serial->session_lock);
        }
        ASSERT_TRUE(Eventually([] { return State() == PortState::kUnused; }));
    }
}

TEST_F(SerialOnPty, StopEndsAWriteToADongleThatDoesNotRead) {
    Terminal terminal;
    ASSERT_TRUE(Connect(terminal));
    {
        // All at once, so that some write fills the buffer and has to wait.
        const LockGuard hold(Queues()->tx.lock);
        for (int i = 0; i < 100; ++i) {
            PacketPtr packet = MakePacket(kTypeCreq, 4096);
            ASSERT_TRUE(EnqueueTransmitPacket(Queues(), packet));
        }
    }
    kSerialTransport.Stop();
    EXPECT_FALSE(Queues()->available);
    EXPECT_EQ(serial->ports[3].monitor_thread, nullptr) << "its threads have ended";
}

TEST_F(SerialOnPty, LockedPortIsPrintedAsBusy) {
    StdoutCapture console;
    Terminal terminal;
    const int other = ::open(terminal.path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(other, 0);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    PlugPort(3, terminal.path);
    EXPECT_TRUE(Eventually([] { return State() == PortState::kFailed; }));
    kSerialTransport.Stop();
    ::close(other);
    EXPECT_NE(console.Text().find("Failed to open serial port: 16\n"), std::string::npos);
}

TEST_F(SerialOnPty, OpenFailurePrintsTheSystemError) {
    StdoutCapture console;
    PlugPort(3, "/dev/there-is-no-such-port");
    EXPECT_TRUE(Eventually([] { return State() == PortState::kFailed; }));
    kSerialTransport.Stop();
    EXPECT_NE(console.Text().find("Failed to open serial port: 2\n"), std::string::npos);
}

}  // namespace
}  // namespace tarvik::test

// NOLINTBEGIN(bugprone-reserved-identifier): the linker redirects calls to this name.
extern "C" int __real_tcflush(int descriptor, int queue);
extern "C" int __wrap_tcflush(int descriptor, int queue);
extern "C" int __wrap_tcflush(int descriptor, int queue) {
    const int result = __real_tcflush(descriptor, queue);
    auto* const onlooker = tarvik::test::Onlooker::current;
    if (onlooker != nullptr) onlooker->Look();
    return result;
}
// NOLINTEND(bugprone-reserved-identifier)
