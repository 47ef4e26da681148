// The names of ComParams that data files and libraries use. The interface can look up a name but
// not list those that it knows, so a list has to start from somewhere.

#ifndef TOOLS_DPDU_PARAMS_COM_PARAM_NAMES_H
#define TOOLS_DPDU_PARAMS_COM_PARAM_NAMES_H

#include <span>

namespace dpdu {

// In alphabetical order.
std::span<const char* const> KnownComParamNames();

}  // namespace dpdu

#endif  // TOOLS_DPDU_PARAMS_COM_PARAM_NAMES_H
