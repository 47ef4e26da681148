#include "unit/ble/fake_radio.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "unit/test_system.h"

namespace tarvik::test {
namespace {

std::mutex radio_lock;
std::vector<std::shared_ptr<FakeDongle>> dongles;  // guarded by radio_lock
std::vector<std::string> broken_rules;             // guarded by radio_lock
thread_local int entered = 0;                      // how often this thread has entered

void Require(bool kept, const std::string& rule) {
    if (kept) return;
    const std::lock_guard hold(radio_lock);
    broken_rules.push_back(rule);
}

void RequireEntered(const std::string& what) {
    Require(entered > 0, what + " on a thread that has not entered");
}

void ThrowUnlessEmpty(const std::string& error) {
    if (!error.empty()) throw BleError(error);
}

}  // namespace

// Access of the fake device to its dongle.
struct FakeAccess {
    // Throws, or returns how the step fails.
    static Fault Outcome(FakeDongle& dongle, Step step) {
        const std::lock_guard hold(dongle.lock_);
        if (!dongle.fault_ || dongle.fault_->step != step) return {.step = step};
        if (dongle.fault_->foreign) throw std::runtime_error("foreign");
        ThrowUnlessEmpty(dongle.fault_->error);
        return *dongle.fault_;
    }
    static bool Works(FakeDongle& dongle, Step step) { return !Outcome(dongle, step).refuse; }
    static BleStatus Status(FakeDongle& dongle, Step step) { return Outcome(dongle, step).status; }
    static void AwaitOpening(FakeDongle& dongle) {
        std::unique_lock hold(dongle.lock_);
        if (!dongle.hold_) return;
        dongle.opening_ = true;
        dongle.changed_.wait(hold, [&] { return !dongle.hold_; });
        dongle.opening_ = false;
    }
    static void Opened(FakeDongle& dongle) {
        ++dongle.opened_;
        ++dongle.open_;
    }
    static void SetHandler(FakeDongle& dongle, BleDevice::Handler* handler) {
        const std::lock_guard hold(dongle.handler_lock_);
        dongle.handler_ = handler;
    }
    static void Closed(FakeDongle& dongle) { --dongle.open_; }
    static void Deliver(FakeDongle& dongle, const Bytes& packet) {
        FakeDongle::Behaviour behaviour;
        {
            const std::lock_guard hold(dongle.lock_);
            dongle.received_.push_back(packet);
            dongle.writer_ = CurrentThreadName();
            behaviour = dongle.behaviour_;
        }
        behaviour(dongle, packet);
        const std::lock_guard hold(dongle.lock_);
        ++dongle.handled_;
    }
};

namespace {

class FakeDevice final : public BleDevice {
public:
    explicit FakeDevice(std::shared_ptr<FakeDongle> dongle) : dongle_(std::move(dongle)) {
        ++FakeRadio::devices;
        FakeAccess::Opened(*dongle_);
    }
    ~FakeDevice() override {
        RequireEntered("closing a device");
        if (subscribed_) FakeAccess::SetHandler(*dongle_, nullptr);
        FakeAccess::Closed(*dongle_);
        --FakeRadio::devices;
    }
    BleStatus DiscoverServices() override { return At(Step::kServices); }
    bool SelectService(const BleUuid& uuid) override {
        Require(uuid[0] == 0x59 && uuid[15] == 0xff, "the service's UUID");
        RequireEntered("selecting");
        return FakeAccess::Works(*dongle_, Step::kSelectService);
    }
    BleStatus DiscoverCharacteristics() override { return At(Step::kCharacteristics); }
    bool SelectCharacteristic(const BleUuid& uuid) override {
        Require(uuid[0] == 0x34 && uuid[15] == 0x00, "the characteristic's UUID");
        RequireEntered("selecting");
        return FakeAccess::Works(*dongle_, Step::kSelectCharacteristic);
    }
    BleStatus Subscribe(Handler& handler) override {
        const BleStatus status = At(Step::kSubscribe);
        if (status != BleStatus::kSuccess) return status;
        FakeAccess::SetHandler(*dongle_, &handler);
        subscribed_ = true;
        if (!dongle_->sent_while_subscribing.empty())
            dongle_->Notify(dongle_->sent_while_subscribing);
        if (dongle_->lost_while_subscribing) dongle_->Lose();
        return status;
    }
    BleStatus Write(std::span<const std::uint8_t> value) override {
        const bool alone = !writing_.exchange(true);
        Require(alone, "two writes at once");
        const BleStatus status = At(Step::kWrite);
        if (status == BleStatus::kSuccess)
            FakeAccess::Deliver(*dongle_, Bytes(value.begin(), value.end()));
        writing_ = false;
        return status;
    }

private:
    BleStatus At(Step step) {
        RequireEntered("using a device");
        return FakeAccess::Status(*dongle_, step);
    }

    const std::shared_ptr<FakeDongle> dongle_;
    bool subscribed_ = false;
    std::atomic<bool> writing_{false};
};

std::vector<std::shared_ptr<FakeDongle>> Dongles() {
    const std::lock_guard hold(radio_lock);
    return dongles;
}

// All advertisements arrive before Start returns, on threads of the radio.
class FakeScan final : public BleScan {
public:
    explicit FakeScan(Handler& handler) : handler_(handler) { ++FakeRadio::scans; }
    ~FakeScan() override {
        RequireEntered("ending a scan");
        --FakeRadio::scans;
    }
    void Start() override {
        RequireEntered("starting a scan");
        ThrowUnlessEmpty(FakeRadio::start_error);
        if (!FakeRadio::begins_late) Begin();
    }
    void Poll(std::uint32_t left_ms) override {
        RequireEntered("polling a scan");
        FakeRadio::longest_left = std::max(FakeRadio::longest_left.load(), left_ms);
        if (std::exchange(FakeRadio::begins_late, false)) Begin();
    }
    std::int32_t Status() override { return 1; }
    void Stop() override { RequireEntered("stopping a scan"); }

private:
    void Begin() {
        std::vector<std::thread> threads;
        for (const auto& dongle : Dongles())
            threads.emplace_back([this, dongle] { Advertise(*dongle); });
        for (std::thread& thread : threads)
            thread.join();
        if (!FakeRadio::advertisement_error.empty())
            handler_.Failed(BleError(FakeRadio::advertisement_error));
    }
    void Advertise(const FakeDongle& dongle) {
        const auto* name = reinterpret_cast<const std::uint8_t*>(dongle.name.data());
        for (int i = 0; i < dongle.advertisements; ++i)
            handler_.Advertised({dongle.address, dongle.rssi, {name, dongle.name.size()}});
    }

    Handler& handler_;
};

class Radio final : public BleRadio {
public:
    Radio() { ++FakeRadio::radios; }
    ~Radio() override { --FakeRadio::radios; }
    std::unique_ptr<BleScan> CreateScan(BleScan::Handler& handler) override {
        RequireEntered("scanning");
        ThrowUnlessEmpty(FakeRadio::create_error);
        return std::make_unique<FakeScan>(handler);
    }
    std::unique_ptr<BleDevice> Open(std::uint64_t address) override {
        RequireEntered("opening");
        for (const auto& dongle : Dongles()) {
            if (dongle->address != address) continue;
            FakeAccess::AwaitOpening(*dongle);
            if (!FakeAccess::Works(*dongle, Step::kOpen)) return nullptr;
            return std::make_unique<FakeDevice>(dongle);
        }
        return nullptr;
    }
    void CancelConnecting() noexcept override {
        ++FakeRadio::cancelled;
        for (const auto& dongle : Dongles())
            dongle->ReleaseOpening();
    }
    void EnterThread() override {
        const std::string& thread = FakeRadio::enter_fails_on;
        if (thread.empty() || CurrentThreadName() == KeptThreadName(thread))
            ThrowUnlessEmpty(FakeRadio::enter_error);
        ++entered;
        ++FakeRadio::threads;
    }
    void LeaveThread() noexcept override {
        --entered;
        --FakeRadio::threads;
    }
};

void AnswerLikeADongle(FakeDongle& dongle, const Bytes& packet) {
    if (LoadU32(packet.data()) == kTypeIden) dongle.Send(LoginOf("Test dongle"));
}

}  // namespace

PacketPtr LoginOf(const std::string& name) {
    PacketPtr login = MakePacket(kTypeLogn, kLoginSize);
    const std::uint8_t mac[] = {0x10, 0x21, 0x32, 0x43, 0x54, 0x65};
    std::copy(std::begin(mac), std::end(mac), login->Bytes() + 12);
    login->SetU32(20, 5);
    std::copy_n(name.begin(), std::min<std::size_t>(name.size(), 32), login->Bytes() + 64);
    return login;
}

void FakeDongle::Fail(const Fault& fault) {
    const std::lock_guard hold(lock_);
    fault_ = fault;
}

void FakeDongle::Behave(Behaviour behaviour) {
    const std::lock_guard hold(lock_);
    behaviour_ = std::move(behaviour);
}

void FakeDongle::Work() {
    const std::lock_guard hold(lock_);
    fault_.reset();
}

void FakeDongle::Notify(const Bytes& value) {
    const std::lock_guard hold(handler_lock_);
    if (handler_ != nullptr) handler_->Notified(value);
}

void FakeDongle::FailNotification(const std::string& message) {
    const std::lock_guard hold(handler_lock_);
    if (handler_ != nullptr) handler_->NotificationFailed(BleError(message));
}

void FakeDongle::Lose() {
    const std::lock_guard hold(handler_lock_);
    if (handler_ != nullptr) handler_->Lost();
}

void FakeDongle::HoldOpening() {
    const std::lock_guard hold(lock_);
    hold_ = true;
}

void FakeDongle::ReleaseOpening() {
    const std::lock_guard hold(lock_);
    hold_ = false;
    changed_.notify_all();
}

bool FakeDongle::IsOpening() const {
    const std::lock_guard hold(lock_);
    return opening_;
}

std::vector<Bytes> FakeDongle::Received() const {
    const std::lock_guard hold(lock_);
    return received_;
}

std::size_t FakeDongle::HandledCount() const {
    const std::lock_guard hold(lock_);
    return handled_;
}

std::string FakeDongle::WriterName() const {
    const std::lock_guard hold(lock_);
    return writer_;
}

void FakeRadio::Reset() {
    open_error = create_error = start_error = enter_error = advertisement_error = "";
    enter_fails_on = "";
    open_foreign = false;
    begins_late = false;
    longest_left = 0;
    cancelled = 0;
    const std::lock_guard hold(radio_lock);
    dongles.clear();
    broken_rules.clear();
}

std::shared_ptr<FakeDongle> FakeRadio::Add(std::uint64_t address) {
    auto dongle = std::make_shared<FakeDongle>();
    dongle->address = address;
    dongle->Behave(AnswerLikeADongle);
    const std::lock_guard hold(radio_lock);
    dongles.push_back(dongle);
    return dongle;
}

void FakeRadio::Remove(const std::shared_ptr<FakeDongle>& dongle) {
    const std::lock_guard hold(radio_lock);
    std::erase(dongles, dongle);
}

std::vector<std::string> FakeRadio::BrokenRules() {
    const std::lock_guard hold(radio_lock);
    return broken_rules;
}

}  // namespace tarvik::test

namespace tarvik {

std::unique_ptr<BleRadio> OpenBleRadio() {
    if (test::FakeRadio::open_foreign) throw std::runtime_error("foreign");
    test::ThrowUnlessEmpty(test::FakeRadio::open_error);
    return std::make_unique<test::Radio>();
}

}  // namespace tarvik
