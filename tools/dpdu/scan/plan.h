// What a scan looks for, what it may send, and what it finds of each control unit.

#ifndef TOOLS_DPDU_SCAN_PLAN_H
#define TOOLS_DPDU_SCAN_PLAN_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "links/link.h"
#include "raw/raw_link.h"
#include "uds/decoding.h"

namespace dpdu {

// How to look for control units.
enum class ScanMethod {
    kAutomatic,  // raw frames with this project's library, else links
    kRaw,        // single frames on a raw link: finds any response identifier
    kLinks,      // a link for each request identifier: works with every library
};

struct IdentifierRange {
    std::uint16_t first;
    std::uint16_t last;
};

struct ScanOptions {
    ScanMethod method = ScanMethod::kAutomatic;
    std::vector<std::uint32_t> functional_ids;
    std::vector<std::uint32_t> request_ids;
    std::uint32_t response_offset = 8;           // of 11-bit identifiers
    std::chrono::milliseconds gap{10};           // between two raw frames
    std::chrono::milliseconds answer_time{100};  // longest of a control unit
    std::vector<IdentifierRange> identifiers;    // to read; empty: none
    T_PDU_COPT raw_primitive = PDU_COPT_STARTCOMM;
    LinkOptions link;
    LinkOptions raw_link = RawLinkOptions();
};

struct FoundUnit {
    std::optional<std::uint32_t> request_id;  // unset: none of those asked
    std::uint32_t response_id = 0;
    bool is_functional = false;         // has answered a functional request
    std::vector<std::string> services;  // "10", "22": answered other than with "not supported"
    std::optional<Decoded> session;     // the answer to DiagnosticSessionControl defaultSession
    std::string active_session;         // before that, by identifier F186; empty: not known
    std::optional<std::size_t> trouble_code_count;
    std::vector<DataRecord> identifiers;  // those with a positive answer
    std::string problem;                  // why it was not read to the end; empty: it was
};

// The request that shows whether a control unit is there.
inline const Bytes kTesterPresentRequest = {0x3E, 0x00};

// The response identifier that is usual for a request identifier: with target and source swapped
// for 18DAxxyy, else `offset` above; nullopt if that is none.
std::optional<std::uint32_t> UsualResponseId(std::uint32_t request_id, std::uint32_t offset);

// True for the requests that a scan may send.
bool IsAllowedInScan(const Bytes& request);

}  // namespace dpdu

#endif  // TOOLS_DPDU_SCAN_PLAN_H
