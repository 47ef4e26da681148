#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarvik::test {

// While this object lives, searches every tracked block that is released for these bytes, also in
// reverse order. One at a time.
class ReleasedMemory {
public:
    using Bytes = std::vector<std::uint8_t>;

    explicit ReleasedMemory(std::vector<Bytes> secrets);
    ~ReleasedMemory();
    ReleasedMemory(const ReleasedMemory&) = delete;
    ReleasedMemory& operator=(const ReleasedMemory&) = delete;

    std::size_t Blocks() const { return blocks_; }  // released so far
    std::size_t Leaks() const { return leaks_; }    // secrets found in them
    void Look(const std::uint8_t* block, std::size_t size);

private:
    std::vector<Bytes> secrets_;
    std::size_t blocks_ = 0;
    std::size_t leaks_ = 0;
};

}  // namespace tarvik::test
