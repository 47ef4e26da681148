#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace tarvik::bench {

// A separate folder below the build folder for the library's files. Sets the environment variables
// that locate configuration, debug log and trace. Removed at the end.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    // Writes the configuration for the next PDUConstruct: only this transport, with or without
    // diagnostics.
    void WriteConfig(bool diagnostics, std::string_view transport = "useSerial") const;

private:
    std::filesystem::path path_;
};

}  // namespace tarvik::bench
