#include "link/fragmentation.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <utility>

#include "link/link_limits.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/tick.h"
#include "support/log.h"
#include "support/memory.h"
#include "support/peer_limits.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kFragmentHeaderSize = sizeof(FragmentWire);
constexpr std::uint32_t kUnlimitedMtu = 65535;
constexpr std::uint32_t kMaxFragments = 65535;

// ---- sending

PacketPtr MakeFragment(const Packet& whole, std::uint32_t index, std::uint32_t count,
                       std::uint32_t slice) {
    const std::uint32_t offset = index * slice;
    const std::uint32_t size = std::min(whole.length - offset, slice);
    return BuildPacket(FragmentWire{.type = kTypeFrag,
                                    .length = 0,
                                    .index = static_cast<std::uint16_t>(index),
                                    .count = static_cast<std::uint16_t>(count),
                                    .total_length = whole.length},
                       {whole.Bytes() + offset, size});
}

// If the dongle has gone in the meantime, the packet is released; the sender notices by the missing
// answer.
void QueueOrRelease(DeviceQueues* queues, PacketPtr packet) { EnqueueForAvailable(queues, packet); }

bool SendFragments(DeviceQueues* queues, const Packet& whole, std::uint32_t slice,
                   std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!queues->available) {
            Log(kLogError, "[FRAG] Transport became unavailable while fragmenting");
            return false;
        }
        PacketPtr fragment = MakeFragment(whole, i, count, slice);
        if (fragment == nullptr) {
            Log(kLogError, "[FRAG] Failed to allocate fragment %u", i);
            return false;
        }
        Log(kLogTrace, "[FRAG] Sending fragment %u/%u, payload_size=%u", i, count,
            fragment->length - kFragmentHeaderSize);
        QueueOrRelease(queues, std::move(fragment));
    }
    return true;
}

}  // namespace

bool FragSendPacket(DeviceQueues* queues, PacketPtr& packet) {
    if (queues == nullptr || packet == nullptr || !queues->available) return false;
    const std::uint32_t configured = queues->mtu;
    const std::uint32_t mtu = configured == 0 ? kUnlimitedMtu : configured;
    if (packet->length <= mtu) {
        QueueOrRelease(queues, std::move(packet));
        return true;
    }

    Log(kLogTrace, "[FRAG] Packet size %u exceeds MTU %u, fragmenting...", packet->length, mtu);
    if (mtu <= kFragmentHeaderSize) {
        Log(kLogError, "[FRAG] MTU too small for fragmentation");
        return false;
    }
    const std::uint32_t slice = mtu - kFragmentHeaderSize;
    const std::uint32_t count = (packet->length - 1) / slice + 1;
    if (count > kMaxFragments) {
        Log(kLogError, "[FRAG] Packet too large: would require %u fragments", count);
        return false;
    }
    Log(kLogTrace, "[FRAG] Fragmenting into %u fragments, fragment_payload_size=%u", count, slice);
    if (!SendFragments(queues, *packet, slice, count)) return false;
    Log(kLogTrace, "[FRAG] All %u fragments sent successfully", count);
    packet.reset();
    return true;
}

namespace {

// ---- reassembly

struct ReassemblySession {
    bool active;  // guarded by reassembly_lock
    bool in_use;  // guarded by reassembly_lock; set while the source stores a fragment
    std::uint32_t total_length;  // this and the next one are fixed while active
    std::uint32_t frag_count;
    std::uint64_t last_activity;  // guarded by reassembly_lock; last lookup, not last byte
    // The rest is used by the source's thread while in_use, otherwise under reassembly_lock.
    std::uint32_t received_count;
    std::uint32_t bytes_received;
    Tracked<std::uint8_t> buffer;    // total_length bytes
    Tracked<std::uint8_t> received;  // frag_count flags
    Tracked<std::uint32_t> offsets;  // frag_count offsets at which the fragments were stored
};

// The sessions of one source: a peer that fills them keeps only its own packets from arriving.
struct ReassemblySlots {
    explicit ReassemblySlots(const void* owner) : source(owner) {}

    const void* const source;
    ReassemblySlots* next = nullptr;
    ReassemblySession sessions[kReassemblySlots]{};
};

struct ReassemblyTable {
    OsLock reassembly_lock;
    // Guarded by reassembly_lock.
    bool initialised = false;
    ReassemblySlots* first = nullptr;  // of each source that has sent a fragment; owned
};

// Initialised early: FragInit runs at library load, before some static objects are constructed.
Immortal<ReassemblyTable> reassembly_table __attribute__((init_priority(1000)));

ReassemblyTable& Table() { return *reassembly_table; }

// Called with reassembly_lock held. False: a thread is inside one of the sessions, or was ended
// there; the others are released.
bool ReleaseSessions(ReassemblySlots* slots) {
    bool all = true;
    for (ReassemblySession& session : slots->sessions) {
        if (session.in_use) {
            all = false;
        } else {
            session = {};
        }
    }
    return all;
}

// Releases the sessions of this source, or of all (null), and then the slots that are not in use.
// Called with reassembly_lock held.
void ReleaseSlots(ReassemblyTable& table, const void* source) {
    for (ReassemblySlots** place = &table.first; *place != nullptr;) {
        ReassemblySlots* slots = *place;
        const bool meant = source == nullptr || slots->source == source;
        if (!meant || !ReleaseSessions(slots)) {
            place = &slots->next;
            continue;
        }
        *place = slots->next;
        DeleteTracked(slots);
    }
}

}  // namespace

void FragInit() {
    ReassemblyTable& table = Table();
    const LockGuard hold(table.reassembly_lock);
    if (table.initialised) return;
    table.initialised = true;
    Log(kLogTrace, "[%s] Initialized CRITICAL_SECTION reassembly_lock at 0x%p", __func__,
        table.reassembly_lock.Address());
}

void FragDeinit() {
    ReassemblyTable& table = Table();
    const LockGuard hold(table.reassembly_lock);
    if (!table.initialised) return;
    table.initialised = false;
    ReleaseSlots(table, nullptr);
    Log(kLogTrace, "[%s] Deleting CRITICAL_SECTION reassembly_lock at 0x%p", __func__,
        table.reassembly_lock.Address());
}

namespace {

bool ReadFragment(const Packet& packet, FragmentWire* out) {
    const auto fields = packet.Fields<FragmentWire>();
    if (!fields) {
        Log(kLogError, "[FRAG] Invalid FRAG packet: too small (length=%u)", packet.length);
        return false;
    }
    const FragmentWire& fragment = *fields;
    if (fragment.count == 0) {
        Log(kLogError, "[FRAG] Invalid FRAG packet: frag_count is 0");
        return false;
    }
    if (fragment.index >= fragment.count) {
        Log(kLogError, "[FRAG] Invalid FRAG packet: frag_index (%u) >= frag_count (%u)",
            fragment.index, fragment.count);
        return false;
    }
    if (fragment.total_length > MAX_PKT_SIZE) {
        Log(kLogError, "[FRAG] Invalid FRAG packet: total_length (%u) exceeds MAX_PKT_SIZE (%u)",
            fragment.total_length, MAX_PKT_SIZE);
        return false;
    }
    if (fragment.total_length < MIN_PKT_SIZE) {
        Log(kLogError,
            "[FRAG] Invalid FRAG packet: total_length (%u) smaller than MIN_PKT_SIZE (%u)",
            fragment.total_length, MIN_PKT_SIZE);
        return false;
    }
    *out = fragment;
    return true;
}

// The look-ups below are called with reassembly_lock held.

// Null: memory is out.
ReassemblySlots* FindOrMakeSlots(ReassemblyTable& table, const void* source) {
    ReassemblySlots* slots = table.first;
    while (slots != nullptr && slots->source != source)
        slots = slots->next;
    if (slots != nullptr) return slots;
    slots = NewTracked<ReassemblySlots>(source);
    if (slots == nullptr) {
        Log(kLogError, "[FRAG] Failed to allocate memory for reassembly session");
        return nullptr;
    }
    slots->next = std::exchange(table.first, slots);
    return slots;
}

ReassemblySession* FindSession(ReassemblySlots& slots, const FragmentWire& fragment) {
    for (ReassemblySession& session : slots.sessions) {
        if (session.active && session.total_length == fragment.total_length &&
            session.frag_count == fragment.count) {
            return &session;
        }
    }
    return nullptr;
}

ReassemblySession* FindFreeSlot(ReassemblySlots& slots) {
    for (ReassemblySession& session : slots.sessions) {
        if (!session.active) return &session;
    }
    return nullptr;
}

// `now_ms` was read before the lock was taken, so another thread's look-up may be later.
bool IsIdle(const ReassemblySession& session, std::uint64_t now_ms) {
    return !session.in_use && now_ms > session.last_activity &&
           now_ms - session.last_activity > GetLinkLimits().reassembly_idle_ms;
}

ReassemblySession* ReclaimOldest(ReassemblySlots& slots, std::uint64_t now_ms) {
    ReassemblySession* oldest = std::min_element(
        std::begin(slots.sessions), std::end(slots.sessions),
        [](const auto& a, const auto& b) { return a.last_activity < b.last_activity; });
    if (!IsIdle(*oldest, now_ms)) {
        Log(kLogError, "[FRAG] No available reassembly session slots");
        return nullptr;
    }
    Log(kLogTrace, "[FRAG] Cleaning up timed-out reassembly session");
    *oldest = {};
    return oldest;
}

bool OpenSession(ReassemblySession* session, const FragmentWire& fragment) {
    ReassemblySession opened{};
    opened.active = true;
    opened.total_length = fragment.total_length;
    opened.frag_count = fragment.count;
    opened.buffer.reset(static_cast<std::uint8_t*>(AllocateMem(fragment.total_length)));
    opened.received.reset(static_cast<std::uint8_t*>(AllocateMem(fragment.count)));
    opened.offsets.reset(
        static_cast<std::uint32_t*>(AllocateArray(fragment.count, sizeof(std::uint32_t))));
    if (opened.buffer == nullptr || opened.received == nullptr || opened.offsets == nullptr) {
        Log(kLogError, "[FRAG] Failed to allocate memory for reassembly session");
        return false;
    }
    *session = std::move(opened);
    Log(kLogTrace, "[FRAG] Created new reassembly session: total_length=%u, frag_count=%u",
        fragment.total_length, fragment.count);
    return true;
}

ReassemblySession* FindOrOpenSession(ReassemblyTable& table, const void* source,
                                     const FragmentWire& fragment, std::uint64_t now_ms) {
    ReassemblySlots* slots = FindOrMakeSlots(table, source);
    if (slots == nullptr) return nullptr;
    ReassemblySession* session = FindSession(*slots, fragment);
    if (session == nullptr) {
        session = FindFreeSlot(*slots);
        if (session == nullptr) session = ReclaimOldest(*slots, now_ms);
        if (session == nullptr || !OpenSession(session, fragment)) return nullptr;
    }
    session->last_activity = now_ms;
    return session;
}

// Holds a session while a fragment is stored into it, so that nobody releases it meanwhile.
class SessionLease {
public:
    SessionLease(const void* source, const FragmentWire& fragment) {
        const std::uint64_t now_ms = TickMs();
        const LockGuard hold(Table().reassembly_lock);
        session_ = FindOrOpenSession(Table(), source, fragment, now_ms);
        if (session_ != nullptr) session_->in_use = true;
    }
    ~SessionLease() {
        if (session_ == nullptr) return;
        const LockGuard hold(Table().reassembly_lock);
        session_->in_use = false;
        if (finished_) *session_ = {};
    }
    SessionLease(const SessionLease&) = delete;
    SessionLease& operator=(const SessionLease&) = delete;

    ReassemblySession* Session() { return session_; }
    void Finish() { finished_ = true; }  // releases the session at the end of the lease

private:
    ReassemblySession* session_;
    bool finished_ = false;
};

// bytes_received <= total_length always holds, so the subtraction cannot wrap.
bool Fits(const ReassemblySession& session, std::uint32_t payload_size) {
    return payload_size <= session.total_length - session.bytes_received;
}

void StoreFragment(ReassemblySession* session, const FragmentWire& fragment,
                   const std::uint8_t* payload, std::uint32_t payload_size) {
    const std::uint32_t offset = session->bytes_received;
    std::memcpy(session->buffer.get() + offset, payload, payload_size);
    session->offsets.get()[fragment.index] = offset;
    session->bytes_received += payload_size;
    session->received.get()[fragment.index] = 1;
    ++session->received_count;
    Log(kLogTrace, "[FRAG] Fragment %u stored at offset %u, %u/%u fragments received",
        fragment.index, offset, session->received_count, session->frag_count);
}

PacketPtr Reassemble(const ReassemblySession& session) {
    Log(kLogTrace, "[FRAG] All fragments received, reassembling packet");
    Packet header;
    std::memcpy(&header, session.buffer.get(), sizeof header);
    if (header.length != session.total_length) {
        Log(kLogError, "[FRAG] Reassembled packet length mismatch: expected=%u, got=%u",
            session.total_length, header.length);
        return nullptr;
    }
    Log(kLogTrace, "[FRAG] Reassembled packet type: '%s', length=%u",
        TypeAsStored(session.buffer.get()).text, header.length);
    if (header.type == kTypeFrag) {
        Log(kLogError, "[FRAG] Reassembled packet is a fragment itself, dropped");
        return nullptr;
    }
    PacketPtr whole(static_cast<Packet*>(AllocateMem(header.length)));
    if (whole == nullptr) {
        Log(kLogError, "[FRAG] Failed to allocate memory for reassembled packet copy");
        return nullptr;
    }
    std::memcpy(whole->Bytes(), session.buffer.get(), header.length);
    return whole;
}

// The packet that this fragment completes; null if it completes none.
PacketPtr TakeFragment(const void* source, const Packet& packet) {
    FragmentWire fragment;
    if (!ReadFragment(packet, &fragment)) return nullptr;
    const std::uint32_t payload_size = packet.length - kFragmentHeaderSize;
    Log(kLogTrace, "[FRAG] Received fragment %u/%u, payload_size=%u, total_length=%u",
        fragment.index, fragment.count, payload_size, fragment.total_length);

    SessionLease lease(source, fragment);
    ReassemblySession* session = lease.Session();
    if (session == nullptr) {
        Log(kLogError, "[FRAG] Failed to get reassembly session");
        return nullptr;
    }
    if (session->received.get()[fragment.index] != 0) {
        Log(kLogTrace, "[FRAG] Fragment %u already received, ignoring duplicate", fragment.index);
        return nullptr;
    }
    // Senders never reorder, so a gap is a lost fragment and the packet cannot be completed.
    if (fragment.index != session->received_count) {
        Log(kLogError, "[FRAG] Out-of-order fragment reception: expected index %u, got %u",
            session->received_count, fragment.index);
        lease.Finish();
        return nullptr;
    }
    if (!Fits(*session, payload_size)) {
        Log(kLogError,
            "[FRAG] Fragment data exceeds total_length: offset=%u, payload_size=%u, "
            "total_length=%u",
            session->bytes_received, payload_size, session->total_length);
        lease.Finish();
        return nullptr;
    }
    StoreFragment(session, fragment, packet.Bytes() + kFragmentHeaderSize, payload_size);
    if (session->received_count < session->frag_count) return nullptr;
    lease.Finish();
    return Reassemble(*session);
}

}  // namespace

bool FragReceivePacket(const void* source, PacketPtr& packet, PacketPtr* complete) {
    if (complete == nullptr) return false;
    complete->reset();
    if (packet == nullptr) return false;
    *complete = packet->type == kTypeFrag ? TakeFragment(source, *packet) : std::move(packet);
    return *complete != nullptr;
}

void FragForget(const void* source) {
    ReassemblyTable& table = Table();
    const LockGuard hold(table.reassembly_lock);
    ReleaseSlots(table, source);
}

}  // namespace tarvik
