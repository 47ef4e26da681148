// What UDS requests and answers say, in the names of ISO 14229-1.

#ifndef TOOLS_DPDU_UDS_DECODING_H
#define TOOLS_DPDU_UDS_DECODING_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "console/output.h"
#include "text/hex.h"
#include "uds/answers.h"

namespace dpdu {

// A data identifier, in an answer with its data.
struct DataRecord {
    std::uint16_t identifier = 0;
    std::string name;  // empty: the standard has none
    Bytes data;
    std::string text;  // of the data; empty if it is not text
};

struct Decoded {
    std::string service;                        // "ReadDataByIdentifier"
    std::string sub_function;                   // "defaultSession"; empty: the service has none
    bool suppresses_positive_response = false;  // requests only
    std::optional<NegativeResponse> negative;
    std::vector<DataRecord> records;                // services about data identifiers
    std::optional<std::uint16_t> routine;           // RoutineControl
    std::optional<std::size_t> trouble_code_count;  // answers that count or list trouble codes
    std::optional<std::uint32_t> p2_ms;             // positive answer to DiagnosticSessionControl
    std::optional<std::uint32_t> p2_star_ms;        // likewise

    // On one line: `ReadDataByIdentifier F190 VINDataIdentifier "WTVDEM0S1M0000001"`. Empty if
    // there was nothing to decode.
    std::string Text() const;
};

Decoded DecodeRequest(const Bytes& request);

// The request helps to find where each of several identifiers' data begins; an empty one stands for
// any request.
Decoded Decode(const Bytes& request, const Bytes& answer);

// "ReadDataByIdentifier F190 VINDataIdentifier"
std::string DescribeRequest(const Bytes& request);

// `ReadDataByIdentifier F190 VINDataIdentifier "WTVDEM0S1M0000001"`
std::string DescribeAnswer(const Bytes& request, const Bytes& answer);

// The data as text if it is: printable ASCII with padding (blanks, 00, FF) at either end, which is
// left out. Empty for anything else.
std::string TextOfData(const Bytes& data);

// The fields that are set.
Json RecordJson(const DataRecord& record);
Json DecodedJson(const Decoded& decoded);

}  // namespace dpdu

#endif  // TOOLS_DPDU_UDS_DECODING_H
