// Vehicle identification numbers.

#ifndef TOOLS_DPDU_UDS_VIN_H
#define TOOLS_DPDU_UDS_VIN_H

#include <string>

#include "text/hex.h"

namespace dpdu {

// The text of a vehicle identification number: everything printable as it is, the rest as dots,
// without padding at either end.
std::string VinText(const Bytes& bytes);

// 17 characters out of the digits and the letters but I, O and Q.
bool IsWellFormedVin(const std::string& vin);

}  // namespace dpdu

#endif  // TOOLS_DPDU_UDS_VIN_H
