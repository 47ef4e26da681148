#include "support/cop_trace.h"

#include <atomic>
#include <cstring>

#include "platform/event.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "platform/tick.h"
#include "support/memory.h"
#include "support/trace_file.h"
#include "support/trace_session.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kFlushMs = 500;
// The flusher waits this long after a write, to write several lines together: flushing the disk for
// each line would cost more than the lines.
constexpr std::int32_t kGatherMs = 10;
constexpr std::size_t kFirstCapacity = 65'536;
constexpr std::size_t kMaxCapacity = 8'388'608;

struct LineBuffer {
    char* data;
    std::size_t length;
    std::size_t capacity;
};

std::atomic<bool> active{false};
std::atomic<std::int32_t> session{0};
std::atomic<std::int32_t> sequence{0};
std::atomic<bool> cloud_packets{false};
std::atomic<bool> cloud_bytes{false};
std::atomic<std::uint32_t> process_id{0};

Immortal<OsLock> buffer_lock;  // guards the next four
LineBuffer buffers[2];
int filling = 0;              // the buffer that writers append to
bool accepting = false;       // from before log_start to log_stop
bool data_signalled = false;  // the flusher was woken and has not run yet

OsEvent* data_event = nullptr;  // alive while accepting
OsEvent* stop_event = nullptr;
OsThread* flusher = nullptr;
OsAppendFile* file = nullptr;  // only the flusher's while it runs

}  // namespace

bool CopTraceActive() { return active.load(std::memory_order_acquire); }

bool TraceWritesCloudPackets() { return cloud_packets.load(std::memory_order_relaxed); }

bool TraceWritesCloudBytes() { return cloud_bytes.load(std::memory_order_relaxed); }

std::uint64_t TraceTimeUs() {
    const std::uint64_t frequency = PerformanceFrequency();
    if (frequency == 0) return 0;
    const std::uint64_t counter = PerformanceCounter();
    // In two steps: the full product would overflow after some days.
    return counter / frequency * 1'000'000u + counter % frequency * 1'000'000u / frequency;
}

namespace {

// --- lines ---

std::uint64_t NextSequence() {
    const auto last = static_cast<std::uint64_t>(sequence.fetch_add(1, std::memory_order_relaxed));
    return last + 1;
}

void WriteIds(TraceWriter* line) {
    line->Number<"pid">(process_id.load(std::memory_order_relaxed));
    line->Number<"tid">(OsCurrentThreadId());
}

}  // namespace

std::int32_t BeginTraceLine(TraceWriter* line, std::string_view event) {
    const std::int32_t own_session = session.load(std::memory_order_relaxed);
    line->BeginObject().Number<"seq">(NextSequence());
    line->Number<"ts_us">(TraceTimeUs()).Number<"tick_ms">(TickMs());
    WriteIds(line);
    line->String<"ev">(event);
    return own_session;
}

namespace {

// buffer_lock is held. False: the buffer cannot take `length` more characters.
bool EnsureRoom(LineBuffer* buffer, std::size_t length) {
    std::size_t capacity = buffer->capacity == 0 ? kFirstCapacity : buffer->capacity;
    while (length > capacity - buffer->length && capacity < kMaxCapacity)
        capacity *= 2;
    if (length > capacity - buffer->length) return false;
    if (capacity == buffer->capacity) return true;
    auto* larger = static_cast<char*>(AllocateMem(capacity));
    if (larger == nullptr) return false;
    if (buffer->length > 0) std::memcpy(larger, buffer->data, buffer->length);
    FreeMem(buffer->data);
    buffer->data = larger;
    buffer->capacity = capacity;
    return true;
}

// buffer_lock is held, which also keeps the data event alive.
void AppendLocked(const TraceWriter& line) {
    LineBuffer* buffer = &buffers[filling];
    if (!EnsureRoom(buffer, line.Length())) return;
    std::memcpy(buffer->data + buffer->length, line.Data(), line.Length());
    buffer->length += line.Length();
    if (data_signalled) return;
    data_signalled = true;
    OsEventSet(data_event);
}

}  // namespace

void AppendTraceLine(const TraceWriter& line, std::int32_t own_session) {
    const LockGuard guard(*buffer_lock);
    if (accepting && own_session == session.load(std::memory_order_relaxed)) AppendLocked(line);
}

namespace {

void BeginSessionLine(TraceWriter* line) {
    line->BeginObject().Number<"seq">(NextSequence()).Number<"ts_us">(TraceTimeUs());
    WriteIds(line);
}

void WriteLogStart() {
    char text[256];
    TraceWriter line(text, sizeof text);
    BeginSessionLine(&line);
    const std::int32_t own_session = session.load(std::memory_order_relaxed);
    line.String<"ev">("log_start")
        .Number<"flush_ms">(kFlushMs)
        .Signed<"session">(own_session)
        .Text(kTraceLineEnd);
    const LockGuard guard(*buffer_lock);
    accepting = true;
    AppendLocked(line);
}

void WriteLogStop() {
    char text[256];
    TraceWriter line(text, sizeof text);
    BeginSessionLine(&line);
    line.String<"ev">("log_stop").Text(kTraceLineEnd);
    const LockGuard guard(*buffer_lock);
    AppendLocked(line);
    accepting = false;
}

// --- flusher ---

void WriteOut() {
    const char* data = nullptr;
    std::size_t length = 0;
    {
        const LockGuard guard(*buffer_lock);
        LineBuffer* taken = &buffers[filling];
        filling = 1 - filling;
        data = taken->data;
        length = taken->length;
        taken->length = 0;  // nobody writes there before the next swap
        data_signalled = false;
    }
    if (length == 0) return;
    OsAppendFileWrite(file, data, length);
    OsAppendFileFlush(file);
}

void CopTraceFlusherThread(void*) {
    for (;;) {
        const bool stopping = OsEventWaitEither(stop_event, data_event, kFlushMs) == 0;
        WriteOut();
        if (stopping) return;
        OsEventWait(stop_event, kGatherMs);
    }
}

// --- start and stop ---

bool IsSwitchSet(const char* name) {
    char value[16];
    if (!OsEnvironment(name, value, sizeof value)) return false;
    if (value[0] == '1') return true;
    for (char* letter = value; *letter != '\0'; ++letter) {
        if (*letter >= 'A' && *letter <= 'Z') *letter = static_cast<char>(*letter - 'A' + 'a');
    }
    return std::strcmp(value, "true") == 0 || std::strcmp(value, "yes") == 0;
}

void ReleaseSession() {
    OsThreadClose(flusher);
    OsEventClose(data_event);
    OsEventClose(stop_event);
    OsAppendFileClose(file);
    flusher = nullptr;
    data_event = nullptr;
    stop_event = nullptr;
    file = nullptr;
    const LockGuard guard(*buffer_lock);
    for (LineBuffer& buffer : buffers) {
        FreeMem(buffer.data);
        buffer = {};
    }
}

bool OpenSession() {
    data_event = OsEventCreate(EventReset::kAuto);
    stop_event = OsEventCreate(EventReset::kManual);
    if (data_event == nullptr || stop_event == nullptr) return false;
    std::int32_t number = session.load(std::memory_order_relaxed);
    file = CreateTraceFile(&number);
    session.store(number, std::memory_order_relaxed);
    if (file == nullptr) return false;
    BringToCleanLineEnd(file);
    flusher = OsThreadStart(&CopTraceFlusherThread, nullptr, "Tarvik CopTraceFlusherThread");
    return flusher != nullptr;
}

}  // namespace

void StartCopTrace() {
    if (CopTraceActive()) return;
    if (IsSwitchSet("DPDU_COPTRACE_DISABLE")) {
        OsDebugOutput("[CopLog] Logging is DISABLED via DPDU_COPTRACE_DISABLE\n");
        return;
    }
    cloud_packets.store(!IsSwitchSet("DPDU_COPTRACE_DISABLE_CLOUD_PKTS"));
    cloud_bytes.store(!IsSwitchSet("DPDU_COPTRACE_CLOUD_PKTS_META_ONLY"));
    OsDebugOutput("[CopLog] Logging is ENABLED\n");
    process_id.store(OsProcessId());
    sequence.store(0);
    if (!OpenSession()) {
        ReleaseSession();
        return;
    }
    WriteLogStart();
    active.store(true, std::memory_order_release);
}

void StopCopTrace() {
    if (!active.exchange(false)) return;
    WriteLogStop();
    OsEventSet(stop_event);
    OsThreadJoin(flusher, -1);
    ReleaseSession();
}

}  // namespace tarvik
