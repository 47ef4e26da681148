// Vehicle identification numbers.

#ifndef TOOLS_DPDU_UDS_VIN_H
#define TOOLS_DPDU_UDS_VIN_H

#include <string>

#include "text/hex.h"

namespace dpdu {

// The text of a vehicle identification number, without padding at either end; characters that
// cannot be printed become dots.
std::string VinText(const Bytes& bytes);

// 17 digits and letters, without I, O and Q.
bool IsWellFormedVin(const std::string& vin);

}  // namespace dpdu

#endif  // TOOLS_DPDU_UDS_VIN_H
