#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>

namespace tarvik {

// The system's Bluetooth LE, as far as the transport needs it: scan, connect, discover, subscribe,
// write, disconnect. Everything above this header is common to both systems. Calls block, and each
// has a bound of its own, so that none keeps its thread for ever.

// What the system said when it could not do what was asked, in UTF-8. Thrown by every function here
// that is not noexcept; nothing else is thrown.
class BleError {
public:
    explicit BleError(std::string message) : message_(std::move(message)) {}
    const std::string& message() const noexcept { return message_; }

private:
    std::string message_;
};

using BleUuid = std::array<std::uint8_t, 16>;  // bytes in the order in which it is written

// Results of the exchanges with a dongle, numbered as GattCommunicationStatus numbers them.
enum class BleStatus : std::int32_t {
    kSuccess = 0,
    kUnreachable = 1,
    kProtocolError = 2,
    kAccessDenied = 3,
};

struct BleAdvertisement {
    std::uint64_t address;               // 48 bits, the byte displayed first in bits 40 to 47
    std::int32_t rssi;                   // dBm
    std::span<const std::uint8_t> name;  // the complete local name it carries, empty without one
};

// One scan. The handler runs on threads of the system, possibly on several at once.
class BleScan {
public:
    class Handler {
    public:
        virtual void Advertised(const BleAdvertisement& advertisement) noexcept = 0;
        // An advertisement could not be read.
        virtual void Failed(const BleError& error) noexcept = 0;

    protected:
        ~Handler() = default;
    };

    virtual ~BleScan() = default;  // stops if need be
    virtual void Start() = 0;
    virtual std::int32_t Status() = 0;  // as BluetoothLEAdvertisementWatcherStatus: 1 is "started"
    virtual void Stop() = 0;            // once it has returned, no handler runs any more
};

// One open dongle. Used by one thread at a time, but for Write, which one other thread may call
// once Subscribe has succeeded.
class BleDevice {
public:
    class Handler {
    public:
        virtual void Notified(std::span<const std::uint8_t> value) noexcept = 0;
        virtual void NotificationFailed(const BleError& error) noexcept = 0;
        // The connection is gone. It does not come back: the device is opened anew for that.
        virtual void Lost() noexcept = 0;

    protected:
        ~Handler() = default;
    };

    // Unsubscribes and disconnects; once it has returned, no handler runs any more. Never destroyed
    // inside a handler.
    virtual ~BleDevice() = default;
    virtual BleStatus DiscoverServices() = 0;
    virtual bool SelectService(const BleUuid& uuid) = 0;  // false: the device does not have it
    virtual BleStatus DiscoverCharacteristics() = 0;      // of the selected service
    virtual bool SelectCharacteristic(const BleUuid& uuid) = 0;
    virtual BleStatus Subscribe(Handler& handler) = 0;  // handler first, then the descriptor
    virtual BleStatus Write(std::span<const std::uint8_t> value) = 0;  // without response
};

// The radio of this computer. Without one, or without the service that drives it, scanning and
// opening throw a BleError; they never wait for it to appear.
class BleRadio {
public:
    virtual ~BleRadio() = default;
    virtual std::unique_ptr<BleScan> CreateScan(BleScan::Handler& handler) = 0;
    virtual std::unique_ptr<BleDevice> Open(std::uint64_t address) = 0;  // null: not reachable
    // Makes the calls of other threads that open a device, or discover and subscribe on it, fail
    // soon, those to come included.
    virtual void CancelConnecting() noexcept = 0;
    // Around every thread that uses the radio.
    virtual void EnterThread() = 0;
    virtual void LeaveThread() noexcept = 0;
};

std::unique_ptr<BleRadio> OpenBleRadio();

}  // namespace tarvik
