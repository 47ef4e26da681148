#include <fcntl.h>
#include <grp.h>
#include <libudev.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "platform/posix/standard_descriptors.h"
#include "support/text.h"
#include "transport/serial/port_discovery.h"
#include "transport/serial/port_names.h"

namespace tarvik {

namespace {

constexpr char kDongleVendor[] = "303a";
constexpr char kDongleProduct[] = "1001";

struct Unref {
    void operator()(udev* context) const { ::udev_unref(context); }
    void operator()(udev_enumerate* list) const { ::udev_enumerate_unref(list); }
    void operator()(udev_device* device) const { ::udev_device_unref(device); }
};
template <typename T>
using Udev = std::unique_ptr<T, Unref>;

bool HasAttribute(udev_device* device, const char* name, const char* wanted) {
    const char* value = ::udev_device_get_sysattr_value(device, name);
    return value != nullptr && std::strcmp(value, wanted) == 0;
}

bool IsDongle(udev_device* tty) {
    // Belongs to the tty and must not be released.
    udev_device* usb = ::udev_device_get_parent_with_subsystem_devtype(tty, "usb", "usb_device");
    return usb != nullptr && HasAttribute(usb, "idVendor", kDongleVendor) &&
           HasAttribute(usb, "idProduct", kDongleProduct);
}

bool IsAllowed(const char* path, int mode) {
    return ::faccessat(AT_FDCWD, path, mode, AT_EACCESS) == 0;
}

// In a container without its daemon, udev never initialises a device.
bool UdevRuns() { return IsAllowed("/run/udev/control", F_OK); }

// A tty is listed before udev has set its group and access list; the access list may even come
// after udev calls the device initialised.
PortReadiness ReadinessOf(udev_device* tty, const char* path) {
    if (::udev_device_get_is_initialized(tty) == 0 && UdevRuns()) return PortReadiness::kStarting;
    return IsAllowed(path, R_OK | W_OK) ? PortReadiness::kReady : PortReadiness::kNoAccess;
}

void Examine(udev* context, const char* syspath, FoundPort found, void* found_context) {
    const Udev<udev_device> tty(::udev_device_new_from_syspath(context, syspath));
    if (!tty) return;  // gone since it was listed
    const char* name = ::udev_device_get_sysname(tty.get());
    const char* path = ::udev_device_get_devnode(tty.get());
    if (name == nullptr || path == nullptr) return;
    const auto number = NumberOfTty(name);
    if (!number || !IsDongle(tty.get())) return;
    found(found_context, {*number, path, ReadinessOf(tty.get(), path)});
}

// A group that the user can join to use the port. False: there is none.
bool FindOpenGroup(const char* path, gid_t* id) {
    constexpr mode_t kReadAndWrite = S_IRGRP | S_IWGRP;
    struct stat node {};
    if (::stat(path, &node) != 0 || (node.st_mode & kReadAndWrite) != kReadAndWrite) return false;
    *id = node.st_gid;
    return node.st_gid != 0 && ::group_member(node.st_gid) == 0;
}

void NameGroup(gid_t id, char* name, std::size_t size) {
    char strings[4096];
    group entry{};
    group* found = nullptr;
    const StandardDescriptorsTaken standard;
    ::getgrgid_r(id, &entry, strings, sizeof strings, &found);
    if (found != nullptr) {
        FormatText(name, size, "%s", found->gr_name);
    } else {
        FormatText(name, size, "%u", static_cast<unsigned>(id));
    }
}

}  // namespace

bool DiscoverPorts(FoundPort found, void* context) {
    const StandardDescriptorsTaken standard;
    const Udev<udev> system(::udev_new());
    if (!system) return false;
    const Udev<udev_enumerate> list(::udev_enumerate_new(system.get()));
    if (!list) return false;
    // Filtered by name first, so that most ttys need not be opened.
    if (::udev_enumerate_add_match_subsystem(list.get(), "tty") < 0 ||
        ::udev_enumerate_add_match_sysname(list.get(), "ttyACM*") < 0 ||
        ::udev_enumerate_add_match_sysname(list.get(), "ttyUSB*") < 0 ||
        ::udev_enumerate_scan_devices(list.get()) < 0) {
        return false;
    }
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, ::udev_enumerate_get_list_entry(list.get())) {
        Examine(system.get(), ::udev_list_entry_get_name(entry), found, context);
    }
    return true;
}

void AdviseOnPort(const ListedPort& port, char* text, std::size_t size) {
    if (port.readiness != PortReadiness::kNoAccess) {
        FormatText(text, size, "see why udev does not finish (udevadm info %s)", port.path);
        return;
    }
    gid_t id = 0;
    if (!FindOpenGroup(port.path, &id)) {
        FormatText(text, size,
                   "put the rule SUBSYSTEM==\"tty\", ATTRS{idVendor}==\"%s\", "
                   "ATTRS{idProduct}==\"%s\", GROUP=\"dialout\", MODE=\"0660\", TAG+=\"uaccess\" "
                   "into /etc/udev/rules.d/70-brennix.rules and plug the dongle in again",
                   kDongleVendor, kDongleProduct);
        return;
    }
    char name[64];
    NameGroup(id, name, sizeof name);
    FormatText(text, size, "join the group %s (sudo usermod -aG %s $USER) and log in again", name,
               name);
}

}  // namespace tarvik
