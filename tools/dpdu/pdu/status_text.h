// The names of status codes, error events and states.

#ifndef TOOLS_DPDU_PDU_STATUS_TEXT_H
#define TOOLS_DPDU_PDU_STATUS_TEXT_H

#include <string>

#include "console/failure.h"
#include "dpdu_types.h"

namespace dpdu {

// "PDU_ERR_INVALID_HANDLE (0x60)"; only the number if it has no name.
std::string StatusText(T_PDU_ERROR status);

// Meaning and name of an error item's code.
std::string ErrorEventText(T_PDU_ERR_EVT code);

// The exit code of a request that ended with this error.
ExitCode ErrorEventCode(T_PDU_ERR_EVT code);

// Name of a ComPrimitive, link or module state.
std::string StateText(T_PDU_STATUS state);

// Throws Failure with the function's name unless the status is PDU_STATUS_NOERROR.
void Check(T_PDU_ERROR status, const char* function);

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_STATUS_TEXT_H
