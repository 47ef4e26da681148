#include "platform/message_box.h"

#include <unistd.h>

#include <cstring>
#include <initializer_list>

#include "platform/posix/descriptor_output.h"
#include "platform/posix/pipe_signal.h"

namespace tarvik {

void OsMessageBox(const char* text, const char* caption, BoxIcon) {
    const PipeSignalHeld no_signal;
    const DescriptorKind kind = KindOf(STDERR_FILENO);
    TextPieces box;
    for (const char* piece : {caption, "\n", text, "\n"})
        box.Add(piece, std::strlen(piece));
    if (NeverWaits(kind)) {
        WriteAtOnce(STDERR_FILENO, kind, &box);
        return;
    }
    for (std::size_t i = 0; i < box.Count(); ++i) {
        const iovec& piece = box.Begin()[i];
        WriteAll(STDERR_FILENO, static_cast<char*>(piece.iov_base), piece.iov_len);
    }
}

}  // namespace tarvik
