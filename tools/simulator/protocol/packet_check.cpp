#include "protocol/packet_check.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "protocol/raw_frame.h"
#include "protocol/request.h"

namespace brennix {

static constexpr std::size_t kTesterPresentHeaderSize = 16;
static constexpr std::size_t kMaxTesterPresentBytes = 32;
static constexpr std::uint32_t kTesterPresentMark = 0x700;

static std::string Hex(std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%" PRIX32, value);
    return text;
}

static bool IsZero(ByteSpan bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

static std::string CheckLength(ByteSpan packet, std::size_t expected) {
    if (packet.size() == expected) return {};
    return TypeName(PacketType(packet)) + " of " + std::to_string(packet.size()) + " bytes, " +
           std::to_string(expected) + " expected";
}

static std::string CheckCanId(const char* what, std::uint32_t id) {
    if (id <= kMaxCanId) return {};
    return std::string("CREQ ") + what + " " + Hex(id) + " is no CAN id";
}

static std::string CheckSingleRequest(ByteSpan packet) {
    if (std::string wrong = CheckCanId("physical id", LoadU32(packet.data() + 12));
        !wrong.empty()) {
        return wrong;
    }
    if (std::string wrong = CheckCanId("response id", LoadU32(packet.data() + 16));
        !wrong.empty()) {
        return wrong;
    }
    return CheckLength(packet, kRequestHeaderSize + LoadU16(packet.data() + 24));
}

static std::string CheckMultiRequest(ByteSpan packet) {
    const std::size_t count = LoadU32(packet.data() + 16);
    const std::size_t data_size = LoadU16(packet.data() + 24);
    if (count == 0) return "CREQ in multi form without entries";
    if (count > (packet.size() - kRequestHeaderSize) / 8) {
        return "CREQ in multi form with " + std::to_string(count) + " entries in " +
               std::to_string(packet.size()) + " bytes";
    }
    const std::size_t used = 8 * count + data_size;
    if (std::string wrong = CheckLength(packet, kRequestHeaderSize + (used + 7) / 8 * 8);
        !wrong.empty()) {
        return wrong;
    }
    if (!IsZero(packet.subspan(kRequestHeaderSize + used))) return "CREQ padding is not zero";
    return {};
}

static std::string CheckRequest(ByteSpan packet) {
    if (packet.size() < kRequestHeaderSize) {
        return "CREQ of " + std::to_string(packet.size()) + " bytes, at least 32 expected";
    }
    if (packet[26] != 0) return "CREQ transport is " + std::to_string(packet[26]) + ", not 0";
    if (packet[27] != 0) return "CREQ reserved byte is " + std::to_string(packet[27]) + ", not 0";
    if (std::string wrong = CheckCanId("functional id", LoadU32(packet.data() + 8));
        !wrong.empty()) {
        return wrong;
    }
    const bool is_multi = LoadU32(packet.data() + 12) == kMultiRequestMark;
    return is_multi ? CheckMultiRequest(packet) : CheckSingleRequest(packet);
}

static std::string CheckRawFrame(ByteSpan packet) {
    if (std::string wrong = CheckLength(packet, kRawPacketSize); !wrong.empty()) return wrong;
    const std::size_t count = LoadU16(packet.data() + 12);
    const std::uint16_t flags = LoadU16(packet.data() + 14);
    if (flags > 2) return "RAWC flags are " + std::to_string(flags) + ", not 0, 1 or 2";
    if (count > 8) return "RAWC announces " + std::to_string(count) + " data bytes, at most 8 fit";
    if (LoadU32(packet.data() + 8) > kMaxCanId) {
        return "RAWC id " + Hex(LoadU32(packet.data() + 8)) + " is no CAN id";
    }
    if (!IsZero(packet.subspan(16 + count))) return "RAWC unused data bytes are not zero";
    if (flags != 0 && (count != 0 || !IsZero(packet.subspan(8, 4)))) {
        return "RAWC switches reception and carries a frame";
    }
    return {};
}

static std::string CheckTesterPresent(ByteSpan packet) {
    if (packet.size() < kTesterPresentHeaderSize) {
        return "TSPR of " + std::to_string(packet.size()) + " bytes, at least 16 expected";
    }
    if (packet.size() > kTesterPresentHeaderSize + kMaxTesterPresentBytes) {
        return "TSPR message of " + std::to_string(packet.size() - kTesterPresentHeaderSize) +
               " bytes, at most 32 expected";
    }
    const std::uint32_t mark = LoadU32(packet.data() + 12);
    if (mark != kTesterPresentMark)
        return "TSPR value at offset 12 is " + Hex(mark) + ", not 0x700";
    const bool has_message = packet.size() > kTesterPresentHeaderSize;
    if (!has_message && LoadU32(packet.data() + 8) != 0) return "TSPR period without a message";
    return {};
}

static std::string CheckDoip(ByteSpan packet) {
    if (packet.size() < 16) {
        return "DOIP of " + std::to_string(packet.size()) + " bytes, at least 16 expected";
    }
    const std::uint32_t kind = LoadU32(packet.data() + 8);
    if (kind < 3 || kind > 6) return "DOIP kind " + std::to_string(kind) + " is not 3 to 6";
    if (kind != 3) return CheckLength(packet, 20);
    if (packet.size() < 48 || (packet.size() - 48) % 16 != 0) {
        return "DOIP of " + std::to_string(packet.size()) + " bytes, 48 and 16 an entry expected";
    }
    return {};
}

std::string CheckPacket(ByteSpan packet) {
    const std::uint32_t type = PacketType(packet);
    switch (type) {
        case type::kSync:
        case type::kIden:
            return CheckLength(packet, kHeaderSize);
        case type::kCreq:
            return CheckRequest(packet);
        case type::kRawc:
            return CheckRawFrame(packet);
        case type::kTspr:
            return CheckTesterPresent(packet);
        case type::kDoip:
            return CheckDoip(packet);
        case type::kFrag:
        case type::kRepl:
            return {};
        case type::kAddr:
        case type::kCryp:
        case type::kNhs1:
        case type::kNhs2:
        case type::kDevi:
        case type::kDeva:
            return TypeName(type) + " does not belong on a serial port";
        case type::kLogn:
        case type::kCres:
        case type::kBusy:
        case type::kTele:
        case type::kPing:
        case type::kLog:
        case type::kLogc:
            return TypeName(type) + " is sent by the dongle, never to it";
        default:
            return "unknown packet type " + TypeName(type);
    }
}

}  // namespace brennix
