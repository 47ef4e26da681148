// Loads a D-PDU library; what is wrong with it becomes a failure with advice.

#ifndef TOOLS_DPDU_PDU_FUNCTIONS_H
#define TOOLS_DPDU_PDU_FUNCTIONS_H

#include <string>

#include "dpdu.hpp"

namespace dpdu {

// Loads the library at `path`; if it is empty, this project's library beside the program. Throws
// Failure with advice if it cannot be loaded or lacks a function.
pdu::Functions LoadPduFunctions(const std::string& path);

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_FUNCTIONS_H
