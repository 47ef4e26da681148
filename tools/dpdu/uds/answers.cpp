#include "uds/answers.h"

#include <cstring>

namespace dpdu {
namespace {

struct CodeName {
    std::uint8_t code;
    const char* name;
};

constexpr CodeName kNegativeResponseNames[] = {
    {0x10, "generalReject"},
    {0x11, "serviceNotSupported"},
    {0x12, "subFunctionNotSupported"},
    {0x13, "incorrectMessageLengthOrInvalidFormat"},
    {0x14, "responseTooLong"},
    {0x21, "busyRepeatRequest"},
    {0x22, "conditionsNotCorrect"},
    {0x24, "requestSequenceError"},
    {0x25, "noResponseFromSubnetComponent"},
    {0x26, "failurePreventsExecutionOfRequestedAction"},
    {0x31, "requestOutOfRange"},
    {0x33, "securityAccessDenied"},
    {0x34, "authenticationRequired"},
    {0x35, "invalidKey"},
    {0x36, "exceedNumberOfAttempts"},
    {0x37, "requiredTimeDelayNotExpired"},
    {0x38, "secureDataTransmissionRequired"},
    {0x39, "secureDataTransmissionNotAllowed"},
    {0x3A, "secureDataVerificationFailed"},
    {0x50, "certificateVerificationFailedInvalidTimePeriod"},
    {0x51, "certificateVerificationFailedInvalidSignature"},
    {0x52, "certificateVerificationFailedInvalidChainOfTrust"},
    {0x53, "certificateVerificationFailedInvalidType"},
    {0x54, "certificateVerificationFailedInvalidFormat"},
    {0x55, "certificateVerificationFailedInvalidContent"},
    {0x56, "certificateVerificationFailedInvalidScope"},
    {0x57, "certificateVerificationFailedInvalidCertificate"},
    {0x58, "ownershipVerificationFailed"},
    {0x59, "challengeCalculationFailed"},
    {0x5A, "settingAccessRightsFailed"},
    {0x5B, "sessionKeyCreationDerivationFailed"},
    {0x5C, "configurationDataUsageFailed"},
    {0x5D, "deAuthenticationFailed"},
    {0x70, "uploadDownloadNotAccepted"},
    {0x71, "transferDataSuspended"},
    {0x72, "generalProgrammingFailure"},
    {0x73, "wrongBlockSequenceCounter"},
    {0x78, "requestCorrectlyReceivedResponsePending"},
    {0x7E, "subFunctionNotSupportedInActiveSession"},
    {0x7F, "serviceNotSupportedInActiveSession"},
    {0x81, "rpmTooHigh"},
    {0x82, "rpmTooLow"},
    {0x83, "engineIsRunning"},
    {0x84, "engineIsNotRunning"},
    {0x85, "engineRunTimeTooLow"},
    {0x86, "temperatureTooHigh"},
    {0x87, "temperatureTooLow"},
    {0x88, "vehicleSpeedTooHigh"},
    {0x89, "vehicleSpeedTooLow"},
    {0x8A, "throttlePedalTooHigh"},
    {0x8B, "throttlePedalTooLow"},
    {0x8C, "transmissionRangeNotInNeutral"},
    {0x8D, "transmissionRangeNotInGear"},
    {0x8F, "brakeSwitchesNotClosed"},
    {0x90, "shifterLeverNotInPark"},
    {0x91, "torqueConverterClutchLocked"},
    {0x92, "voltageTooHigh"},
    {0x93, "voltageTooLow"},
    {0x94, "resourceTemporarilyNotAvailable"},
};

}  // namespace

const char* NegativeResponseName(std::uint8_t code) {
    for (const CodeName& row : kNegativeResponseNames) {
        if (row.code == code) return row.name;
    }
    return "unknown code";
}

std::optional<NegativeResponse> ParseNegativeResponse(const Bytes& answer) {
    if (answer.size() < 3 || answer[0] != kNegativeResponseService) return std::nullopt;
    return NegativeResponse{answer[1], answer[2]};
}

std::string NegativeResponseText(const NegativeResponse& response) {
    return std::string("negative response ") + NegativeResponseName(response.code) + " (0x" +
           HexNumber(response.code, 2) + ") to service 0x" + HexNumber(response.service, 2);
}

bool IsPositiveAnswerTo(const Bytes& request, const Bytes& answer, std::size_t echoed) {
    if (request.size() < 1 + echoed || answer.size() < 1 + echoed) return false;
    if (answer[0] != static_cast<std::uint8_t>(request[0] + kPositiveOffset)) return false;
    return echoed == 0 || std::memcmp(&request[1], &answer[1], echoed) == 0;
}

}  // namespace dpdu
