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
    bool useWebsocket = false;
    bool useProxy = false;
    bool disableCertValidation = false;
    std::string serverAddress = {};
    std::string websocketAddress = {};
    std::string proxyAddress = {};
    std::string serverPublicKey = {};

    std::string Json() const;
    // Writes them where the next PDUConstruct of this process finds them.
    void Store() const;
};

}  // namespace conformance
