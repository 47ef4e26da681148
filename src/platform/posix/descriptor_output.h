#pragma once

#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>

namespace tarvik {

enum class DescriptorKind : unsigned char { kFile, kTerminal, kPipe, kSocket, kClosed };

DescriptorKind KindOf(int descriptor);
// Whether its text is written at once or not at all.
bool NeverWaits(DescriptorKind kind);

// Text in several pieces.
class TextPieces {
public:
    void Add(const char* text, std::size_t length) {
        pieces_[count_++] = {const_cast<char*>(text), length};
        total_ += length;
    }
    iovec* Begin() { return pieces_; }
    std::size_t Count() const { return count_; }
    std::size_t Total() const { return total_; }

private:
    iovec pieces_[4];
    std::size_t count_ = 0;
    std::size_t total_ = 0;
};

void WriteAll(int descriptor, const char* text, std::size_t length);
// For a kind that never waits. Returns the number of bytes that were taken; below 0: none.
ssize_t WriteAtOnce(int descriptor, DescriptorKind kind, TextPieces* text);

}  // namespace tarvik
