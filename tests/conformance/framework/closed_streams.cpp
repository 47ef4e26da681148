#include "conformance/framework/closed_streams.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "conformance/framework/fresh_process.h"
#include "conformance/framework/library.h"
#include "conformance/framework/link.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/trace_file.h"
#include "conformance/framework/vehicle.h"

namespace conformance {
namespace {

constexpr int kStreams = 3;

// Closes the standard streams while it lives.
class ClosedStreams {
public:
    ClosedStreams() {
        std::fflush(stdout);
        std::fflush(stderr);
        for (int stream = 0; stream < kStreams; ++stream) {
            saved_[stream] = ::fcntl(stream, F_DUPFD_CLOEXEC, kStreams);
            ::close(stream);
        }
    }
    ~ClosedStreams() {
        for (int stream = 0; stream < kStreams; ++stream) {
            ::dup2(saved_[stream], stream);
            ::close(saved_[stream]);
        }
    }
    ClosedStreams(const ClosedStreams&) = delete;
    ClosedStreams& operator=(const ClosedStreams&) = delete;

    // What is open in their place and would take text. For moments there may be a folder that is
    // being read, or a descriptor that only takes the number.
    static std::string Opened() {
        std::string opened;
        for (int stream = 0; stream < kStreams; ++stream) {
            const int flags = ::fcntl(stream, F_GETFL);
            if (flags < 0 || (flags & O_PATH) != 0 || (flags & O_ACCMODE) == O_RDONLY) continue;
            char target[256] = {};
            const std::string link = "/proc/self/fd/" + std::to_string(stream);
            if (::readlink(link.c_str(), target, sizeof target - 1) > 0)
                opened += std::to_string(stream) + " is " + target + ". ";
        }
        return opened;
    }

private:
    int saved_[kStreams];
};

// Nothing is opened here meanwhile, not even the log, as the library would find that number in use.
void UseDongle(Settings settings) {
    settings.showDebug = true;
    settings.enableCopTrace = true;
    settings.Store();
    std::size_t answers = 0;
    std::string opened;
    {
        const ClosedStreams closed;
        const Functions& library = Pdu();
        library.PDUConstruct(nullptr, nullptr);
        opened += ClosedStreams::Opened();
        const UNUM32 hMod = FindModule();
        opened += ClosedStreams::Opened();
        library.PDUModuleConnect(hMod);
        {
            EngineLink link(hMod);
            answers = link.Request(ReadVin(), PositiveRead()).results.size();
            opened += ClosedStreams::Opened();
        }
        library.PDUDestruct();
        opened += ClosedStreams::Opened();
    }
    EXPECT_EQ(opened, "");
    EXPECT_EQ(answers, 1u);
    // Its first line on the console.
    EXPECT_EQ(ReadFile(LogPath()).find("Opened config file"), std::string::npos);
    EXPECT_FALSE(ReadTrace().empty());
}

}  // namespace

void UseDongleWithClosedStreams(Settings (*settings)()) {
    if (IsProcessFor(RunningTest())) return UseDongle(settings());
    // The thread sanitizer takes it for a race that this looks at a descriptor which the library
    // closes.
    const ProgramRun run = RunTestInFreshProcess(RunningTest(), {{"TSAN_OPTIONS", "exitcode=0"}});
    EXPECT_EQ(run.exit_code, 0) << run.output;
}

}  // namespace conformance
