// The library's config.json, read as the library reads it, without creating or changing it.

#ifndef TOOLS_DPDU_DOCTOR_CONFIGURATION_H
#define TOOLS_DPDU_DOCTOR_CONFIGURATION_H

#include <string>

#include "doctor/finding.h"
#include "support/config.h"

namespace dpdu {

struct ConfigFile {
    std::string path;  // empty: unknown
    bool is_there = false;
    bool is_readable = false;
    std::string text;  // all of it

    // What it says; only when `is_usable`, which is when the library makes sense of it.
    bool is_usable = false;
    tarvik::Config values = {};
};

// The user's, or else that beside the library.
ConfigFile ReadConfigFile(const std::string& library_path);

// Is it there, valid and short enough; which keys are missing, unknown or of a wrong type; which
// transports are on.
Findings CheckConfiguration(const ConfigFile& file);

// Who may read it, and whether the library may write its key into it.
Findings CheckPermissions(const ConfigFile& file);

// The keys of the connection to a relay; nothing to find when that is off.
Findings CheckKeys(const ConfigFile& file);

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_CONFIGURATION_H
