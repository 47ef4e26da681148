#include "unit/transport/fake_port.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "platform/thread.h"
#include "unit/transport/fake_discovery.h"

namespace tarvik::test {

namespace {

std::mutex ports_lock;
std::map<std::string, std::shared_ptr<FakePort>> ports;  // guarded by ports_lock

void AnswerLikeADongle(FakePort& port, const Bytes& packet) {
    const std::uint32_t type = LoadU32(packet.data());
    if (type == kTypeSync) port.Send(kSyncBytes);
    if (type == kTypeIden) port.Send(LoginPacket(port.name));
}

}  // namespace

Bytes WirePacket(std::uint32_t type, const Bytes& payload) {
    Bytes packet(8 + payload.size());
    StoreU32(packet.data(), type);
    StoreU32(packet.data() + 4, static_cast<std::uint32_t>(packet.size()));
    std::copy(payload.begin(), payload.end(), packet.begin() + 8);
    return packet;
}

Bytes LoginPacket(const std::string& name) {
    Bytes packet = WirePacket(kTypeLogn, Bytes(kLoginSize - MIN_PKT_SIZE));
    const std::uint8_t mac[] = {0xA0, 0xB1, 0xC2, 0xD3, 0xE4, 0xF5};
    std::copy(std::begin(mac), std::end(mac), packet.begin() + 12);
    packet[20] = 5;
    std::copy_n(name.begin(), std::min<std::size_t>(name.size(), 32), packet.begin() + 64);
    return packet;
}

std::shared_ptr<FakePort> FakePort::Plug(std::int32_t number, PortReadiness readiness) {
    auto port = std::make_shared<FakePort>();
    port->on_packet = AnswerLikeADongle;
    const std::string path = "fake" + std::to_string(number);
    const std::lock_guard hold(ports_lock);
    ports[path] = port;
    PlugPort(number, path, readiness);
    return port;
}

void FakePort::RemoveAll() {
    UnplugAllPorts();
    const std::lock_guard hold(ports_lock);
    ports.clear();
}

void FakePort::Send(const Bytes& bytes, std::size_t piece) {
    const std::lock_guard hold(lock_);
    incoming_.insert(incoming_.end(), bytes.begin(), bytes.end());
    piece_ = piece;
    changed_.notify_all();
}

void FakePort::Break(std::uint32_t system_error) {
    const std::lock_guard hold(lock_);
    status_error_ = system_error;
    changed_.notify_all();
}

std::vector<Bytes> FakePort::Received() const {
    const std::lock_guard hold(lock_);
    return received_;
}

std::size_t FakePort::ReceivedCount(std::uint32_t type) const {
    const std::vector<Bytes> received = Received();
    return static_cast<std::size_t>(
        std::count_if(received.begin(), received.end(),
                      [type](const Bytes& packet) { return LoadU32(packet.data()) == type; }));
}

std::uint32_t FakePort::OpenCount() const {
    const std::lock_guard hold(lock_);
    return opened_;
}

std::uint32_t FakePort::CloseCount() const {
    const std::lock_guard hold(lock_);
    return closed_;
}

bool FakePort::IsOpen() const {
    const std::lock_guard hold(lock_);
    return open_;
}

bool FakePort::HoldsAWrite() const {
    const std::lock_guard hold(lock_);
    return holds_a_write_;
}

bool FakePort::HoldsItsClose() const {
    const std::lock_guard hold(lock_);
    return holds_its_close_;
}

std::uint32_t FakePort::WaitCount() const {
    const std::lock_guard hold(lock_);
    return waits_;
}

std::size_t FakePort::Unread() const {
    const std::lock_guard hold(lock_);
    return incoming_.size();
}

bool FakePort::IsDrained() const {
    const std::lock_guard hold(lock_);
    return receiver_sleeps_ && incoming_.empty();
}

// The operations of serial_port.h on a fake port.
struct FakePortAccess {
    static bool Open(FakePort& port) {
        const std::lock_guard hold(port.lock_);
        if (port.open_error) {
            OsSetLastError(static_cast<std::int32_t>(*port.open_error));
            return false;
        }
        port.open_ = true;
        port.woken_ = false;
        port.incoming_.clear();
        port.status_error_.reset();
        ++port.opened_;
        return true;
    }
    static void Close(FakePort& port) {
        std::unique_lock hold(port.lock_);
        port.holds_its_close_ = port.hold_close;
        port.changed_.wait(hold, [&port] { return !port.hold_close; });
        port.holds_its_close_ = false;
        port.open_ = false;
        ++port.closed_;
    }
    static void Wake(FakePort& port) {
        const std::lock_guard hold(port.lock_);
        port.woken_ = true;
        port.changed_.notify_all();
    }
    static bool CanCreate(FakePort& port, TransferKind kind) {
        const std::lock_guard hold(port.lock_);
        const auto& error =
            kind == TransferKind::kReceive ? port.receive_event_error : port.transmit_event_error;
        if (error) OsSetLastError(static_cast<std::int32_t>(*error));
        return !error;
    }
    static bool Wait(FakePort& port, std::int32_t timeout_ms) {
        std::unique_lock hold(port.lock_);
        ++port.waits_;
        port.receiver_sleeps_ = true;
        port.changed_.wait_for(hold, std::chrono::milliseconds(timeout_ms), [&port] {
            return port.woken_ || !port.incoming_.empty() || port.status_error_ ||
                   port.comm_wait_error;
        });
        port.receiver_sleeps_ = false;
        if (!port.comm_wait_error) return true;
        OsSetLastError(static_cast<std::int32_t>(*port.comm_wait_error));
        return false;
    }
    static bool Queued(FakePort& port, std::uint32_t* count) {
        const std::lock_guard hold(port.lock_);
        if (port.status_error_) {
            OsSetLastError(static_cast<std::int32_t>(*port.status_error_));
            return false;
        }
        *count = static_cast<std::uint32_t>(Arrived(port));
        return true;
    }
    static TransferOutcome Read(FakePort& port, void* data, std::uint32_t size) {
        const std::lock_guard hold(port.lock_);
        if (port.read_outcome) return *port.read_outcome;
        const std::size_t count = std::min<std::size_t>(size, Arrived(port));
        const auto end = port.incoming_.begin() + static_cast<std::ptrdiff_t>(count);
        std::copy(port.incoming_.begin(), end, static_cast<std::uint8_t*>(data));
        port.incoming_.erase(port.incoming_.begin(), end);
        return {TransferStep::kDone, static_cast<std::uint32_t>(count), 0};
    }
    static TransferOutcome Write(FakePort& port, const void* data, std::uint32_t size) {
        const auto* bytes = static_cast<const std::uint8_t*>(data);
        const Bytes packet(bytes, bytes + size);
        {
            std::unique_lock hold(port.lock_);
            if (port.write_outcome) return *port.write_outcome;
            if (port.hold_writes) {
                port.holds_a_write_ = true;
                port.changed_.wait(hold, [&port] { return port.woken_; });
                return {TransferStep::kWait, 0, 1};
            }
            port.received_.push_back(packet);
        }
        port.on_packet(port, packet);
        return {TransferStep::kDone, size, 0};
    }

private:
    static std::size_t Arrived(const FakePort& port) {
        return port.piece_ == 0 ? port.incoming_.size()
                                : std::min(port.piece_, port.incoming_.size());
    }
};

}  // namespace tarvik::test

namespace tarvik {

using test::FakePort;
using test::FakePortAccess;

struct PortHandle {
    std::shared_ptr<FakePort> port;
};
struct PortTransfer {
    std::shared_ptr<FakePort> port;
};

PortHandle* OpenPort(const char* path) {
    std::shared_ptr<FakePort> port;
    {
        const std::lock_guard hold(test::ports_lock);
        port = test::ports.at(path);
    }
    return FakePortAccess::Open(*port) ? new PortHandle{port} : nullptr;
}
void WakePort(PortHandle* port) { FakePortAccess::Wake(*port->port); }
void ClosePort(PortHandle* port) {
    FakePortAccess::Close(*port->port);
    delete port;
}
PortTransfer* CreateTransfer(PortHandle* port, TransferKind kind) {
    return FakePortAccess::CanCreate(*port->port, kind) ? new PortTransfer{port->port} : nullptr;
}
void* TransferEvent(const PortTransfer* transfer) { return transfer->port.get(); }
void CloseTransfer(PortTransfer* transfer) { delete transfer; }
bool WaitForData(PortTransfer* transfer, std::int32_t timeout_ms) {
    return FakePortAccess::Wait(*transfer->port, timeout_ms);
}
bool QueuedBytes(PortTransfer* transfer, std::uint32_t* count) {
    return FakePortAccess::Queued(*transfer->port, count);
}
TransferOutcome ReadPort(PortTransfer* transfer, void* data, std::uint32_t size) {
    return FakePortAccess::Read(*transfer->port, data, size);
}
TransferOutcome WritePort(PortTransfer* transfer, const void* data, std::uint32_t size,
                          std::int32_t) {
    return FakePortAccess::Write(*transfer->port, data, size);
}

}  // namespace tarvik
