// The program as a user runs it.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace brennix::test {
namespace {

struct Outcome {
    int code;
    std::string output;  // both streams
};

class Program : public testing::Test {
protected:
    void SetUp() override {
        std::string folder = testing::TempDir() + "brennix-program.XXXXXX";
        ASSERT_NE(::mkdtemp(folder.data()), nullptr);
        folder_ = folder;
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    // Runs a shell script in the test's folder; $SIM is the program, $CAR the demo vehicle.
    Outcome RunScript(const std::string& script) const {
        Write("script",
              "SIM=" BRENNIX_SIM_PROGRAM "\nCAR=" BRENNIX_SIM_VEHICLES "/demo.json\n" + script);
        const std::string line = "cd " + folder_ + " && timeout 60 bash script 2>&1";
        std::FILE* pipe = ::popen(line.c_str(), "re");
        std::string output;
        std::array<char, 4096> buffer;
        for (std::size_t size = 0;
             (size = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
            output.append(buffer.data(), size);
        }
        const int status = ::pclose(pipe);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
    }
    Outcome Run(const std::string& arguments) const { return RunScript("$SIM " + arguments); }
    void ExpectOutcome(const std::string& arguments, int code, const std::string& output) const {
        const Outcome outcome = Run(arguments);
        EXPECT_EQ(outcome.code, code) << arguments;
        EXPECT_EQ(outcome.output, output);
    }
    void Write(const std::string& name, const std::string& text) const {
        std::ofstream(folder_ + "/" + name) << text;
    }
    std::string Read(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(folder_ + "/" + name).rdbuf();
        return text.str();
    }
    std::string folder_;
};

// A host as a shell script: writes bytes to the port and reads some back.
constexpr const char* kSyncScript =
    "'exec 3<>dongle; printf \"CNYS\\\\010\\\\000\\\\000\\\\000\" >&3; head -c 8 <&3 | od -An -c'";

TEST_F(Program, HelpShowsExamplesAndCommands) {
    const Outcome outcome = Run("--help");
    EXPECT_EQ(outcome.code, 0);
    EXPECT_NE(outcome.output.find("brennix-sim --vehicle car.json --usb ttyACM0 -- "),
              std::string::npos);
    EXPECT_NE(outcome.output.find("unplug [device|port]"), std::string::npos);
}

TEST_F(Program, ChecksAVehicleFile) {
    const Outcome outcome = Run("--vehicle $CAR --check");
    EXPECT_EQ(outcome.code, 0);
    EXPECT_NE(outcome.output.find("model 5, 3 control units"), std::string::npos);
    EXPECT_NE(outcome.output.find("7E0 -> 7E8"), std::string::npos);
}

TEST_F(Program, RejectsInvalidOptionsInOneLine) {
    const struct {
        const char* arguments;
        const char* expected;
    } rows[] = {
        {"", "brennix-sim: --vehicle or a trace to replay is required (see --help)\n"},
        {"replay", "brennix-sim: TRACE is required (see --help)\n"},
        {"replay none.jsonl", "brennix-sim: none.jsonl: cannot be read\n"},
        {"replay none.jsonl --speed -1",
         "brennix-sim: --speed: Value -1 not in range 0.000000 to 1000.000000 (see --help)\n"},
        {"--vehicle $CAR --bogus",
         "brennix-sim: The following argument was not expected: --bogus (see --help)\n"},
        {"--vehicle $CAR --usb tty0",
         "brennix-sim: --usb: tty0 is not a name like ttyACM0 or ttyUSB3 (see --help)\n"},
        {"--vehicle $CAR --wine LPT1",
         "brennix-sim: --wine: LPT1 is not a name like COM5 (see --help)\n"},
        {"--vehicle $CAR --usb ttyACM0 --usb ttyACM1",
         "brennix-sim: ttyACM1: more ports than dongles, add --vehicle or --dongles (see "
         "--help)\n"},
        {"--vehicle none.json", "brennix-sim: none.json: cannot be read\n"},
        {"--vehicle $CAR --link /nowhere/port",
         "brennix-sim: /nowhere/port: No such file or directory\n"},
        {"--vehicle $CAR -- ./no-such-program",
         "brennix-sim: ./no-such-program: No such file or directory\n"},
        {"--vehicle $CAR --record /nowhere/file",
         "brennix-sim: /nowhere/file: No such file or directory\n"},
    };
    for (const auto& row : rows)
        ExpectOutcome(row.arguments, 1, row.expected);
}

TEST_F(Program, RejectsAnInvalidVehicleFileInOneLine) {
    Write("bad.json", R"({"control_units": [{"name": 5}]})");
    ExpectOutcome(
        "--vehicle bad.json", 1,
        "brennix-sim: bad.json: control_units[0].name: expected text of at most 64 bytes, "
        "found the number 5\n");
}

TEST_F(Program, RejectsATraceWithNothingToPlay) {
    Write("empty.jsonl", "{\"seq\":1,\"ev\":\"log_start\"}\nno line\n");
    ExpectOutcome(
        "replay empty.jsonl", 1,
        "brennix-sim: empty.jsonl: nothing to play, requests: 0, raw frames: 0, telemetry "
        "reports: 0, lines: 2; 1 damaged (line 2)\n");
}

constexpr char kOneRequest[] =
    R"({"seq":1,"ts_us":9,"ev":"comm_req_sent","req_id":1,"tx_len":2,"tx_hex":"3e00",)"
    R"("can_id_tx_func":2016,"can_id_tx_phys":2016,"can_id_rx":2024})";

TEST_F(Program, SkipsTracesWithNothingToPlayAndSaysSo) {
    Write("empty.jsonl", "{\"seq\":1,\"ev\":\"log_start\"}\n");
    Write("one.jsonl", kOneRequest);
    const std::string skipped =
        "brennix-sim: skipped: empty.jsonl: nothing to play, requests: 0, raw frames: 0, telemetry "
        "reports: 0, lines: 1\n";
    const std::string one =
        "one.jsonl: requests: 1, raw frames: 0, telemetry reports: 0, lines: 1\n";
    ExpectOutcome("replay empty.jsonl one.jsonl -- true", 0, skipped + "brennix-sim: " + one);
    ExpectOutcome("replay one.jsonl empty.jsonl --check", 0,
                  skipped + one + "  line 1      7E0 to 7E8: 3E00, no packet came back\n");
}

TEST_F(Program, RejectsTracesOfWhichNoneHasAnythingToPlay) {
    Write("empty.jsonl", "");
    Write("other.jsonl", "");
    ExpectOutcome("replay empty.jsonl other.jsonl", 1,
                  "brennix-sim: nothing to play in any of the 2 traces\n");
}

TEST_F(Program, ChecksATrace) {
    Write("one.jsonl", kOneRequest);
    ExpectOutcome("replay one.jsonl --check", 0,
                  "one.jsonl: requests: 1, raw frames: 0, telemetry reports: 0, lines: 1\n"
                  "  line 1      7E0 to 7E8: 3E00, no packet came back\n");
}

TEST_F(Program, ReturnsTheCommandsExitCode) {
    EXPECT_EQ(Run("--vehicle $CAR -- sh -c 'exit 42'").code, 42);
    EXPECT_EQ(Run("--vehicle $CAR -- sh -c 'kill -9 $$'").code, 128 + 9);
}

TEST_F(Program, CommandFindsPortsAndFoldersInItsEnvironment) {
    const Outcome outcome =
        Run("--vehicle $CAR --link dongle --scratch private -- sh -c 'echo $BRENNIX_SIM_PORTS "
            "$BRENNIX_SIM_CONTROL; cd $XDG_CONFIG_HOME && cd $TMPDIR && cd $BRENNIX_SIM_SCRATCH && "
            "pwd'");
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output.find("dongle 127.0.0.1:"), 0u) << outcome.output;
    EXPECT_NE(outcome.output.find("/private\n"), std::string::npos);
}

TEST_F(Program, AnswersOnItsLink) {
    const Outcome outcome =
        Run(std::string("--vehicle $CAR --link dongle --strict -- bash -c ") + kSyncScript);
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output, "   C   N   Y   S  \\b  \\0  \\0  \\0\n");
    EXPECT_FALSE(std::filesystem::is_symlink(folder_ + "/dongle"));
}

TEST_F(Program, LinkReplacesNeitherAFileNorAnotherLink) {
    Write("notes", "mine");
    ExpectOutcome("--vehicle $CAR --link notes -- true", 1,
                  "brennix-sim: notes: is no symbolic link, so it is kept\n");
    EXPECT_EQ(Read("notes"), "mine");
    std::filesystem::create_symlink("notes", folder_ + "/shortcut");
    ExpectOutcome("--vehicle $CAR --link shortcut -- true", 1,
                  "brennix-sim: shortcut: leads to notes, so it is kept\n");
    EXPECT_EQ(std::filesystem::read_symlink(folder_ + "/shortcut"), "notes");
}

TEST_F(Program, LinkOfAKilledSimulatorIsReplaced) {
    std::filesystem::create_symlink("/dev/pts/ptmx", folder_ + "/dongle");
    EXPECT_EQ(Run("--vehicle $CAR --link dongle -- true").code, 0);
    EXPECT_FALSE(std::filesystem::is_symlink(folder_ + "/dongle"));
}

TEST_F(Program, FileThatTookTheLinksPlaceIsNotRemoved) {
    EXPECT_EQ(Run("--vehicle $CAR --link dongle -- sh -c 'rm dongle; echo mine >dongle'").code, 0);
    EXPECT_EQ(Read("dongle"), "mine\n");
}

TEST_F(Program, FilesBesideTheOutputsAreLeftAlone) {
    Write("dongle.new", "mine");
    Write("ready.new", "mine");
    EXPECT_EQ(Run("--vehicle $CAR --link dongle --ready-file ready -- true").code, 0);
    EXPECT_EQ(Read("dongle.new"), "mine");
    EXPECT_EQ(Read("ready.new"), "mine");
    std::filesystem::create_directory(folder_ + "/folder");
    ExpectOutcome("--vehicle $CAR --ready-file folder -- true", 1,
                  "brennix-sim: folder: is no ordinary file, so it is kept\n");
}

TEST_F(Program, StrictExitsWithThreeAfterAProtocolViolation) {
    const std::string command =
        " -- bash -c 'exec 3<>dongle; printf "
        "\"xCNYS\\\\010\\\\000\\\\000\\\\000\" >&3; head -c 8 <&3 >rest'";
    const Outcome strict = Run("--vehicle $CAR --link dongle --strict" + command);
    EXPECT_EQ(strict.code, 3);
    EXPECT_EQ(strict.output, "brennix-sim: dongle 0: violation: 1 bytes before SYNC: 78\n");
    EXPECT_EQ(Run("--vehicle $CAR --link dongle" + command).code, 0);
}

TEST_F(Program, StrictExitsWithThreeAlsoIfTheCommandFails) {
    const std::string command =
        " -- bash -c 'exec 3<>dongle; printf "
        "\"xCNYS\\\\010\\\\000\\\\000\\\\000\" >&3; head -c 8 <&3 >rest; exit 42'";
    EXPECT_EQ(Run("--vehicle $CAR --link dongle --strict" + command).code, 3);
    EXPECT_EQ(Run("--vehicle $CAR --link dongle" + command).code, 42);
}

TEST_F(Program, RecordsTheTrafficInAFile) {
    Run(std::string("--vehicle $CAR --link dongle --record traffic.jsonl -- bash -c ") +
        kSyncScript);
    std::istringstream lines(Read("traffic.jsonl"));
    std::string in;
    std::string out;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("\"direction\":\"in\"") != std::string::npos) in += line;
        if (line.find("\"direction\":\"out\"") != std::string::npos) out += line;
    }
    EXPECT_NE(in.find("\"type\":\"SYNC\",\"length\":8"), std::string::npos);
    EXPECT_NE(out.find("\"hex\":\"434E595308000000\""), std::string::npos);
}

TEST_F(Program, WritesTheReadyFileOnceThePortsExist) {
    const Outcome outcome = Run(
        "--vehicle $CAR --dongles 2 --link dongle --ready-file ready -- sh -c 'cat ready; test -e "
        "dongle'");
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output.find("control 127.0.0.1:"), 0u) << outcome.output;
    EXPECT_NE(outcome.output.find("\ndongle 0 /dev/pts/"), std::string::npos);
    EXPECT_NE(outcome.output.find("\ndongle 1 /dev/pts/"), std::string::npos);
}

TEST_F(Program, StartsUnpluggedOnRequest) {
    const Outcome outcome =
        Run("--vehicle $CAR --unplugged --link dongle -- sh -c 'test -e dongle || echo none'");
    EXPECT_EQ(outcome.output, "none\n");
}

TEST_F(Program, StopsOnTheQuitCommand) {
    const Outcome outcome = RunScript(R"(
        $SIM --vehicle $CAR --ready-file ready >started &
        until test -s ready; do sleep 0.02; done
        exec 3<>/dev/tcp/127.0.0.1/$(sed -n 's/control 127.0.0.1://p' ready)
        echo quit >&3
        head -n 1 <&3
        wait $!
        echo code $?)");
    EXPECT_EQ(outcome.output, "ok\ncode 0\n");
    EXPECT_EQ(Read("started"), Read("ready"));
}

TEST_F(Program, TerminatesTheCommandWhenTerminated) {
    const Outcome outcome = RunScript(R"(
        $SIM --vehicle $CAR -- bash -c 'touch begun; exec sleep 60' &
        until test -e begun; do sleep 0.02; done
        kill -TERM $!
        wait $!
        echo code $?)");
    EXPECT_EQ(outcome.output, "code 143\n");
}

}  // namespace
}  // namespace brennix::test
