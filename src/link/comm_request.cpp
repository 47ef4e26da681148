#include "link/comm_request.h"

#include <cstddef>
#include <cstring>
#include <utility>

#include "link/comm_response.h"
#include "link/fragmentation.h"
#include "link/link_limits.h"
#include "link/wait_flags.h"
#include "platform/semaphore.h"
#include "platform/tick.h"
#include "support/cop_trace.h"
#include "support/log.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kMaxRequestData = 65535;
constexpr int kMaxAttempts = 3;
constexpr std::int32_t kMaxExchanges = 10;

// ---- the limit on exchanges in flight

std::atomic<OsSemaphore*> installed_slots{nullptr};

// Created by the first exchange, never destroyed. Null: the system refused.
OsSemaphore* ExchangeSlots() {
    if (OsSemaphore* slots = installed_slots) return slots;
    OsSemaphore* made = OsSemaphoreCreate(kMaxExchanges, kMaxExchanges);
    if (made == nullptr) return nullptr;
    OsSemaphore* winner = nullptr;
    if (installed_slots.compare_exchange_strong(winner, made)) return made;
    OsSemaphoreClose(made);
    return winner;
}

// Takes one of the slots, waiting until one is free or the flags ask to stop. Holds none then, or
// if the wait itself fails.
class ExchangeSlot {
public:
    explicit ExchangeSlot(const WaitFlags& flags) {
        OsSemaphore* slots = ExchangeSlots();
        while (slots != nullptr && !flags.AskToStop()) {
            const SemaphoreWait outcome = OsSemaphoreWait(slots, GetLinkLimits().wait_slice_ms);
            if (outcome == SemaphoreWait::kTimeout) continue;
            if (outcome == SemaphoreWait::kTaken) held_ = slots;
            return;
        }
    }
    ~ExchangeSlot() {
        if (held_ != nullptr) OsSemaphoreRelease(held_);
    }
    ExchangeSlot(const ExchangeSlot&) = delete;
    ExchangeSlot& operator=(const ExchangeSlot&) = delete;

    bool IsHeld() const { return held_ != nullptr; }

private:
    OsSemaphore* held_ = nullptr;
};

// ---- shared by both exchanges

void CopyBytes(std::uint8_t* to, const std::uint8_t* from, std::size_t size) {
    if (size > 0) std::memcpy(to, from, size);
}

void TraceSent(const CommRequestWire& fields, const std::uint8_t* data) {
    TraceCommReqSent({.req_id = fields.req_id,
                      .tx = data,
                      .tx_len = fields.data_length,
                      .can_id_tx_func = fields.can_id_tx_func,
                      .can_id_tx_phys = fields.can_id_tx_phys,
                      .can_id_rx = fields.can_id_rx,
                      .timeout = fields.timeout,
                      .transport = fields.transport});
}

// The CRES for this request; null if none came in time or the flags ended the wait.
PacketPtr AwaitResponse(const CommLink& link, std::uint32_t req_id, std::uint64_t start_ms,
                        const std::atomic<bool>* abort) {
    do {
        PacketPtr packet = WaitForPacket(link.queues, kTypeCres, GetLinkLimits().answer_timeout_ms,
                                         req_id, abort, link.running);
        if (packet == nullptr || packet->type != kTypeBusy) return packet;
    } while (TickMs() - start_ms < GetLinkLimits().busy_limit_ms);
    return nullptr;
}

bool IsUsable(const CommLink* link, std::uint32_t data_len) {
    return link != nullptr && link->queues != nullptr && data_len <= kMaxRequestData;
}

// A tracked copy; null only when memory is out, not for 0 bytes.
Tracked<std::uint8_t> CopyOf(ByteView data) {
    Tracked<std::uint8_t> copy(static_cast<std::uint8_t*>(AllocateMem(data.size)));
    if (copy != nullptr) CopyBytes(copy.get(), data.data, data.size);
    return copy;
}

// ---- one request, one answer

bool FillAnswer(const Packet& packet, CommAnswer* answer) {
    const auto response = CommResponseView::Of(packet);
    if (!response) return false;
    if (answer == nullptr) return true;
    const ByteView data = response->CountedData();
    answer->data = CopyOf(data);
    answer->length = static_cast<std::uint32_t>(data.size);
    answer->wait_time = response->WaitTime();
    return answer->data != nullptr;
}

}  // namespace

bool CommRequest(const CommLink* link, const CommRequestData& request, CommAnswer* answer) {
    if (!IsUsable(link, request.data_len) || request.data == nullptr) return false;
    const WaitFlags flags = {.running = link->running};
    const ExchangeSlot slot(flags);
    if (!slot.IsHeld()) return false;

    const CommRequestWire fields = {.type = kTypeCreq,
                                    .length = 0,
                                    .can_id_tx_func = request.can_id_tx,
                                    .can_id_tx_phys = request.can_id_tx,  // Deliberate: the same
                                    .can_id_rx = request.can_id_rx,
                                    .timeout = request.timeout_ms + GetLinkLimits().dongle_grace_ms,
                                    .data_length = static_cast<std::uint16_t>(request.data_len),
                                    .transport = 0,
                                    .reserved = 0,
                                    .req_id = request.req_id};
    for (int attempt = 0; attempt < kMaxAttempts && !flags.AskToStop(); ++attempt) {
        PacketPtr packet = BuildPacket(fields, {request.data, request.data_len});
        if (packet == nullptr) return false;
        if (!FragSendPacket(link->queues, packet)) continue;
        TraceSent(fields, request.data);
        const PacketPtr response = AwaitResponse(*link, request.req_id, TickMs(), nullptr);
        if (response != nullptr) return FillAnswer(*response, answer);
    }
    return false;
}

namespace {

// ---- one request, the answers of several control units

// The functions below are part of CommRequestMulti and log under its name.
constexpr char kMultiName[] = "CommRequestMulti";

struct MultiTemplate {
    CommRequestWire fields;
    PacketPtr packet;
    const std::uint8_t* data;  // the request bytes inside the packet
};

bool BuildTemplate(const CommMultiRequest& request, MultiTemplate* out) {
    constexpr std::uint64_t kMask = kCommRequestAlignment - 1;
    const std::uint64_t entries = std::uint64_t{request.count} * sizeof(CommRequestEntryWire);
    const std::uint64_t length =
        sizeof(CommRequestWire) + ((entries + request.data_len + kMask) & ~kMask);
    if (length > UINT32_MAX) return false;

    out->fields = {.type = kTypeCreq,
                   .length = 0,
                   .can_id_tx_func = request.can_id_tx_func,
                   .can_id_tx_phys = kCommRequestMulti,
                   .can_id_rx = request.count,
                   .timeout = request.timeout_ms,
                   .data_length = static_cast<std::uint16_t>(request.data_len),
                   .transport = 0,
                   .reserved = 0,
                   .req_id = request.req_id};
    out->packet = MakePacket(kTypeCreq, static_cast<std::uint32_t>(length));
    if (out->packet == nullptr) return false;
    out->packet->SetFields(out->fields);
    std::uint8_t* at = out->packet->Bytes() + sizeof(CommRequestWire);
    for (std::uint32_t i = 0; i < request.count; ++i) {
        const CommRequestEntryWire entry = {request.entries[i].addr_a, request.entries[i].addr_b};
        std::memcpy(at, &entry, sizeof entry);
        at += sizeof entry;
    }
    CopyBytes(at, request.data, request.data_len);
    out->data = at;
    return true;
}

bool SendCopy(DeviceQueues* queues, const MultiTemplate& request) {
    PacketPtr copy = CopyPacket(*request.packet);
    if (!FragSendPacket(queues, copy)) {
        // Deliberate: same text as for an answer in the wrong form.
        Log(kLogTrace, "[%s]   Received a non-multi packet", kMultiName);
        ConsolePrint("[CommRequestMulti] FragSendPacket failed to send COMM_REQ\n");
        return false;
    }
    TraceSent(request.fields, request.data);
    return true;
}

PacketPtr AwaitMultiResponse(const CommLink& link, std::uint32_t req_id,
                             const std::atomic<bool>* abort) {
    const WaitFlags flags = {.abort = abort, .running = link.running};
    const std::uint64_t start_ms = TickMs();
    PacketPtr packet = AwaitResponse(link, req_id, start_ms, abort);
    if (packet == nullptr) {
        if (!flags.AskToStop()) {
            ConsolePrint(
                "[CommRequestMulti]   No response packet received within timeout (%llu ms)\n",
                static_cast<unsigned long long>(TickMs() - start_ms));
        }
        return nullptr;
    }
    const auto response = CommResponseView::Of(*packet);
    if (response && response->IsMulti()) return packet;
    Log(kLogTrace, "[%s]   Received a non-multi packet", kMultiName);
    return nullptr;
}

// Index of the entry with this id; the number of entries if there is none.
std::uint32_t FindEntry(const CommMultiRequest& request, std::uint32_t id) {
    std::uint32_t i = 0;
    while (i < request.count && request.entries[i].id != id)
        ++i;
    return i;
}

// A later answer of the same responder replaces the earlier one.
void KeepAnswer(CommMultiEntry* entry, ByteView data) {
    FreeMem(entry->rsp_data);
    entry->rsp_data = CopyOf(data).release();
    entry->rsp_len = entry->rsp_data == nullptr ? 0 : static_cast<std::uint32_t>(data.size);
}

void DistributeAnswers(const CommResponseView& response, CommMultiRequest* request) {
    CommResponseEntries entries(response);
    Log(kLogTrace, "[%s]   Received multi packet with %u entries", kMultiName, entries.Count());
    CommResponseEntry answer;
    for (std::uint32_t i = 0; entries.Next(&answer); ++i) {
        Log(kLogTrace, "[%s]     response #%u, ID: %u", kMultiName, i, answer.id);
        const std::uint32_t match = FindEntry(*request, answer.id);
        if (match == request->count) {
            Log(kLogError, "[%s] ERROR: response #%u, ID: %u doesn't match table", kMultiName, i,
                answer.id);
            continue;
        }
        Log(kLogTrace, "[%s]       -> matches table entry %u", kMultiName, match);
        KeepAnswer(&request->entries[match], answer.data);
    }
}

}  // namespace

bool CommRequestMulti(const CommLink* link, CommMultiRequest* request,
                      const std::atomic<bool>* abort) {
    if (request == nullptr || (request->entries == nullptr && request->count > 0)) return false;
    if (!IsUsable(link, request->data_len)) return false;
    if (request->data == nullptr && request->data_len > 0) return false;
    const WaitFlags flags = {.abort = abort, .running = link->running};
    const ExchangeSlot slot(flags);
    MultiTemplate built;
    if (!slot.IsHeld() || !BuildTemplate(*request, &built)) return false;

    for (int failures = 0; failures < kMaxAttempts && !flags.AskToStop();) {
        if (!SendCopy(link->queues, built)) {
            ++failures;
            continue;
        }
        if (const PacketPtr packet = AwaitMultiResponse(*link, request->req_id, abort)) {
            DistributeAnswers(*CommResponseView::Of(*packet), request);
            return true;
        }
        ++failures;
        Log(kLogTrace, "[%s]   Retry attempt %d", kMultiName, failures);
    }
    return false;
}

}  // namespace tarvik
