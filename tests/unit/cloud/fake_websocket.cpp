// websocket_client.h in front of the fake network.
#include <array>
#include <atomic>
#include <string>

#include "transport/cloud/websocket_client.h"
#include "unit/cloud/fake_network.h"

namespace tarvik {

using test::FakeNetwork;

struct WebSocketClient {
    std::atomic<bool> aborted{false};
    std::atomic<bool> linked{false};          // to the relay
    std::array<std::atomic<bool>, 4> open{};  // by WebSocketHandle
};

namespace {

std::atomic<bool>& IsOpen(WebSocketClient* client, WebSocketHandle handle) {
    return client->open.at(static_cast<std::size_t>(handle));
}

std::uint32_t Send(WebSocketClient* client, const WebSocketTarget& target) {
    FakeNetwork& network = FakeNetwork::Get();
    network.SetTarget(std::string(target.server) + ":" + std::to_string(target.port) +
                      target.endpoint);
    const std::uint32_t error = network.Step(WebSocketStep::kSend);
    if (error != 0) return error;
    client->linked = network.Connect(client->aborted);
    if (client->linked) return 0;
    return client->aborted ? kErrorOperationCancelled : kErrorConnectionBroken;
}

bool TakeSteps(WebSocketClient* client, const WebSocketTarget& target,
               const WebSocketSteps& steps) {
    using Step = WebSocketStep;
    using Handle = WebSocketHandle;
    const auto take = [&](Step step) {
        return steps.Take(step, [=] { return FakeNetwork::Get().Step(step); });
    };
    const auto open = [&](Step step, Handle handle) {
        IsOpen(client, handle) = take(step);
        return IsOpen(client, handle).load();
    };
    const bool connected =
        take(Step::kServerText) && take(Step::kEndpointText) && take(Step::kProxyText) &&
        open(Step::kOpen, Handle::kSession) && (!target.use_proxy || take(Step::kProxy)) &&
        open(Step::kConnect, Handle::kConnection) && open(Step::kOpenRequest, Handle::kRequest) &&
        (target.check_certificate || take(Step::kCertificates)) && take(Step::kUpgradeOption) &&
        steps.Take(Step::kSend, [&] { return Send(client, target); }) && take(Step::kReceive) &&
        open(Step::kComplete, Handle::kWebSocket);
    if (connected) IsOpen(client, Handle::kRequest) = false;
    return connected;
}

void CloseAll(WebSocketClient* client, void (*closed)(WebSocketHandle)) {
    if (client->linked.exchange(false)) FakeNetwork::Get().Close();
    for (std::size_t i = 0; i < client->open.size(); ++i) {
        const auto handle = static_cast<WebSocketHandle>(i);
        if (IsOpen(client, handle).exchange(false) && closed != nullptr) closed(handle);
    }
}

}  // namespace

WebSocketClient* CreateWebSocketClient() { return new WebSocketClient; }
bool ConnectWebSocket(WebSocketClient* client, const WebSocketTarget& target,
                      const WebSocketSteps& steps) {
    const bool connected = TakeSteps(client, target, steps);
    if (!connected) CloseAll(client, nullptr);
    return connected;
}
std::uint32_t ReceiveFromWebSocket(WebSocketClient*, void* data, std::uint32_t size,
                                   std::uint32_t* bytes, MessageKind* kind) {
    return FakeNetwork::Get().ReadMessage(data, size, bytes, kind);
}
std::uint32_t SendToWebSocket(WebSocketClient*, const void* data, std::uint32_t size) {
    return FakeNetwork::Get().Send(data, size);
}
bool AbortWebSocket(WebSocketClient* client) {
    client->aborted = true;
    FakeNetwork::Get().Abort();
    return IsOpen(client, WebSocketHandle::kWebSocket).exchange(false);
}
void CloseWebSocket(WebSocketClient* client, void (*closed)(WebSocketHandle)) {
    CloseAll(client, closed);
    delete client;
}

}  // namespace tarvik
