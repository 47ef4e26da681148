#pragma once

namespace tarvik {

// What config.json holds. Every field has a key in config_keys.h.
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

}  // namespace tarvik
