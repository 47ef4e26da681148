// The relay's own key pair, in a file in its folder.

#pragma once

#include <string>

#include "relay/crypto.h"

namespace brennix {

// Creates folder and file if they are missing, readable by their owner only. Throws
// std::runtime_error.
KeyPair LoadOrMakeKey(const std::string& folder);

// 64 hex digits. Throws std::runtime_error.
KeyPair ReadKey(const std::string& text, const std::string& name);

std::string KeyFile(const std::string& folder);

std::string ToLowerHex(ByteSpan bytes);

}  // namespace brennix
