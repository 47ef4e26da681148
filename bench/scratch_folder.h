#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace tarvik::bench {

// A folder of its own below the build folder for what the library writes: configuration, debug log
// and trace are found by their environment variables, which this sets. Removed at the end.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    // The configuration that the next PDUConstruct reads: this transport only, diagnostics as said.
    void WriteConfig(bool diagnostics, std::string_view transport = "useSerial") const;

private:
    std::filesystem::path path_;
};

}  // namespace tarvik::bench
