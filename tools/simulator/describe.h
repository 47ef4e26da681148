// The fields of a packet by name, for the record.

#pragma once

#include <nlohmann/json_fwd.hpp>

#include "wire.h"

namespace brennix {

// Ids and bytes as hex text, counts and times as numbers. A packet too short for its fields, or of
// a type without any, gives an empty object.
nlohmann::ordered_json DescribePacket(ByteSpan packet);

}  // namespace brennix
