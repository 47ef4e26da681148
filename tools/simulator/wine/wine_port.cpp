// Registers a serial port for Windows programs under Wine, and removes it.
//
// A link in the prefix's `dosdevices` makes a COM port that programs can open, but not find: to
// search for their device they ask SetupAPI for the present devices of the Ports class and read
// each one's hardware ids and port name. This program registers such a device. The owner of the
// terminal makes the link.
//
//   wine_port add COM5 [HARDWARE_ID]     registers the port, or replaces its registration
//   wine_port remove COM5                removes it
//   wine_port list                       one line a present port: name, hardware id
//   wine_port folders APPDATA TEMP       the user's application data and temporary folders
//   wine_port serve                      the same as lines on standard input, each answered with
//                                        one line, "ok …" or "error: …"; at the end of the input
//                                        ports and folders are put back as they were

#include <windows.h>

#include <cfgmgr32.h>
#include <setupapi.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

// The device class "Ports (COM & LPT)".
constexpr GUID kPortsClass = {
    0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
constexpr const char* kDongleHardwareId = "USB\\VID_303A&PID_1001&REV_0101";

struct Result {
    bool ok;
    std::string text;
};

Result Failure(const char* what) {
    std::ostringstream text;
    text << what << " failed with system error " << ::GetLastError();
    return {false, text.str()};
}

// A set of devices, freed by its destructor.
class DeviceSet {
public:
    explicit DeviceSet(HDEVINFO set) : set_(set) {}
    ~DeviceSet() {
        if (IsValid()) ::SetupDiDestroyDeviceInfoList(set_);
    }
    DeviceSet(const DeviceSet&) = delete;
    DeviceSet& operator=(const DeviceSet&) = delete;
    bool IsValid() const { return set_ != INVALID_HANDLE_VALUE; }
    HDEVINFO Get() const { return set_; }

private:
    HDEVINFO set_;
};

// "USB\VID_303A&PID_1001&REV_0101" with port COM5 is the device "USB\VID_303A&PID_1001\COM5": one
// instance per port, so that adding a port again replaces it.
std::string InstanceId(const std::string& hardware_id, const std::string& port) {
    std::string device = hardware_id;
    const std::size_t revision = device.find("&REV_");
    if (revision != std::string::npos) device.resize(revision);
    return device + "\\" + port;
}

bool WritePortName(HDEVINFO set, SP_DEVINFO_DATA* device, const std::string& port) {
    const HKEY key =
        ::SetupDiCreateDevRegKeyA(set, device, DICS_FLAG_GLOBAL, 0, DIREG_DEV, nullptr, nullptr);
    if (key == INVALID_HANDLE_VALUE) return false;
    const LSTATUS status =
        ::RegSetValueExA(key, "PortName", 0, REG_SZ, reinterpret_cast<const BYTE*>(port.c_str()),
                         static_cast<DWORD>(port.size() + 1));
    ::RegCloseKey(key);
    ::SetLastError(static_cast<DWORD>(status));
    return status == ERROR_SUCCESS;
}

std::string ReadPortName(HDEVINFO set, SP_DEVINFO_DATA* device) {
    const HKEY key = ::SetupDiOpenDevRegKey(set, device, DICS_FLAG_GLOBAL, 0, DIREG_DEV, KEY_READ);
    if (key == INVALID_HANDLE_VALUE) return {};
    char name[32] = {};
    DWORD size = sizeof name - 1;
    if (::RegQueryValueExA(key, "PortName", nullptr, nullptr, reinterpret_cast<BYTE*>(name),
                           &size) != ERROR_SUCCESS) {
        name[0] = '\0';
    }
    ::RegCloseKey(key);
    return name;
}

std::string ReadHardwareId(HDEVINFO set, SP_DEVINFO_DATA* device) {
    char ids[512] = {};
    if (!::SetupDiGetDeviceRegistryPropertyA(set, device, SPDRP_HARDWAREID, nullptr,
                                             reinterpret_cast<BYTE*>(ids), sizeof ids - 2,
                                             nullptr)) {
        return {};
    }
    return ids;
}

Result ListPorts() {
    const DeviceSet set(::SetupDiGetClassDevsA(&kPortsClass, nullptr, nullptr, DIGCF_PRESENT));
    if (!set.IsValid()) return Failure("SetupDiGetClassDevs");
    std::string text;
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof device;
    for (DWORD index = 0; ::SetupDiEnumDeviceInfo(set.Get(), index, &device); ++index) {
        if (!text.empty()) text += "; ";
        text += ReadPortName(set.Get(), &device) + " " + ReadHardwareId(set.Get(), &device);
    }
    return {true, text};
}

// A program that lists the ports while one is removed makes Wine create the device's key again,
// without a port name. Its instance still ends with that.
bool IsPort(HDEVINFO set, SP_DEVINFO_DATA* device, const std::string& port) {
    if (ReadPortName(set, device) == port) return true;
    char text[MAX_DEVICE_ID_LEN] = {};
    if (!::SetupDiGetDeviceInstanceIdA(set, device, text, sizeof text, nullptr)) return false;
    const std::string instance = text;
    return instance.ends_with("\\" + port);
}

Result RemovePort(const std::string& port) {
    const DeviceSet set(::SetupDiGetClassDevsA(&kPortsClass, nullptr, nullptr, 0));
    if (!set.IsValid()) return Failure("SetupDiGetClassDevs");
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof device;
    for (DWORD index = 0; ::SetupDiEnumDeviceInfo(set.Get(), index, &device); ++index) {
        if (!IsPort(set.Get(), &device, port)) continue;
        if (!::SetupDiRemoveDevice(set.Get(), &device)) return Failure("SetupDiRemoveDevice");
        return {true, "removed " + port};
    }
    return {false, port + " is not registered"};
}

Result AddPort(const std::string& port, const std::string& hardware_id) {
    if (hardware_id.find('\\') == std::string::npos) {
        return {false, "hardware id " + hardware_id + " has no enumerator"};
    }
    RemovePort(port);
    const DeviceSet set(::SetupDiCreateDeviceInfoList(&kPortsClass, nullptr));
    if (!set.IsValid()) return Failure("SetupDiCreateDeviceInfoList");
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof device;
    const std::string instance = InstanceId(hardware_id, port);
    if (!::SetupDiCreateDeviceInfoA(set.Get(), instance.c_str(), &kPortsClass, nullptr, nullptr, 0,
                                    &device)) {
        return Failure("SetupDiCreateDeviceInfo");
    }
    if (!::SetupDiRegisterDeviceInfo(set.Get(), &device, 0, nullptr, nullptr, nullptr)) {
        return Failure("SetupDiRegisterDeviceInfo");
    }
    if (!WritePortName(set.Get(), &device, port)) return Failure("writing PortName");
    // Hardware ids are a list of strings that ends with an empty one. Set last: the device is
    // already present, and a program that finds the id must find the port name too.
    std::string ids = hardware_id;
    ids.append(2, '\0');
    if (!::SetupDiSetDeviceRegistryPropertyA(set.Get(), &device, SPDRP_HARDWAREID,
                                             reinterpret_cast<const BYTE*>(ids.data()),
                                             static_cast<DWORD>(ids.size()))) {
        return Failure("SetupDiSetDeviceRegistryProperty");
    }
    return {true, "added " + port};
}

// A text value in the user's part of the registry.
struct UserValue {
    const char* key;
    const char* name;
};
constexpr UserValue kAppDataFolder = {
    "Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders", "AppData"};
constexpr UserValue kTemporaryFolder = {"Environment", "TMP"};
constexpr UserValue kOtherTemporaryFolder = {"Environment", "TEMP"};
constexpr UserValue kFolders[] = {kAppDataFolder, kTemporaryFolder, kOtherTemporaryFolder};

struct SavedValue {
    UserValue where;
    DWORD type;
    std::string text;
};

std::optional<SavedValue> ReadUserValue(const UserValue& where) {
    char text[1024] = {};
    DWORD size = sizeof text - 1;
    DWORD type = 0;
    const LSTATUS status =
        ::RegGetValueA(HKEY_CURRENT_USER, where.key, where.name,
                       RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, &type, text, &size);
    if (status != ERROR_SUCCESS) return std::nullopt;
    return SavedValue{where, type, text};
}

bool WriteUserValue(const SavedValue& value) {
    return ::RegSetKeyValueA(HKEY_CURRENT_USER, value.where.key, value.where.name, value.type,
                             value.text.c_str(),
                             static_cast<DWORD>(value.text.size() + 1)) == ERROR_SUCCESS;
}

Result SetFolders(const std::string& app_data, const std::string& temporary) {
    const bool written = WriteUserValue({kAppDataFolder, REG_SZ, app_data}) &&
                         WriteUserValue({kTemporaryFolder, REG_SZ, temporary}) &&
                         WriteUserValue({kOtherTemporaryFolder, REG_SZ, temporary});
    return {written, written ? "folders set" : "the registry cannot be written"};
}

Result Run(const std::vector<std::string>& words) {
    if (words.size() == 1 && words[0] == "list") return ListPorts();
    if (words.size() == 2 && words[0] == "remove") return RemovePort(words[1]);
    if (words.size() == 2 && words[0] == "add") return AddPort(words[1], kDongleHardwareId);
    if (words.size() == 3 && words[0] == "add") return AddPort(words[1], words[2]);
    if (words.size() == 3 && words[0] == "folders") return SetFolders(words[1], words[2]);
    return {false,
            "expected: add PORT [HARDWARE_ID] | remove PORT | list | folders APPDATA TEMP | serve"};
}

bool Report(const Result& result) {
    std::printf("%s%s\n", result.ok ? "ok " : "error: ", result.text.c_str());
    std::fflush(stdout);
    return result.ok;
}

std::optional<std::string> ReadLine() {
    char line[1024];
    if (std::fgets(line, sizeof line, stdin) == nullptr) return std::nullopt;
    return std::string(line, std::strcspn(line, "\r\n"));
}

void Serve() {
    std::vector<SavedValue> saved;
    for (const UserValue& where : kFolders) {
        if (std::optional<SavedValue> value = ReadUserValue(where)) {
            saved.push_back(std::move(*value));
        }
    }
    std::set<std::string> added;
    while (const std::optional<std::string> line = ReadLine()) {
        std::istringstream stream(*line);
        std::vector<std::string> words;
        for (std::string word; stream >> word;)
            words.push_back(word);
        const bool done = Report(Run(words));
        if (done && words[0] == "add") added.insert(words[1]);
        if (done && words[0] == "remove") added.erase(words[1]);
    }
    for (const std::string& port : added)
        RemovePort(port);
    for (const SavedValue& value : saved)
        WriteUserValue(value);
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words == std::vector<std::string>{"serve"}) {
        Serve();
        return 0;
    }
    return Report(Run(words)) ? 0 : 1;
}
