// The mocked USB bus, in a process of its own: its library works only in programs that see the
// mocked system themselves. The simulator does not, and is faster that way.

#include "ports/usb_bus.h"

#include <sys/stat.h>
#include <umockdev.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace brennix {

namespace {

struct DevicePaths {
    std::string device;  // all below /sys
    std::string interface;
    std::string tty;
};

class UsbBus {
public:
    UsbBus() : testbed_(umockdev_testbed_new()) { ::mkdir((Root() + "/dev").c_str(), 0755); }
    ~UsbBus() { g_object_unref(testbed_); }
    UsbBus(const UsbBus&) = delete;
    UsbBus& operator=(const UsbBus&) = delete;

    std::string Root() const;
    void AddPort(const std::string& node, const UsbIdentity& identity);
    void RemovePort(const std::string& node);

private:
    using Pairs = std::vector<std::string>;  // name, value, name, value …
    std::string AddDevice(const char* subsystem, const std::string& name, const std::string& parent,
                          const Pairs& attributes, const Pairs& properties);

    UMockdevTestbed* testbed_;
    std::map<std::string, DevicePaths> ports_;
    int next_number_ = 1;  // device number; a device that comes back gets a new one
};

std::vector<gchar*> Pointers(const std::vector<std::string>& texts) {
    std::vector<gchar*> pointers;
    for (const std::string& text : texts)
        pointers.push_back(const_cast<gchar*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

std::string UsbBus::Root() const {
    gchar* root = umockdev_testbed_get_root_dir(testbed_);
    std::string result = root;
    g_free(root);
    return result;
}

std::string UsbBus::AddDevice(const char* subsystem, const std::string& name,
                              const std::string& parent, const Pairs& attributes,
                              const Pairs& properties) {
    gchar* path = umockdev_testbed_add_devicev(
        testbed_, subsystem, name.c_str(), parent.empty() ? nullptr : parent.c_str(),
        Pointers(attributes).data(), Pointers(properties).data());
    if (path == nullptr) throw std::runtime_error("device " + name + " cannot be added");
    std::string result = path;
    g_free(path);
    return result;
}

// Adds device and interface before the tty, so that a program that finds the tty finds its ids.
void UsbBus::AddPort(const std::string& node, const UsbIdentity& identity) {
    if (ports_.contains(node)) throw std::runtime_error(node + " is there already");
    const std::string number = std::to_string(++next_number_);
    const std::string name = "1-" + number;
    DevicePaths paths;
    paths.device = AddDevice(
        "usb", name, "",
        {"idVendor", identity.vendor, "idProduct", identity.product, "serial", identity.serial,
         "busnum", "1", "devnum", number},
        {"DEVTYPE", "usb_device", "PRODUCT", identity.vendor + "/" + identity.product + "/101"});
    paths.interface = AddDevice("usb", name + ":1.0", paths.device, {"bInterfaceNumber", "00"},
                                {"DEVTYPE", "usb_interface"});
    paths.tty = AddDevice("tty", node, paths.interface, {}, {"DEVNAME", "/dev/" + node});
    umockdev_testbed_uevent(testbed_, paths.tty.c_str(), "add");
    ports_[node] = paths;
}

void UsbBus::RemovePort(const std::string& node) {
    const auto found = ports_.find(node);
    if (found == ports_.end()) throw std::runtime_error(node + " is not there");
    const DevicePaths paths = found->second;
    ports_.erase(found);
    umockdev_testbed_uevent(testbed_, paths.tty.c_str(), "remove");
    for (const std::string& path : {paths.tty, paths.interface, paths.device}) {
        umockdev_testbed_remove_device(testbed_, path.c_str());
    }
}

std::string RunLine(UsbBus* bus, const std::string& line) {
    std::istringstream stream(line);
    std::string verb;
    std::string node;
    UsbIdentity identity;
    stream >> verb >> node >> identity.vendor >> identity.product >> identity.serial;
    try {
        if (verb == "root") return "ok " + bus->Root();
        if (verb == "add") {
            bus->AddPort(node, identity);
        } else if (verb == "remove") {
            bus->RemovePort(node);
        } else {
            return "error: unknown command " + verb;
        }
        return "ok";
    } catch (const std::exception& error) {
        return std::string("error: ") + error.what();
    }
}

}  // namespace

int ServeUsbBus() {
    UsbBus bus;
    char line[1024];
    while (std::fgets(line, sizeof line, stdin) != nullptr) {
        line[std::strcspn(line, "\n")] = '\0';
        std::printf("%s\n", RunLine(&bus, line).c_str());
        std::fflush(stdout);
    }
    return 0;
}

}  // namespace brennix
