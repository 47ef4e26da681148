#include "unit/ble/message_bus.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>
#include <utility>

#include "link/packet.h"

namespace tarvik::test {
namespace {

constexpr char kBusName[] = "org.freedesktop.DBus";

void Require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

// One client's connection.
class MessageBus::Connection {
public:
    Connection(int socket, const MessageBus& bus) : socket_(socket), bus_(bus) {}
    ~Connection() { ::close(socket_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // False: the client has gone.
    bool Send(const Message& message) {
        const std::lock_guard hold(send_lock_);
        const Bytes bytes = BytesOf(message, ++last_serial_);
        return Send(bytes.data(), bytes.size());
    }
    void End() const { ::shutdown(socket_, SHUT_RDWR); }

    void Serve() {
        if (!Authenticate()) return;
        BusCall call;
        while (ReceiveCall(&call)) {
            for (const Message& message : Answers(call)) {
                if (!Send(message)) return;
            }
        }
    }

private:
    bool Receive(void* data, std::size_t size) const {
        return size == 0 || ::recv(socket_, data, size, MSG_WAITALL) == static_cast<ssize_t>(size);
    }
    bool Send(const void* data, std::size_t size) const {
        const auto* at = static_cast<const char*>(data);
        while (size > 0) {
            const ssize_t sent = ::send(socket_, at, size, MSG_NOSIGNAL);
            if (sent <= 0) return false;
            at += sent;
            size -= static_cast<std::size_t>(sent);
        }
        return true;
    }

    // The client does not wait for the answers to its lines, so they can go out first.
    bool Authenticate() const {
        constexpr char kAnswer[] =
            "DATA\r\nOK 0123456789abcdef0123456789abcdef\r\nAGREE_UNIX_FD\r\n";
        constexpr std::string_view kEnd = "BEGIN\r\n";
        if (!Send(kAnswer, sizeof kAnswer - 1)) return false;
        std::string lines;
        while (!lines.ends_with(kEnd)) {
            char letter = 0;
            if (!Receive(&letter, 1)) return false;
            lines += letter;
        }
        return true;
    }

    bool ReceiveCall(BusCall* call) const {
        constexpr std::size_t kFixed = 16;
        Bytes header(kFixed);
        if (!Receive(header.data(), kFixed)) return false;
        const std::size_t fields_end = kFixed + LoadU32(&header[12]);
        const std::size_t body = LoadU32(&header[4]);
        header.resize((fields_end + 7) / 8 * 8);
        if (!Receive(header.data() + kFixed, header.size() - kFixed)) return false;
        Bytes ignored(body);
        if (!Receive(ignored.data(), body)) return false;
        *call = {};
        call->serial = LoadU32(&header[8]);
        for (std::size_t at = kFixed; at < fields_end; at = (at + 7) / 8 * 8)
            at = ReadField(header, at, call);
        return true;
    }

    // All fields that a client writes are texts, except for the signature. Returns the field's end.
    static std::size_t ReadField(const Bytes& header, std::size_t at, BusCall* call) {
        const std::uint8_t code = header[at];
        const bool is_signature = header[at + 2] == 'g';
        at += 4;
        if (is_signature) return at + 1 + header[at] + 1;
        const std::size_t length = LoadU32(&header[at]);
        at += 4;
        std::string* const fields[] = {nullptr, &call->path, &call->interface,  &call->member,
                                       nullptr, nullptr,     &call->destination};
        if (code < std::size(fields) && fields[code] != nullptr)
            fields[code]->assign(reinterpret_cast<const char*>(&header[at]), length);
        return at + length + 1;
    }

    std::vector<Message> Answers(const BusCall& call) const {
        if (call.destination != kBusName) return bus_.answer_(call);
        Message answer{};
        answer.type = MessageType::kReturn;
        answer.sender = kBusName;
        answer.reply_serial = call.serial;
        if (call.member == "Hello") {
            Marshal name;
            name.Text(":1.7");
            answer.signature = "s";
            answer.body = name.bytes();
        } else if (call.member == "NameHasOwner") {
            Marshal there;
            there.U32(bus_.HasService() ? 1 : 0);
            answer.signature = "b";
            answer.body = there.bytes();
        }
        return {answer};
    }

    const int socket_;
    const MessageBus& bus_;
    std::mutex send_lock_;
    std::uint32_t last_serial_ = 0;  // guarded by send_lock_
};

namespace {

// In the abstract name space: no file remains.
int Listen() {
    const std::string name = "tarvik-test-" + std::to_string(::getpid());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name.data(), name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    Require(listener >= 0);
    Require(::bind(listener, reinterpret_cast<const sockaddr*>(&address), size) == 0);
    Require(::listen(listener, 8) == 0);
    Require(::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:abstract=" + name).c_str(), 1) == 0);
    return listener;
}

}  // namespace

MessageBus& MessageBus::Start(AnswerCall answer) {
    auto* const bus = new MessageBus(std::move(answer));
    const int listener = Listen();
    std::thread([bus, listener] { bus->Accept(listener); }).detach();
    return *bus;
}

void MessageBus::Accept(int listener) {
    for (;;) {
        const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        Require(client >= 0);
        const auto connection = std::make_shared<Connection>(client, *this);
        {
            const std::lock_guard hold(lock_);
            latest_ = connection;
        }
        std::thread([connection] { connection->Serve(); }).detach();
    }
}

void MessageBus::Send(const Message& message) {
    const std::lock_guard hold(lock_);
    if (latest_ != nullptr) latest_->Send(message);
}

void MessageBus::EndConnection() {
    const std::lock_guard hold(lock_);
    if (latest_ != nullptr) latest_->End();
}

}  // namespace tarvik::test
