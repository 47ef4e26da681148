#include "wine/wine_ports.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <stdexcept>

#include "wine/wine_server.h"

namespace brennix {

namespace {

// The first start in a prefix also starts Wine's services.
constexpr int kHelperStartLimitMs = 120'000;

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

class WineListing : public PortListing {
public:
    WineListing(HelperProcess* helper, std::string name, std::string hardware_id,
                const std::string& prefix)
        : helper_(helper),
          name_(std::move(name)),
          hardware_id_(std::move(hardware_id)),
          link_(prefix + "/dosdevices/" + LowerCase(name_), LinkListing::Replaces::kAnyLink) {}

    void Link(const std::string& slave_path) override { link_.Link(slave_path); }
    void Unlink() override { link_.Unlink(); }
    void Announce() override {
        if (announced_) return;
        helper_->Ask("add " + name_ + (hardware_id_.empty() ? "" : " " + hardware_id_));
        announced_ = true;
    }
    void Withdraw() override {
        if (!announced_) return;
        announced_ = false;
        helper_->Ask("remove " + name_);
    }

private:
    HelperProcess* helper_;
    std::string name_;
    std::string hardware_id_;
    LinkListing link_;
    bool announced_ = false;
};

}  // namespace

std::string WindowsPath(const std::string& path) {
    std::string result = "Z:" + path;
    std::replace(result.begin(), result.end(), '/', '\\');
    return result;
}

WinePorts::WinePorts(std::string prefix, const std::string& helper) : prefix_(std::move(prefix)) {
    if (::access((prefix_ + "/dosdevices").c_str(), W_OK) != 0) {
        throw std::runtime_error(prefix_ + " is no Wine prefix");
    }
    if (::access(helper.c_str(), R_OK) != 0) throw std::runtime_error(helper + " is missing");
    StartWineServer(Environment(""));
    helper_ = std::make_unique<HelperProcess>(
        "wine_port.exe", std::vector<std::string>{"wine", helper, "serve"}, Environment(""));
    // Links are made after this: Wine removes links of unknown ports when it starts.
    helper_->Ask("list", kHelperStartLimitMs);
}

std::unique_ptr<PortListing> WinePorts::AddPort(const std::string& name, std::string hardware_id) {
    return std::make_unique<WineListing>(helper_.get(), name, std::move(hardware_id), prefix_);
}

void WinePorts::UseFolders(const std::string& app_data, const std::string& temporary) {
    helper_->Ask("folders " + WindowsPath(app_data) + " " + WindowsPath(temporary));
}

std::map<std::string, std::string> WinePorts::Environment(const std::string& preload) const {
    std::map<std::string, std::string> environment = {
        {"WINEPREFIX", prefix_},
        {"WINEDEBUG", std::getenv("WINEDEBUG") != nullptr ? std::getenv("WINEDEBUG") : "-all"},
        // Wine keeps its server's socket there: with another value it would start a second server
        // for the same prefix, without the first one's ports.
        {"TMPDIR", ""},
    };
    if (!preload.empty()) {
        const char* old = std::getenv("LD_PRELOAD");
        environment["LD_PRELOAD"] =
            old == nullptr || *old == '\0' ? preload : std::string(old) + ":" + preload;
    }
    return environment;
}

bool WinePorts::IsPortName(const std::string& name) {
    return name.starts_with("COM") && name.size() > 3 && name.size() <= 6 &&
           std::all_of(name.begin() + 3, name.end(),
                       [](unsigned char c) { return std::isdigit(c) != 0; });
}

}  // namespace brennix
