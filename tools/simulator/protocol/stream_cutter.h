// Cuts the byte stream from the port into packets. Before the first SYNC everything is noise; after
// a header that cannot be one the stream is searched for SYNC again.

#pragma once

#include "protocol/wire.h"

namespace brennix {

class StreamCutter {
public:
    class Sink {
    public:
        virtual void OnPacket(ByteSpan packet) = 0;  // whole, its length field is its size
        virtual void OnNoise(ByteSpan bytes) = 0;    // skipped while searching for SYNC
        virtual void OnBadHeader(ByteSpan header) = 0;

    protected:
        ~Sink() = default;
    };

    // Reports on `sink` in the order of the bytes; spans live only during the call.
    void Feed(ByteSpan data, Sink* sink);
    // The host closed the port: forgets what was begun. Returns the number of bytes dropped.
    std::size_t Reset();
    bool IsSynced() const { return synced_; }

private:
    std::size_t CutOne(ByteSpan rest, Sink* sink);
    std::size_t SkipToSync(ByteSpan rest, Sink* sink);

    Bytes pending_;
    bool synced_ = false;
};

}  // namespace brennix
