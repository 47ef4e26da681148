// What kind of program a file is, read from its header: nothing of it is loaded.

#ifndef TOOLS_DPDU_CHECK_LIBRARY_FILE_H
#define TOOLS_DPDU_CHECK_LIBRARY_FILE_H

#include <cstdint>
#include <string>

namespace dpdu::check {

struct ProgramKind {
    enum class Format : std::uint8_t { kNone, kElf, kPe };

    Format format = Format::kNone;  // none: neither of them
    unsigned bits = 0;
    std::uint16_t machine = 0;  // the format's own number
    bool is_library = false;    // also true for an ELF program that can be loaded at any address

    bool RunsWith(const ProgramKind& other) const {
        return format == other.format && bits == other.bits && machine == other.machine;
    }
};

// No format also if the file cannot be read or ends within its header.
ProgramKind ReadProgramKind(const std::string& path);

// "64-bit Linux library for x86-64"
std::string KindText(const ProgramKind& kind);

}  // namespace dpdu::check

#endif  // TOOLS_DPDU_CHECK_LIBRARY_FILE_H
