// The names of ComParams in data files and libraries. The D-PDU API can look up a name but cannot
// list the known ones, so 'comparam list' tries these.

#ifndef TOOLS_DPDU_PARAMS_COM_PARAM_NAMES_H
#define TOOLS_DPDU_PARAMS_COM_PARAM_NAMES_H

#include <span>

namespace dpdu {

// In alphabetical order.
std::span<const char* const> KnownComParamNames();

}  // namespace dpdu

#endif  // TOOLS_DPDU_PARAMS_COM_PARAM_NAMES_H
