// Discovery of dongles through udev, on a mocked bus.
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <libudev.h>
#include <sys/stat.h>
#include <umockdev.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "transport/serial/port_discovery.h"

namespace {

// The function of udev that fails; null: none.
const char* failing_function = nullptr;

bool Fails(const char* function) {
    return failing_function != nullptr && std::strcmp(failing_function, function) == 0;
}

}  // namespace

// The linker redirects the library's calls to these; CMakeLists.txt lists them.
// NOLINTBEGIN(bugprone-macro-parentheses, bugprone-reserved-identifier)
#define FAILING(result, function, parameters, arguments, failure)          \
    extern "C" result __real_##function parameters;                        \
    extern "C" result __wrap_##function parameters;                        \
    extern "C" result __wrap_##function parameters {                       \
        return Fails(#function) ? (failure) : __real_##function arguments; \
    }

FAILING(udev*, udev_new, (), (), nullptr)
FAILING(udev_enumerate*, udev_enumerate_new, (udev * context), (context), nullptr)
FAILING(int, udev_enumerate_add_match_subsystem, (udev_enumerate * list, const char* name),
        (list, name), -ENOMEM)
FAILING(int, udev_enumerate_add_match_sysname, (udev_enumerate * list, const char* name),
        (list, name), -ENOMEM)
FAILING(int, udev_enumerate_scan_devices, (udev_enumerate * list), (list), -ENOMEM)
FAILING(udev_device*, udev_device_new_from_syspath, (udev * context, const char* path),
        (context, path), nullptr)
FAILING(const char*, udev_device_get_devnode, (udev_device * device), (device), nullptr)

namespace {

bool udev_runs = false;
bool is_initialized = false;
// What stands for the node of every port, and a user who owns nothing.
const char* node_path = "/dev/null";
constexpr uid_t kNobody = 65534;

// As an ordinary user, also when the tests run as root.
template <typename Call>
int AsOrdinaryUser(Call call) {
    const bool is_root = ::geteuid() == 0;
    if (is_root && ::seteuid(kNobody) != 0) return -1;
    const int result = call();
    if (is_root && ::seteuid(0) != 0) return -1;
    return result;
}

}  // namespace

extern "C" int __wrap_udev_device_get_is_initialized(udev_device* device);
extern "C" int __wrap_udev_device_get_is_initialized(udev_device*) { return is_initialized; }

extern "C" int __real_faccessat(int folder, const char* path, int mode, int flags);
extern "C" int __wrap_faccessat(int folder, const char* path, int mode, int flags);
extern "C" int __wrap_faccessat(int folder, const char* path, int mode, int flags) {
    if (std::strcmp(path, "/run/udev/control") == 0) return udev_runs ? 0 : -1;
    return AsOrdinaryUser([&] { return __real_faccessat(folder, node_path, mode, flags); });
}

extern "C" int __real_getgrgid_r(gid_t id, group* entry, char* strings, std::size_t size,
                                 group** found);
extern "C" int __wrap_getgrgid_r(gid_t id, group* entry, char* strings, std::size_t size,
                                 group** found);
extern "C" int __wrap_getgrgid_r(gid_t id, group* entry, char* strings, std::size_t size,
                                 group** found) {
    if (!Fails("getgrgid_r")) return __real_getgrgid_r(id, entry, strings, size, found);
    *found = nullptr;
    return EIO;
}

extern "C" int __wrap_group_member(gid_t group);
extern "C" int __wrap_group_member(gid_t) { return 0; }
// NOLINTEND(bugprone-macro-parentheses, bugprone-reserved-identifier)

namespace tarvik::test {
namespace {

using Found = std::map<std::int32_t, std::string>;

void Add(void* context, const ListedPort& port) {
    (*static_cast<Found*>(context))[port.number] = port.path;
}

struct Release {
    void operator()(UMockdevTestbed* bus) const { g_object_unref(bus); }
};

class PortDiscovery : public testing::Test {
protected:
    PortDiscovery() : bus_(umockdev_testbed_new()) {}

    // `parent` is the path of the parent device, or null.
    std::string AddDevice(const char* subsystem, const std::string& name, const char* parent,
                          const char* const (&attributes)[5], const char* const (&properties)[3]) {
        gchar* path = umockdev_testbed_add_devicev(bus_.get(), subsystem, name.c_str(), parent,
                                                   const_cast<gchar**>(attributes),
                                                   const_cast<gchar**>(properties));
        EXPECT_NE(path, nullptr);
        const std::string result = path == nullptr ? "" : path;
        g_free(path);
        return result;
    }
    // A tty on a USB interface of a device with these ids.
    std::string AddTty(const char* name, const char* vendor, const char* product) {
        const std::string position = "1-" + std::to_string(++devices_);
        const std::string device =
            AddDevice("usb", position, nullptr, {"idVendor", vendor, "idProduct", product, nullptr},
                      {"DEVTYPE", "usb_device", nullptr});
        const std::string interface = AddDevice("usb", position + ":1.0", device.c_str(), {nullptr},
                                                {"DEVTYPE", "usb_interface", nullptr});
        const std::string node = std::string("/dev/") + name;
        return AddDevice("tty", name, interface.c_str(), {nullptr},
                         {"DEVNAME", node.c_str(), nullptr});
    }
    void Remove(const std::string& path) {
        umockdev_testbed_remove_device(bus_.get(), path.c_str());
    }
    static Found Discover() {
        Found found;
        EXPECT_TRUE(DiscoverPorts(Add, &found));
        return found;
    }

private:
    std::unique_ptr<UMockdevTestbed, Release> bus_;
    int devices_ = 0;
};

TEST_F(PortDiscovery, FindsNothingWithoutPorts) { EXPECT_TRUE(Discover().empty()); }

TEST_F(PortDiscovery, DonglesAreRecognizedByTheirUsbIdentity) {
    AddTty("ttyACM5", "303a", "1001");
    AddTty("ttyUSB2", "303a", "1001");
    EXPECT_EQ(Discover(), (Found{{5, "/dev/ttyACM5"}, {130, "/dev/ttyUSB2"}}));
}

TEST_F(PortDiscovery, PortsWithAnotherIdentityAreIgnored) {
    AddTty("ttyACM1", "303a", "1002");
    AddTty("ttyACM2", "10c4", "1001");
    AddTty("ttyUSB0", "10c4", "ea60");
    EXPECT_TRUE(Discover().empty());
}

TEST_F(PortDiscovery, TtysThatAreNotOnUsbAreIgnored) {
    AddDevice("tty", "ttyACM3", nullptr, {"idVendor", "303a", "idProduct", "1001", nullptr},
              {"DEVNAME", "/dev/ttyACM3", nullptr});
    AddDevice("tty", "ttyS0", nullptr, {nullptr}, {"DEVNAME", "/dev/ttyS0", nullptr});
    EXPECT_TRUE(Discover().empty());
}

TEST_F(PortDiscovery, NumbersAbove254AreIgnored) {
    AddTty("ttyACM254", "303a", "1001");
    AddTty("ttyACM255", "303a", "1001");
    AddTty("ttyUSB127", "303a", "1001");
    EXPECT_EQ(Discover(), (Found{{254, "/dev/ttyACM254"}}));
}

TEST_F(PortDiscovery, RemovedPortIsMissingFromTheNextList) {
    const std::string tty = AddTty("ttyACM0", "303a", "1001");
    EXPECT_EQ(Discover().size(), 1u);
    Remove(tty);
    EXPECT_TRUE(Discover().empty());
}

// ---------------------------------------------------------------- access

// A dongle's port whose node has these permissions.
class PortAccess : public PortDiscovery {
protected:
    PortAccess() {
        AddTty("ttyACM0", "303a", "1001");
        const int file = ::mkstemp(node_);
        EXPECT_GE(file, 0);
        ::close(file);
        node_path = node_;
        SetMode(0666);
    }
    ~PortAccess() override {
        node_path = "/dev/null";
        udev_runs = false;
        is_initialized = false;
        ::unlink(node_);
    }
    void SetMode(mode_t mode) { EXPECT_EQ(::chmod(node_, mode), 0); }
    // The group that may use the node: dialout, or the user's own if only root can change it.
    gid_t OpenToAGroup() {
        SetMode(0660);
        const group* dialout = ::getgrnam("dialout");
        const bool set =
            dialout != nullptr && ::chown(node_, static_cast<uid_t>(-1), dialout->gr_gid) == 0;
        return set ? dialout->gr_gid : ::getegid();
    }
    static PortReadiness Readiness() {
        PortReadiness readiness{};
        EXPECT_TRUE(DiscoverPorts(
            [](void* context, const ListedPort& port) {
                *static_cast<PortReadiness*>(context) = port.readiness;
            },
            &readiness));
        return readiness;
    }
    std::string Advice(PortReadiness readiness) const {
        char text[256];
        AdviseOnPort({0, node_, readiness}, text, sizeof text);
        return text;
    }

private:
    char node_[32] = "/tmp/tarvik_port_XXXXXX";
};

TEST_F(PortAccess, PortIsReadyOnlyIfItCanBeReadAndWritten) {
    const struct {
        mode_t mode;
        PortReadiness readiness;
    } rows[] = {
        {0666, PortReadiness::kReady},
        {0000, PortReadiness::kNoAccess},
        {0444, PortReadiness::kNoAccess},
        {0222, PortReadiness::kNoAccess},
    };
    for (const auto& row : rows) {
        SetMode(row.mode);
        EXPECT_EQ(Readiness(), row.readiness) << row.mode;
    }
}

TEST_F(PortAccess, PortWhoseNodeIsMissingIsNotReady) {
    node_path = "/tmp/there-is-no-such-port";
    EXPECT_EQ(Readiness(), PortReadiness::kNoAccess);
}

TEST_F(PortAccess, PortIsNotReadyBeforeUdevHasInitializedIt) {
    udev_runs = true;
    EXPECT_EQ(Readiness(), PortReadiness::kStarting);
    is_initialized = true;
    EXPECT_EQ(Readiness(), PortReadiness::kReady);
    SetMode(0000);
    EXPECT_EQ(Readiness(), PortReadiness::kNoAccess);
}

TEST_F(PortAccess, UdevIsNotAwaitedWhereItDoesNotRun) {
    EXPECT_EQ(Readiness(), PortReadiness::kReady);
}

TEST_F(PortAccess, AdviceNamesTheGroupThatMayUseThePort) {
    const std::string name = ::getgrgid(OpenToAGroup())->gr_name;
    EXPECT_EQ(Advice(PortReadiness::kNoAccess),
              "join the group " + name + " (sudo usermod -aG " + name + " $USER) and log in again");
}

TEST_F(PortAccess, AdviceHasTheNumberOfAGroupWithoutAName) {
    const std::string number = std::to_string(OpenToAGroup());
    failing_function = "getgrgid_r";
    const std::string advice = Advice(PortReadiness::kNoAccess);
    failing_function = nullptr;
    EXPECT_EQ(advice, "join the group " + number + " (sudo usermod -aG " + number +
                          " $USER) and log in again");
}

TEST_F(PortAccess, AdviceIsAUdevRuleIfNoGroupMayUseThePort) {
    SetMode(0600);
    EXPECT_EQ(Advice(PortReadiness::kNoAccess),
              "put the rule SUBSYSTEM==\"tty\", ATTRS{idVendor}==\"303a\", "
              "ATTRS{idProduct}==\"1001\", GROUP=\"dialout\", MODE=\"0660\", TAG+=\"uaccess\" "
              "into /etc/udev/rules.d/70-brennix.rules and plug the dongle in again");
}

TEST_F(PortAccess, AdviceIsToLookAtUdevIfItDoesNotFinish) {
    EXPECT_TRUE(Advice(PortReadiness::kStarting).starts_with("see why udev does not finish "));
}

// ---------------------------------------------------------------- refusals

// A function of udev that fails, and what discovery makes of it.
struct Refusal {
    bool succeeds;
    Found found;
};

class FaultyDiscovery : public PortDiscovery {
protected:
    FaultyDiscovery() { AddTty("ttyACM0", "303a", "1001"); }
    static Refusal DiscoverWhile(const char* function) {
        Refusal refusal{};
        failing_function = function;
        refusal.succeeds = DiscoverPorts(Add, &refusal.found);
        failing_function = nullptr;
        return refusal;
    }
};

TEST_F(FaultyDiscovery, FailsIfUdevRefusesTheList) {
    for (const char* function :
         {"udev_new", "udev_enumerate_new", "udev_enumerate_add_match_subsystem",
          "udev_enumerate_add_match_sysname", "udev_enumerate_scan_devices"}) {
        const Refusal refusal = DiscoverWhile(function);
        EXPECT_FALSE(refusal.succeeds) << function;
        EXPECT_EQ(refusal.found, Found{}) << function;
    }
    EXPECT_EQ(Discover().size(), 1u);
}

// It may be unplugged while the list is read.
TEST_F(FaultyDiscovery, LeavesOutADeviceThatIsGone) {
    for (const char* function : {"udev_device_new_from_syspath", "udev_device_get_devnode"}) {
        const Refusal refusal = DiscoverWhile(function);
        EXPECT_TRUE(refusal.succeeds) << function;
        EXPECT_EQ(refusal.found, Found{}) << function;
    }
}

}  // namespace
}  // namespace tarvik::test
