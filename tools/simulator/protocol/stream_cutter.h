// Cuts the byte stream from the port into packets. Everything before the first SYNC is noise; after
// an impossible header it searches for SYNC again.

#pragma once

#include "protocol/wire.h"

namespace brennix {

class StreamCutter {
public:
    class Sink {
    public:
        virtual void OnPacket(ByteSpan packet) = 0;  // complete: its length field equals its size
        virtual void OnNoise(ByteSpan bytes) = 0;    // skipped while searching for SYNC
        virtual void OnBadHeader(ByteSpan header) = 0;

    protected:
        ~Sink() = default;
    };

    // Reports to `sink` in the order of the bytes; spans are valid during the call only.
    void Feed(ByteSpan data, Sink* sink);
    // The host closed the port: drops an incomplete packet. Returns the number of bytes dropped.
    std::size_t Reset();
    bool IsSynced() const { return synced_; }

private:
    std::size_t CutOne(ByteSpan rest, Sink* sink);
    std::size_t SkipToSync(ByteSpan rest, Sink* sink);

    Bytes pending_;
    bool synced_ = false;
};

}  // namespace brennix
