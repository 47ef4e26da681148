// The dongle's serial port: a pseudo-terminal whose slave end a host opens.

#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

#include "process/event_loop.h"
#include "protocol/wire.h"

namespace brennix {

class Pty {
public:
    struct Handlers {
        std::function<void(ByteSpan)> received;
        std::function<void()> host_left;  // the host closed the port
        std::function<void()> cut;        // the bytes allowed by CutAfter are sent
    };

    Pty(EventLoop* loop, Handlers handlers);
    ~Pty() { Close(); }
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;

    void Open();  // throws std::system_error
    // Like an unplugged device: the host's reads end, its writes fail.
    void Close();
    bool IsOpen() const { return master_ >= 0; }
    const std::string& SlavePath() const { return slave_path_; }

    // Bytes for a port that no host has open are lost, as on a cable. The host counts as present
    // from its first byte on.
    void Send(ByteSpan bytes);
    // Between the two calls, Send only collects, so that the bytes leave together.
    void Cork() { ++corked_; }
    void Uncork();

    // Sends that many more bytes, then nothing; calls Handlers::cut once the host has read them.
    void CutAfter(std::size_t bytes) { cut_after_ = static_cast<std::int64_t>(bytes); }
    // Sends at most `bytes` at a time, `interval` apart. 0: no limit.
    void SetPieces(std::size_t bytes, std::chrono::milliseconds interval);

    std::uint64_t Opens() const { return opens_; }  // how often a host opened it
    bool IsHostThere() const { return host_there_; }

private:
    class OtherEnd;

    void OnReady(std::uint32_t events);
    void OnWatch();
    void HostLeft();
    Bytes TakeUnread();
    bool IsHungUp() const;
    void DiscardUnread();
    void WatchRoom(bool wanted);
    void Flush();
    void FlushPiece();
    void CutOnceRead();
    void AwaitRead(const std::shared_ptr<OtherEnd>& other_end, bool seen, int round);

    EventLoop* loop_;
    Handlers handlers_;
    int master_ = -1;
    int watch_ = -1;  // inotify on the slave end
    std::string slave_path_;
    bool host_there_ = false;
    bool watches_room_ = false;
    std::uint64_t opens_ = 0;
    std::uint64_t hosts_ = 0;  // hosts that have it open, according to notifications
    int corked_ = 0;
    Bytes outgoing_;
    std::int64_t cut_after_ = -1;  // -1: never
    std::size_t piece_size_ = 0;
    std::chrono::milliseconds piece_interval_{0};
    bool piece_timer_runs_ = false;
    std::uint64_t generation_ = 0;  // changes with each opening; older timers do nothing
};

}  // namespace brennix
