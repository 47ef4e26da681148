// The blocks of a pcapng file, little-endian. Knows nothing of traces.

#ifndef TOOLS_DPDU_TRACE_PCAPNG_H
#define TOOLS_DPDU_TRACE_PCAPNG_H

#include <cstdint>
#include <string>

#include "text/hex.h"

namespace dpdu::trace {

enum class PcapngLink : std::uint16_t {
    kSocketCan = 227,
    kExportedPdu = 252,  // tags that name a dissector, and what it is to dissect
};

struct PcapngPacket {
    std::uint32_t interface_number = 0;  // in the order of the interface blocks
    std::uint64_t time_us = 0;
    bool is_sent = false;
    Bytes bytes;                // as far as they were recorded
    std::uint32_t missing = 0;  // that were not
    std::string comment;
};

// Comes first.
std::string PcapngSection(const std::string& application);
// Its packets have times in microseconds.
std::string PcapngInterface(PcapngLink link, const std::string& name,
                            const std::string& description);
std::string PcapngPacketBlock(const PcapngPacket& packet);

// A frame as Linux's SocketCAN has it.
Bytes SocketCanFrame(std::uint32_t can_id, bool is_29_bit, const Bytes& data);
// A message for a dissector of that name; identifier 0: unknown.
Bytes ExportedPdu(const std::string& dissector, std::uint32_t source, std::uint32_t destination,
                  const Bytes& data);

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_PCAPNG_H
