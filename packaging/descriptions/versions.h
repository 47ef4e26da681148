#pragma once

#include <string>

namespace tarvik::descriptions {

// The version of the product, "0.1.0".
std::string ProductVersion();
// The version of the standard that the library reports, "2.2.2".
std::string StandardVersion();

}  // namespace tarvik::descriptions
