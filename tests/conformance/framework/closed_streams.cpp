#include "conformance/framework/closed_streams.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>

#include "closed_standard_streams.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/library.h"
#include "conformance/framework/link.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/trace_file.h"
#include "conformance/framework/vehicle.h"

namespace conformance {
namespace {

// What is open in their place and would take text. For moments there may be a folder that is
// being read, or a descriptor that only takes the number.
std::string Opened() {
    std::string opened;
    for (int stream = 0; stream < ClosedStreams::kCount; ++stream) {
        // Past the thread sanitizer, which takes a look at a descriptor that the library closes
        // for a race.
        const auto flags = ::syscall(SYS_fcntl, stream, F_GETFL);
        if (flags < 0 || (flags & O_PATH) != 0 || (flags & O_ACCMODE) == O_RDONLY) continue;
        char target[256] = {};
        const std::string link = "/proc/self/fd/" + std::to_string(stream);
        if (::readlink(link.c_str(), target, sizeof target - 1) > 0)
            opened += std::to_string(stream) + " is " + target + ". ";
    }
    return opened;
}

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
        opened += Opened();
        const UNUM32 hMod = FindModule();
        opened += Opened();
        library.PDUModuleConnect(hMod);
        {
            EngineLink link(hMod);
            answers = link.Request(ReadVin(), PositiveRead()).results.size();
            opened += Opened();
        }
        library.PDUDestruct();
        opened += Opened();
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
    const ProgramRun run = RunTestInFreshProcess(RunningTest());
    EXPECT_EQ(run.exit_code, 0) << run.output;
}

}  // namespace conformance
