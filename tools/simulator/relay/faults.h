// Intentional faults between relay and client: rules, each for certain packets of every connection.

#pragma once

#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "protocol/wire.h"

namespace brennix {

enum class FaultPlace {
    kAccept,  // a new connection
    kOut,     // a packet to the client
    kIn,      // a packet from the client; sealed ones are opened first
    kBytes,   // the byte stream to the client
};

enum class FaultAction {
    // Packets to the client.
    kDrop,
    kDelay,
    kSplit,
    kSwap,
    kJoin,
    kReplay,
    kFlip,
    kSet,
    kTruncate,
    kLength,
    kHeader,
    kNoise,
    kText,
    kRecut,
    kFrames,
    kReplace,
    kPlain,
    // Packets from the client.
    kIgnore,
    // Connections.
    kCut,
    kReset,
    kDeaf,
    kRefuse,
    kHttp,
};

struct FaultRule {
    std::optional<std::uint32_t> times_left;  // none: no limit
    FaultPlace place;
    std::optional<std::uint32_t> type;    // kOut, kIn; none: of all types
    std::optional<std::uint32_t> number;  // counted from 1 in its type and connection; none: each
    FaultAction action;
    std::uint32_t a = 0;
    std::uint32_t b = 0;
    Bytes bytes;
    std::string text;  // as it was written
};

// Counts one connection's packets in the way of the rules.
class FaultCounter {
public:
    struct Numbers {
        std::uint32_t of_all;
        std::uint32_t of_type;
    };
    Numbers Next(FaultPlace place, std::uint32_t type);

private:
    std::map<std::pair<FaultPlace, std::uint32_t>, std::uint32_t> counts_;
};

class FaultScript {
public:
    // Adds the rules of `text`, "RULE; RULE". Throws UsageError; then adds none.
    void Add(std::string_view text);
    void Clear() { rules_.clear(); }
    std::string Describe() const;  // the rules that are left

    // The rules for this packet, in the order in which they were added. Uses each of them up once.
    std::vector<FaultRule> Take(FaultPlace place, std::uint32_t type,
                                const FaultCounter::Numbers& numbers);
    std::vector<FaultRule> TakeForConnection();
    // The rule that ends the byte stream, if any; does not use it up.
    FaultRule* StreamRule();
    void UseUp(FaultRule* rule);

    // For help texts.
    static std::string Help();

private:
    std::list<FaultRule> rules_;
};

}  // namespace brennix
