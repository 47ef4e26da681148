#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarvik {

// Puts a trace line together in a fixed buffer, on the caller's stack and without printf, whose
// cost would be the greater part of an event's. What does not fit is cut at the buffer's end, one
// character before its last, as printf into the same buffer would.
class TraceWriter {
public:
    TraceWriter(char* buffer, std::size_t size) : buffer_(buffer), limit_(size - 1) {}
    TraceWriter(const TraceWriter&) = delete;
    TraceWriter& operator=(const TraceWriter&) = delete;

    // `key` stands in front as it is: ",\"hMod\":".
    TraceWriter& Text(std::string_view text);
    TraceWriter& Number(std::string_view key, std::uint64_t value);
    TraceWriter& Signed(std::string_view key, std::int64_t value);
    TraceWriter& Flag(std::string_view key, bool value);
    // Lower-case digits of the first kMaxHexBytes bytes.
    TraceWriter& Hex(std::string_view key, const void* data, std::size_t length);
    // The text's printable characters, escaped for a JSON string, at most `max_output` characters.
    // Returns whether all of the text was used.
    bool Escaped(std::string_view key, const char* text, std::size_t length,
                 std::size_t max_output);

    // The last `size` characters of the buffer are kept for what comes after Release.
    void Reserve(std::size_t size) { limit_ -= size; }
    void Release(std::size_t size) { limit_ += size; }
    // Forgets everything after `length` characters, and that any of it was cut.
    void RollBack(std::size_t length);

    bool WasCut() const { return was_cut_; }
    const char* Data() const { return buffer_; }
    std::size_t Length() const { return length_; }

    static constexpr std::size_t kMaxHexBytes = 512;
    // The number of bytes that Hex writes, and whether that is fewer than all.
    static std::uint32_t HexBytes(std::size_t length);
    static bool HexCut(std::size_t length) { return length > kMaxHexBytes; }

private:
    char* buffer_;
    std::size_t limit_;
    std::size_t length_ = 0;
    bool was_cut_ = false;
};

}  // namespace tarvik
