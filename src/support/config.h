#pragma once

#include <cstddef>

namespace tarvik {

struct Config {
    bool showDebug;
    bool enableCopTrace;
    bool enableDebugLogFile;
    bool useWebsocket;
    bool useSerial;
    bool useCloud;
    bool useBle;
    bool dummyDevice;
    bool useProxy;
    bool disableCertValidation;
    char serverAddress[256];
    char websocketAddress[256];
    char proxyAddress[256];
    char devicePrivateKey[128];
    char serverPublicKey[256];
};

// The one record of the process. Refilled by every PDUConstruct while no transport runs; only
// devicePrivateKey changes in between.
extern Config config;

bool ResolveConfigPath(char (&path)[260]);
bool CreateDefaultConfig(const char* path);
bool LoadConfig(Config* record);
bool WriteConfig(const Config* record);

// What LoadConfig makes of a file's text. Text that is no JSON has no key, so each counts as
// missing.
void ParseConfig(const char* text, Config* record);
// The bytes of the file that WriteConfig would write.
std::size_t WrittenConfigSize(const Config& record);

}  // namespace tarvik
