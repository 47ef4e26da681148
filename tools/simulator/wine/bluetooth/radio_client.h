// The connection to the simulated radio, which BRENNIX_RADIO names.

#pragma once

#include <winsock2.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "wine/bluetooth/lock.h"

namespace brennix {

class RadioClient {
public:
    // The text after the address, or after the verb if there is no address; empty if the radio is
    // gone.
    using Answer = std::function<void(std::optional<std::string> rest)>;
    // Events, on the client's own thread.
    struct Events {
        std::function<void(std::uint64_t address, std::int32_t rssi, const std::string& name_hex)>
            advertised;
        std::function<void(std::uint64_t address, const std::string& value_hex)> notified;
        std::function<void(std::uint64_t address)> lost;
        std::function<void(const std::string& state)> adapter_changed;
    };

    // Connects at the first call. Null: there is no radio.
    static RadioClient* Get();

    void Send(const std::string& line);
    // `answer` runs on the client's own thread when the radio sends `verb`, for that address if
    // given.
    void Ask(const std::string& line, const std::string& verb, Answer answer);

private:
    RadioClient(SOCKET socket, Events events);
    void Read();
    void OnLine(const std::string& line);
    void Answered(const std::string& key, std::string rest);
    void OnEnd();

    const SOCKET socket_;
    const Events events_;
    Lock send_lock_;
    Lock lock_;
    std::map<std::string, std::deque<Answer>> waiting_;  // by verb and address; guarded by lock_
    bool ended_ = false;                                 // guarded by lock_
};

// How the stand-in handles the radio's events.
RadioClient::Events RadioEvents();

std::string AddressText(std::uint64_t address);  // "A0:B1:C2:D3:E4:F5"
std::string ToHex(const std::uint8_t* bytes, std::size_t size);
std::string FromHex(const std::string& hex);

}  // namespace brennix
