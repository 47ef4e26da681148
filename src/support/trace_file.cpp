#include "support/trace_file.h"

#include <algorithm>

#include "platform/process.h"
#include "support/log.h"
#include "support/memory.h"
#include "support/temp_folder.h"

namespace tarvik {
namespace {

constexpr std::uint64_t kTailSize = 65'536;

bool TraceFilePath(char (&path)[kMaxPath], std::int32_t session) {
    char folder[kMaxPath];
    return FormatText(path, sizeof path, "%sdpdu_coptrace_%lu_%ld.jsonl", TempFolder(folder),
                      static_cast<unsigned long>(OsProcessId()), static_cast<long>(session)) >= 0;
}

void AnnounceFile(const char* path) {
    char notice[kMaxPath + 64];
    FormatText(notice, sizeof notice, "[CopLog] Creating trace file: %s\n", path);
    OsDebugOutput(notice);
}

}  // namespace

OsAppendFile* CreateTraceFile(std::int32_t* session) {
    for (;;) {
        ++*session;
        char path[kMaxPath];
        if (!TraceFilePath(path, *session)) return nullptr;
        AnnounceFile(path);
        OsAppendFile* file = nullptr;
        switch (OsAppendFileCreate(path, &file)) {
            case CreateFileResult::kCreated:
                return file;
            case CreateFileResult::kExists:
                break;
            case CreateFileResult::kFailed:
                return nullptr;
        }
    }
}

void BringToCleanLineEnd(OsAppendFile* file) {
    const std::uint64_t size = OsAppendFileSize(file);
    if (size == 0) return;
    const std::uint64_t tail_start = size - std::min(size, kTailSize);
    const Tracked<char> tail(static_cast<char*>(AllocateMem(kTailSize)));
    if (tail == nullptr) return;
    std::size_t length = OsAppendFileReadAt(file, tail_start, tail.get(),
                                            static_cast<std::size_t>(size - tail_start));
    while (length > 0 && tail.get()[length - 1] != '\n')
        --length;
    const std::uint64_t clean_size = length > 0 ? tail_start + length : 0;
    if (clean_size != size) OsAppendFileTruncate(file, clean_size);
}

}  // namespace tarvik
