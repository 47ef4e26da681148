// PINGs without an answer so far, and the check of their REPLs.

#pragma once

#include <deque>
#include <string>

#include "protocol/wire.h"

namespace brennix {

class OpenPings {
public:
    void Add(ByteSpan payload) { payloads_.emplace_back(payload.begin(), payload.end()); }
    // Takes the oldest PING as answered. Returns what is wrong with `packet`, a REPL; empty if
    // nothing is.
    std::string CheckReply(ByteSpan packet);
    void Clear() { payloads_.clear(); }

private:
    std::deque<Bytes> payloads_;
};

}  // namespace brennix
