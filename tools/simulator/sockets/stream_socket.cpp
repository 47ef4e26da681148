#include "sockets/stream_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>

namespace brennix {

namespace {

constexpr std::size_t kReadSize = 65536;

}  // namespace

// Works on two memory buffers, so that the socket is read and written in one place only.
class StreamSocket::Tls {
public:
    explicit Tls(SSL_CTX* context) : ssl_(SSL_new(context)) {
        if (ssl_ == nullptr) throw std::runtime_error("OpenSSL: SSL_new failed");
        in_ = BIO_new(BIO_s_mem());
        out_ = BIO_new(BIO_s_mem());
        SSL_set_bio(ssl_, in_, out_);
        SSL_set_accept_state(ssl_);
    }
    ~Tls() { SSL_free(ssl_); }
    Tls(const Tls&) = delete;
    Tls& operator=(const Tls&) = delete;

    void Feed(ByteSpan cipher) { BIO_write(in_, cipher.data(), static_cast<int>(cipher.size())); }

    enum class Result { kData, kNothingMore, kClosed, kFailed };
    Result Read(Bytes* plain) {
        plain->resize(kReadSize);
        ERR_clear_error();
        const int size = SSL_read(ssl_, plain->data(), static_cast<int>(plain->size()));
        plain->resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        if (size > 0) return Result::kData;
        switch (SSL_get_error(ssl_, size)) {
            case SSL_ERROR_WANT_READ:
            case SSL_ERROR_WANT_WRITE:
                return Result::kNothingMore;
            case SSL_ERROR_ZERO_RETURN:
                return Result::kClosed;
            default:
                return Result::kFailed;
        }
    }
    // Only after the handshake, since the client speaks first.
    void Write(ByteSpan plain) {
        if (!plain.empty()) SSL_write(ssl_, plain.data(), static_cast<int>(plain.size()));
    }
    void Shutdown() {
        if (SSL_is_init_finished(ssl_)) SSL_shutdown(ssl_);
    }
    // Moves the bytes to send to `out`.
    void Drain(Bytes* out) {
        std::array<std::uint8_t, 16384> buffer;
        int size = 0;
        while ((size = BIO_read(out_, buffer.data(), static_cast<int>(buffer.size()))) > 0)
            AppendBytes(out, ByteSpan(buffer.data(), static_cast<std::size_t>(size)));
    }
    static std::string LastError() {
        const char* reason = ERR_reason_error_string(ERR_peek_last_error());
        return reason != nullptr ? reason : "broken TLS stream";
    }

private:
    SSL* ssl_;
    BIO* in_;   // owned by the SSL object
    BIO* out_;  // owned by the SSL object
};

StreamSocket::StreamSocket(EventLoop* loop, int fd, SSL_CTX* tls, Handlers handlers)
    : loop_(loop), fd_(fd), handlers_(std::move(handlers)), watched_(EPOLLIN) {
    if (tls != nullptr) tls_ = std::make_unique<Tls>(tls);
    const int on = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    loop_->Watch(fd_, watched_, [this](std::uint32_t events) { OnReady(events); });
}

StreamSocket::~StreamSocket() { Close(); }

std::string StreamSocket::Peer() const {
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    ::getpeername(fd_, reinterpret_cast<sockaddr*>(&address), &size);
    std::array<char, INET_ADDRSTRLEN> text = {};
    ::inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
    return std::string(text.data()) + ":" + std::to_string(ntohs(address.sin_port));
}

void StreamSocket::OnReady(std::uint32_t events) {
    if ((events & EPOLLOUT) != 0) Flush();
    if (!IsOpen()) return;
    if ((events & EPOLLIN) != 0 && reading_) return ReadSome();
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) End("connection lost");
}

void StreamSocket::ReadSome() {
    std::array<std::uint8_t, kReadSize> buffer;
    const ssize_t size = ::read(fd_, buffer.data(), buffer.size());
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (size < 0) return End(::strerror(errno));
    if (size == 0) return End("closed by the peer");
    const ByteSpan bytes(buffer.data(), static_cast<std::size_t>(size));
    if (tls_) return Decrypt(bytes);
    handlers_.received(bytes);
}

void StreamSocket::Decrypt(ByteSpan bytes) {
    tls_->Feed(bytes);
    Bytes plain;
    while (IsOpen()) {
        const Tls::Result result = tls_->Read(&plain);
        tls_->Drain(&outgoing_);
        if (!outgoing_.empty()) Flush();
        if (result == Tls::Result::kNothingMore || !IsOpen()) return;
        if (result == Tls::Result::kClosed) return End("TLS closed by the peer");
        if (result == Tls::Result::kFailed) return End("TLS: " + Tls::LastError());
        handlers_.received(plain);
    }
}

void StreamSocket::Send(ByteSpan bytes) {
    if (!IsOpen() || closes_when_sent_) return;
    if (tls_) {
        tls_->Write(bytes);
        tls_->Drain(&outgoing_);
    } else {
        AppendBytes(&outgoing_, bytes);
    }
    Flush();
}

// A failed send appears as the end of the connection at the next read.
void StreamSocket::Flush() {
    std::size_t sent = 0;
    while (sent < outgoing_.size()) {
        const ssize_t size =
            ::send(fd_, outgoing_.data() + sent, outgoing_.size() - sent, MSG_NOSIGNAL);
        if (size <= 0) break;
        sent += static_cast<std::size_t>(size);
    }
    outgoing_.erase(outgoing_.begin(), outgoing_.begin() + static_cast<std::ptrdiff_t>(sent));
    if (outgoing_.empty() && closes_when_sent_) return Close();
    Update();
}

void StreamSocket::Update() {
    const std::uint32_t wanted =
        (reading_ ? EPOLLIN : 0u) | (outgoing_.empty() ? 0u : static_cast<unsigned>(EPOLLOUT));
    if (wanted == watched_) return;
    watched_ = wanted;
    loop_->Change(fd_, wanted);
}

void StreamSocket::SetReading(bool on) {
    reading_ = on;
    if (IsOpen()) Update();
}

void StreamSocket::CloseWhenSent() {
    if (!IsOpen()) return;
    if (tls_) {
        tls_->Shutdown();
        tls_->Drain(&outgoing_);
    }
    closes_when_sent_ = true;
    Flush();
}

void StreamSocket::Close() {
    if (!IsOpen()) return;
    loop_->Unwatch(fd_);
    ::close(fd_);
    fd_ = -1;
}

void StreamSocket::Reset() {
    if (!IsOpen()) return;
    const linger at_once = {.l_onoff = 1, .l_linger = 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    Close();
}

void StreamSocket::End(const std::string& why) {
    Close();
    if (handlers_.ended) handlers_.ended(why);
}

}  // namespace brennix
