#include "uds/services.h"

#include <algorithm>
#include <iterator>

#include "text/hex.h"

namespace dpdu {
namespace {

struct ServiceRow {
    std::uint8_t service;
    const char* name;
    bool has_sub_function;
};

constexpr ServiceRow kServices[] = {
    {0x10, "DiagnosticSessionControl", true},
    {0x11, "ECUReset", true},
    {0x14, "ClearDiagnosticInformation", false},
    {0x19, "ReadDTCInformation", true},
    {0x22, "ReadDataByIdentifier", false},
    {0x23, "ReadMemoryByAddress", false},
    {0x24, "ReadScalingDataByIdentifier", false},
    {0x27, "SecurityAccess", true},
    {0x28, "CommunicationControl", true},
    {0x29, "Authentication", true},
    {0x2A, "ReadDataByPeriodicIdentifier", false},
    {0x2C, "DynamicallyDefineDataIdentifier", true},
    {0x2E, "WriteDataByIdentifier", false},
    {0x2F, "InputOutputControlByIdentifier", false},
    {0x31, "RoutineControl", true},
    {0x34, "RequestDownload", false},
    {0x35, "RequestUpload", false},
    {0x36, "TransferData", false},
    {0x37, "RequestTransferExit", false},
    {0x38, "RequestFileTransfer", false},
    {0x3D, "WriteMemoryByAddress", false},
    {0x3E, "TesterPresent", true},
    {0x83, "AccessTimingParameter", true},
    {0x84, "SecuredDataTransmission", false},
    {0x85, "ControlDTCSetting", true},
    {0x86, "ResponseOnEvent", true},
    {0x87, "LinkControl", true},
};

struct SubFunctionRow {
    std::uint8_t service;
    std::uint8_t sub_function;
    const char* name;
};

constexpr SubFunctionRow kSubFunctions[] = {
    {0x10, 0x01, "defaultSession"},
    {0x10, 0x02, "programmingSession"},
    {0x10, 0x03, "extendedDiagnosticSession"},
    {0x10, 0x04, "safetySystemDiagnosticSession"},
    {0x11, 0x01, "hardReset"},
    {0x11, 0x02, "keyOffOnReset"},
    {0x11, 0x03, "softReset"},
    {0x11, 0x04, "enableRapidPowerShutDown"},
    {0x11, 0x05, "disableRapidPowerShutDown"},
    {0x19, 0x01, "reportNumberOfDTCByStatusMask"},
    {0x19, 0x02, "reportDTCByStatusMask"},
    {0x19, 0x03, "reportDTCSnapshotIdentification"},
    {0x19, 0x04, "reportDTCSnapshotRecordByDTCNumber"},
    {0x19, 0x05, "reportDTCStoredDataByRecordNumber"},
    {0x19, 0x06, "reportDTCExtDataRecordByDTCNumber"},
    {0x19, 0x07, "reportNumberOfDTCBySeverityMaskRecord"},
    {0x19, 0x08, "reportDTCBySeverityMaskRecord"},
    {0x19, 0x09, "reportSeverityInformationOfDTC"},
    {0x19, 0x0A, "reportSupportedDTC"},
    {0x19, 0x0B, "reportFirstTestFailedDTC"},
    {0x19, 0x0C, "reportFirstConfirmedDTC"},
    {0x19, 0x0D, "reportMostRecentTestFailedDTC"},
    {0x19, 0x0E, "reportMostRecentConfirmedDTC"},
    {0x19, 0x0F, "reportMirrorMemoryDTCByStatusMask"},
    {0x19, 0x10, "reportMirrorMemoryDTCExtDataRecordByDTCNumber"},
    {0x19, 0x11, "reportNumberOfMirrorMemoryDTCByStatusMask"},
    {0x19, 0x12, "reportNumberOfEmissionsOBDDTCByStatusMask"},
    {0x19, 0x13, "reportEmissionsOBDDTCByStatusMask"},
    {0x19, 0x14, "reportDTCFaultDetectionCounter"},
    {0x19, 0x15, "reportDTCWithPermanentStatus"},
    {0x19, 0x16, "reportDTCExtDataRecordByRecordNumber"},
    {0x19, 0x17, "reportUserDefMemoryDTCByStatusMask"},
    {0x19, 0x18, "reportUserDefMemoryDTCSnapshotRecordByDTCNumber"},
    {0x19, 0x19, "reportUserDefMemoryDTCExtDataRecordByDTCNumber"},
    {0x19, 0x1A, "reportSupportedDTCExtDataRecord"},
    {0x19, 0x42, "reportWWHOBDDTCByMaskRecord"},
    {0x19, 0x55, "reportWWHOBDDTCWithPermanentStatus"},
    {0x19, 0x56, "reportDTCInformationByDTCReadinessGroupIdentifier"},
    {0x28, 0x00, "enableRxAndTx"},
    {0x28, 0x01, "enableRxAndDisableTx"},
    {0x28, 0x02, "disableRxAndEnableTx"},
    {0x28, 0x03, "disableRxAndTx"},
    {0x28, 0x04, "enableRxAndDisableTxWithEnhancedAddressInformation"},
    {0x28, 0x05, "enableRxAndTxWithEnhancedAddressInformation"},
    {0x29, 0x00, "deAuthenticate"},
    {0x29, 0x01, "verifyCertificateUnidirectional"},
    {0x29, 0x02, "verifyCertificateBidirectional"},
    {0x29, 0x03, "proofOfOwnership"},
    {0x29, 0x04, "transmitCertificate"},
    {0x29, 0x05, "requestChallengeForAuthentication"},
    {0x29, 0x06, "verifyProofOfOwnershipUnidirectional"},
    {0x29, 0x07, "verifyProofOfOwnershipBidirectional"},
    {0x29, 0x08, "authenticationConfiguration"},
    {0x2C, 0x01, "defineByIdentifier"},
    {0x2C, 0x02, "defineByMemoryAddress"},
    {0x2C, 0x03, "clearDynamicallyDefinedDataIdentifier"},
    {0x31, 0x01, "startRoutine"},
    {0x31, 0x02, "stopRoutine"},
    {0x31, 0x03, "requestRoutineResults"},
    {0x3E, 0x00, "zeroSubFunction"},
    {0x83, 0x01, "readExtendedTimingParameterSet"},
    {0x83, 0x02, "setTimingParametersToDefaultValues"},
    {0x83, 0x03, "readCurrentlyActiveTimingParameters"},
    {0x83, 0x04, "setTimingParametersToGivenValues"},
    {0x85, 0x01, "on"},
    {0x85, 0x02, "off"},
    {0x86, 0x00, "stopResponseOnEvent"},
    {0x86, 0x01, "onDTCStatusChange"},
    {0x86, 0x02, "onTimerInterrupt"},
    {0x86, 0x03, "onChangeOfDataIdentifier"},
    {0x86, 0x04, "reportActivatedEvents"},
    {0x86, 0x05, "startResponseOnEvent"},
    {0x86, 0x06, "clearResponseOnEvent"},
    {0x86, 0x07, "onComparisonOfValues"},
    {0x86, 0x08, "reportMostRecentDtcStatusChange"},
    {0x86, 0x09, "reportDTCRecordInformationOnDtcStatusChange"},
    {0x87, 0x01, "verifyModeTransitionWithFixedParameter"},
    {0x87, 0x02, "verifyModeTransitionWithSpecificParameter"},
    {0x87, 0x03, "transitionMode"},
};

struct IdentifierRow {
    std::uint16_t identifier;
    const char* name;
};

constexpr IdentifierRow kDataIdentifiers[] = {
    {0xF180, "bootSoftwareIdentificationDataIdentifier"},
    {0xF181, "applicationSoftwareIdentificationDataIdentifier"},
    {0xF182, "applicationDataIdentificationDataIdentifier"},
    {0xF183, "bootSoftwareFingerprintDataIdentifier"},
    {0xF184, "applicationSoftwareFingerprintDataIdentifier"},
    {0xF185, "applicationDataFingerprintDataIdentifier"},
    {0xF186, "ActiveDiagnosticSessionDataIdentifier"},
    {0xF187, "vehicleManufacturerSparePartNumberDataIdentifier"},
    {0xF188, "vehicleManufacturerECUSoftwareNumberDataIdentifier"},
    {0xF189, "vehicleManufacturerECUSoftwareVersionNumberDataIdentifier"},
    {0xF18A, "systemSupplierIdentifierDataIdentifier"},
    {0xF18B, "ECUManufacturingDateDataIdentifier"},
    {0xF18C, "ECUSerialNumberDataIdentifier"},
    {0xF18D, "supportedFunctionalUnitsDataIdentifier"},
    {0xF18E, "vehicleManufacturerKitAssemblyPartNumberDataIdentifier"},
    {0xF190, "VINDataIdentifier"},
    {0xF191, "vehicleManufacturerECUHardwareNumberDataIdentifier"},
    {0xF192, "systemSupplierECUHardwareNumberDataIdentifier"},
    {0xF193, "systemSupplierECUHardwareVersionNumberDataIdentifier"},
    {0xF194, "systemSupplierECUSoftwareNumberDataIdentifier"},
    {0xF195, "systemSupplierECUSoftwareVersionNumberDataIdentifier"},
    {0xF196, "exhaustRegulationOrTypeApprovalNumberDataIdentifier"},
    {0xF197, "systemNameOrEngineTypeDataIdentifier"},
    {0xF198, "repairShopCodeOrTesterSerialNumberDataIdentifier"},
    {0xF199, "programmingDateDataIdentifier"},
    {0xF19A, "calibrationRepairShopCodeOrCalibrationEquipmentSerialNumberDataIdentifier"},
    {0xF19B, "calibrationDateDataIdentifier"},
    {0xF19C, "calibrationEquipmentSoftwareNumberDataIdentifier"},
    {0xF19D, "ECUInstallationDateDataIdentifier"},
    {0xF19E, "ODXFileDataIdentifier"},
    {0xF19F, "EntityDataIdentifier"},
    {0xFF00, "UDSVersionDataIdentifier"},
};

constexpr IdentifierRow kRoutines[] = {
    {0xE200, "executeSPL"},
    {0xE201, "deployLoopRoutineID"},
    {0xFF00, "eraseMemory"},
    {0xFF01, "checkProgrammingDependencies"},
};

const ServiceRow* FindService(std::uint8_t service) {
    const auto* row =
        std::find_if(std::begin(kServices), std::end(kServices),
                     [service](const ServiceRow& each) { return each.service == service; });
    return row == std::end(kServices) ? nullptr : row;
}

template <std::size_t Count>
std::string NameOfIdentifier(const IdentifierRow (&rows)[Count], std::uint16_t identifier) {
    for (const IdentifierRow& row : rows) {
        if (row.identifier == identifier) return row.name;
    }
    return "";
}

}  // namespace

std::string ServiceName(std::uint8_t service) {
    const ServiceRow* row = FindService(service);
    return row ? row->name : "service 0x" + HexNumber(service, 2);
}

bool HasSubFunction(std::uint8_t service) {
    const ServiceRow* row = FindService(service);
    return row && row->has_sub_function;
}

std::string SubFunctionName(std::uint8_t service, std::uint8_t sub_function) {
    constexpr std::uint8_t kSecurityAccess = 0x27;
    const std::uint8_t number = sub_function & static_cast<std::uint8_t>(~kSuppressPositive);
    if (service == kSecurityAccess) {
        // Levels come in pairs: an odd number asks for the seed, the next one sends the key.
        return (number % 2 != 0 ? "requestSeed 0x" : "sendKey 0x") + HexNumber(number, 2);
    }
    for (const SubFunctionRow& row : kSubFunctions) {
        if (row.service == service && row.sub_function == number) return row.name;
    }
    return "sub-function 0x" + HexNumber(number, 2);
}

std::string DataIdentifierName(std::uint16_t identifier) {
    return NameOfIdentifier(kDataIdentifiers, identifier);
}

std::string RoutineName(std::uint16_t identifier) {
    return NameOfIdentifier(kRoutines, identifier);
}

}  // namespace dpdu
