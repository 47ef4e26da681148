#include "relay/client.h"

#include <algorithm>
#include <utility>

#include "protocol/layout.h"
#include "relay/cloud_check.h"

namespace brennix {

namespace {

std::string TextAt(ByteSpan packet, std::size_t offset, std::size_t width) {
    const ByteSpan field = packet.subspan(offset, width);
    return {field.begin(), std::find(field.begin(), field.end(), 0)};
}

void StoreLength(Bytes* packet, std::uint32_t length) {
    Bytes field;
    AppendU32(&field, length);
    std::copy(field.begin(), field.end(), packet->begin() + 4);
}

// Applies a fault that changes the bytes themselves.
void Damage(const FaultRule& rule, Bytes* wire) {
    const std::size_t at = std::min<std::size_t>(rule.a, wire->size());
    switch (rule.action) {
        case FaultAction::kFlip:
            if (rule.a / 8 < wire->size()) {
                (*wire)[rule.a / 8] ^= static_cast<std::uint8_t>(1U << (rule.a % 8));
            }
            return;
        case FaultAction::kSet:
            std::copy_n(rule.bytes.begin(), std::min(rule.bytes.size(), wire->size() - at),
                        wire->begin() + static_cast<std::ptrdiff_t>(at));
            return;
        case FaultAction::kTruncate:
            wire->resize(at);
            return StoreLength(wire, static_cast<std::uint32_t>(at));
        case FaultAction::kLength:
            return StoreLength(wire, rule.a);
        default:
            return;
    }
}

Bytes LoneHeader(std::uint32_t length) {
    Bytes header;
    AppendU32(&header, type::kPing);
    AppendU32(&header, length);
    return header;
}

}  // namespace

Client::Client(Host* host, std::size_t number, Carrier carrier, int fd, SSL_CTX* tls)
    : host_(host),
      number_(number),
      carrier_(carrier),
      socket_(&host->Loop(), fd, tls,
              {.received =
                   [this](ByteSpan bytes) {
                       if (web_socket_) {
                           web_socket_->Feed(bytes);
                       } else {
                           OnStream(bytes);
                       }
                   },
               .ended = [this](const std::string& why) { OnEnded(why); }}),
      peer_(socket_.Peer()) {
    if (carrier_ != Carrier::kTcp) web_socket_.emplace(WebSocketHandlers());
}

Client::~Client() {
    if (delay_) host_->Loop().Cancel(*delay_);
}

WebSocketServer::Handlers Client::WebSocketHandlers() {
    return {.send = [this](ByteSpan bytes) { socket_.Send(bytes); },
            .opened = [this](const std::string& path) { Event("WebSocket opened, path " + path); },
            .message = [this](ByteSpan bytes) { OnMessage(bytes); },
            .finished =
                [this](const std::string& wrong) {
                    if (!wrong.empty()) Violation(wrong);
                    Finish(End::kClose);
                }};
}

void Client::Start() {
    Event(std::string("connected by ") + CarrierName(carrier_) + " from " + peer_);
    for (const FaultRule& rule : host_->Faults().TakeForConnection()) {
        switch (rule.action) {
            case FaultAction::kRefuse:
                return Finish(End::kClose);
            case FaultAction::kReset:
                return Finish(End::kReset);
            case FaultAction::kDeaf:
                socket_.SetReading(false);
                break;
            case FaultAction::kHttp:
                if (web_socket_) web_socket_->RefuseUpgrade(rule.a);
                break;
            default:
                break;  // FaultScript allows no other action here
        }
    }
}

void Client::Event(const std::string& text) {
    host_->Log().AddText(number_, Direction::kEvent, text);
    host_->Say(number_, text);
}

void Client::Violation(std::string text) {
    ++violations_;
    last_violation_ = text;
    host_->Say(number_, "violation: " + text);
    host_->Log().AddText(number_, Direction::kViolation, std::move(text));
}

// ---- receiving ---------------------------------------------------------------------------------

void Client::OnMessage(ByteSpan bytes) {
    if (bytes.size() < kHeaderSize || PacketLength(bytes) != bytes.size()) {
        Violation("WebSocket message of " + std::to_string(bytes.size()) +
                  " bytes that is not one packet");
    }
    OnStream(bytes);
}

void Client::OnStream(ByteSpan bytes) {
    AppendBytes(&stream_, bytes);
    while (!gone_ && stream_.size() >= kHeaderSize) {
        const std::size_t length = PacketLength(stream_);
        if (length < kHeaderSize || length > kMaxPacketSize) {
            Violation("packet header with length " + std::to_string(length));
            return Finish(End::kClose);
        }
        if (stream_.size() < length) return;
        const auto end = stream_.begin() + static_cast<std::ptrdiff_t>(length);
        const Bytes packet(stream_.begin(), end);
        stream_.erase(stream_.begin(), end);
        OnPacket(packet);
    }
}

void Client::OnEnded(const std::string& why) {
    std::string text = "gone: " + why;
    if (!stream_.empty()) {
        text += " within a packet, " + std::to_string(stream_.size()) + " bytes of it came";
    }
    Event(text);
    gone_ = true;
    host_->Gone(number_);
}

void Client::OnPacket(ByteSpan packet) {
    host_->Log().AddPacket(number_, Direction::kIn, packet);
    const std::uint32_t type = PacketType(packet);
    if (type == type::kCryp) return HandleSealed(packet);
    if (channel_.IsEstablished()) Violation(TypeName(type) + " that is not sealed");
    if (!ObeyIncomingFaults(packet)) return;
    if (!channel_.IsEstablished()) return HandleFirstMessage(packet);
    OnInner(packet);
}

// False: treat the packet as lost.
bool Client::ObeyIncomingFaults(ByteSpan packet) {
    const std::uint32_t type = PacketType(packet);
    const FaultCounter::Numbers numbers = counter_.Next(FaultPlace::kIn, type);
    bool goes_on = true;
    for (const FaultRule& rule : host_->Faults().Take(FaultPlace::kIn, type, numbers)) {
        if (rule.action == FaultAction::kIgnore) goes_on = false;
        if (rule.action == FaultAction::kDeaf) socket_.SetReading(false);
        if (rule.action == FaultAction::kCut) Finish(End::kClose);
        if (rule.action == FaultAction::kReset) Finish(End::kReset);
    }
    return goes_on && !gone_;
}

void Client::HandleFirstMessage(ByteSpan packet) {
    std::string wrong;
    const std::optional<Bytes> answer = channel_.Answer(
        packet, host_->Settings().key, MakeKeyPair(), host_->Settings().welcome, &wrong);
    if (!answer) return Violation(wrong);
    SendPacket(*answer, false);
}

void Client::HandleSealed(ByteSpan packet) {
    if (!channel_.IsEstablished()) return Violation("CRYP before the handshake");
    std::string wrong;
    const std::optional<Bytes> inner = channel_.Open(packet, &wrong);
    if (!inner) return Violation(wrong);
    host_->Log().AddPacket(number_, Direction::kIn, *inner);
    if (ObeyIncomingFaults(*inner)) OnInner(*inner);
}

void Client::OnInner(ByteSpan packet) {
    const std::uint32_t type = PacketType(packet);
    if (std::string wrong = CheckCloudPacket(packet, channel_.Values().device); !wrong.empty()) {
        return Violation(wrong);
    }
    if (type == type::kDevi) return HandleIdentification(packet);
    if (!IsIdentified()) return Violation(TypeName(type) + " before DEVI");
    switch (type) {
        case type::kLogn:
            return HandleLogin(packet);
        case type::kIden:
            return host_->SendLogins(this);
        case type::kAddr:
            return HandleAddress(packet);
        case type::kRepl:
            return HandleReply(packet);
        case type::kFrag:
            return HandleFragment(packet);
        case type::kNhs1:
            return Violation("NHS1 after the handshake");
        default:
            return PassOn(packet);
    }
}

void Client::HandleIdentification(ByteSpan) {
    device_id_ = brennix::DeviceId(channel_.Values().device);
    status_ = host_->Settings().StatusOf(device_id_);
    Event("is device " + device_id_ + ", status " + std::to_string(status_));
    Bytes payload;
    AppendU32(&payload, status_);
    AppendU32(&payload, host_->Settings().capabilities);
    SendPacket(MakePacket(type::kDeva, payload));
}

void Client::HandleLogin(ByteSpan packet) {
    user_ = TextAt(packet, logn::kName, logn::kNameWidth);
    Event("logged in: \"" + user_ + "\", version " +
          TextAt(packet, logn::kVersion, logn::kVersionWidth) + " of " +
          TextAt(packet, logn::kBuildDate, logn::kBuildWidth) + " " +
          TextAt(packet, logn::kBuildTime, logn::kBuildWidth));
}

void Client::HandleAddress(ByteSpan packet) {
    const ByteSpan mac = packet.subspan(addr::kMac, kMacSize);
    dongle_ = host_->FindDongle(mac);
    Event(dongle_ ? "uses dongle " + std::to_string(*dongle_)
                  : "asks for dongle " + ToHex(mac) + ", which is not here");
}

void Client::HandleReply(ByteSpan packet) {
    if (std::string wrong = open_pings_.CheckReply(packet); !wrong.empty()) {
        Violation(std::move(wrong));
    }
}

void Client::HandleFragment(ByteSpan packet) {
    Reassembler::Result result = reassembler_.Feed(packet);
    if (!result.violation.empty()) Violation(std::move(result.violation));
    if (result.whole.empty()) return;
    host_->Log().AddPacket(number_, Direction::kIn, result.whole);
    if (PacketType(result.whole) == type::kRepl) return HandleReply(result.whole);
    PassOn(result.whole);
}

void Client::PassOn(ByteSpan packet) {
    if (!dongle_) return Violation(TypeName(PacketType(packet)) + " before any ADDR");
    if (host_->ToDongle(*dongle_, number_, packet)) return;
    Event(TypeName(PacketType(packet)) + " lost, dongle " + std::to_string(*dongle_) +
          " is not there");
}

// ---- sending -----------------------------------------------------------------------------------

void Client::SendPacket(ByteSpan packet, bool sealed) {
    if (gone_) return;
    const std::uint32_t type = PacketType(packet);
    const std::vector<FaultRule> rules =
        host_->Faults().Take(FaultPlace::kOut, type, counter_.Next(FaultPlace::kOut, type));
    Bytes plain(packet.begin(), packet.end());
    for (const FaultRule& rule : rules) {
        if (rule.action == FaultAction::kReplace) plain = rule.bytes;
        if (rule.action == FaultAction::kPlain) sealed = false;
    }
    host_->Log().AddPacket(number_, Direction::kOut, plain);
    if (!sealed || !channel_.IsEstablished()) return Disturb(std::move(plain), rules);
    Bytes wire = channel_.Seal(plain);
    host_->Log().AddPacket(number_, Direction::kOut, wire);
    Disturb(std::move(wire), rules);
}

void Client::Disturb(Bytes wire, const std::vector<FaultRule>& rules) {
    std::vector<Piece> pieces;
    Piece whole;
    std::size_t split_size = 0;
    std::uint32_t split_pause_ms = 0;
    bool swaps = false;
    bool joins = false;
    int copies = 1;
    for (const FaultRule& rule : rules) {
        Damage(rule, &wire);
        switch (rule.action) {
            case FaultAction::kDrop:
                copies = 0;
                break;
            case FaultAction::kReplay:
                ++copies;
                break;
            case FaultAction::kDelay:
                whole.delay_ms = rule.a;
                break;
            case FaultAction::kSplit:
                split_size = rule.a;
                split_pause_ms = rule.b;
                break;
            case FaultAction::kSwap:
                swaps = true;
                break;
            case FaultAction::kJoin:
                joins = true;
                break;
            case FaultAction::kHeader:
                pieces.push_back({.bytes = LoneHeader(rule.a)});
                break;
            case FaultAction::kNoise:
                pieces.push_back({.bytes = rule.bytes});
                break;
            case FaultAction::kText:
                pieces.push_back({.bytes = rule.bytes, .is_text = true});
                break;
            case FaultAction::kRecut:
                whole.message_size = rule.a;
                break;
            case FaultAction::kFrames:
                whole.frame_size = rule.a;
                break;
            case FaultAction::kCut:
                wire.resize(std::min<std::size_t>(wire.size(), rule.a));
                whole.end = End::kClose;
                break;
            case FaultAction::kReset:
                wire.clear();
                whole.end = End::kReset;
                break;
            case FaultAction::kDeaf:
                socket_.SetReading(false);
                break;
            default:
                break;  // done already
        }
    }
    if (joins) return AppendBytes(&joined_, wire);
    wire.insert(wire.begin(), joined_.begin(), joined_.end());
    joined_.clear();
    if (split_size == 0) split_size = std::max<std::size_t>(wire.size(), 1);
    for (; copies > 0; --copies) {
        for (std::size_t at = 0; at == 0 || at < wire.size(); at += split_size) {
            Piece piece = whole;
            const ByteSpan rest = ByteSpan(wire).subspan(at);
            const ByteSpan part = rest.first(std::min(split_size, rest.size()));
            piece.bytes.assign(part.begin(), part.end());
            if (at != 0) piece.delay_ms = split_pause_ms;
            if (part.size() != rest.size()) piece.end = End::kNone;
            pieces.push_back(std::move(piece));
        }
    }
    if (swaps) {
        held_ = std::move(pieces);
        return;
    }
    Queue(std::move(pieces));
    Queue(std::exchange(held_, {}));
}

void Client::Queue(std::vector<Piece> pieces) {
    for (Piece& piece : pieces)
        outgoing_.push_back(std::move(piece));
    Pump();
}

void Client::Pump() {
    while (!outgoing_.empty() && !delay_ && !gone_) {
        Piece& next = outgoing_.front();
        if (next.delay_ms != 0) {
            delay_ = host_->Loop().After(std::chrono::milliseconds(next.delay_ms), [this] {
                delay_.reset();
                Pump();
            });
            next.delay_ms = 0;
            return;
        }
        const Piece piece = std::move(next);
        outgoing_.pop_front();
        SendPiece(piece);
    }
}

void Client::SendPiece(const Piece& piece) {
    if (piece.is_text) {
        SendText({reinterpret_cast<const char*>(piece.bytes.data()), piece.bytes.size()});
        return;
    }
    ByteSpan bytes = piece.bytes;
    End end = piece.end;
    FaultRule* const limit = host_->Faults().StreamRule();
    if (limit != nullptr && stream_sent_ + bytes.size() >= limit->number.value_or(0)) {
        bytes = bytes.first(static_cast<std::size_t>(
            std::max<std::uint64_t>(limit->number.value_or(0), stream_sent_) - stream_sent_));
        end = limit->action == FaultAction::kReset ? End::kReset : End::kClose;
        host_->Faults().UseUp(limit);
    }
    stream_sent_ += bytes.size();
    if (!bytes.empty()) SendStream(piece, bytes);
    if (end != End::kNone) Finish(end);
}

void Client::SendStream(const Piece& piece, ByteSpan bytes) {
    if (!web_socket_) return socket_.Send(bytes);
    std::size_t size = piece.message_size == 0 ? bytes.size() : piece.message_size;
    for (; !bytes.empty(); bytes = bytes.subspan(size)) {
        size = std::min(size, bytes.size());
        web_socket_->SendBinary(bytes.first(size), piece.frame_size);
    }
}

void Client::SendPing(ByteSpan payload) {
    open_pings_.Add(payload);
    SendPacket(MakePacket(type::kPing, payload));
}

void Client::SendBytes(ByteSpan bytes) {
    Queue({Piece{.bytes = Bytes(bytes.begin(), bytes.end())}});
}

void Client::SendText(std::string_view text) {
    if (web_socket_) web_socket_->SendText(text);
}

void Client::SendWebSocketPing(ByteSpan payload) {
    if (web_socket_) web_socket_->SendPing(payload);
}

void Client::SendWebSocketClose(std::uint16_t code) {
    if (web_socket_) web_socket_->SendClose(code, "");
}

void Client::Close() { Finish(End::kClose); }

void Client::Reset() { Finish(End::kReset); }

void Client::Finish(End end) {
    if (gone_) return;
    gone_ = true;
    if (end == End::kReset) {
        socket_.Reset();
    } else {
        socket_.CloseWhenSent();
    }
    Event(end == End::kReset ? "reset by the relay" : "closed by the relay");
    host_->Gone(number_);
}

}  // namespace brennix
