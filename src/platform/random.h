#pragma once

#include <cstdint>

namespace tarvik {

// A number that others cannot predict, so that they cannot choose data that collides in a hash
// table. Not for keys: where the system has no randomness, it is only hard to guess.
std::uint64_t OsRandomNumber();

}  // namespace tarvik
