#include "relay/websocket.h"

#include <openssl/evp.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cctype>

#include "relay/http_head.h"

namespace brennix {

namespace {

constexpr std::uint8_t kContinuation = 0x0;
constexpr std::uint8_t kText = 0x1;
constexpr std::uint8_t kBinary = 0x2;
constexpr std::uint8_t kClose = 0x8;
constexpr std::uint8_t kPing = 0x9;
constexpr std::uint8_t kPong = 0xA;
constexpr std::uint8_t kControlBit = 0x8;
constexpr std::uint8_t kLastFrame = 0x80;
constexpr std::uint8_t kReservedBits = 0x70;
constexpr std::uint8_t kMasked = 0x80;

constexpr std::uint16_t kProtocolError = 1002;
constexpr std::uint16_t kUnacceptableData = 1003;
constexpr std::uint16_t kInvalidPayload = 1007;
constexpr std::uint16_t kTooBig = 1009;

constexpr std::size_t kMaxControlPayload = 125;
// A message is one packet; the limit leaves room for clients that send more in one.
constexpr std::size_t kMaxMessage = 1 << 20;

std::string Base64(ByteSpan bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                                     static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

std::string AcceptKey(const std::string& key) {
    const std::string text = key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    std::array<std::uint8_t, SHA_DIGEST_LENGTH> digest;
    SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
    return Base64(digest);
}

// Sixteen bytes in Base64: 22 characters and "==".
bool IsNonce(const std::string& key) {
    const auto is_base64 = [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '+' || c == '/';
    };
    return key.size() == 24 && key.ends_with("==") &&
           std::all_of(key.begin(), key.end() - 2, is_base64);
}

std::string CheckUpgrade(const HttpHead& head) {
    if (head.method != "GET") return "upgrade with method " + head.method;
    if (head.version != "HTTP/1.1") return "upgrade with " + head.version;
    if (!head.target.starts_with('/')) return "upgrade of \"" + head.target + "\", no path";
    if (head.fields.count("host") != 1) return "upgrade without one Host";
    if (!head.Lists("upgrade", "websocket")) return "no upgrade to websocket asked for";
    if (!head.Lists("connection", "upgrade")) return "upgrade without \"Connection: Upgrade\"";
    if (!IsNonce(head.Field("sec-websocket-key"))) return "Sec-WebSocket-Key is not 16 bytes";
    return {};
}

// Codes allowed in a close frame.
bool IsCloseCode(unsigned code) {
    if (code >= 3000) return code <= 4999;
    return code >= 1000 && code <= 1014 && code != 1004 && code != 1005 && code != 1006;
}

// The size in bytes of the UTF-8 character at the start; 0 if invalid.
std::size_t Utf8Length(ByteSpan text) {
    const std::uint8_t first = text[0];
    if (first < 0x80) return 1;
    const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
    for (std::size_t i = 1; i < size; ++i) {
        if ((text[i] & 0xC0) != 0x80) return 0;
    }
    const bool is_overlong = (first == 0xE0 && text[1] < 0xA0) || (first == 0xF0 && text[1] < 0x90);
    const bool is_surrogate = first == 0xED && text[1] > 0x9F;
    const bool is_beyond = first == 0xF4 && text[1] > 0x8F;
    return is_overlong || is_surrogate || is_beyond ? 0 : size;
}

bool IsUtf8(ByteSpan text) {
    while (!text.empty()) {
        const std::size_t size = Utf8Length(text);
        if (size == 0) return false;
        text = text.subspan(size);
    }
    return true;
}

std::size_t LoadBigEndian(ByteSpan bytes) {
    std::size_t value = 0;
    for (const std::uint8_t byte : bytes)
        value = (value << 8) | byte;
    return value;
}

Bytes FrameHead(std::uint8_t first, std::size_t size) {
    Bytes head = {first};
    int width = 0;
    if (size < 126) {
        head.push_back(static_cast<std::uint8_t>(size));
    } else if (size < 65536) {
        head.push_back(126);
        width = 2;
    } else {
        head.push_back(127);
        width = 8;
    }
    for (int i = width - 1; i >= 0; --i)
        head.push_back(static_cast<std::uint8_t>(size >> (8 * i)));
    return head;
}

Bytes ClosePayload(std::uint16_t code, std::string_view reason) {
    Bytes payload = {static_cast<std::uint8_t>(code >> 8), static_cast<std::uint8_t>(code & 0xFF)};
    const std::string_view cut = reason.substr(0, kMaxControlPayload - 2);
    payload.insert(payload.end(), cut.begin(), cut.end());
    return payload;
}

}  // namespace

void WebSocketServer::Feed(ByteSpan bytes) {
    if (state_ == State::kFinished) return;
    AppendBytes(&received_, bytes);
    if (state_ == State::kUpgrade && !Upgrade()) return;
    while (state_ != State::kFinished && TakeFrame()) {
    }
}

// False: not open yet, or refused.
bool WebSocketServer::Upgrade() {
    const std::string_view text(reinterpret_cast<const char*>(received_.data()), received_.size());
    if (!HasWholeHead(text)) {
        if (text.size() > kMaxHeadSize) {
            RejectUpgrade("431 Request Header Fields Too Large", "", "upgrade head too long");
        }
        return false;
    }
    const std::optional<HttpHead> head = ReadHttpHead(text);
    const std::string wrong = head ? CheckUpgrade(*head) : "no HTTP request";
    if (!wrong.empty()) {
        RejectUpgrade("400 Bad Request", "", wrong);
        return false;
    }
    if (head->Field("sec-websocket-version") != "13") {
        RejectUpgrade("426 Upgrade Required", "Sec-WebSocket-Version: 13\r\n",
                      "WebSocket version " + head->Field("sec-websocket-version"));
        return false;
    }
    if (refused_with_ != 0) {
        RejectUpgrade(std::to_string(refused_with_) + " Refused", "", "");
        return false;
    }
    const std::string key = head->Field("sec-websocket-key");
    received_.erase(received_.begin(), received_.begin() + static_cast<std::ptrdiff_t>(head->size));
    AnswerUpgrade(key, head->target);
    return state_ == State::kOpen;
}

void WebSocketServer::AnswerUpgrade(const std::string& key, const std::string& path) {
    const std::string answer =
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Accept: " +
        AcceptKey(key) + "\r\n\r\n";
    state_ = State::kOpen;
    handlers_.send(Bytes(answer.begin(), answer.end()));
    handlers_.opened(path);
}

void WebSocketServer::RejectUpgrade(const std::string& status, const std::string& fields,
                                    const std::string& wrong) {
    const std::string answer =
        "HTTP/1.1 " + status + "\r\n" + fields + "Connection: close\r\nContent-Length: 0\r\n\r\n";
    handlers_.send(Bytes(answer.begin(), answer.end()));
    Finish(wrong);
}

// False: more bytes must come first.
bool WebSocketServer::TakeFrame() {
    const std::optional<Frame> frame = ReadFrameHead();
    if (!frame || received_.size() - frame->head < frame->size) return false;
    const auto begin = received_.begin() + static_cast<std::ptrdiff_t>(frame->head);
    const auto end = begin + static_cast<std::ptrdiff_t>(frame->size);
    Bytes payload(begin, end);
    received_.erase(received_.begin(), end);
    for (std::size_t i = 0; i < payload.size(); ++i)
        payload[i] ^= frame->mask[i % 4];
    HandleFrame(*frame, std::move(payload));
    return true;
}

std::optional<WebSocketServer::Frame> WebSocketServer::ReadFrameHead() {
    const auto fail = [this](std::uint16_t code, const char* wrong) {
        Fail(code, wrong);
        return std::nullopt;
    };
    if (received_.size() < 2) return std::nullopt;
    const std::uint8_t first = received_[0];
    const std::uint8_t second = received_[1];
    Frame frame = {static_cast<std::uint8_t>(first & 0x0F),
                   (first & kLastFrame) != 0,
                   2,
                   static_cast<std::size_t>(second & 0x7F),
                   {}};
    if ((first & kReservedBits) != 0) return fail(kProtocolError, "frame with a reserved bit");
    if ((second & kMasked) == 0) return fail(kProtocolError, "frame without a mask");
    const bool is_control = (frame.opcode & kControlBit) != 0;
    if (frame.opcode > kPong || (!is_control && frame.opcode > kBinary)) {
        return fail(kProtocolError, "frame with an unknown opcode");
    }
    if (is_control && (!frame.is_last || frame.size > kMaxControlPayload)) {
        return fail(kProtocolError, "control frame in parts or too long");
    }
    const std::size_t width = frame.size == 126 ? 2 : frame.size == 127 ? 8 : 0;
    frame.head += width + frame.mask.size();
    if (received_.size() < frame.head) return std::nullopt;
    if (width != 0) {
        frame.size = LoadBigEndian(ByteSpan(received_).subspan(2, width));
        const std::size_t shortest = width == 2 ? 126 : 65536;
        if (frame.size < shortest) return fail(kProtocolError, "frame length in too many bytes");
        if (frame.size >> 63 != 0) return fail(kProtocolError, "frame length of 64 bits");
    }
    if (frame.size > kMaxMessage - std::min(kMaxMessage, message_.size())) {
        return fail(kTooBig, "message too long");
    }
    std::copy_n(received_.begin() + static_cast<std::ptrdiff_t>(2 + width), frame.mask.size(),
                frame.mask.begin());
    return frame;
}

void WebSocketServer::HandleFrame(const Frame& frame, Bytes payload) {
    switch (frame.opcode) {
        case kClose:
            return HandleClose(payload);
        case kPing:
            if (state_ == State::kOpen) SendFrame(kLastFrame | kPong, payload);
            return;
        case kPong:
            return;  // has no effect, asked for or not
        default:
            return HandleData(frame, payload);
    }
}

void WebSocketServer::HandleData(const Frame& frame, ByteSpan payload) {
    const bool continues = frame.opcode == kContinuation;
    if (continues != in_message_) {
        return Fail(kProtocolError,
                    continues ? "continuation of no message" : "message begun within another");
    }
    if (frame.opcode == kText) return Fail(kUnacceptableData, "text message");
    AppendBytes(&message_, payload);
    in_message_ = !frame.is_last;
    if (in_message_ || state_ != State::kOpen) return;
    const Bytes whole = std::move(message_);
    message_.clear();
    handlers_.message(whole);
}

void WebSocketServer::HandleClose(ByteSpan payload) {
    if (payload.size() == 1) return Fail(kProtocolError, "close with one byte");
    if (payload.size() >= 2) {
        if (!IsCloseCode(static_cast<unsigned>(LoadBigEndian(payload.first(2))))) {
            return Fail(kProtocolError, "close with an impossible code");
        }
        if (!IsUtf8(payload.subspan(2))) return Fail(kInvalidPayload, "close reason is not UTF-8");
    }
    // The client gets its own code back.
    if (state_ == State::kOpen)
        SendFrame(kLastFrame | kClose, payload.first(std::min<std::size_t>(payload.size(), 2)));
    Finish("");
}

void WebSocketServer::SendFrame(std::uint8_t first, ByteSpan payload) {
    Bytes frame = FrameHead(first, payload.size());
    AppendBytes(&frame, payload);
    handlers_.send(frame);
}

void WebSocketServer::SendBinary(ByteSpan payload, std::size_t frame) {
    if (!IsOpen()) return;
    if (frame == 0) frame = std::max<std::size_t>(payload.size(), 1);
    std::uint8_t opcode = kBinary;
    do {
        const std::size_t size = std::min(frame, payload.size());
        const bool is_last = size == payload.size();
        SendFrame(static_cast<std::uint8_t>((is_last ? kLastFrame : 0) | opcode),
                  payload.first(size));
        payload = payload.subspan(size);
        opcode = kContinuation;
    } while (!payload.empty());
}

void WebSocketServer::SendText(std::string_view text) {
    if (IsOpen()) SendFrame(kLastFrame | kText, Bytes(text.begin(), text.end()));
}

void WebSocketServer::SendPing(ByteSpan payload) {
    if (IsOpen()) SendFrame(kLastFrame | kPing, payload);
}

void WebSocketServer::SendClose(std::uint16_t code, std::string_view reason) {
    if (!IsOpen()) return;
    SendFrame(kLastFrame | kClose, ClosePayload(code, reason));
    state_ = State::kClosing;
}

void WebSocketServer::Fail(std::uint16_t code, const std::string& wrong) {
    SendClose(code, wrong);
    Finish(wrong);
}

void WebSocketServer::Finish(const std::string& wrong) {
    state_ = State::kFinished;
    handlers_.finished(wrong);
}

}  // namespace brennix
