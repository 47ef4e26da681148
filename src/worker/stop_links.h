#pragma once

namespace tarvik {

// Ends every link of every module and releases the link arrays. Part of PDUDestruct.
void StopAllLinks();

}  // namespace tarvik
