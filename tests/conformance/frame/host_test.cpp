// What a host on Linux may do beside using the library: fork, change its time zone or its locale.

#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "conformance/frame/construct.h"
#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"
#include "conformance/framework/trace_file.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

void ConstructWith(const Settings& settings) {
    settings.Store();
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
}

void LogSomething() {
    UNUM32 time = 0;
    Pdu().PDUGetTimestamp(PDU_HANDLE_UNDEF, &time);
}

// ---- fork --------------------------------------------------------------------------------------

// Threads that log all the time.
class Loggers {
public:
    Loggers() {
        for (std::thread& thread : threads_) {
            thread = std::thread([this] {
                while (!stop_)
                    LogSomething();
            });
        }
    }
    ~Loggers() {
        stop_ = true;
        for (std::thread& thread : threads_)
            thread.join();
    }
    Loggers(const Loggers&) = delete;
    Loggers& operator=(const Loggers&) = delete;

private:
    std::atomic<bool> stop_{false};
    std::thread threads_[3];
};

// The exit code of the process; -1 if it does not end.
int EndOf(pid_t process) {
    int status = 0;
    if (Eventually([&] { return ::waitpid(process, &status, WNOHANG) == process; }))
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    ::kill(process, SIGKILL);
    ::waitpid(process, &status, 0);
    return -1;
}

void ForkWhileThreadsLog() {
    ConstructWith({.enableCopTrace = true});
    std::fflush(stdout);
    const Loggers loggers;
    for (int i = 0; i < 100; ++i) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) std::exit(7);
        ASSERT_EQ(EndOf(child), 7) << i;
    }
}

TEST(ForkingHost, ChildMayExitWhileTheParentsThreadsLog) {
    if (IsProcessFor(RunningTest())) {
        ForkWhileThreadsLog();
        return Destruct();
    }
    // A child's leaks are its parent's memory, and each would sleep for a second.
    const char* const options = std::getenv("TSAN_OPTIONS");
    const ProgramRun run = RunTestInFreshProcess(
        RunningTest(),
        {{"ASAN_OPTIONS", "detect_leaks=0"},
         {"TSAN_OPTIONS", std::string(options != nullptr ? options : "") + " atexit_sleep_ms=0"}});
    EXPECT_EQ(run.exit_code, 0) << run.output;
    // The children are quiet.
    const std::string line = "[DLL] Detaching the Tarvik D-PDU DLL";
    const std::size_t first = run.output.find(line);
    EXPECT_NE(first, std::string::npos) << run.output;
    EXPECT_EQ(run.output.find(line, first + 1), std::string::npos) << run.output;
}

// As daemon() does, before it constructs. Then the child alone uses the library.
FRESH_PROCESS_TEST(ForkingHost, DaemonUsesAndUnloadsTheLibrary) {
    Settings().Store();
    LibraryInstance library(LibraryPath());
    ASSERT_TRUE(library.IsLoaded()) << library.Error();
    std::fflush(stdout);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        StdoutCapture console;
        const bool good = library->PDUConstruct(nullptr, nullptr) == PDU_STATUS_NOERROR &&
                          library->PDUDestruct() == PDU_STATUS_NOERROR && library.Unload() &&
                          console.Has("[DLL] Detaching the Tarvik D-PDU DLL\n");
        std::_Exit(good ? 7 : 8);
    }
    EXPECT_EQ(EndOf(child), 7);
}

// ---- time zone ---------------------------------------------------------------------------------

void UseZone(const std::string& zone) {
    SetVariable("TZ", zone);
    ::tzset();
}

// How far the log's clock is ahead of UTC, in seconds, rounded to half an hour and within a day.
int LogAhead() {
    LogSomething();
    const std::string text = ReadFile(LogPath());
    const std::size_t line = text.rfind('\n', text.size() - 2) + 1;
    int hour = 0;
    int minute = 0;
    EXPECT_EQ(std::sscanf(text.c_str() + line, "[%*d-%*d-%*d %d:%d:", &hour, &minute), 2);
    const time_t now = ::time(nullptr);
    tm utc{};
    ::gmtime_r(&now, &utc);
    constexpr int kDay = 24 * 60;
    const int ahead = (hour * 60 + minute - utc.tm_hour * 60 - utc.tm_min + kDay + 15) % kDay;
    return ahead / 30 * 30 * 60;
}

FRESH_PROCESS_TEST(HostsTimeZone, ChangesTheLogsClock) {
    UseZone("UTC0");
    ConstructWith({});
    EXPECT_EQ(LogAhead(), 0);
    UseZone("EAST-5:30");
    EXPECT_TRUE(Eventually([] { return LogAhead() == 5 * 3600 + 1800; }));
    UseZone("UTC0");
    EXPECT_TRUE(Eventually([] { return LogAhead() == 0; }));
    Destruct();
}

// The rules of a zone whose summer time begins so many seconds from now, and lasts for some days.
std::string ZoneWithSummerIn(int seconds) {
    const time_t begin = ::time(nullptr) + seconds;
    tm utc{};
    ::gmtime_r(&begin, &utc);
    const int end_day = (utc.tm_yday + 3) % 365;
    return "WIN0SUM," + std::to_string(utc.tm_yday) + "/" + std::to_string(utc.tm_hour) + ":" +
           std::to_string(utc.tm_min) + ":" + std::to_string(utc.tm_sec) + "," +
           std::to_string(end_day) + "/0";
}

FRESH_PROCESS_TEST(HostsTimeZone, SummerTimeBeginsInTheLogToo) {
    UseZone(ZoneWithSummerIn(2));
    ConstructWith({});
    EXPECT_TRUE(Eventually([] { return LogAhead() == 3600; }));
    Destruct();
}

// ---- locale ------------------------------------------------------------------------------------

// A locale whose numbers have a decimal comma and points between groups of digits.
void UseCommaLocale() {
    const std::string folder = JoinPath(PrivateFolder(), "locales");
    WriteFile(JoinPath(folder, "readme"), "locales of a test");
    const std::string make = "localedef --no-archive -c -i de_DE -f UTF-8 '" + folder +
                             "/de_DE.UTF-8' >'" + folder + "/out' 2>&1";
    ASSERT_EQ(std::system(make.c_str()), 0) << ReadFile(JoinPath(folder, "out"));
    SetVariable("LOCPATH", folder);
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
    char number[16];
    std::snprintf(number, sizeof number, "%.1f", 1.5);
    ASSERT_STREQ(number, "1,5");
}

void UseLibraryWithCommas() {
    UseCommaLocale();
    Pdu();
    WriteFile(UserConfigPath(),
              R"({"dummyDevice": 0.25, "useSerial": 0.0, "useCloud": 0.0, "useBle": false,)"
              R"( "useWebsocket": 0, "enableDebugLogFile": 1.5, "enableCopTrace": true})");
    const LogCapture log;
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has("[DummyStart] Done"));
    EXPECT_FALSE(log.Has("[SerialStart] Done"));
    Destruct();
    // Each line is read as JSON, in which a number has no comma.
    EXPECT_FALSE(ReadTrace().empty());
}

TEST(HostsLocale, ChangesNeitherConfigurationNorTraceNorLog) {
    if (IsProcessFor(RunningTest())) return UseLibraryWithCommas();
    // The C library loses the list of its folders of locales.
    const ProgramRun run =
        RunTestInFreshProcess(RunningTest(), {{"ASAN_OPTIONS", "detect_leaks=0"}});
    EXPECT_EQ(run.exit_code, 0) << run.output;
}

}  // namespace
}  // namespace conformance
