// Discovery of dongles through udev, on a mocked bus.
#include <gtest/gtest.h>
#include <umockdev.h>

#include <map>
#include <memory>
#include <string>

#include "transport/serial/port_discovery.h"

namespace tarvik::test {
namespace {

using Found = std::map<std::int32_t, std::string>;

void Add(void* context, std::int32_t number, const char* path) {
    (*static_cast<Found*>(context))[number] = path;
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

}  // namespace
}  // namespace tarvik::test
