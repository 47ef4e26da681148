// The bytes that a relay sends over TCP before it ends the connection. The packets must be those
// that a simple reading of the rules gives. The sockets and the handling of packets are replaced;
// the carrier with its threads is the library's.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/thread.h"
#include "platform/tick.h"
#include "support/config.h"
#include "transport/cloud/cloud_carrier.h"
#include "transport/cloud/cloud_state.h"
#include "transport/cloud/cloud_traffic.h"
#include "transport/cloud/tcp_socket.h"

namespace tarvik {

using Bytes = std::vector<std::uint8_t>;

struct TcpSocket {};
struct TcpAddresses {};

namespace {

// Of the connection. While its receive thread runs, only that uses them.
Bytes stream;
std::size_t taken = 0;
std::vector<Bytes> received;

TcpSocket the_socket;
TcpAddresses the_addresses;

}  // namespace

// ---- sockets ----

void StartNetwork() {}
void EndNetwork() {}
int ResolveTcp(const char*, const char*, TcpAddresses** addresses) {
    *addresses = &the_addresses;
    return 0;
}
void FreeTcpAddresses(TcpAddresses*) {}
TcpSocket* ConnectTcp(const TcpAddresses&, const std::atomic<bool>&) { return &the_socket; }
void AbortTcp(TcpSocket*) {}
void CloseTcp(TcpSocket*) {}
bool SendTcp(TcpSocket*, const void*, std::uint32_t) { return true; }

// All bytes are there, and no more will come.
TcpWait WaitForTcpData(TcpSocket*, std::int32_t) { return TcpWait::kReadable; }
bool TcpPeerEnded(const TcpSocket*) { return true; }

int PeekTcp(TcpSocket*, void* data, std::uint32_t size) {
    const std::size_t count = std::min<std::size_t>(size, stream.size() - taken);
    if (count != 0) std::memcpy(data, stream.data() + taken, count);
    return static_cast<int>(count);
}

int ReadTcp(TcpSocket* socket, void* data, std::uint32_t size) {
    const int count = PeekTcp(socket, data, size);
    taken += static_cast<std::size_t>(count);
    return count;
}

// ---- handling of packets ----

void DispatchCloudPacket(PacketPtr packet) {
    received.emplace_back(packet->Bytes(), packet->Bytes() + packet->length);
}

PacketPtr NextCloudPacket() {
    SleepMs(1);
    return nullptr;
}

void PutBackCloudPacket(PacketPtr) {}

}  // namespace tarvik

using namespace tarvik;

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

std::vector<Bytes> Expected() {
    std::vector<Bytes> packets;
    for (std::size_t at = 0; stream.size() - at >= MIN_PKT_SIZE;) {
        const std::uint32_t length = LoadU32(&stream[at + 4]);
        if (length < MIN_PKT_SIZE || length > MAX_PKT_SIZE || length > stream.size() - at) break;
        const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(at);
        packets.emplace_back(begin, begin + length);
        at += length;
    }
    return packets;
}

void End(OsThread** thread) {
    OsThreadJoin(*thread, -1);
    OsThreadClose(*thread);
    *thread = nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::strcpy(config.serverAddress, "relay.test:1");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    stream.assign(data, data + size);
    taken = 0;
    received.clear();
    cloud->connState = ConnState::kConnecting;
    Require(kNativeCarrier.Connect());
    End(&cloud->receive_thread);  // ends with the stream
    cloud->connState = ConnState::kDisconnecting;
    End(&cloud->transmit_thread);
    kNativeCarrier.Disconnect();
    Require(received == Expected());
    return 0;
}
