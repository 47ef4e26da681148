#pragma once

#include <array>
#include <cstddef>

#include "support/config_record.h"

// The keys of config.json.
namespace tarvik {

// Deliberate: the rest of a longer file is not read.
inline constexpr std::size_t kMaxConfigFileSize = 1024;

// Deliberate: the value for a missing key differs from the value in a new file. A missing key turns
// its feature on (except useProxy); a new file turns every transport off.
struct BoolKey {
    const char* name;
    bool Config::*field;
    bool when_missing;
    bool in_new_file;
};

struct TextKey {
    const char* name;
    char* (*field)(Config* record);
    std::size_t capacity;
};

// Both tables are in the order of the file.
inline constexpr std::array<BoolKey, 10> kBoolKeys = {{
    {"showDebug", &Config::showDebug, true, false},
    {"enableCopTrace", &Config::enableCopTrace, true, true},
    {"enableDebugLogFile", &Config::enableDebugLogFile, true, true},
    {"useWebsocket", &Config::useWebsocket, true, false},
    {"useSerial", &Config::useSerial, true, false},
    {"useCloud", &Config::useCloud, true, false},
    {"useBle", &Config::useBle, true, false},
    {"dummyDevice", &Config::dummyDevice, true, false},
    {"useProxy", &Config::useProxy, false, false},
    {"disableCertValidation", &Config::disableCertValidation, true, false},
}};

inline constexpr std::array<TextKey, 5> kTextKeys = {{
    {"serverAddress", [](Config* record) { return record->serverAddress; },
     sizeof Config::serverAddress},
    {"websocketAddress", [](Config* record) { return record->websocketAddress; },
     sizeof Config::websocketAddress},
    {"proxyAddress", [](Config* record) { return record->proxyAddress; },
     sizeof Config::proxyAddress},
    {"devicePrivateKey", [](Config* record) { return record->devicePrivateKey; },
     sizeof Config::devicePrivateKey},
    {"serverPublicKey", [](Config* record) { return record->serverPublicKey; },
     sizeof Config::serverPublicKey},
}};

// Whether the keys name every field of Config, and each once. The fields leave no gaps, so those
// that have a key make up the whole record.
consteval bool EveryFieldHasOneKey() {
    Config record{};
    std::size_t size = 0;
    for (std::size_t i = 0; i < kBoolKeys.size(); ++i) {
        size += sizeof(record.*kBoolKeys[i].field);
        for (std::size_t other = 0; other < i; ++other) {
            if (kBoolKeys[i].field == kBoolKeys[other].field) return false;
        }
    }
    for (std::size_t i = 0; i < kTextKeys.size(); ++i) {
        size += kTextKeys[i].capacity;
        for (std::size_t other = 0; other < i; ++other) {
            if (kTextKeys[i].field(&record) == kTextKeys[other].field(&record)) return false;
        }
    }
    return size == sizeof(Config);
}
static_assert(EveryFieldHasOneKey(), "a field of Config has no key, or two");

}  // namespace tarvik
