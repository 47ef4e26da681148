#include "uds/trouble_codes.h"

#include "uds/answers.h"

namespace dpdu {
namespace {

constexpr std::uint8_t kReadTroubleCodes = 0x19;    // service ReadDTCInformation
constexpr std::uint8_t kReportByStatusMask = 0x02;  // its sub-function

// By bit number.
constexpr const char* kTroubleStatusNames[] = {
    "testFailed",
    "testFailedThisOperationCycle",
    "pendingDTC",
    "confirmedDTC",
    "testNotCompletedSinceLastClear",
    "testFailedSinceLastClear",
    "testNotCompletedThisOperationCycle",
    "warningIndicatorRequested",
};

}  // namespace

std::string TroubleCodeText(std::uint32_t code) {
    static constexpr char kSystems[] = "PCBU";  // powertrain, chassis, body, network
    const std::uint32_t number = (code >> 8) & 0x3FFF;
    return kSystems[(code >> 22) & 3] + HexNumber(number, 4) + "-" + HexNumber(code & 0xFF, 2);
}

std::vector<std::string> TroubleStatusFlags(std::uint8_t status) {
    std::vector<std::string> flags;
    for (unsigned bit = 0; bit < 8; ++bit) {
        if (status & (1U << bit)) flags.emplace_back(kTroubleStatusNames[bit]);
    }
    return flags;
}

Bytes TroubleCodeRequest(std::uint8_t status_mask) {
    return {kReadTroubleCodes, kReportByStatusMask, status_mask};
}

std::optional<TroubleCodeReport> ParseTroubleCodeReport(const Bytes& answer) {
    constexpr std::size_t kHead = 3;   // service, sub-function, availability mask
    constexpr std::size_t kEntry = 4;  // trouble code and status
    if (answer.size() < kHead || answer[0] != kReadTroubleCodes + kPositiveOffset ||
        answer[1] != kReportByStatusMask) {
        return std::nullopt;
    }
    if ((answer.size() - kHead) % kEntry != 0) return std::nullopt;

    TroubleCodeReport report{answer[2], {}};
    for (std::size_t at = kHead; at < answer.size(); at += kEntry) {
        const std::uint32_t code = static_cast<std::uint32_t>(answer[at]) << 16 |
                                   static_cast<std::uint32_t>(answer[at + 1]) << 8 | answer[at + 2];
        report.codes.push_back({code, answer[at + 3]});
    }
    return report;
}

}  // namespace dpdu
