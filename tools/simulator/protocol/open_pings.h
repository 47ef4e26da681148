// PINGs that were sent and not answered yet, and the check of their REPLs.

#pragma once

#include <deque>
#include <string>

#include "protocol/wire.h"

namespace brennix {

class OpenPings {
public:
    void Add(ByteSpan payload) { payloads_.emplace_back(payload.begin(), payload.end()); }
    // Closes the oldest PING. Returns what is wrong with `packet`, a REPL, as its answer; empty
    // when nothing is.
    std::string CheckReply(ByteSpan packet);
    void Clear() { payloads_.clear(); }

private:
    std::deque<Bytes> payloads_;
};

}  // namespace brennix
