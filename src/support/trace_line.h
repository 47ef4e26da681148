#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarvik {

// The key of a JSON field as it is written: ,"name":
template <std::size_t Size>
struct TraceKey {
    consteval TraceKey(const char (&name)[Size]) {
        char* at = text;
        *at++ = ',';
        *at++ = '"';
        for (std::size_t i = 0; i + 1 < Size; ++i)
            *at++ = name[i];
        *at++ = '"';
        *at = ':';
    }
    char text[Size + 3];
};

// Builds a trace line in a fixed buffer on the caller's stack. printf would cost more than the rest
// of an event. A line that does not fit is cut where printf into the same buffer would cut it.
class TraceWriter {
public:
    TraceWriter(char* buffer, std::size_t size) : buffer_(buffer), limit_(size - 1) {}
    TraceWriter(const TraceWriter&) = delete;
    TraceWriter& operator=(const TraceWriter&) = delete;

    // Fields. Number<"hMod">(1) writes `,"hMod":1`, without the comma at the start of an object.
    template <TraceKey Key>
    TraceWriter& Number(std::uint64_t value) {
        return WriteKey(ViewOf(Key)).WriteNumber(value);
    }
    template <TraceKey Key>
    TraceWriter& Signed(std::int64_t value) {
        return WriteKey(ViewOf(Key)).WriteSigned(value);
    }
    template <TraceKey Key>
    TraceWriter& Flag(bool value) {
        return WriteKey(ViewOf(Key)).Text(value ? "true" : "false");
    }
    template <TraceKey Key>
    TraceWriter& Null() {
        return WriteKey(ViewOf(Key)).Text("null");
    }
    // Nothing in `text` needs to be escaped.
    template <TraceKey Key>
    TraceWriter& String(std::string_view text) {
        return WriteKey(ViewOf(Key)).Text("\"").Text(text).Text("\"");
    }
    template <TraceKey Key>
    TraceWriter& EscapedString(const char* text, std::size_t length, std::size_t max_output) {
        WriteKey(ViewOf(Key)).Text("\"").Escaped(text, length, max_output);
        return Text("\"");
    }
    // The first kMaxHexBytes bytes in lower-case digits, how many they are, whether there are more.
    template <TraceKey Hex, TraceKey Count, TraceKey Cut>
    TraceWriter& Bytes(const void* data, std::size_t length) {
        WriteKey(ViewOf(Hex)).Text("\"").Digits(data, length).Text("\"");
        return Number<Count>(HexBytes(length)).template Flag<Cut>(HexCut(length));
    }

    // The following fields or elements are inside until the matching End.
    template <TraceKey Key>
    TraceWriter& BeginObject() {
        return WriteKey(ViewOf(Key)).Text("{");
    }
    TraceWriter& BeginObject() { return Text(IsFirst() ? "{" : ",{"); }  // the line, or an element
    TraceWriter& EndObject() { return Text("}"); }
    template <TraceKey Key>
    TraceWriter& BeginArray() {
        return WriteKey(ViewOf(Key)).Text("[");
    }
    TraceWriter& EndArray() { return Text("]"); }

    TraceWriter& Text(std::string_view text);
    // Lower-case digits of the first kMaxHexBytes bytes.
    TraceWriter& Digits(const void* data, std::size_t length);
    // The text's printable characters, escaped for a JSON string, at most `max_output` characters.
    // Returns whether all of the text was used.
    bool Escaped(const char* text, std::size_t length, std::size_t max_output);

    // Keeps the last `size` characters of the buffer free until Release.
    void Reserve(std::size_t size) { limit_ -= size; }
    void Release(std::size_t size) { limit_ += size; }
    // Forgets everything after `length` characters, and that any of it was cut.
    void RollBack(std::size_t length);

    bool WasCut() const { return was_cut_; }
    const char* Data() const { return buffer_; }
    std::size_t Length() const { return length_; }

    static constexpr std::size_t kMaxHexBytes = 512;
    // The number of bytes that Digits writes, and whether that is fewer than all.
    static std::uint32_t HexBytes(std::size_t length);
    static bool HexCut(std::size_t length) { return length > kMaxHexBytes; }

private:
    template <std::size_t Size>
    static constexpr std::string_view ViewOf(const TraceKey<Size>& key) {
        return {key.text, sizeof key.text};
    }
    // First in the line, an object or an array. A line that was cut here takes no more text anyway.
    bool IsFirst() const {
        return length_ == 0 || buffer_[length_ - 1] == '{' || buffer_[length_ - 1] == '[';
    }
    TraceWriter& WriteKey(std::string_view key) { return Text(key.substr(IsFirst() ? 1 : 0)); }
    TraceWriter& WriteNumber(std::uint64_t value);
    TraceWriter& WriteSigned(std::int64_t value);

    char* buffer_;
    std::size_t limit_;
    std::size_t length_ = 0;
    bool was_cut_ = false;
};

}  // namespace tarvik
