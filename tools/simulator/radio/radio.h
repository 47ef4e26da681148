// The radio: dongles that advertise, computers that scan and connect, and the traffic between them.

#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "dongle/simulator.h"
#include "radio/radio_settings.h"
#include "sockets/line_socket.h"
#include "sockets/listener.h"

namespace brennix {

enum class ScanMode { kOff, kPassive, kActive };

// One computer's use of the radio.
struct Central {
    Central(EventLoop* loop, std::size_t its_number, int fd, LineSocket::Handlers handlers)
        : number(its_number), socket(loop, fd, std::move(handlers)) {}

    void Send(const std::string& line) { socket.Send(line); }

    const std::size_t number;
    LineSocket socket;
    ScanMode scan = ScanMode::kOff;
};

enum class AdapterState { kOn, kOff, kAbsent };

const char* AdapterName(AdapterState state);

class Radio : private Uplink {
public:
    Radio(EventLoop* loop, std::size_t keep);
    ~Radio();
    Radio(const Radio&) = delete;
    Radio& operator=(const Radio&) = delete;

    // Port 0: any free one. Throws std::system_error.
    void Listen(std::uint16_t port);
    std::uint16_t Port() const;

    // The dongle is powered at once. If its address is taken, it is incremented.
    std::size_t AddDongle(DongleSetup setup);
    Simulator& Dongles() { return dongles_; }

    const RadioSettings& Settings(std::size_t dongle) const { return airs_[dongle].settings; }
    void Change(std::size_t dongle, const RadioSettings& settings);
    void Reset();  // dongles and adapter as they were at the start

    // The adapter of all computers together.
    AdapterState Adapter() const { return adapter_; }
    void SetAdapter(AdapterState state);

    // Loses the connection; the dongle keeps advertising. False: there was none.
    bool Lose(std::size_t dongle);
    // The bytes need not be a packet. False: nobody has subscribed.
    bool Notify(std::size_t dongle, ByteSpan value);

    struct LinkState {
        bool connecting;
        bool connected;
        bool subscribed;
        std::uint64_t connections;  // since the start
        std::uint64_t advertised;   // advertisements received by somebody
    };
    LinkState State(std::size_t dongle) const;
    std::size_t Centrals() const { return centrals_.size(); }
    std::size_t Scanning() const;

private:
    // The state of a dongle on the air. At most one computer is connected to it.
    struct Air {
        RadioSettings settings;
        std::uint64_t link = 0;  // number of the connection; 0: none
        Central* central = nullptr;
        bool is_connecting = false;
        bool subscribed = false;
        std::uint64_t connections = 0;
        std::uint64_t advertised = 0;
        std::uint32_t advertised_in_scan = 0;
        EventLoop::TimerId connect_timer;
        EventLoop::TimerId advertise_timer;
    };

    void Accept(int fd);
    void OnLine(Central* central, std::string_view line);
    void OnLeft(std::size_t number);
    void Obey(Central* central, std::string_view line);

    void SetScan(Central* central, std::string_view mode);
    void Connect(Central* central, const std::string& address);
    void ScheduleConnect(std::size_t dongle);
    void FinishConnect(std::size_t dongle);
    void Disconnect(Central* central, std::size_t dongle);
    void ListServices(Central* central, std::size_t dongle);
    void ListCharacteristics(Central* central, std::size_t dongle, std::string_view service);
    void Subscribe(Central* central, std::size_t dongle, bool on);
    void Write(Central* central, std::size_t dongle, ByteSpan value);

    bool Advertises(std::size_t dongle) const;
    void ScheduleAdvertisement(std::size_t dongle, std::uint32_t after_ms);
    void Advertise(std::size_t dongle);
    void EndLink(std::size_t dongle, const std::string& why);
    // Whether the computer is connected to this dongle; otherwise reports a violation.
    bool IsLinked(const Central* central, std::size_t dongle, const char* what);
    std::optional<std::size_t> FindDongle(std::string_view address) const;
    std::string AddressOf(std::size_t dongle) const;
    void Event(std::size_t dongle, const std::string& text);

    void FromDongle(std::size_t dongle, std::uint64_t asker, ByteSpan packet) override;
    void PowerChanged(std::size_t dongle, bool powered) override;
    std::size_t LongestPacket(std::size_t dongle) const override;

    EventLoop* loop_;
    mutable Simulator dongles_;
    std::vector<Air> airs_;  // one for each dongle
    AdapterState adapter_ = AdapterState::kOn;
    std::unique_ptr<Listener> listener_;
    std::map<std::size_t, std::unique_ptr<Central>> centrals_;  // by number
    std::size_t last_central_ = 0;
    std::uint64_t last_link_ = 0;
};

}  // namespace brennix
