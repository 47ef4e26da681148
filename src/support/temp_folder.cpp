#include "support/temp_folder.h"

namespace tarvik {

const char* TempFolder(char (&buffer)[kMaxPath]) {
    const std::uint32_t length = OsTempPath(buffer, kMaxPath);
    return length > 0 && length < kMaxPath ? buffer : OsFallbackTempPath();
}

}  // namespace tarvik
