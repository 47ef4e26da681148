#include "sealed_stream.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "failure.h"
#include "link/packet.h"

namespace tarvik::bench {

// ---------------------------------------------------------------- sealing

namespace {

constexpr std::string_view kFromDevice = "v1|role=device|server";
constexpr std::string_view kFromRelay = "v1|role=server|device";
constexpr std::size_t kTag = 8;

const Secret<kAeadKeySize>& BenchKey() {
    static Secret<kAeadKeySize> key;
    key.fill(0x5A);
    return key;
}

// Zeroes, as in a session that has been cleared.
const Secret<32>& BenchSalt() {
    static const Secret<32> salt;
    return salt;
}

}  // namespace

void InstallBenchSession() {
    CloudSecClearSession();
    CloudSecSession& session = cloud_session;
    if (!session.tx_cipher.Set(BenchKey()) || !session.rx_cipher.Set(BenchKey())) Fail("key");
    session.established = true;
}

Sealer::Sealer(Side side)
    : sent_as_(side == Side::kDevice ? kFromDevice : kFromRelay),
      received_as_(side == Side::kDevice ? kFromRelay : kFromDevice) {
    if (!sending_.Set(BenchKey()) || !receiving_.Set(BenchKey())) Fail("key");
}

void Sealer::Seal(ByteView plain, Bytes* sealed) {
    sealed->resize(plain.size + kSealBytes);
    StoreU32(sealed->data(), kTypeCryp);
    StoreU32(sealed->data() + 4, static_cast<std::uint32_t>(sealed->size()));
    if (!sending_.Encrypt(NonceFor(BenchSalt(), sent_++), sent_as_, plain,
                          sealed->data() + kSealBytes, sealed->data() + kTag)) {
        Fail("seal");
    }
}

void Sealer::Open(const Bytes& sealed, Bytes* plain) {
    plain->resize(sealed.size() - kSealBytes);
    if (!receiving_.Decrypt(NonceFor(BenchSalt(), received_++), received_as_,
                            {sealed.data() + kSealBytes, plain->size()}, sealed.data() + kTag,
                            plain->data())) {
        Fail("open");
    }
}

// ---------------------------------------------------------------- the socket

PacketSocket::~PacketSocket() {
    if (file_ >= 0) ::close(file_);
}

void PacketSocket::Connect(const std::string& address) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = ::htons(static_cast<std::uint16_t>(std::stoul(address.substr(10))));
    place.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    file_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(file_, reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0) {
        Fail("connect");
    }
    const int yes = 1;
    ::setsockopt(file_, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

void PacketSocket::Shutdown() { ::shutdown(file_, SHUT_RDWR); }

bool PacketSocket::ReadAhead() {
    const ssize_t count = ::recv(file_, ahead_.data(), ahead_.size(), 0);
    ahead_begin_ = 0;
    ahead_end_ = count > 0 ? static_cast<std::size_t>(count) : 0;
    return count > 0;
}

bool PacketSocket::ReadAll(void* data, std::size_t size) {
    auto* to = static_cast<std::uint8_t*>(data);
    while (size > 0) {
        if (ahead_begin_ == ahead_end_ && !ReadAhead()) return false;
        const std::size_t count = std::min(size, ahead_end_ - ahead_begin_);
        std::memcpy(to, ahead_.data() + ahead_begin_, count);
        ahead_begin_ += count;
        to += count;
        size -= count;
    }
    return true;
}

bool PacketSocket::AwaitEvent(int event) const {
    if (ahead_begin_ != ahead_end_) return false;
    pollfd watched[] = {{file_, POLLIN, 0}, {event, POLLIN, 0}};
    if (::poll(watched, 2, -1) < 0) Fail("poll");
    std::uint64_t count = 0;
    return watched[1].revents != 0 && ::read(event, &count, sizeof count) == sizeof count;
}

bool PacketSocket::ReadHead(std::string* head) {
    char byte = 0;
    while (!head->ends_with("\r\n\r\n")) {
        if (!ReadAll(&byte, 1)) return false;
        *head += byte;
    }
    return true;
}

void PacketSocket::AskForWebSocket() {
    const std::string request =
        "GET / HTTP/1.1\r\nHost: relay\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n";
    std::string answer;
    if (::send(file_, request.data(), request.size(), MSG_NOSIGNAL) < 0 || !ReadHead(&answer)) {
        Fail("upgrade");
    }
    is_web_socket_ = is_client_ = true;
}

namespace {

std::string AcceptKey(const std::string& head) {
    constexpr std::string_view kName = "Sec-WebSocket-Key: ";
    const std::size_t begin = head.find(kName) + kName.size();
    const std::string text =
        head.substr(begin, head.find('\r', begin) - begin) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    std::array<unsigned char, SHA_DIGEST_LENGTH> digest{};
    SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
    std::array<unsigned char, 32> key{};
    EVP_EncodeBlock(key.data(), digest.data(), digest.size());
    return reinterpret_cast<const char*>(key.data());
}

}  // namespace

bool PacketSocket::AcceptWebSocket() {
    std::string head;
    if (!ReadHead(&head)) return false;
    const std::string answer =
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Accept: " +
        AcceptKey(head) + "\r\n\r\n";
    is_web_socket_ = true;
    return ::send(file_, answer.data(), answer.size(), MSG_NOSIGNAL) > 0;
}

// ---------------------------------------------------------------- packets

namespace {

constexpr std::uint8_t kBinaryMessage = 0x82;
constexpr std::uint8_t kMasked = 0x80;
constexpr std::uint8_t kShort = 126;  // from this value: two bytes of length follow
constexpr std::array<std::uint8_t, 4> kMask = {0x12, 0x34, 0x56, 0x78};

void ApplyMask(const std::uint8_t* from, std::size_t size, const std::uint8_t* mask,
               std::uint8_t* to) {
    for (std::size_t i = 0; i < size; ++i)
        to[i] = static_cast<std::uint8_t>(from[i] ^ mask[i % 4]);
}

}  // namespace

bool PacketSocket::Send(const Bytes& packet) {
    const Bytes* whole = &packet;
    if (is_web_socket_) {
        const std::uint8_t mask_bit = is_client_ ? kMasked : 0;
        frame_ = {kBinaryMessage};
        if (packet.size() < kShort) {
            frame_.push_back(static_cast<std::uint8_t>(packet.size() | mask_bit));
        } else {
            frame_.push_back(kShort | mask_bit);
            frame_.push_back(static_cast<std::uint8_t>(packet.size() >> 8));
            frame_.push_back(static_cast<std::uint8_t>(packet.size()));
        }
        if (is_client_) frame_.insert(frame_.end(), kMask.begin(), kMask.end());
        const std::size_t head = frame_.size();
        frame_.resize(head + packet.size());
        constexpr std::array<std::uint8_t, 4> kNone{};
        ApplyMask(packet.data(), packet.size(), is_client_ ? kMask.data() : kNone.data(),
                  frame_.data() + head);
        whole = &frame_;
    }
    return ::send(file_, whole->data(), whole->size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(whole->size());
}

bool PacketSocket::ReceiveFrame(Bytes* packet) {
    std::uint8_t head[2];
    if (!ReadAll(head, sizeof head) || head[0] != kBinaryMessage) return false;
    std::size_t size = head[1] & 0x7F;
    if (size == kShort) {
        std::uint8_t length[2];
        if (!ReadAll(length, sizeof length)) return false;
        size = static_cast<std::size_t>(length[0] << 8 | length[1]);
    }
    std::uint8_t mask[4] = {};
    if ((head[1] & kMasked) != 0 && !ReadAll(mask, sizeof mask)) return false;
    packet->resize(size);
    if (!ReadAll(packet->data(), size)) return false;
    ApplyMask(packet->data(), size, mask, packet->data());
    return true;
}

bool PacketSocket::Receive(Bytes* packet) {
    if (is_web_socket_) return ReceiveFrame(packet);
    std::uint8_t header[MIN_PKT_SIZE];
    if (!ReadAll(header, sizeof header)) return false;
    packet->resize(LoadU32(header + 4));
    std::memcpy(packet->data(), header, sizeof header);
    return ReadAll(packet->data() + sizeof header, packet->size() - sizeof header);
}

}  // namespace tarvik::bench
