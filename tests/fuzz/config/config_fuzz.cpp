// The text of a config.json.

#include "support/config.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

using tarvik::Config;

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

template <std::size_t Capacity>
std::size_t LengthOf(const char (&text)[Capacity]) {
    const std::size_t length = strnlen(text, Capacity);
    Require(length < Capacity);
    return length;
}

// The previous contents of the record show nowhere in what was read.
Config Read(const std::string& text, int before) {
    Config record;
    std::memset(static_cast<void*>(&record), before, sizeof record);
    tarvik::ParseConfig(text.c_str(), &record);
    return record;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const Config record = Read(text, 0);
    const Config again = Read(text, 1);

    const std::size_t server = LengthOf(record.serverAddress);
    const std::size_t websocket = LengthOf(record.websocketAddress);
    const std::size_t proxy = LengthOf(record.proxyAddress);
    const std::size_t device_key = LengthOf(record.devicePrivateKey);
    const std::size_t server_key = LengthOf(record.serverPublicKey);
    Require(!record.useWebsocket || websocket > 0);
    Require(!record.useProxy || proxy > 0);

    Require(record.showDebug == again.showDebug && record.enableCopTrace == again.enableCopTrace &&
            record.enableDebugLogFile == again.enableDebugLogFile &&
            record.useWebsocket == again.useWebsocket && record.useSerial == again.useSerial &&
            record.useCloud == again.useCloud && record.useBle == again.useBle &&
            record.dummyDevice == again.dummyDevice && record.useProxy == again.useProxy &&
            record.disableCertValidation == again.disableCertValidation);
    Require(std::strcmp(record.serverAddress, again.serverAddress) == 0);
    Require(std::strcmp(record.websocketAddress, again.websocketAddress) == 0);
    Require(std::strcmp(record.proxyAddress, again.proxyAddress) == 0);
    Require(std::strcmp(record.devicePrivateKey, again.devicePrivateKey) == 0);
    Require(std::strcmp(record.serverPublicKey, again.serverPublicKey) == 0);

    // The written file is at least as long as every text.
    Require(tarvik::WrittenConfigSize(record) >
            server + websocket + proxy + device_key + server_key);
    return 0;
}
