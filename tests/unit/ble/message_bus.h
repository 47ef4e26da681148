#pragma once

// A message bus inside this process, for the only program that uses it: this one. What org.bluez
// answers there is up to its owner.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "unit/ble/marshal.h"

namespace tarvik::test {

struct BusCall {
    std::string path, interface, member, destination;
    std::uint32_t serial = 0;
};

class MessageBus {
public:
    // Messages to send, in this order, after a call to org.bluez. Called on the bus's threads.
    using AnswerCall = std::function<std::vector<Message>(const BusCall& call)>;

    // Becomes the process's system bus, and lives as long as the process.
    static MessageBus& Start(AnswerCall answer);

    // To the client that connected last.
    void Send(const Message& message);
    void EndConnection();
    // Whether the name org.bluez has an owner for clients that ask; at first it has.
    void SetHasService(bool there) { has_service_ = there; }
    bool HasService() const { return has_service_; }

private:
    class Connection;

    explicit MessageBus(AnswerCall answer) : answer_(std::move(answer)) {}
    void Accept(int listener);

    const AnswerCall answer_;
    std::atomic<bool> has_service_{true};
    std::mutex lock_;
    std::shared_ptr<Connection> latest_;  // guarded by lock_
};

}  // namespace tarvik::test
