#include "device.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "relay/cloud_check.h"

namespace brennix::test {

namespace {

Nonce WithCounter(Nonce nonce, std::uint64_t counter) {
    for (std::size_t i = 0; i < 8; ++i)
        nonce[4 + i] ^= static_cast<std::uint8_t>(counter >> (8 * i));
    return nonce;
}

std::map<std::string, std::string> ReadPlaces(const std::string& file) {
    std::map<std::string, std::string> places;
    std::ifstream text(file);
    for (std::string line; std::getline(text, line);)
        places[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
    return places;
}

}  // namespace

Socket::Socket(const std::string& address) : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in target = {};
    target.sin_family = AF_INET;
    target.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    target.sin_port =
        htons(static_cast<std::uint16_t>(std::stoul(address.substr(address.rfind(':') + 1))));
    if (::connect(fd_, reinterpret_cast<sockaddr*>(&target), sizeof target) != 0) Close();
}

void Socket::Close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

void Socket::Send(ByteSpan bytes) {
    while (!bytes.empty()) {
        const ssize_t size = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (size <= 0) return;  // the missing answer will show it
        bytes = bytes.subspan(static_cast<std::size_t>(size));
    }
}

Bytes Socket::Read(std::size_t count) {
    Bytes bytes(count);
    std::size_t used = 0;
    while (used < count) {
        pollfd ready = {.fd = fd_, .events = POLLIN, .revents = 0};
        if (::poll(&ready, 1, kPatienceMs) != 1) break;
        const ssize_t size = ::read(fd_, bytes.data() + used, count - used);
        if (size <= 0) break;
        used += static_cast<std::size_t>(size);
    }
    bytes.resize(used);
    return bytes;
}

std::string Socket::ReadUntil(const std::string& end) {
    std::string text;
    while (!text.ends_with(end)) {
        const Bytes byte = Read(1);
        if (byte.empty()) break;
        text.push_back(static_cast<char>(byte[0]));
    }
    return text;
}

RunningRelay::RunningRelay(const std::vector<std::string>& faults, std::size_t dongles) {
    folder_ = testing::TempDir() + "brennix-relay.XXXXXX";
    EXPECT_NE(::mkdtemp(folder_.data()), nullptr);
    RelayOptions options;
    options.folder = folder_;
    options.vehicles = {BRENNIX_SIM_VEHICLES "/demo.json"};
    options.dongles = dongles;
    options.tcp_port = options.ws_port = options.wss_port = options.proxy_port = 0;
    options.faults = faults;
    options.quiet = true;
    options.ready_file = folder_ + "/ready";
    auto run = std::make_unique<RelayRun>(options);
    places_ = run->Places();
    thread_ = std::thread([run = std::move(run)] { run->Run(); });
    control_.emplace(Place("CONTROL"));
}

RunningRelay::~RunningRelay() {
    Command("quit");
    thread_.join();
    EXPECT_EQ(ReadPlaces(folder_ + "/ready"), places_);
    std::filesystem::remove_all(folder_);
}

std::string RunningRelay::WebSocketAddress() const {
    const std::string address = Place("WS").substr(std::string_view("ws://").size());
    return address.substr(0, address.find('/'));
}

Point RunningRelay::PublicKey() const {
    return Take<Point>(ParseHex(Place("PUBLIC_KEY")).value_or(Bytes(kPointSize)));
}

std::string RunningRelay::Command(const std::string& line) {
    control_->Send(line + "\n");
    std::string answer = control_->ReadUntil("\n");
    if (!answer.empty()) answer.pop_back();
    return answer;
}

std::uint64_t RunningRelay::Violations() { return std::stoull(Command("violations").substr(3)); }

std::string RunningRelay::LastViolation() { return Command("violations"); }

Bytes MaskedFrame(std::uint8_t first, ByteSpan payload) {
    static constexpr std::array<std::uint8_t, 4> kMask = {0x12, 0x34, 0x56, 0x78};
    Bytes frame = {first};
    if (payload.size() < 126) {
        frame.push_back(static_cast<std::uint8_t>(0x80 | payload.size()));
    } else {
        frame.push_back(0x80 | 126);
        frame.push_back(static_cast<std::uint8_t>(payload.size() >> 8));
        frame.push_back(static_cast<std::uint8_t>(payload.size() & 0xFF));
    }
    AppendBytes(&frame, kMask);
    for (std::size_t i = 0; i < payload.size(); ++i)
        frame.push_back(payload[i] ^ kMask[i % 4]);
    return frame;
}

Device::Device(const RunningRelay& relay, Carrier carrier)
    : carrier_(carrier),
      socket_(carrier == Carrier::kTcp ? relay.Place("TCP") : relay.WebSocketAddress()),
      relay_(relay.PublicKey()) {
    if (carrier_ == Carrier::kTcp) return;
    socket_.Send(
        "GET /dongles HTTP/1.1\r\nHost: relay\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n");
    // The answer to the key in RFC 6455, 1.3.
    EXPECT_NE(socket_.ReadUntil("\r\n\r\n").find("s3pPLMBiTxaQ9kYGzzhZRbK+xOo="),
              std::string::npos);
}

void Device::SendWire(ByteSpan packet) {
    if (carrier_ == Carrier::kTcp) {
        socket_.Send(packet);
    } else {
        socket_.Send(MaskedFrame(0x82, packet));
    }
}

// False: the connection ended, or something other than data came.
bool Device::TakeFrame() {
    const Bytes head = socket_.Read(2);
    if (head.size() < 2 || (head[0] & 0x0F) > 2) return false;
    std::size_t size = head[1];
    if (size == 126) {
        const Bytes more = socket_.Read(2);
        if (more.size() < 2) return false;
        size = static_cast<std::size_t>(more[0] << 8 | more[1]);
    }
    const Bytes payload = socket_.Read(size);
    AppendBytes(&stream_, payload);
    return payload.size() == size;
}

std::optional<Bytes> Device::ReadWire() {
    std::size_t needed = kHeaderSize;
    for (;;) {
        if (stream_.size() >= kHeaderSize) needed = PacketLength(stream_);
        if (needed < kHeaderSize || needed > kMaxPacketSize) return std::nullopt;
        if (stream_.size() >= needed) break;
        if (carrier_ == Carrier::kTcp) {
            const Bytes more = socket_.Read(needed - stream_.size());
            if (more.empty()) return std::nullopt;
            AppendBytes(&stream_, more);
        } else if (!TakeFrame()) {
            return std::nullopt;
        }
    }
    const auto end = stream_.begin() + static_cast<std::ptrdiff_t>(needed);
    Bytes packet(stream_.begin(), end);
    stream_.erase(stream_.begin(), end);
    return packet;
}

Bytes Device::MakeFirstMessage() {
    shared1_ = SharedSecret(ephemeral_.secret, relay_).value_or(Key{});
    const Encrypted box = Encrypt(HkdfExtract(shared1_), {}, "ad:dev_pk", identity_.point);
    Bytes payload;
    AppendBytes(&payload, box.tag);
    AppendBytes(&payload, ephemeral_.point);
    AppendBytes(&payload, box.text);
    payload.resize(kFirstMessageSize - kHeaderSize);
    return MakePacket(type::kNhs1, payload);
}

bool Device::Handshake() {
    SendWire(MakeFirstMessage());
    const std::optional<Bytes> answer = ReadWire();
    if (!answer || PacketType(*answer) != type::kNhs2 || answer->size() < 103) return false;
    const ByteSpan nhs2 = *answer;
    const auto shared2 = SharedSecret(identity_.secret, Take<Point>(nhs2.subspan(24)));
    if (!shared2) return false;
    Bytes input;
    AppendBytes(&input, *shared2);
    AppendBytes(&input, shared1_);
    const Key root = HkdfExtract(input);
    to_relay_ = HkdfExpand(root, "hop-tx");
    from_relay_ = HkdfExpand(root, "hop-rx");
    salt_ = Take<Nonce>(HkdfExpand(root, "hop-nonce-salt"));
    return Decrypt(from_relay_, salt_, "ad:welcome", Take<Tag>(nhs2.subspan(8)), nhs2.subspan(96))
        .has_value();
}

void Device::Send(ByteSpan packet) {
    const Encrypted box =
        Encrypt(to_relay_, WithCounter(salt_, sent_++), "v1|role=device|server", packet);
    Bytes payload;
    AppendBytes(&payload, box.tag);
    AppendBytes(&payload, box.text);
    SendWire(MakePacket(type::kCryp, payload));
}

std::optional<Bytes> Device::Read() {
    std::optional<Bytes> packet = ReadWire();
    if (!packet || PacketType(*packet) != type::kCryp) return packet;
    const ByteSpan wire = *packet;
    if (wire.size() < kSealedHead) return std::nullopt;
    auto inner = Decrypt(from_relay_, WithCounter(salt_, opened_), "v1|role=server|device",
                         Take<Tag>(wire.subspan(8)), wire.subspan(24));
    if (inner) ++opened_;
    return inner;
}

std::uint32_t Device::Identify() {
    Bytes payload(identity_.point.begin() + 1, identity_.point.begin() + 7);
    payload.resize(8);
    AppendBytes(&payload, identity_.point);
    payload.resize(84 - kHeaderSize);
    Send(MakePacket(type::kDevi, payload));
    const std::optional<Bytes> answer = Read();
    if (!answer || PacketType(*answer) != type::kDeva || answer->size() < 16) return UINT32_MAX;
    return LoadU32(answer->data() + 8);
}

void Device::Login() {
    Bytes payload(24, 0);
    AppendText(&payload, "1.5.0.62-95aec0c", 32);
    AppendText(&payload, "DPDU: tester", 32);
    AppendText(&payload, "17:24:06", 16);
    AppendText(&payload, "Mar  2 2026", 16);
    payload.resize(184);
    Send(MakePacket(type::kLogn, payload));
}

bool Device::UseDongle() {
    Send(MakePacket(type::kIden, {}));
    const std::optional<Bytes> login = Read();
    if (!login || PacketType(*login) != type::kLogn) return false;
    Bytes payload(login->begin() + 12, login->begin() + 18);
    payload.resize(8);
    Send(MakePacket(type::kAddr, payload));
    return true;
}

Bytes VinRequest(std::uint32_t id) {
    Bytes payload;
    for (const std::uint32_t value : {0x7DFu, 0x7E0u, 0x7E8u, 1000u})
        AppendU32(&payload, value);
    AppendU16(&payload, 3);
    AppendU16(&payload, 0);
    AppendU32(&payload, id);
    AppendBytes(&payload, Bytes{0x22, 0xF1, 0x90});
    return MakePacket(type::kCreq, payload);
}

}  // namespace brennix::test
