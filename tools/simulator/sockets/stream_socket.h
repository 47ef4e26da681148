// A connected TCP socket, optionally with TLS: bytes out, bytes in, and its end.

#pragma once

#include <openssl/types.h>

#include <functional>
#include <memory>
#include <string>

#include "process/event_loop.h"
#include "protocol/wire.h"

namespace brennix {

class StreamSocket {
public:
    struct Handlers {
        std::function<void(ByteSpan)> received;
        // Called once, but not for Close and Reset. Delete the socket only after the handler has
        // returned.
        std::function<void(const std::string& why)> ended;
    };

    // Takes over `fd`, which is connected or connecting. `tls` null: none.
    StreamSocket(EventLoop* loop, int fd, SSL_CTX* tls, Handlers handlers);
    ~StreamSocket();
    StreamSocket(const StreamSocket&) = delete;
    StreamSocket& operator=(const StreamSocket&) = delete;

    void Send(ByteSpan bytes);
    bool IsOpen() const { return fd_ >= 0; }
    std::string Peer() const;  // "127.0.0.1:40123"

    void CloseWhenSent();
    void Close();  // unsent bytes are lost
    void Reset();  // like Close; the peer sees a reset connection
    // While it is off, the peer's bytes pile up until it cannot send any more.
    void SetReading(bool on);

private:
    class Tls;

    void OnReady(std::uint32_t events);
    void ReadSome();
    void Decrypt(ByteSpan bytes);
    void Flush();
    void Update();
    void End(const std::string& why);

    EventLoop* loop_;
    int fd_;
    Handlers handlers_;
    std::unique_ptr<Tls> tls_;
    Bytes outgoing_;
    std::uint32_t watched_;
    bool reading_ = true;
    bool closes_when_sent_ = false;
};

}  // namespace brennix
