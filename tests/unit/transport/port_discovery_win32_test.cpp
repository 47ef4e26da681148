// Discovery of dongles through SetupAPI, with devices that the test registers and removes. Their
// port numbers are high so that no port of the machine is touched.
#include <gtest/gtest.h>
#include <windows.h>
// setupapi.h needs windows.h first.
#include <setupapi.h>

#include <cfgmgr32.h>

#include <map>
#include <string>

#include "transport/serial/port_discovery.h"

namespace {

// What the system answers to CM_Get_DevNode_Status.
struct NodeStatus {
    CONFIGRET result;
    ULONG status;  // kNothing: it writes none
};
constexpr ULONG kNothing = 0xFFFFFFFF;
constexpr NodeStatus kStarted = {CR_SUCCESS, DN_STARTED};
NodeStatus node_status = kStarted;

CONFIGRET WINAPI AnswerNodeStatus(ULONG* status, ULONG*, DEVINST, ULONG) {
    if (node_status.status != kNothing) *status = node_status.status;
    return node_status.result;
}

}  // namespace

// Takes the place of the system's function, to which the library's calls lead through this pointer.
extern "C" {
// NOLINTNEXTLINE(bugprone-reserved-identifier)
decltype(&CM_Get_DevNode_Status) __imp_CM_Get_DevNode_Status = AnswerNodeStatus;
}

namespace tarvik::test {
namespace {

constexpr GUID kPortsClass = {
    0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

using Found = std::map<std::int32_t, std::string>;

// Ignores ports below 200, which are not of this test.
void Add(void* context, const ListedPort& port) {
    if (port.number >= 200) (*static_cast<Found*>(context))[port.number] = port.path;
}

// A registered device of the Ports class, from construction to destruction.
class Device {
public:
    // `ids` holds one or more texts, each but the last followed by a NUL.
    Device(const std::string& port_name, const std::string& ids)
        : set_(::SetupDiCreateDeviceInfoList(&kPortsClass, nullptr)) {
        static int instances = 0;
        const std::string instance = "USB\\TARVIK_UNIT_TEST\\" + std::to_string(++instances);
        device_.cbSize = sizeof device_;
        EXPECT_TRUE(::SetupDiCreateDeviceInfoA(set_, instance.c_str(), &kPortsClass, nullptr,
                                               nullptr, 0, &device_));
        EXPECT_TRUE(::SetupDiRegisterDeviceInfo(set_, &device_, 0, nullptr, nullptr, nullptr));
        WritePortName(port_name);
        const std::string list = ids + std::string(2, '\0');
        EXPECT_TRUE(::SetupDiSetDeviceRegistryPropertyA(set_, &device_, SPDRP_HARDWAREID,
                                                        reinterpret_cast<const BYTE*>(list.data()),
                                                        static_cast<DWORD>(list.size())));
    }
    ~Device() {
        EXPECT_TRUE(::SetupDiRemoveDevice(set_, &device_));
        ::SetupDiDestroyDeviceInfoList(set_);
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

private:
    void WritePortName(const std::string& name) {
        const HKEY key = ::SetupDiCreateDevRegKeyA(set_, &device_, DICS_FLAG_GLOBAL, 0, DIREG_DEV,
                                                   nullptr, nullptr);
        ASSERT_NE(key, INVALID_HANDLE_VALUE);
        EXPECT_EQ(::RegSetValueExA(key, "PortName", 0, REG_SZ,
                                   reinterpret_cast<const BYTE*>(name.c_str()),
                                   static_cast<DWORD>(name.size() + 1)),
                  ERROR_SUCCESS);
        ::RegCloseKey(key);
    }

    HDEVINFO set_;
    SP_DEVINFO_DATA device_{};
};

const std::string kDongleId = "USB\\VID_303A&PID_1001&REV_0101";

Found Discover() {
    Found found;
    EXPECT_TRUE(DiscoverPorts(Add, &found));
    return found;
}

TEST(PortDiscovery, FindsNothingWithoutPorts) { EXPECT_TRUE(Discover().empty()); }

TEST(PortDiscovery, DonglesAreRecognizedByTheirUsbIdentity) {
    const Device first("COM201", kDongleId);
    const Device second("COM254", "USB\\VID_303A&PID_1001&MI_00");
    EXPECT_EQ(Discover(), (Found{{201, "\\\\.\\COM201"}, {254, "\\\\.\\COM254"}}));
}

TEST(PortDiscovery, IdentityCanBeInAnyHardwareId) {
    const Device device("COM202", std::string("USB\\VID_0000&PID_0000") + '\0' + kDongleId);
    EXPECT_EQ(Discover().size(), 1u);
}

TEST(PortDiscovery, PortsWithAnotherIdentityAreIgnored) {
    const Device other_product("COM203", "USB\\VID_303A&PID_1002");
    const Device other_vendor("COM204", "USB\\VID_10C4&PID_1001");
    const Device split("COM205", std::string("VID_303A") + '\0' + "&PID_1001");
    EXPECT_TRUE(Discover().empty());
}

TEST(PortDiscovery, NamesOtherThanCom0ToCom254AreIgnored) {
    const Device beyond("COM255", kDongleId);
    const Device printer("LPT201", kDongleId);
    const Device unnumbered("COMx", kDongleId);
    const Device suffixed("COM206x", kDongleId);
    const Device nameless("", kDongleId);
    const Device overlong("COM207" + std::string(100, '7'), kDongleId);
    EXPECT_TRUE(Discover().empty());
}

TEST(PortDiscovery, PortIsStoppedIfItsDriverDoesNotRun) {
    const struct {
        NodeStatus node;
        PortReadiness readiness;
    } rows[] = {
        {kStarted, PortReadiness::kReady},
        {{CR_SUCCESS, kNothing}, PortReadiness::kReady},
        {{CR_SUCCESS, DN_DRIVER_LOADED | DN_STARTED}, PortReadiness::kReady},
        {{CR_SUCCESS, 0}, PortReadiness::kStopped},
        {{CR_SUCCESS, DN_DRIVER_LOADED}, PortReadiness::kStopped},
        {{CR_SUCCESS, DN_HAS_PROBLEM}, PortReadiness::kStopped},
        {{CR_SUCCESS, DN_STARTED | DN_HAS_PROBLEM}, PortReadiness::kStopped},
        {{CR_CALL_NOT_IMPLEMENTED, 0}, PortReadiness::kReady},
        {{CR_NO_SUCH_DEVINST, DN_HAS_PROBLEM}, PortReadiness::kReady},
    };
    const Device device("COM209", kDongleId);
    for (const auto& row : rows) {
        PortReadiness found{};
        node_status = row.node;
        EXPECT_TRUE(DiscoverPorts(
            [](void* context, const ListedPort& port) {
                if (port.number == 209) *static_cast<PortReadiness*>(context) = port.readiness;
            },
            &found));
        EXPECT_EQ(found, row.readiness) << row.node.result << ' ' << row.node.status;
    }
    node_status = kStarted;
}

TEST(PortDiscovery, StoppedPortComesWithAnAdvice) {
    char text[256];
    AdviseOnPort({209, "\\\\.\\COM209", PortReadiness::kStopped}, text, sizeof text);
    EXPECT_STREQ(text, "enable the port in Device Manager, or plug the dongle in again");
}

TEST(PortDiscovery, RemovedPortIsMissingFromTheNextList) {
    {
        const Device device("COM208", kDongleId);
        EXPECT_EQ(Discover().size(), 1u);
    }
    EXPECT_TRUE(Discover().empty());
}

}  // namespace
}  // namespace tarvik::test
