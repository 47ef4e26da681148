// COM ports for Windows programs that run under Wine: a link in the prefix's `dosdevices`, and a
// device of the Ports class that a small Windows program (wine_port.cpp) registers in the prefix.

#pragma once

#include <map>
#include <memory>
#include <string>

#include "ports/port_listing.h"
#include "process/helper_process.h"

namespace brennix {

class WinePorts {
public:
    // `prefix` exists already; `helper` is the path of wine_port.exe. Starts the prefix's server
    // and the helper, which runs as long as this object. Throws std::runtime_error.
    WinePorts(std::string prefix, const std::string& helper);

    // `name`: "COM5". Empty `hardware_id`: the dongle's. This object must outlive the listing.
    std::unique_ptr<PortListing> AddPort(const std::string& name, std::string hardware_id);
    // Until this object ends, %APPDATA% and %TMP% of the prefix are these folders.
    void UseFolders(const std::string& app_data, const std::string& temporary);

    // What a Windows program needs in its environment. An empty value: must not be set.
    std::map<std::string, std::string> Environment(const std::string& preload) const;
    static bool IsPortName(const std::string& name);

private:
    std::string prefix_;
    std::unique_ptr<HelperProcess> helper_;
};

// "/a/b" as Windows programs under Wine see it.
std::string WindowsPath(const std::string& path);

}  // namespace brennix
