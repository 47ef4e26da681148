// A packet's fields by name, for the record.

#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "protocol/wire.h"

namespace brennix {

// "7E0", "18DAF110"
std::string CanIdText(std::uint32_t id);

// Ids and bytes as hex text, counts and times as numbers. Empty object if the packet is too short
// for its fields or its type has none.
nlohmann::ordered_json DescribePacket(ByteSpan packet);

}  // namespace brennix
