// SilenceOutput of the fuzz targets: nothing is written anywhere.

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "fuzz/link/fuzz_support.h"
#include "support/log.h"

namespace tarvik::fuzz {
namespace {

// From now on the file's descriptor writes to nowhere.
void SendNowhere(const std::string& path) {
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    Require(nowhere >= 0);
    bool found = false;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) != path) continue;
        Require(::dup2(nowhere, std::stoi(entry.path().filename())) >= 0);
        found = true;
    }
    ::close(nowhere);
    Require(found);
}

}  // namespace

void SilenceOutput() {
    Require(std::freopen("/dev/null", "w", stdout) != nullptr);
    const char* const parent = std::getenv("TMPDIR");
    std::string folder = std::string(parent != nullptr ? parent : "/tmp") + "/fuzz-XXXXXX";
    Require(::mkdtemp(folder.data()) != nullptr);
    Require(::setenv("TMPDIR", folder.c_str(), 1) == 0);
    OpenDebugLog(true);
    Require(LogEnabled(kLogTrace));
    SendNowhere(folder + "/dpdu_debug_" + std::to_string(::getpid()) + ".log");
    std::filesystem::remove_all(folder);
}

}  // namespace tarvik::fuzz
