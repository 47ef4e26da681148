#include <libudev.h>

#include <cstring>
#include <memory>

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

void Examine(udev* context, const char* syspath, FoundPort found, void* found_context) {
    const Udev<udev_device> tty(::udev_device_new_from_syspath(context, syspath));
    if (!tty) return;  // gone since it was listed
    const char* name = ::udev_device_get_sysname(tty.get());
    const char* path = ::udev_device_get_devnode(tty.get());
    if (name == nullptr || path == nullptr) return;
    const auto number = NumberOfTty(name);
    if (number && IsDongle(tty.get())) found(found_context, *number, path);
}

}  // namespace

bool DiscoverPorts(FoundPort found, void* context) {
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

}  // namespace tarvik
