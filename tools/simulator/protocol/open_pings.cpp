#include "protocol/open_pings.h"

#include <algorithm>

namespace brennix {

std::string OpenPings::CheckReply(ByteSpan packet) {
    if (payloads_.empty()) return "REPL without a PING";
    const Bytes expected = std::move(payloads_.front());
    payloads_.pop_front();
    const ByteSpan payload = PacketPayload(packet);
    if (std::equal(payload.begin(), payload.end(), expected.begin(), expected.end())) return {};
    return "REPL with payload " + ToHex(payload) + ", PING had " + ToHex(expected);
}

}  // namespace brennix
