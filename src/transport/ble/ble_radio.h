#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>

namespace tarvik {

// What the transport needs of the system's Bluetooth LE: scan, connect, discover, subscribe, write,
// disconnect. Everything above this header is common to both systems. Calls block; each has its
// own time limit.

// The system's message about a failed call, in UTF-8. Every function here that is not noexcept may
// throw it, and nothing else.
class BleError {
public:
    explicit BleError(std::string message) : message_(std::move(message)) {}
    const std::string& message() const noexcept { return message_; }

private:
    std::string message_;
};

using BleUuid = std::array<std::uint8_t, 16>;  // in the order of its text form

// Result of an exchange with a dongle, with the values of GattCommunicationStatus.
enum class BleStatus : std::int32_t {
    kSuccess = 0,
    kUnreachable = 1,
    kProtocolError = 2,
    kAccessDenied = 3,
};

struct BleAdvertisement {
    std::uint64_t address;               // 48 bits; the byte displayed first is in bits 40 to 47
    std::int32_t rssi;                   // dBm
    std::span<const std::uint8_t> name;  // the complete local name; empty if it has none
};

// One scan. The handler is called on threads of the system, possibly on several at once.
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

    virtual ~BleScan() = default;  // stops the scan if it runs
    virtual void Start() = 0;
    // Called again and again while the scan runs: one that the system has not begun tries again.
    // Takes no longer than the rest of the scan's time.
    virtual void Poll(std::uint32_t /*left_ms*/) {}
    virtual std::int32_t Status() = 0;  // a BluetoothLEAdvertisementWatcherStatus; 1 is "started"
    virtual void Stop() = 0;            // no handler runs after it has returned
};

// One open dongle. One thread at a time may use it. After Subscribe has succeeded, one other thread
// may call Write.
class BleDevice {
public:
    class Handler {
    public:
        virtual void Notified(std::span<const std::uint8_t> value) noexcept = 0;
        virtual void NotificationFailed(const BleError& error) noexcept = 0;
        // The connection is lost. This device cannot be connected again: open another one.
        virtual void Lost() noexcept = 0;

    protected:
        ~Handler() = default;
    };

    // Unsubscribes and disconnects; no handler runs after it has returned. Never destroyed inside a
    // handler.
    virtual ~BleDevice() = default;
    virtual BleStatus DiscoverServices() = 0;
    virtual bool SelectService(const BleUuid& uuid) = 0;  // false: the device has no such service
    virtual BleStatus DiscoverCharacteristics() = 0;      // of the selected service
    virtual bool SelectCharacteristic(const BleUuid& uuid) = 0;
    virtual BleStatus Subscribe(Handler& handler) = 0;  // sets the handler, then the descriptor
    virtual BleStatus Write(std::span<const std::uint8_t> value) = 0;  // without response
};

// The radio of this computer. If it, or the service that drives it, is missing, scanning and
// opening throw a BleError at once.
class BleRadio {
public:
    virtual ~BleRadio() = default;
    virtual std::unique_ptr<BleScan> CreateScan(BleScan::Handler& handler) = 0;
    virtual std::unique_ptr<BleDevice> Open(std::uint64_t address) = 0;  // null: not reachable
    // Calls that open a device, discover or subscribe fail soon: those of other threads now, and
    // all later ones.
    virtual void CancelConnecting() noexcept = 0;
    // Each thread that uses the radio calls EnterThread before and LeaveThread after.
    virtual void EnterThread() = 0;
    virtual void LeaveThread() noexcept = 0;
};

std::unique_ptr<BleRadio> OpenBleRadio();

// Enters and leaves the radio by scope.
class BleRadioThread {
public:
    explicit BleRadioThread(BleRadio& radio) : radio_(radio) { radio_.EnterThread(); }
    ~BleRadioThread() { radio_.LeaveThread(); }
    BleRadioThread(const BleRadioThread&) = delete;
    BleRadioThread& operator=(const BleRadioThread&) = delete;

private:
    BleRadio& radio_;
};

}  // namespace tarvik
