#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "transport/ble/ble_radio.h"
#include "unit/link/link_support.h"

// A radio without hardware. It defines OpenBleRadio, so the library's own back end is not linked
// and the transport runs the same way on both systems. It checks the rules of ble_radio.h: see
// FakeRadio::BrokenRules.
namespace tarvik::test {

inline constexpr std::uint64_t kAddress = 0xA0B1C2D3E4F5;
inline constexpr char kAddressText[] = "A0:B1:C2:D3:E4:F5";

PacketPtr LoginOf(const std::string& name);  // of a dongle whose MAC is 10:21:32:43:54:65

enum class Step : std::uint8_t {
    kOpen,
    kServices,
    kSelectService,
    kCharacteristics,
    kSelectCharacteristic,
    kSubscribe,
    kWrite,
};

// How a step fails.
struct Fault {
    Step step;
    BleStatus status = BleStatus::kSuccess;  // for steps that return a status
    std::string error = {};                  // thrown as a BleError unless empty
    bool foreign = false;                    // throws an exception that is not a BleError
    bool refuse = false;                     // returns null or false: "not found"
};

// One dongle in range. Set the fields before scanning; the functions may be called at any time.
class FakeDongle {
public:
    std::uint64_t address = kAddress;
    std::string name = "Brennix";
    std::int32_t rssi = -57;
    int advertisements = 1;  // in each scan
    bool lost_while_subscribing = false;
    Bytes sent_while_subscribing;  // a notification, unless it is empty

    void Fail(const Fault& fault);  // until Work
    void Work();
    // How it handles a packet; by default it answers IDEN with its login.
    using Behaviour = std::function<void(FakeDongle&, const Bytes& packet)>;
    void Behave(Behaviour behaviour);
    void AnswerNothing() {
        Behave([](FakeDongle&, const Bytes&) {});
    }
    void Notify(const Bytes& value);  // to the library, if subscribed
    void Send(const PacketPtr& packet) { Notify(BytesOf(packet)); }
    void FailNotification(const std::string& message);
    void Lose();            // breaks the connection
    void HoldOpening();     // Open blocks from now on ...
    void ReleaseOpening();  // ... until this, or until connecting is cancelled
    bool IsOpening() const;

    int OpenCount() const { return opened_; }
    bool IsOpen() const { return open_ > 0; }
    std::vector<Bytes> Received() const;
    std::size_t HandledCount() const;  // received packets that it has finished handling
    std::string WriterName() const;    // the description of the last writing thread

private:
    friend struct FakeAccess;

    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::mutex handler_lock_;  // held while a handler runs
    BleDevice::Handler* handler_ = nullptr;
    std::atomic<int> opened_{0};
    std::atomic<int> open_{0};
    Behaviour behaviour_;
    std::optional<Fault> fault_;
    bool hold_ = false;
    bool opening_ = false;
    std::vector<Bytes> received_;
    std::size_t handled_ = 0;
    std::string writer_;
};

class FakeRadio {
public:
    static void Reset();
    static std::shared_ptr<FakeDongle> Add(std::uint64_t address = kAddress);
    static void Remove(const std::shared_ptr<FakeDongle>& dongle);

    // Thrown by OpenBleRadio, CreateScan, Start and EnterThread unless empty.
    static inline std::string open_error, create_error, start_error, enter_error;
    // EnterThread throws only on threads with this description, unless empty.
    static inline std::string enter_fails_on;
    static inline bool open_foreign = false;  // OpenBleRadio throws something that is no BleError
    static inline bool begins_late = false;   // scans advertise when they are polled first
    static inline std::atomic<std::uint32_t> longest_left{0};  // that a scan was polled with
    static inline std::string advertisement_error;             // reported once in each scan
    // Existing radios, scans and devices; entries of threads that have not left.
    static inline std::atomic<int> radios{0}, scans{0}, devices{0}, threads{0};
    static inline std::atomic<int> cancelled{0};
    // The rules of ble_radio.h that the library has broken.
    static std::vector<std::string> BrokenRules();
};

}  // namespace tarvik::test
