#pragma once

// The bytes of a fuzz target's input, read as numbers. After the last byte everything is 0.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace tarvik::fuzz {

using Bytes = std::vector<std::uint8_t>;

// Several threads may read from one.
class Input {
public:
    explicit Input(Bytes bytes) : bytes_(std::move(bytes)) {}
    Input(const std::uint8_t* data, std::size_t size) : bytes_(data, data + size) {}

    void SkipToEnd() { at_ = bytes_.size(); }
    bool AtEnd() const { return at_.load() >= bytes_.size(); }
    std::uint8_t U8() {
        const std::size_t at = at_.fetch_add(1);
        return at < bytes_.size() ? bytes_[at] : std::uint8_t{0};
    }
    std::uint16_t U16() { return static_cast<std::uint16_t>(U8() << 8 | U8()); }
    std::uint32_t U32() {
        const std::uint32_t high = U16();
        return high << 16 | U16();
    }
    bool Flag() { return (U8() & 1) != 0; }
    std::uint32_t Below(std::uint32_t end) { return U8() % end; }
    template <typename Range>
    auto OneOf(const Range& values) {
        return *(std::begin(values) + U8() % std::size(values));
    }
    Bytes Take(std::size_t count) {
        Bytes taken(count);
        for (std::uint8_t& byte : taken)
            byte = U8();
        return taken;
    }
    Bytes Rest() { return Take(bytes_.size() - std::min(at_.load(), bytes_.size())); }

private:
    const Bytes bytes_;
    std::atomic<std::size_t> at_{0};
};

}  // namespace tarvik::fuzz
