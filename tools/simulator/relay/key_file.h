// The relay's own key pair, in a file of its folder.

#pragma once

#include <string>

#include "relay/crypto.h"

namespace brennix {

// Makes folder and file when they are not there, readable for their owner only. Throws
// std::runtime_error.
KeyPair LoadOrMakeKey(const std::string& folder);

// 64 hex digits. Throws std::runtime_error.
KeyPair ReadKey(const std::string& text, const std::string& name);

std::string KeyFile(const std::string& folder);

std::string ToLowerHex(ByteSpan bytes);

}  // namespace brennix
