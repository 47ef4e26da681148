#pragma once

#include <string>

// The files by which applications know the library and its dongle, made of the library's own
// tables.
namespace tarvik::descriptions {

// The library must be constructed enough to have its ComParams: AllocParamItems.
std::string ModuleDescription();
std::string CableDescription();

}  // namespace tarvik::descriptions
