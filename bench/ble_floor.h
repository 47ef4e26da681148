#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tarvik::bench {

// The floor of a request by Bluetooth LE: the bytes that the library sends, written to another
// dongle of the same radio through the same Bluetooth service, until it notifies the answer. It
// includes the time of bus, service and dongle, but not that of a library.
class BleFloor {
public:
    BleFloor();
    ~BleFloor();
    BleFloor(const BleFloor&) = delete;
    BleFloor& operator=(const BleFloor&) = delete;

    bool Ask();

private:
    void Call(const std::string& path, const char* interface, const char* method);
    void Discover();
    bool FindCharacteristic();
    bool IsThere(const std::string& path);
    void OnChanged(sdbus::Message& message);

    std::unique_ptr<sdbus::IConnection> connection_;
    std::unique_ptr<sdbus::IProxy> characteristic_;
    std::vector<std::uint8_t> request_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::string path_;  // of the characteristic
    bool answered_ = false;
};

}  // namespace tarvik::bench
