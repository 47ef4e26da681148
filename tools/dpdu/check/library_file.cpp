#include "check/library_file.h"

#include <array>
#include <fstream>
#include <string_view>

#include "text/names.h"

namespace dpdu::check {
namespace {

using Format = ProgramKind::Format;

// Both headers as far as they are read. Numbers are little-endian.
constexpr std::string_view kElfMagic =
    "\x7F"
    "ELF";
constexpr std::size_t kElfSize = 20;
constexpr std::size_t kElfClass = 4;  // 1: 32 bits, 2: 64 bits
constexpr std::size_t kElfByteOrder = 5;
constexpr std::size_t kElfType = 16;
constexpr std::size_t kElfMachine = 18;
constexpr std::uint16_t kElfSharedObject = 3;

constexpr std::string_view kDosMagic = "MZ";
constexpr std::size_t kDosSize = 64;
constexpr std::size_t kDosPeOffset = 0x3C;
constexpr std::string_view kPeMagic{"PE\0\0", 4};
constexpr std::size_t kPeSize = 26;
constexpr std::size_t kPeMachine = 4;
constexpr std::size_t kPeCharacteristics = 22;
constexpr std::size_t kPeOptionalMagic = 24;
constexpr std::uint16_t kPeLibrary = 0x2000;
constexpr std::uint16_t kPe64 = 0x20B;

struct MachineName {
    Format format;
    std::uint16_t machine;
    const char* name;
};
constexpr MachineName kMachineNames[] = {
    {Format::kElf, 3, "x86"},        {Format::kElf, 40, "ARM"},      {Format::kElf, 62, "x86-64"},
    {Format::kElf, 183, "ARM64"},    {Format::kPe, 0x14C, "x86"},    {Format::kPe, 0x1C4, "ARM"},
    {Format::kPe, 0x8664, "x86-64"}, {Format::kPe, 0xAA64, "ARM64"},
};

std::uint16_t NumberAt(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[at]) |
                                      static_cast<unsigned char>(bytes[at + 1]) << 8);
}

// Empty: the file has fewer bytes there.
std::string BytesAt(std::ifstream* file, std::uint32_t at, std::size_t size) {
    std::string bytes(size, '\0');
    file->clear();
    file->seekg(at);
    file->read(bytes.data(), static_cast<std::streamsize>(size));
    return file->gcount() == static_cast<std::streamsize>(size) ? bytes : "";
}

ProgramKind ElfKind(std::string_view header) {
    const bool is_little_endian = header[kElfByteOrder] == 1;
    if (!is_little_endian) return {};
    return {Format::kElf, header[kElfClass] == 2 ? 64U : 32U, NumberAt(header, kElfMachine),
            NumberAt(header, kElfType) == kElfSharedObject};
}

ProgramKind PeKind(std::string_view header) {
    return {Format::kPe, NumberAt(header, kPeOptionalMagic) == kPe64 ? 64U : 32U,
            NumberAt(header, kPeMachine), (NumberAt(header, kPeCharacteristics) & kPeLibrary) != 0};
}

std::string MachineText(const ProgramKind& kind) {
    for (const MachineName& row : kMachineNames) {
        if (row.format == kind.format && row.machine == kind.machine) return row.name;
    }
    return "machine " + std::to_string(kind.machine);
}

}  // namespace

ProgramKind ReadProgramKind(const std::string& path) {
    std::ifstream file(PathOf(path), std::ios::binary);
    const std::string elf = BytesAt(&file, 0, kElfSize);
    if (elf.starts_with(kElfMagic)) return ElfKind(elf);
    const std::string dos = BytesAt(&file, 0, kDosSize);
    if (!dos.starts_with(kDosMagic)) return {};
    const std::uint32_t offset = NumberAt(dos, kDosPeOffset) |
                                 static_cast<std::uint32_t>(NumberAt(dos, kDosPeOffset + 2)) << 16;
    const std::string pe = BytesAt(&file, offset, kPeSize);
    return pe.starts_with(kPeMagic) ? PeKind(pe) : ProgramKind{};
}

std::string KindText(const ProgramKind& kind) {
    if (kind.format == Format::kNone) return "neither a Linux nor a Windows library";
    return std::to_string(kind.bits) + "-bit " +
           (kind.format == Format::kElf ? "Linux" : "Windows") +
           (kind.is_library ? " library" : " program") + " for " + MachineText(kind);
}

}  // namespace dpdu::check
