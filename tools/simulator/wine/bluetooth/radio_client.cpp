#include "wine/bluetooth/radio_client.h"

#include <ws2tcpip.h>

#include <cstdlib>
#include <sstream>
#include <thread>
#include <utility>

namespace brennix {

namespace {

SOCKET ConnectToRadio() {
    char text[16] = {};
    const DWORD length = ::GetEnvironmentVariableA("BRENNIX_RADIO", text, sizeof text);
    const int port = std::atoi(text);
    WSADATA ignored{};
    if (length == 0 || port <= 0 || ::WSAStartup(MAKEWORD(2, 2), &ignored) != 0) {
        return INVALID_SOCKET;
    }
    const SOCKET made = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u_short>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::closesocket(made);
        return INVALID_SOCKET;
    }
    const BOOL at_once = TRUE;
    ::setsockopt(made, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&at_once),
                 sizeof at_once);
    return made;
}

std::uint64_t ParseAddress(const std::string& text) {
    std::uint64_t address = 0;
    for (const char letter : text) {
        if (letter == ':') continue;
        address = address << 4 | std::stoul(std::string(1, letter), nullptr, 16);
    }
    return address;
}

std::string TakeWord(std::istringstream* words) {
    std::string word;
    *words >> word;
    return word;
}

std::string Rest(std::istringstream* words) {
    std::string rest;
    std::getline(*words >> std::ws, rest);
    return rest;
}

}  // namespace

RadioClient* RadioClient::Get() {
    static RadioClient* const client = [] {
        const SOCKET connected = ConnectToRadio();
        return connected == INVALID_SOCKET ? nullptr : new RadioClient(connected, RadioEvents());
    }();
    return client;
}

RadioClient::RadioClient(SOCKET socket, Events events)
    : socket_(socket), events_(std::move(events)) {
    std::thread([this] { Read(); }).detach();
}

void RadioClient::Send(const std::string& line) {
    const std::string bytes = line + "\n";
    const std::lock_guard hold(send_lock_);
    for (std::size_t sent = 0; sent < bytes.size();) {
        const int count =
            ::send(socket_, bytes.data() + sent, static_cast<int>(bytes.size() - sent), 0);
        if (count <= 0) return;  // the reading thread notices too
        sent += static_cast<std::size_t>(count);
    }
}

void RadioClient::Ask(const std::string& line, const std::string& verb, Answer answer) {
    {
        const std::lock_guard hold(lock_);
        if (!ended_) {
            std::istringstream words(line);
            TakeWord(&words);
            const std::string address = verb == "scanning" ? "" : TakeWord(&words);
            waiting_[verb + " " + address].push_back(std::exchange(answer, {}));
        }
    }
    if (answer) return answer(std::nullopt);
    Send(line);
}

void RadioClient::Read() {
    std::string received;
    char bytes[4096];
    for (int count; (count = ::recv(socket_, bytes, sizeof bytes, 0)) > 0;) {
        received.append(bytes, static_cast<std::size_t>(count));
        std::size_t begin = 0;
        for (std::size_t end; (end = received.find('\n', begin)) != std::string::npos;
             begin = end + 1) {
            OnLine(received.substr(begin, end - begin));
        }
        received.erase(0, begin);
    }
    OnEnd();
}

void RadioClient::OnLine(const std::string& line) {
    std::istringstream words(line);
    std::string verb = TakeWord(&words);
    if (verb == "adapter") return events_.adapter_changed(Rest(&words));
    const std::string address = verb == "scanning" ? "" : TakeWord(&words);
    if (verb == "advertise") {
        const std::int32_t rssi = std::stoi(TakeWord(&words));
        return events_.advertised(ParseAddress(address), rssi, TakeWord(&words));
    }
    if (verb == "notify") return events_.notified(ParseAddress(address), Rest(&words));
    if (verb == "lost") return events_.lost(ParseAddress(address));

    std::string rest = Rest(&words);
    if (verb == "refused") {
        verb = "connected";
        rest.clear();
    }
    // An aborted attempt to connect has no other answer.
    if (verb == "disconnected") Answered("connected " + address, "");
    Answered(verb + " " + address, std::move(rest));
}

void RadioClient::Answered(const std::string& key, std::string rest) {
    Answer answer;
    {
        const std::lock_guard hold(lock_);
        const auto found = waiting_.find(key);
        if (found == waiting_.end()) return;  // nobody asked
        answer = std::move(found->second.front());
        found->second.pop_front();
        if (found->second.empty()) waiting_.erase(found);
    }
    answer(std::move(rest));
}

void RadioClient::OnEnd() {
    std::map<std::string, std::deque<Answer>> waiting;
    {
        const std::lock_guard hold(lock_);
        ended_ = true;
        waiting.swap(waiting_);
    }
    for (auto& [key, answers] : waiting) {
        for (Answer& answer : answers)
            answer(std::nullopt);
    }
}

std::string AddressText(std::uint64_t address) {
    std::string text;
    for (int shift = 40; shift >= 0; shift -= 8) {
        const auto byte = static_cast<std::uint8_t>(address >> shift);
        if (!text.empty()) text += ':';
        text += ToHex(&byte, 1);
    }
    return text;
}

std::string ToHex(const std::uint8_t* bytes, std::size_t size) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    return text;
}

std::string FromHex(const std::string& hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoul(hex.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

}  // namespace brennix
