#include "scratch_folder.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace tarvik::bench {
namespace {

std::filesystem::path MakeFolder() {
    std::string path = (std::filesystem::temp_directory_path() / "tarvik-bench-XXXXXX").string();
    if (::mkdtemp(path.data()) == nullptr) std::abort();
    return path;
}

}  // namespace

ScratchFolder::ScratchFolder() : path_(MakeFolder()) {
    ::setenv("TMPDIR", path_.c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", path_.c_str(), 1);
}

ScratchFolder::~ScratchFolder() {
    ::unsetenv("TMPDIR");
    ::unsetenv("XDG_CONFIG_HOME");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void ScratchFolder::WriteConfig(bool diagnostics, std::string_view transport) const {
    const std::filesystem::path folder = path_ / "Tarvik" / "Brennix";
    std::filesystem::create_directories(folder);
    std::ofstream file(folder / "config.json");
    file << "{\"showDebug\":false,\"dummyDevice\":false,\"useWebsocket\":false";
    for (const std::string_view each : {"useSerial", "useCloud", "useBle"})
        file << ",\"" << each << "\":" << (each == transport ? "true" : "false");
    for (const char* const each : {"enableCopTrace", "enableDebugLogFile"})
        file << ",\"" << each << "\":" << (diagnostics ? "true" : "false");
    file << "}";
}

}  // namespace tarvik::bench
