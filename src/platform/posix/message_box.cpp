#include "platform/message_box.h"

#include "platform/process.h"

namespace tarvik {

void OsWarningBox(const char* text, const char* caption) { OsMessageBox(text, caption); }

}  // namespace tarvik
