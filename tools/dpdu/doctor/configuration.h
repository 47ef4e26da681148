// The library's config.json, read as the library does, without creating or changing it.

#ifndef TOOLS_DPDU_DOCTOR_CONFIGURATION_H
#define TOOLS_DPDU_DOCTOR_CONFIGURATION_H

#include <cstdint>
#include <string>

#include "doctor/finding.h"
#include "support/config.h"

namespace dpdu {

struct ConfigFile {
    std::string path;  // empty: unknown
    bool is_there = false;
    bool is_readable = false;
    // Beside the library, where this user may not write: the library copies it to this path when it
    // is used for the first time. Empty: `path` itself is used.
    std::string copied_to;
    std::string text;         // one byte more than the library reads, if it has so many
    std::uintmax_t size = 0;  // of the whole file

    // Parsed contents; valid only if `is_usable`, that is if the library can parse it.
    bool is_usable = false;
    tarvik::Config values = {};
};

// The user's file, otherwise the one beside the library.
ConfigFile ReadConfigFile(const std::string& library_path);

// Checks whether the file exists, is valid and short enough; which keys are missing, unknown, of a
// wrong type or without effect; which transports are on.
Findings CheckConfiguration(const ConfigFile& file, const std::string& library_path);

// Checks who may read the file and whether the library may write its key into it.
Findings CheckPermissions(const ConfigFile& file);

// Checks the keys for the relay connection; no findings if the relay is off.
Findings CheckKeys(const ConfigFile& file);

// Whether the texts are keys that the library takes.
bool IsServerKey(const std::string& text);
bool IsDeviceKey(const std::string& text);
// One that the library leaves as it is and refuses: neither empty nor of the right form.
bool IsMalformedDeviceKey(const std::string& text);

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_CONFIGURATION_H
