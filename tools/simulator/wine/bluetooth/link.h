// The connection to one dongle, shared by all of the process's objects that belong to it.

#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "wine/bluetooth/lock.h"

namespace brennix {

// Gets events on the radio's thread, inside a lock; it must only pass them on.
class LinkListener {
public:
    virtual void OnConnectionChanged() {}
    virtual void OnNotified(const std::string&) {}

protected:
    ~LinkListener() = default;
};

class Link {
public:
    static Link& To(std::uint64_t address);  // lives as long as the process

    std::uint64_t Address() const { return address_; }
    // The system knows a device once it has advertised.
    void SetKnown();
    bool IsKnown() const;
    bool IsConnected() const;
    std::uint16_t Mtu() const;
    // The number of the connection; each connection gets a new one. 0: none.
    std::uint64_t Number() const;

    // `done` gets whether there is a connection now.
    void Connect(std::function<void(bool)> done);
    // Whether the program has switched notifications on, and not off again.
    void SetSubscribed(bool subscribed);
    // Called by objects that keep the connection, which ends with the last of them.
    void Hold();
    void LetGo();

    void Add(LinkListener* listener);
    void Remove(LinkListener* listener);
    void Notified(const std::string& value);
    void Lost();

private:
    enum class State { kIdle, kConnecting, kConnected, kEnding };

    explicit Link(std::uint64_t address) : address_(address) {}
    void AskToConnect();
    void OnAnswer(const std::string& mtu);
    void OnDisconnected();
    void TellAll();
    void ForEachListener(const std::function<void(LinkListener*)>& tell);  // inside the lock

    const std::uint64_t address_;
    mutable RecursiveLock lock_;  // guards all fields below
    bool is_known_ = false;
    State state_ = State::kIdle;
    std::uint64_t number_ = 0;
    std::uint16_t mtu_ = 23;
    bool subscribed_ = false;  // on this connection
    int held_ = 0;
    std::vector<std::function<void(bool)>> waiting_;  // waiting for the connection
    std::set<LinkListener*> listeners_;
};

// A share in the connection, as long as the owner is open.
class LinkHold {
public:
    explicit LinkHold(Link* link) : link_(link) { link_->Hold(); }
    ~LinkHold() { End(); }
    LinkHold(const LinkHold&) = delete;
    LinkHold& operator=(const LinkHold&) = delete;
    void End() {
        if (Link* link = std::exchange(link_, nullptr)) link->LetGo();
    }

private:
    Link* link_;
};

}  // namespace brennix
