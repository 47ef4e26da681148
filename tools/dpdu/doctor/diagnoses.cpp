#include "doctor/diagnoses.h"

namespace dpdu {
namespace {

constexpr Verdict kFine = Verdict::kFine;
constexpr Verdict kNote = Verdict::kNote;
constexpr Verdict kWrong = Verdict::kWrong;

constexpr char kLibrarySubject[] = "library";
constexpr char kRootSubject[] = "root file";
constexpr char kConfigSubject[] = "configuration";
constexpr char kTransportsSubject[] = "transports";
constexpr char kPermissionsSubject[] = "permissions";
constexpr char kServerKeySubject[] = "serverPublicKey";
constexpr char kDeviceKeySubject[] = "devicePrivateKey";
constexpr char kPortsSubject[] = "ports";
constexpr char kRelaySubject[] = "relay";
constexpr char kBluetoothSubject[] = "bluetooth";
constexpr char kLogFolderSubject[] = "log folder";
constexpr char kClockSubject[] = "clock";

constexpr char kEnterLibrary[] = "dpdu root add, as root (sudo) or administrator";
constexpr char kRegisterDevice[] = "register the device's public key with the relay";

using enum Diagnosis;

// docs/doctor.md has the same rows.
constexpr DiagnosisRow kDiagnoses[] = {
    {kLibrary, "library", kFine, kLibrarySubject, "{path}", "", ""},
    {kLibraryUnusable, "library-unusable", kWrong, kLibrarySubject, "{reason}",
     "no application can use it", "name another file with --library, or install the library again"},

    {kRootFile, "root-entry", kFine, kRootSubject, "{file} names this library", "", ""},
    {kRootFileMissing, "root-file-missing", kNote, kRootSubject,
     "the machine has no root file {file}",
     "applications that look for D-PDU libraries there do not find this one", kEnterLibrary},
    {kRootFileUnreadable, "root-file-unreadable", kWrong, kRootSubject, "{reason}",
     "applications find no D-PDU library of any vendor", "dpdu root check"},
    {kRootEntryMissing, "root-entry-missing", kNote, kRootSubject, "{file} has no entry {name}",
     "applications that look for D-PDU libraries there do not find this one", kEnterLibrary},
    {kRootEntryTwice, "root-entry-twice", kWrong, kRootSubject,
     "{file} has more than one entry {name}", "applications use either of them", kEnterLibrary},
    {kRootEntryAddress, "root-entry-address", kWrong, kRootSubject,
     "the address of {name} in {file} names no file: {address}", "applications cannot load it",
     kEnterLibrary},
    {kRootEntryGone, "root-entry-gone", kWrong, kRootSubject,
     "{name} in {file} names {path}, which does not exist", "applications cannot load it",
     kEnterLibrary},
    {kRootEntryOther, "root-entry-other", kNote, kRootSubject,
     "{name} in {file} names {path}, not the library that is checked here",
     "applications use that file, and the configuration beside it if the user has none",
     "dpdu doctor --library '{path}', or dpdu root add to enter the other one"},

    {kConfig, "config", kFine, kConfigSubject, "{path}, {size} of the {limit} bytes that are read",
     "", ""},
    {kConfigNoFolder, "config-no-folder", kWrong, kConfigSubject, "this user has no folder for it",
     "the library looks only beside itself", "set HOME or XDG_CONFIG_HOME"},
    {kConfigMissing, "config-missing", kWrong, kConfigSubject,
     "{path} is missing, and there is none beside the library",
     "the library makes one at its first use", "{command}"},
    {kConfigFolder, "config-folder", kWrong, kConfigSubject, "{path} is a folder",
     "the library passes it over and can neither read nor make a file there",
     "remove the folder; 'dpdu modules' then makes a file"},
    {kConfigUnreadable, "config-unreadable", kWrong, kConfigSubject, "{path} cannot be read",
     "the library starts no transport", "let this user read and write it"},
    {kConfigTooLong, "config-too-long", kWrong, kConfigSubject,
     "{path} has {size} of the {limit} bytes that are read",
     "the rest is cut off, and every key then counts as missing",
     "shorten it: omit spaces and unused addresses"},
    {kConfigUtf16, "config-utf-16", kWrong, kConfigSubject, "{path} is in UTF-16",
     "the library reads UTF-8: every key counts as missing", "save it as UTF-8"},
    {kConfigNotJson, "config-not-json", kWrong, kConfigSubject, "{path} is not JSON: {fault}",
     "every key counts as missing", "correct it there"},
    {kConfigByteOrderMark, "config-byte-order-mark", kFine, kConfigSubject,
     "begins with a byte order mark",
     "the library skips it; its three bytes count among those that are read", ""},
    {kConfigTemplate, "config-template", kNote, kConfigSubject,
     "this user has no file of their own yet",
     "the library copies {path}, which this user may not write",
     "'dpdu modules' makes {copy}, a copy; change that one"},
    {kConfigWrongType, "config-wrong-type", kWrong, kConfigSubject, "of a wrong type: {keys}",
     "any text counts as true, even \"false\"", "use the type in parentheses"},
    {kConfigCut, "config-cut", kWrong, kConfigSubject, "too long and cut: {keys}",
     "the library uses the beginning only", "shorten them"},
    {kConfigKeysMissing, "config-keys-missing", kNote, kConfigSubject,
     "missing, so they count as on: {keys}", "only useProxy counts as off when it is missing",
     "write them with true or false"},
    {kConfigCertificateKeyMissing, "config-certificates-unchecked", kNote, kConfigSubject,
     "disableCertValidation is missing, so it counts as on",
     "the certificate of a wss:// relay is not checked: anybody in between can pose as the relay's "
     "host",
     "write \"disableCertValidation\": false into {path}"},
    {kConfigKeysUnknown, "config-keys-unknown", kNote, kConfigSubject, "unknown: {keys}",
     "the library ignores them", "look for misspellings"},
    {kConfigGrows, "config-grows", kWrong, kConfigSubject,
     "with the key that the library adds it has {size} of the {limit} bytes that are read",
     "it would not be read again", "shorten the addresses, or clear unused ones"},
    {kConfigNoWebSocket, "config-no-websocket", kNote, kConfigSubject,
     "useWebsocket is on without a websocketAddress", "the library uses TCP and serverAddress",
     "set websocketAddress, or useWebsocket to false"},
    {kConfigNoProxy, "config-no-proxy", kNote, kConfigSubject, "useProxy is on, {reason}",
     "the library connects without a proxy",
     "set proxyAddress and use a WebSocket, or set useProxy to false"},

    {kTransports, "transports", kFine, kTransportsSubject, "{list}", "", ""},
    {kTransportsOff, "transports-off", kWrong, kTransportsSubject, "all are off",
     "the library looks for no dongle", "set useSerial, useCloud or useBle to true"},
    {kTransportsDemo, "transports-demo", kWrong, kTransportsSubject, "only dummyDevice is on",
     "a scan finds the demo device and ignores it because of its model number: it never becomes a "
     "module",
     "set useSerial, useCloud or useBle to true"},

    {kPermissions, "permissions", kFine, kPermissionsSubject, "only its owner reads it", "", ""},
    {kPermissionsKey, "permissions-key", kWrong, kPermissionsSubject,
     "{path} can be read by {readers}",
     "whoever reads devicePrivateKey can pose as this device towards the relay", "{command}"},
    {kPermissionsReaders, "permissions-readers", kNote, kPermissionsSubject,
     "{path} can be read by {readers}", "so can a key that is written into it later", "{command}"},
    {kPermissionsWrite, "permissions-write", kWrong, kPermissionsSubject,
     "the library cannot keep its key in {path}", "each process is a new device to the relay",
     "let this user write it"},

    {kServerKey, "server-key", kFine, kServerKeySubject, "is a key of the curve P-256", "", ""},
    {kServerKeyMissing, "server-key-missing", kWrong, kServerKeySubject, "is missing",
     "the library connects to no relay without it",
     "get it from the relay, for example with 'brennix-relay keygen'"},
    {kServerKeyDigits, "server-key-digits", kWrong, kServerKeySubject,
     "is not {digits} hexadecimal digits ({length} characters)",
     "the library connects to no relay with it",
     "get it from the relay, for example with 'brennix-relay keygen'"},
    {kServerKeyCurve, "server-key-curve", kWrong, kServerKeySubject,
     "is no point of the curve P-256", "a digit is wrong: no key exchange is possible",
     "get it from the relay, for example with 'brennix-relay keygen'"},
    {kDeviceKey, "device-key", kFine, kDeviceKeySubject, "is a key of the curve P-256", "", ""},
    {kDeviceKeyNone, "device-key-none", kFine, kDeviceKeySubject, "is empty: the library makes one",
     "", ""},
    {kDeviceKeyDigits, "device-key-digits", kWrong, kDeviceKeySubject,
     "is not {digits} hexadecimal digits ({length} characters)",
     "the library does not replace it, as a typing error must not cost the key",
     "correct it; or clear it, and register the new device with the relay"},
    {kDeviceKeyCurve, "device-key-curve", kNote, kDeviceKeySubject, "is no key of the curve P-256",
     "the library replaces it and is a new device to the relay", kRegisterDevice},

    {kPortDongle, "port-dongle", kFine, kPortsSubject,
     "a dongle on {port}: {dongle}, firmware {firmware}", "", ""},
    {kPortDongleLate, "port-dongle-late", kNote, kPortsSubject,
     "the dongle on {port} answers, but did not when an application asked it ({log})",
     "the library leaves a silent port alone until the dongle is unplugged",
     "start the application, or construct again, when the dongle's LED is on"},
    {kPortInUse, "port-in-use", kNote, kPortsSubject, "the port of the dongle on {port} is in use",
     "another program has opened it; one program at a time can use a dongle",
     "close the other program, unless it is the one that is to use the dongle"},
    {kPortNoAccess, "port-no-access", kWrong, kPortsSubject, "no access to the dongle on {port}",
     "this user may not read and write the port", "{command}"},
    {kPortNotOpened, "port-not-opened", kWrong, kPortsSubject,
     "the port of the dongle on {port} cannot be opened: {error}",
     "the library cannot open it either", "plug the dongle in again"},
    {kPortStarting, "port-starting", kWrong, kPortsSubject,
     "the system has not finished setting up the dongle on {port}",
     "the library tries the port only after three seconds", "{command}"},
    {kPortStopped, "port-stopped", kWrong, kPortsSubject,
     "the driver does not run for the dongle on {port}", "the port cannot be opened", "{command}"},
    {kPortSilent, "port-silent", kWrong, kPortsSubject, "the dongle on {port} does not answer",
     "its firmware has not started yet, or hangs",
     "wait until its LED is on and start the application then; if it stays silent, plug it in "
     "again"},
    {kPortNoLogin, "port-no-login", kWrong, kPortsSubject,
     "the dongle on {port} answers, but does not identify itself",
     "the library lists only dongles that log in",
     "wait until it is no longer busy, or plug it in again"},
    {kPortModel, "port-model", kWrong, kPortsSubject,
     "the dongle on {port} is of model {model}: {dongle}", "the library ignores this model",
     "use a newer version of the library"},
    {kPortNone, "port-none", kWrong, kPortsSubject, "no dongle (USB 303A:1001) on a serial port",
     "no other transport is on", "plug it in; try another cable or socket"},
    {kPortNoneOthers, "port-none-others", kNote, kPortsSubject,
     "no dongle (USB 303A:1001) on a serial port", "other transports are on",
     "plug it in; try another cable or socket"},
    {kPortsUnlisted, "ports-unlisted", kWrong, kPortsSubject,
     "the system does not list its devices", "the library finds no port",
     "check that its device service is running"},
    {kPortsLate, "ports-late", kWrong, kPortsSubject,
     "not all ports were checked within {seconds} seconds", "a port or its driver hangs",
     "unplug the dongles, and plug in one at a time"},

    {kRelay, "relay", kFine, kRelaySubject,
     "{relay} accepts this device: {status}; dongles: {dongles}", "", ""},
    {kRelayIsolated, "relay-isolated", kNote, kRelaySubject,
     "{relay} isolates this device: {status}", "the relay does not know its key", kRegisterDevice},
    {kRelayNoDongle, "relay-no-dongle", kNote, kRelaySubject,
     "{relay} accepts this device ({status}), but no dongle has logged in there",
     "the dongle is off, or not connected to this relay",
     "check the dongle's own connection to the relay"},
    {kRelayReached, "relay-reached", kFine, kRelaySubject, "{relay} completes the key exchange",
     "this device has not identified itself, as the library makes its key at the first use", ""},
    {kRelayNoKeys, "relay-no-keys", kNote, kRelaySubject, "{relay} takes connections",
     "no key exchange was tried, as a key in the configuration is missing or wrong",
     "correct the key, and run dpdu doctor again"},
    {kRelayAddressEmpty, "relay-address-empty", kWrong, kRelaySubject, "serverAddress is empty",
     "the library has no relay to connect to", "set it to the relay's HOST:PORT"},
    {kRelayAddressNoPort, "relay-address-no-port", kWrong, kRelaySubject,
     "serverAddress {address} has no port: it is not HOST:PORT", "the library does not assume one",
     "append the relay's port, such as {address}:PORT"},
    {kRelayAddress, "relay-address", kWrong, kRelaySubject,
     "serverAddress {address} is not HOST:PORT", "the library cannot read it", "correct it"},
    {kRelayUrl, "relay-url", kWrong, kRelaySubject,
     "websocketAddress {address} is not ws://HOST:PORT/PATH or wss://HOST:PORT/PATH",
     "the library cannot read it", "correct it"},
    {kRelayUrlPort, "relay-url-port", kWrong, kRelaySubject,
     "websocketAddress {address} has no usable port", "a port that is not a number counts as 0",
     "correct it; without :PORT it is 80, of wss 443"},
    {kRelayNameUnknown, "relay-name-unknown", kWrong, kRelaySubject, "the name {host} is not known",
     "the system's name servers do not know it, or none answers",
     "correct {key}, or check the network and whether a proxy is needed"},
    {kRelayRefused, "relay-refused", kWrong, kRelaySubject, "{relay} takes no connection",
     "nobody listens there, or a firewall refuses it",
     "check firewalls, and that the relay is running there"},
    {kRelayProxyName, "relay-proxy-name", kWrong, kRelaySubject,
     "the proxy's name {host} is not known",
     "the system's name servers do not know it, or none answers", "correct proxyAddress"},
    {kRelayProxyRefused, "relay-proxy-refused", kWrong, kRelaySubject,
     "the proxy {proxy} takes no connection", "nobody listens there, or a firewall refuses it",
     "correct proxyAddress, or set useProxy to false"},
    {kRelayProxyNoTunnel, "relay-proxy-no-tunnel", kWrong, kRelaySubject,
     "the proxy {proxy} opens no tunnel to {relay} (error {error})",
     "it does not admit this address or user, or does not reach it",
     "check websocketAddress, and the proxy's settings"},
    {kRelayCertificate, "relay-certificate", kWrong, kRelaySubject,
     "the certificate of {relay} is not accepted",
     "this system does not trust its issuer, it is of another name or time, or that port has no "
     "TLS",
     "add its issuer to the system's store (Debian: copy it as .crt to "
     "/usr/local/share/ca-certificates, then sudo update-ca-certificates), or set the clock"},
    {kRelayCertificateUnchecked, "relay-certificate-unchecked", kNote, kRelaySubject,
     "the certificate of {relay} is not checked",
     "disableCertValidation is on: anybody in between can pose as the relay's host",
     "set disableCertValidation to false once the system trusts it"},
    {kRelayNoWebSocket, "relay-no-websocket", kWrong, kRelaySubject,
     "{relay} answers, but opens no WebSocket", "the path or the port is another service's",
     "correct websocketAddress, or check the proxy"},
    {kRelayNoHandshake, "relay-no-handshake", kWrong, kRelaySubject,
     "{relay} takes the connection, but does not answer the key exchange",
     "serverPublicKey is not this relay's, or no relay is there",
     "compare serverPublicKey with the relay's, and the address"},
    {kRelayWrongKey, "relay-wrong-key", kWrong, kRelaySubject,
     "{relay} does not prove that it holds the key serverPublicKey",
     "serverPublicKey is not this relay's, or somebody poses as the relay",
     "get serverPublicKey from the relay, for example with 'brennix-relay keygen'"},
    {kRelayNoIdentification, "relay-no-identification", kWrong, kRelaySubject,
     "{relay} completes the key exchange, but does not answer the identification",
     "the relay or the network is too slow, or its version is another one",
     "look into the relay's log"},
    {kRelayRejected, "relay-rejected", kWrong, kRelaySubject,
     "{relay} rejects this device: {status}", "the relay has blocked its key",
     "have the key unblocked, or clear devicePrivateKey and register the new one"},
    {kRelayLate, "relay-late", kWrong, kRelaySubject, "no answer within {seconds} seconds",
     "a firewall drops the packets, or the server hangs",
     "check whether a firewall blocks the connection"},

    {kBluetoothDongle, "bluetooth-dongle", kFine, kBluetoothSubject, "a dongle is in range: {list}",
     "", ""},
    {kBluetoothNone, "bluetooth-none", kWrong, kBluetoothSubject,
     "no dongle is in range, after {seconds} seconds of listening",
     "it is off, too far away, or connected to another program; no other transport is on",
     "switch it on, end other programs that use it, and come closer"},
    {kBluetoothNoneOthers, "bluetooth-none-others", kNote, kBluetoothSubject,
     "no dongle is in range, after {seconds} seconds of listening",
     "it is off, too far away, or connected to another program",
     "switch it on, end other programs that use it, and come closer"},
    {kBluetoothLibrary, "bluetooth-library", kWrong, kBluetoothSubject, "{error}",
     "the library works, but not over Bluetooth",
     "Debian: sudo apt-get install libsdbus-c++1; Windows 10 or later has all that it needs"},
    {kBluetoothBus, "bluetooth-bus", kWrong, kBluetoothSubject, "{error}",
     "the library reaches Bluetooth through it", "sudo systemctl start dbus"},
    {kBluetoothService, "bluetooth-service", kWrong, kBluetoothSubject, "{error}",
     "it drives the adapter", "sudo apt-get install bluez; sudo systemctl start bluetooth"},
    {kBluetoothSilent, "bluetooth-silent", kWrong, kBluetoothSubject, "{error}",
     "it hangs, and calls of the library wait for it", "sudo systemctl restart bluetooth"},
    {kBluetoothRights, "bluetooth-rights", kWrong, kBluetoothSubject, "{error}",
     "the system lets other users use it",
     "sudo usermod -aG bluetooth $USER and log in again; Windows: Settings, Privacy, Radios"},
    {kBluetoothAdapter, "bluetooth-adapter", kWrong, kBluetoothSubject, "{error}",
     "this computer has none, or its driver does not run",
     "plug one in that knows Bluetooth LE; dmesg shows its driver's messages"},
    {kBluetoothOff, "bluetooth-off", kWrong, kBluetoothSubject, "{error}",
     "the library does not switch it on", "bluetoothctl power on; Windows: Settings, Bluetooth"},
    {kBluetoothBlocked, "bluetooth-blocked", kWrong, kBluetoothSubject,
     "the radio is blocked by {switch}", "the adapter cannot be switched on", "{command}"},
    {kBluetoothFailed, "bluetooth-failed", kWrong, kBluetoothSubject, "listening failed: {error}",
     "the library's scan fails too", "switch Bluetooth off and on again, or restart its service"},
    {kBluetoothLate, "bluetooth-late", kWrong, kBluetoothSubject,
     "no result within {seconds} seconds", "its service or driver hangs",
     "sudo systemctl restart bluetooth"},

    {kLogFolder, "log-folder", kFine, kLogFolderSubject, "{path}, {free} MB free", "", ""},
    {kLogFolderMissing, "log-folder-missing", kWrong, kLogFolderSubject, "{path} does not exist",
     "the library works, but writes neither log nor trace", "{command}"},
    {kLogFolderRights, "log-folder-rights", kWrong, kLogFolderSubject,
     "this user cannot create files in {path}",
     "the library works, but writes neither log nor trace",
     "let this user write there, or name another folder in TMPDIR (Windows: TMP)"},
    {kLogFolderFull, "log-folder-full", kNote, kLogFolderSubject, "{path} has only {free} MB free",
     "log and trace end when it is full", "dpdu trace prune --older-than 7d"},

    {kClock, "clock", kFine, kClockSubject,
     "not earlier than the time stamps of library and configuration", "", ""},
    {kClockEarly, "clock-early", kWrong, kClockSubject, "is earlier than the time stamp of {path}",
     "certificates are refused whose time has not begun", "set the system clock"},

    {kCheckLate, "check-late", kWrong, "doctor", "no result within {seconds} seconds: {check}",
     "a file system or a library hangs", "look whether a network drive is not reachable"},
};

consteval bool IsInOrder() {
    std::size_t count = 0;
    for (const DiagnosisRow& row : kDiagnoses) {
        if (row.diagnosis != static_cast<Diagnosis>(count++)) return false;
    }
    return count == static_cast<std::size_t>(Diagnosis::kCount);
}
static_assert(IsInOrder(), "a diagnosis has no row, or the rows are in another order");

std::string ValueOf(std::string_view name, FindingValues values) {
    for (const auto& [known, value] : values) {
        if (known == name) return value;
    }
    return "{" + std::string(name) + "}";
}

// Values may contain braces themselves.
std::string Filled(std::string_view text, FindingValues values) {
    std::string filled;
    for (;;) {
        const std::size_t open = text.find('{');
        const std::size_t close = text.find('}', open);
        if (close == text.npos) return filled.append(text);
        filled.append(text.substr(0, open));
        filled += ValueOf(text.substr(open + 1, close - open - 1), values);
        text.remove_prefix(close + 1);
    }
}

}  // namespace

std::span<const DiagnosisRow> Diagnoses() { return kDiagnoses; }

Finding Found(Diagnosis diagnosis, FindingValues values) {
    const DiagnosisRow& row = kDiagnoses[static_cast<std::size_t>(diagnosis)];
    return {.verdict = row.verdict,
            .subject = row.subject,
            .text = Filled(row.text, values),
            .advice = Filled(row.next, values),
            .id = row.id,
            .why = Filled(row.why, values)};
}

}  // namespace dpdu
