// Everything that the doctor can find.

#ifndef TOOLS_DPDU_DOCTOR_DIAGNOSES_H
#define TOOLS_DPDU_DOCTOR_DIAGNOSES_H

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "doctor/finding.h"

namespace dpdu {

// In the order of the table in diagnoses.cpp.
enum class Diagnosis : std::uint8_t {
    kLibrary,
    kLibraryUnusable,

    kRootFile,
    kRootFileMissing,
    kRootFileUnreadable,
    kRootEntryMissing,
    kRootEntryTwice,
    kRootEntryAddress,
    kRootEntryGone,
    kRootEntryOther,

    kConfig,
    kConfigNoFolder,
    kConfigMissing,
    kConfigFolder,
    kConfigUnreadable,
    kConfigTooLong,
    kConfigUtf16,
    kConfigNotJson,
    kConfigByteOrderMark,
    kConfigTemplate,
    kConfigWrongType,
    kConfigCut,
    kConfigKeysMissing,
    kConfigCertificateKeyMissing,
    kConfigKeysUnknown,
    kConfigGrows,
    kConfigNoWebSocket,
    kConfigNoProxy,

    kTransports,
    kTransportsOff,
    kTransportsDemo,

    kPermissions,
    kPermissionsKey,
    kPermissionsReaders,
    kPermissionsWrite,

    kServerKey,
    kServerKeyMissing,
    kServerKeyDigits,
    kServerKeyCurve,
    kDeviceKey,
    kDeviceKeyNone,
    kDeviceKeyDigits,
    kDeviceKeyCurve,

    kPortDongle,
    kPortDongleLate,
    kPortInUse,
    kPortNoAccess,
    kPortNotOpened,
    kPortStarting,
    kPortStopped,
    kPortSilent,
    kPortNoLogin,
    kPortModel,
    kPortNone,
    kPortNoneOthers,
    kPortsUnlisted,
    kPortsLate,

    kRelay,
    kRelayIsolated,
    kRelayNoDongle,
    kRelayReached,
    kRelayNoKeys,
    kRelayAddressEmpty,
    kRelayAddressNoPort,
    kRelayAddress,
    kRelayUrl,
    kRelayUrlPort,
    kRelayNameUnknown,
    kRelayRefused,
    kRelayProxyName,
    kRelayProxyRefused,
    kRelayProxyNoTunnel,
    kRelayCertificate,
    kRelayCertificateUnchecked,
    kRelayNoWebSocket,
    kRelayNoHandshake,
    kRelayWrongKey,
    kRelayNoIdentification,
    kRelayRejected,
    kRelayLate,

    kBluetoothDongle,
    kBluetoothNone,
    kBluetoothNoneOthers,
    kBluetoothLibrary,
    kBluetoothBus,
    kBluetoothService,
    kBluetoothSilent,
    kBluetoothRights,
    kBluetoothAdapter,
    kBluetoothOff,
    kBluetoothBlocked,
    kBluetoothFailed,
    kBluetoothLate,

    kLogFolder,
    kLogFolderMissing,
    kLogFolderRights,
    kLogFolderFull,

    kClock,
    kClockEarly,

    kCheckLate,
    kCount,
};

// Texts have the names of values in braces.
struct DiagnosisRow {
    Diagnosis diagnosis;
    const char* id;
    Verdict verdict;
    const char* subject;
    const char* text;
    const char* why;
    const char* next;
};
std::span<const DiagnosisRow> Diagnoses();

using FindingValues = std::initializer_list<std::pair<std::string_view, std::string>>;
Finding Found(Diagnosis diagnosis, FindingValues values = {});

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_DIAGNOSES_H
