#include "conformance/framework/settings.h"

#include <nlohmann/json.hpp>

#include "conformance/framework/surroundings.h"

namespace conformance {

std::string Settings::Json() const {
    const nlohmann::json values = {
        {"showDebug", showDebug},         {"enableCopTrace", enableCopTrace},
        {"useSerial", useSerial},         {"enableDebugLogFile", enableDebugLogFile},
        {"useCloud", useCloud},           {"useBle", useBle},
        {"dummyDevice", dummyDevice},     {"disableCertValidation", disableCertValidation},
        {"useWebsocket", useWebsocket},   {"useProxy", useProxy},
        {"serverAddress", serverAddress}, {"websocketAddress", websocketAddress},
        {"proxyAddress", proxyAddress},   {"serverPublicKey", serverPublicKey},
    };
    return values.dump(2);
}

void Settings::Store() const { WriteFile(UserConfigPath(), Json()); }

}  // namespace conformance
