// COM ports for Windows programs under Wine: a link in the prefix's `dosdevices`, and a device of
// the Ports class that wine_port.exe registers in the prefix.

#pragma once

#include <map>
#include <memory>
#include <string>

#include "ports/port_listing.h"
#include "process/helper_process.h"

namespace brennix {

class WinePorts {
public:
    // `prefix` exists; `helper` is the path of wine_port.exe. Starts the prefix's server and the
    // helper, which runs as long as this object exists. Throws std::runtime_error.
    WinePorts(std::string prefix, const std::string& helper);

    // `name`: "COM5". Empty `hardware_id`: the dongle's. This object must outlive the listing.
    std::unique_ptr<PortListing> AddPort(const std::string& name, std::string hardware_id);
    // Makes these folders %APPDATA% and %TMP% of the prefix for the life of this object.
    void UseFolders(const std::string& app_data, const std::string& temporary);

    // The environment for Windows programs. Empty value: the variable must not be set.
    std::map<std::string, std::string> Environment(const std::string& preload) const;
    static bool IsPortName(const std::string& name);

private:
    std::string prefix_;
    std::unique_ptr<HelperProcess> helper_;
};

// The Windows form of the Linux path "/a/b".
std::string WindowsPath(const std::string& path);

}  // namespace brennix
