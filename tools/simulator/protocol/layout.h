// Where the fields of the packets are: offsets in bytes from the start of the packet, its header
// included. Written from the protocol's description, not from the library.

#pragma once

#include <cstddef>
#include <cstdint>

#include "protocol/wire.h"

namespace brennix {

// CREQ. In multi form the physical id is kMultiRequestMark and responders precede the data.
namespace creq {
inline constexpr std::size_t kFunctionalId = 8;
inline constexpr std::size_t kPhysicalId = 12;
inline constexpr std::size_t kResponseId = 16;      // single form
inline constexpr std::size_t kResponderCount = 16;  // multi form
inline constexpr std::size_t kTimeout = 20;
inline constexpr std::size_t kDataSize = 24;
inline constexpr std::size_t kTransport = 26;
inline constexpr std::size_t kReserved = 27;
inline constexpr std::size_t kRequestId = 28;
inline constexpr std::size_t kBody = 32;
inline constexpr std::size_t kResponderSize = 8;  // request id, response id
}  // namespace creq

// CRES. In multi form the wait time is kMultiResponseMark and entries follow.
namespace cres {
inline constexpr std::size_t kWaitTime = 8;
inline constexpr std::size_t kEntryCount = 12;  // multi form; in single form the size of the data
inline constexpr std::size_t kRequestId = 16;
inline constexpr std::size_t kBody = 20;
inline constexpr std::size_t kEntryId = 0;  // in an entry
inline constexpr std::size_t kEntryLength = 4;
inline constexpr std::size_t kEntryHead = 8;
}  // namespace cres

namespace busy {
inline constexpr std::size_t kRequestId = 8;
inline constexpr std::size_t kReason = 12;
}  // namespace busy

namespace rawc {
inline constexpr std::size_t kId = 8;
inline constexpr std::size_t kCount = 12;
inline constexpr std::size_t kFlags = 14;
inline constexpr std::size_t kData = 16;
inline constexpr std::size_t kSize = 24;  // of the packet
}  // namespace rawc

namespace tspr {
inline constexpr std::size_t kPeriod = 8;
inline constexpr std::size_t kMark = 12;
inline constexpr std::size_t kMessage = 16;
inline constexpr std::size_t kMaxMessage = 32;
inline constexpr std::uint32_t kMarkValue = 0x700;
}  // namespace tspr

namespace frag {
inline constexpr std::size_t kIndex = 8;
inline constexpr std::size_t kCount = 10;
inline constexpr std::size_t kTotalLength = 12;
inline constexpr std::size_t kSlice = 16;
}  // namespace frag

namespace doip {
inline constexpr std::size_t kKind = 8;
inline constexpr std::size_t kMinSize = 16;
inline constexpr std::uint32_t kFirstKind = 3;
inline constexpr std::uint32_t kLastKind = 6;
inline constexpr std::uint32_t kListKind = 3;
inline constexpr std::size_t kList = 48;  // entries of kListKind
inline constexpr std::size_t kListEntrySize = 16;
inline constexpr std::size_t kPlainSize = 20;  // of the packet, other kinds
}  // namespace doip

// LOGN: a dongle's, and a host's to a relay.
namespace logn {
inline constexpr std::size_t kMac = 12;
inline constexpr std::size_t kModel = 20;
inline constexpr std::size_t kFirmware = 32;
inline constexpr std::size_t kVersion = 32;  // host
inline constexpr std::size_t kName = 64;
inline constexpr std::size_t kBuildTime = 96;
inline constexpr std::size_t kBuildDate = 112;
inline constexpr std::size_t kTextsEnd = 128;
inline constexpr std::size_t kSize = 192;

inline constexpr std::size_t kFirmwareWidth = 32;
inline constexpr std::size_t kVersionWidth = 16;
inline constexpr std::size_t kNameWidth = 32;
inline constexpr std::size_t kBuildWidth = 16;
}  // namespace logn

namespace devi {
inline constexpr std::size_t kId = 8;
inline constexpr std::size_t kKey = 16;  // the static public key
inline constexpr std::size_t kSize = 84;
}  // namespace devi

namespace addr {
inline constexpr std::size_t kMac = 8;
inline constexpr std::size_t kSize = 16;
}  // namespace addr

inline constexpr std::size_t kMacSize = 6;

// In the multi forms, entries and data are padded with zeros to multiples of eight bytes.
constexpr std::size_t Padded(std::size_t size) { return (size + 7) / 8 * 8; }

}  // namespace brennix
