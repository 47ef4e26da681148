#pragma once

#include <string>

namespace conformance {

// A config.json for the library. By default everything is off except the log file.
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
    // Writes it where the next PDUConstruct of this process finds it.
    void Store() const;
};

}  // namespace conformance
