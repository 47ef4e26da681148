#include "ports/usb_mock.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace brennix {

namespace {

constexpr const char* kPreload = "libumockdev-preload.so.0";

std::string Appended(const char* variable, const std::string& text) {
    const char* old = std::getenv(variable);
    return old == nullptr || *old == '\0' ? text : std::string(old) + ":" + text;
}

// The mocking library is loaded before the sanitizer's, which AddressSanitizer refuses unless
// configured.
std::map<std::string, std::string> MockEnvironment(const std::string& preload) {
    return {{"LD_PRELOAD", Appended("LD_PRELOAD", preload)},
            {"ASAN_OPTIONS", Appended("ASAN_OPTIONS", "verify_asan_link_order=0")}};
}

class UsbListing : public PortListing {
public:
    UsbListing(HelperProcess* bus, const std::string& root, std::string node, UsbIdentity identity)
        : bus_(bus),
          node_(std::move(node)),
          identity_(std::move(identity)),
          link_(root + "/dev/" + node_, LinkListing::Replaces::kAnyLink) {}

    void Link(const std::string& slave_path) override { link_.Link(slave_path); }
    void Unlink() override { link_.Unlink(); }
    void Announce() override {
        if (announced_) return;
        bus_->Ask("add " + node_ + " " + identity_.vendor + " " + identity_.product + " " +
                  identity_.serial);
        announced_ = true;
    }
    void Withdraw() override {
        if (!announced_) return;
        announced_ = false;
        bus_->Ask("remove " + node_);
    }

private:
    HelperProcess* bus_;
    std::string node_;
    UsbIdentity identity_;
    LinkListing link_;
    bool announced_ = false;
};

}  // namespace

UsbMock::UsbMock(const std::string& program, const std::string& folder)
    : bus_("the mocked USB bus", {program, kUsbBusArgument}, MockEnvironment(kPreload)),
      root_(bus_.Ask("root")),
      preload_(folder + "/libbrennix_mocked_ports.so:" + kPreload) {}

std::unique_ptr<PortListing> UsbMock::AddPort(const std::string& node, UsbIdentity identity) {
    return std::make_unique<UsbListing>(&bus_, root_, node, std::move(identity));
}

std::map<std::string, std::string> UsbMock::Environment() const {
    std::map<std::string, std::string> environment = MockEnvironment(preload_);
    environment["UMOCKDEV_DIR"] = root_;
    return environment;
}

bool UsbMock::IsNodeName(const std::string& node) {
    if (!node.starts_with("ttyACM") && !node.starts_with("ttyUSB")) return false;
    return node.size() > 6 && node.size() <= 9 &&
           std::all_of(node.begin() + 6, node.end(),
                       [](unsigned char c) { return std::isdigit(c) != 0; });
}

}  // namespace brennix
