#include "transport/ble/ble_connect.h"

#include <algorithm>

#include "support/log.h"
#include "transport/ble/ble_connection.h"
#include "transport/ble/ble_share.h"
#include "transport/ble/ble_state.h"
#include "transport/ble/ble_text.h"

namespace tarvik {

BleConnectRequest::~BleConnectRequest() {
    if (completed != nullptr) OsEventClose(completed);
    if (thread != nullptr) OsThreadClose(thread);
}

namespace {

BleQueueSet& QueueSetOf(std::uint64_t address) {
    const LockGuard hold(ble->BleCriticalSection);
    for (BleQueueSet* set : ble->queue_sets) {
        if (set->address == address) return *set;
    }
    ble->queue_sets.reserve(ble->queue_sets.size() + 1);
    auto* set = NewTracked<BleQueueSet>(address);
    if (set == nullptr) throw std::bad_alloc();
    ble->queue_sets.push_back(set);
    return *set;
}

// False: the attempt was abandoned, and another connection may own the queues.
bool TakeQueues(const BleConnectRequest& request, BleConnection* connection) {
    const LockGuard hold(ble->BleCriticalSection);
    if (request.abandoned) return false;
    connection->TakeQueues();
    return true;
}

// False: it failed, which has been logged, or the attempt was abandoned. A dongle that was lost
// while subscribing is not listed.
bool RunAndList(const BleConnectRequest& request,
                const std::shared_ptr<BleConnection>& connection) {
    const LockGuard hold(ble->BleCriticalSection);
    if (request.abandoned || !connection->Run(connection)) return false;
    ble->connected.push_back(connection);
    if (connection->SetReady()) return true;
    ble->connected.pop_back();
    return false;
}

bool Complete(BleConnectRequest* request, const std::shared_ptr<BleConnection>& connection) {
    if (!TakeQueues(*request, connection.get()) || !connection->Establish() ||
        !RunAndList(*request, connection)) {
        return false;
    }
    request->queues = connection->queues();
    request->success = true;
    ConsolePrint("  Connection complete, queues=%p\n", static_cast<void*>(request->queues));
    Log(kLogTrace, "[BLE] Device connected and ready");
    return true;
}

// Closes the connection unless it is kept.
class ConnectionGuard {
public:
    explicit ConnectionGuard(BleConnection& connection) : connection_(&connection) {}
    ~ConnectionGuard() {
        if (connection_ != nullptr) connection_->Close();
    }
    ConnectionGuard(const ConnectionGuard&) = delete;
    ConnectionGuard& operator=(const ConnectionGuard&) = delete;
    void Keep() { connection_ = nullptr; }

private:
    BleConnection* connection_;
};

void Connect(BleConnectRequest* request) {
    const BleRadioThread inside(*request->radio);
    const auto connection =
        MakeBleShared<BleConnection>(request->radio, &QueueSetOf(request->address));
    ConnectionGuard guard(*connection);
    if (Complete(request, connection)) guard.Keep();
}

void BleConnectThread(void* argument) {
    const auto request = TakeBleShare<BleConnectRequest>(argument);
    try {
        Connect(request.get());
    } catch (...) {
        const BleErrorText error;
        ConsolePrint("  ERROR: Connection exception: %s\n", error.text);
        Log(kLogTrace, "[BLE] Connection error: %s", error.text);
    }
    OsEventSet(request->completed);
}

std::shared_ptr<BleConnectRequest> FindAttempt(std::uint64_t address) {
    const LockGuard hold(ble->BleCriticalSection);
    for (const auto& attempt : ble->attempts) {
        if (attempt->address == address) return attempt;
    }
    return nullptr;
}

}  // namespace

std::shared_ptr<BleConnectRequest> RequestBleConnection(std::uint64_t address) {
    if (auto attempt = FindAttempt(address)) return attempt;
    auto request = MakeBleShared<BleConnectRequest>(ble->radio, address);
    request->completed = OsEventCreate(EventReset::kManual);
    if (request->completed == nullptr) {
        Log(kLogTrace, "[BLE] Failed to create completion event");
        return nullptr;
    }
    {
        const LockGuard hold(ble->BleCriticalSection);
        ble->attempts.push_back(request);
    }
    request->thread = StartBleThread(BleConnectThread, request, "Tarvik BleConnectThread");
    if (request->thread == nullptr) {
        Log(kLogTrace, "[BLE] Failed to create connection thread");
        EndBleRequest(request, 0);
        return nullptr;
    }
    return request;
}

void EndBleRequest(const std::shared_ptr<BleConnectRequest>& request, std::int32_t limit_ms) {
    EndBleThread(&request->thread, limit_ms);
    const LockGuard hold(ble->BleCriticalSection);
    std::erase(ble->attempts, request);
}

}  // namespace tarvik
