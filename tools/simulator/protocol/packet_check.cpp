#include "protocol/packet_check.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "protocol/layout.h"
#include "protocol/raw_frame.h"
#include "protocol/request.h"

namespace brennix {

namespace {

std::string Hex(std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%" PRIX32, value);
    return text;
}

std::string CheckCanId(const char* what, std::uint32_t id) {
    if (id <= kMaxCanId) return {};
    return std::string("CREQ ") + what + " " + Hex(id) + " is no CAN id";
}

std::string CheckSingleRequest(ByteSpan packet) {
    if (std::string wrong = CheckCanId("physical id", LoadU32(packet.data() + creq::kPhysicalId));
        !wrong.empty()) {
        return wrong;
    }
    if (std::string wrong = CheckCanId("response id", LoadU32(packet.data() + creq::kResponseId));
        !wrong.empty()) {
        return wrong;
    }
    return CheckLength(packet, creq::kBody + LoadU16(packet.data() + creq::kDataSize));
}

std::string CheckMultiRequest(ByteSpan packet) {
    const std::size_t count = LoadU32(packet.data() + creq::kResponderCount);
    const std::size_t data_size = LoadU16(packet.data() + creq::kDataSize);
    if (count == 0) return "CREQ in multi form without entries";
    if (count > (packet.size() - creq::kBody) / creq::kResponderSize) {
        return "CREQ in multi form with " + std::to_string(count) + " entries in " +
               std::to_string(packet.size()) + " bytes";
    }
    const std::size_t used = creq::kResponderSize * count + data_size;
    if (std::string wrong = CheckLength(packet, creq::kBody + Padded(used)); !wrong.empty()) {
        return wrong;
    }
    if (!IsZero(packet.subspan(creq::kBody + used))) return "CREQ padding is not zero";
    return {};
}

std::string CheckRequest(ByteSpan packet) {
    if (packet.size() < creq::kBody) {
        return "CREQ of " + std::to_string(packet.size()) + " bytes, at least 32 expected";
    }
    if (packet[creq::kTransport] != 0)
        return "CREQ transport is " + std::to_string(packet[creq::kTransport]) + ", not 0";
    if (packet[creq::kReserved] != 0)
        return "CREQ reserved byte is " + std::to_string(packet[creq::kReserved]) + ", not 0";
    if (std::string wrong =
            CheckCanId("functional id", LoadU32(packet.data() + creq::kFunctionalId));
        !wrong.empty()) {
        return wrong;
    }
    const bool is_multi = LoadU32(packet.data() + creq::kPhysicalId) == kMultiRequestMark;
    return is_multi ? CheckMultiRequest(packet) : CheckSingleRequest(packet);
}

std::string CheckRawFrame(ByteSpan packet) {
    if (std::string wrong = CheckLength(packet, rawc::kSize); !wrong.empty()) return wrong;
    const std::size_t count = LoadU16(packet.data() + rawc::kCount);
    const std::uint16_t flags = LoadU16(packet.data() + rawc::kFlags);
    if (flags > kReceptionOff) return "RAWC flags are " + std::to_string(flags) + ", not 0, 1 or 2";
    if (count > kMaxFrameBytes)
        return "RAWC announces " + std::to_string(count) + " data bytes, at most 8 fit";
    const std::uint32_t id = LoadU32(packet.data() + rawc::kId);
    if (id > kMaxCanId) return "RAWC id " + Hex(id) + " is no CAN id";
    if (!IsZero(packet.subspan(rawc::kData + count))) return "RAWC unused data bytes are not zero";
    if (flags != kFrame && (count != 0 || id != 0)) {
        return "RAWC switches reception and carries a frame";
    }
    return {};
}

std::string CheckTesterPresent(ByteSpan packet) {
    if (packet.size() < tspr::kMessage) {
        return "TSPR of " + std::to_string(packet.size()) + " bytes, at least 16 expected";
    }
    if (packet.size() > tspr::kMessage + tspr::kMaxMessage) {
        return "TSPR message of " + std::to_string(packet.size() - tspr::kMessage) +
               " bytes, at most 32 expected";
    }
    const std::uint32_t mark = LoadU32(packet.data() + tspr::kMark);
    if (mark != tspr::kMarkValue) return "TSPR value at offset 12 is " + Hex(mark) + ", not 0x700";
    const bool has_message = packet.size() > tspr::kMessage;
    if (!has_message && LoadU32(packet.data() + tspr::kPeriod) != 0)
        return "TSPR period without a message";
    return {};
}

std::string CheckDoip(ByteSpan packet) {
    if (packet.size() < doip::kMinSize) {
        return "DOIP of " + std::to_string(packet.size()) + " bytes, at least 16 expected";
    }
    const std::uint32_t kind = LoadU32(packet.data() + doip::kKind);
    if (kind < doip::kFirstKind || kind > doip::kLastKind) {
        return "DOIP kind " + std::to_string(kind) + " is not 3 to 6";
    }
    if (kind != doip::kListKind) return CheckLength(packet, doip::kPlainSize);
    if (packet.size() < doip::kList || (packet.size() - doip::kList) % doip::kListEntrySize != 0) {
        return "DOIP of " + std::to_string(packet.size()) + " bytes, 48 and 16 an entry expected";
    }
    return {};
}

}  // namespace

bool IsZero(ByteSpan bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

std::string CheckLength(ByteSpan packet, std::size_t expected) {
    if (packet.size() == expected) return {};
    return TypeName(PacketType(packet)) + " of " + std::to_string(packet.size()) + " bytes, " +
           std::to_string(expected) + " expected";
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
