#include "support/device_log.h"

#include <cstdint>
#include <cstring>

#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/process.h"
#include "support/log.h"
#include "support/memory.h"
#include "support/peer_limits.h"

namespace tarvik {
namespace {

// Several ports may receive at the same time. Guards the next two.
Immortal<OsLock> buffer_lock;
char* buffer = nullptr;       // text of an unfinished line, ended by NUL
std::uint64_t used_size = 0;  // with the NUL; 0 without a buffer

bool CreateBuffer() {
    if (buffer != nullptr) return true;
    buffer = static_cast<char*>(AllocateMem(1));
    used_size = buffer != nullptr ? 1 : 0;
    if (buffer == nullptr) ConsolePrint("Failed to allocate memory for log buffer\n");
    return buffer != nullptr;
}

bool Append(const char* text, std::size_t length) {
    auto* larger = static_cast<char*>(AllocateMem(used_size + length));
    if (larger != nullptr) {
        std::memcpy(larger, buffer, used_size - 1);
        std::memcpy(larger + used_size - 1, text, length);
        larger[used_size + length - 1] = '\0';
    }
    FreeMem(buffer);
    buffer = larger;
    used_size = larger != nullptr ? used_size + length : 0;
    if (larger == nullptr) ConsolePrint("Failed to reallocate memory for log buffer\n");
    return larger != nullptr;
}

// Prints the line at `text` if it has ended, or its first part if it is too long. Returns what is
// after that; `text` itself if nothing was printed.
char* PrintLine(char* text) {
    const std::size_t limit = GetPeerLimits().log_line_bytes;
    const std::size_t length = std::strcspn(text, "\n");
    if (length > limit) {
        ConsolePrint("[LOG] %.*s\n", static_cast<int>(limit), text);
        return text + limit;
    }
    if (text[length] == '\0') return text;
    text[length] = '\0';
    ConsolePrint("[LOG] %s\n", text);
    return text + length + 1;
}

void PrintCompleteLines() {
    char* line = buffer;
    for (char* next = PrintLine(line); next != line; next = PrintLine(line))
        line = next;
    used_size -= static_cast<std::uint64_t>(line - buffer);
    std::memmove(buffer, line, used_size);
}

__attribute__((destructor)) void ReleaseBufferAtUnload() {
    if (OsIsForked()) return;
    const LockGuard guard(*buffer_lock);
    FreeMem(buffer);
    buffer = nullptr;
    used_size = 0;
}

}  // namespace

void ProcessDeviceLogPacket(const char* text, std::size_t length) {
    const void* end = std::memchr(text, '\0', length);
    if (end != nullptr) length = static_cast<std::size_t>(static_cast<const char*>(end) - text);
    const LockGuard guard(*buffer_lock);
    if (CreateBuffer() && Append(text, length)) PrintCompleteLines();
}

}  // namespace tarvik
