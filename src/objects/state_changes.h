#pragma once

#include <cstdint>

#include "objects/com_primitive.h"
#include "objects/link_record.h"

// The only way to change a state that the application sees: stores it, produces the item and calls
// the callback, also when nothing changed.
namespace tarvik {

// Error event codes in use.
inline constexpr std::uint32_t kErrorNothingReceived = 257;
inline constexpr std::uint32_t kErrorNoMatch = 259;

// Does nothing for a link that has been destroyed.
void SetLinkState(LinkRecord* link, std::uint32_t new_state);
void UpdateCopState(LinkRecord* link, ComPrimitive* cop, std::uint32_t new_state);
// Reports an error of a ComPrimitive; its state stays.
void cop_error(LinkRecord* link, ComPrimitive* cop, std::uint32_t code);

}  // namespace tarvik
