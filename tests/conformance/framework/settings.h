#pragma once

#include <string>

namespace conformance {

// A config.json, as the library reads it. By itself: everything off but the log file.
struct Settings {
    bool showDebug = false;
    bool enableCopTrace = false;
    bool enableDebugLogFile = true;
    bool useSerial = false;
    bool useCloud = false;
    bool useBle = false;
    bool dummyDevice = false;

    std::string Json() const;
    // Writes them where the next PDUConstruct of this process finds them.
    void Store() const;
};

}  // namespace conformance
