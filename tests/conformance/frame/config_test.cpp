// config.json: where the library looks for it, and missing, broken and read-only files.

#include <nlohmann/json.hpp>

#include <cstdio>
#include <filesystem>

#include "conformance/frame/construct.h"
#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"
#include "conformance/framework/trace_file.h"

using namespace conformance;

namespace {

// Whether the transport started at this construct.
bool Starts(const std::string& transport) {
    const LogCapture log;
    Construct();
    const bool started = log.Has("[" + transport + "Start] Done");
    Destruct();
    return started;
}
bool DemoStarts() { return Starts("Dummy"); }
bool SerialStarts() { return Starts("Serial"); }

// Without the banner and the reopened streams, which these tests do not cover.
constexpr char kQuiet[] = "\"showDebug\": false";

// Printed whether the transport is on or off.
constexpr char kCloudStart[] = "[Cloud] ---CONNECTING---\r\n";

}  // namespace

TEST(FreshConfig, EmptyObjectSwitchesEverythingOn) {
    const std::string test = "FreshConfig.EmptyObjectSwitchesEverythingOn";
    if (!IsProcessFor(test)) {
        const ProgramRun run = RunTestInFreshProcess(test);
        EXPECT_EQ(run.exit_code, 0) << run.output;
        if (ConsoleIsStandardOutput()) {
            EXPECT_NE(run.output.find(" Debug console enabled\n"), std::string::npos);
        }
        return;
    }
    WriteFile(UserConfigPath(), "{}");
    Construct();
    const std::string log = ReadFile(LogPath());
    Destruct();
    EXPECT_NE(log.find("[SerialStart] Done"), std::string::npos);
    EXPECT_NE(log.find("[DummyStart] Done"), std::string::npos);
    EXPECT_EQ(TraceFiles().size(), 1u);
}

FRESH_PROCESS_TEST(FreshConfig, BrokenTextCountsAsAllKeysMissing) {
    for (const char* broken : {"{ \"dummyDevice\": false,", "", "no JSON at all", "[1, 2]", "null",
                               "{\"dummyDevice\": null}"}) {
        WriteFile(UserConfigPath(), broken);
        EXPECT_TRUE(DemoStarts()) << broken;
    }
}

FRESH_PROCESS_TEST(FreshConfig, OneKeyLeavesTheOthersAtTheirDefault) {
    WriteFile(UserConfigPath(), std::string("{") + kQuiet + ", \"useSerial\": false}");
    EXPECT_TRUE(DemoStarts());
    EXPECT_FALSE(SerialStarts());
    WriteFile(UserConfigPath(), std::string("{") + kQuiet + ", \"dummyDevice\": false}");
    EXPECT_FALSE(DemoStarts());
    EXPECT_TRUE(SerialStarts());
}

FRESH_PROCESS_TEST(FreshConfig, NumbersAndTextsCountAsBooleans) {
    for (const char* off : {"0", "\"\"", "0.0"}) {
        WriteFile(UserConfigPath(), std::string("{\"dummyDevice\": ") + off + "}");
        EXPECT_FALSE(DemoStarts()) << off;
    }
    for (const char* on : {"1", "\"false\"", "-1"}) {
        WriteFile(UserConfigPath(), std::string("{\"dummyDevice\": ") + on + "}");
        EXPECT_TRUE(DemoStarts()) << on;
    }
}

FRESH_PROCESS_TEST(FreshConfig, ByteOrderMarkIsSkipped) {
    WriteFile(UserConfigPath(), "\xEF\xBB\xBF" + Settings{.dummyDevice = false}.Json());
    EXPECT_FALSE(DemoStarts());
}

FRESH_PROCESS_TEST(FreshConfig, IsReadAgainAtEveryConstruct) {
    Settings{.dummyDevice = false}.Store();
    EXPECT_FALSE(DemoStarts());
    Settings{.dummyDevice = true}.Store();
    EXPECT_TRUE(DemoStarts());
    Settings{.dummyDevice = false}.Store();
    EXPECT_FALSE(DemoStarts());
}

FRESH_PROCESS_TEST(FreshConfig, OnlyTheFirst1024BytesAreRead) {
    const std::string short_object = std::string("{\"dummyDevice\": false, ") + kQuiet + "}";
    WriteFile(UserConfigPath(), short_object + std::string(2000, ' '));
    EXPECT_FALSE(DemoStarts());  // blanks after the object may be cut off

    const std::string begin = std::string("{\"dummyDevice\": false, ") + kQuiet + ", \"x\": \"";
    const std::string end = "\"}";
    const std::size_t filling = 1024 - begin.size() - end.size();
    WriteFile(UserConfigPath(), begin + std::string(filling, 'x') + end);
    EXPECT_FALSE(DemoStarts());
    WriteFile(UserConfigPath(), begin + std::string(filling, 'x') + end + "garbage");
    EXPECT_FALSE(DemoStarts());
    WriteFile(UserConfigPath(), begin + std::string(filling + 1, 'x') + end);
    EXPECT_TRUE(DemoStarts());  // without the last brace, no key is read
}

FRESH_PROCESS_TEST(FreshConfig, MissingFileIsCreatedBesideTheLibraryWithTransportsOff) {
    UseLibraryCopy();
    StdoutCapture console;
    Construct();
    const auto modules = GetModuleIds();
    ASSERT_NE(modules, nullptr);
    EXPECT_EQ(modules->NumEntries, 0u);
    const std::string log = ReadFile(LogPath());
    EXPECT_EQ(log.find("Start] Done"), std::string::npos);
    EXPECT_EQ(console.Text(), "Creating default config file\nOpened config file: " +
                                  LibraryConfigPath() + "\n" + kCloudStart);
    EXPECT_FALSE(FileExists(UserConfigPath()));

    const std::string text = ReadFile(LibraryConfigPath());
    const auto values = nlohmann::ordered_json::parse(text);
    const nlohmann::ordered_json expected = {
        {"showDebug", false},
        {"enableCopTrace", true},
        {"enableDebugLogFile", true},
        {"useWebsocket", false},
        {"useSerial", false},
        {"useCloud", false},
        {"useBle", false},
        {"dummyDevice", false},
        {"useProxy", false},
        {"disableCertValidation", false},
        {"serverAddress", ""},
        {"websocketAddress", ""},
        {"proxyAddress", ""},
        {"devicePrivateKey", ""},
        {"serverPublicKey", ""},
    };
    EXPECT_EQ(values.dump(), expected.dump());  // compares the order too
    EXPECT_NE(text.find('\n'), std::string::npos);
    EXPECT_EQ(TraceFiles().size(), 1u);
}

FRESH_PROCESS_TEST(FreshConfig, FileBesideTheLibraryIsUsedWhenTheUserHasNone) {
    UseLibraryCopy();
    WriteFile(LibraryConfigPath(), Settings{.dummyDevice = true}.Json());
    EXPECT_TRUE(DemoStarts());
    EXPECT_FALSE(FileExists(UserConfigPath()));
    Settings{.dummyDevice = false}.Store();
    EXPECT_FALSE(DemoStarts());  // the user's file comes first
    RemoveFile(UserConfigPath());
    EXPECT_TRUE(DemoStarts());
}

FRESH_PROCESS_TEST(FreshConfig, ReadOnlyFileBesideTheLibraryIsCopiedToTheUserFolderAndUsedThere) {
    UseLibraryCopy();
    Construct();  // opens the log before privileges are dropped
    Destruct();
    const std::string content = Settings{.dummyDevice = true}.Json() + std::string(9000, ' ');
    WriteFile(LibraryConfigPath(), content);
    const WriteProtection read_only(LibraryConfigPath(), PrivateFolder());
    StdoutCapture console;
    EXPECT_TRUE(DemoStarts());
    EXPECT_TRUE(console.Has("Opened config file: " + UserConfigPath() + "\n"));
    EXPECT_EQ(ReadFile(UserConfigPath()), content);
    Settings{.dummyDevice = false}.Store();
    EXPECT_FALSE(DemoStarts());
}

FRESH_PROCESS_TEST(FreshConfig, UserPathIsUsedIfTheFileCannotBeCreatedBesideTheLibrary) {
    UseLibraryCopy();
    Pdu();
    MakeImpossible(LibraryConfigPath());
    std::filesystem::create_directories(std::filesystem::path(UserConfigPath()).parent_path());
    StdoutCapture console;
    Construct();
    EXPECT_EQ(console.Text(),
              "Creating default config file\nFailed to create config file: " + LibraryConfigPath() +
                  "\nOpened config file: " + UserConfigPath() + "\n" + kCloudStart);
    EXPECT_TRUE(FileExists(UserConfigPath()));
}

FRESH_PROCESS_TEST(FreshConfig, ConstructSucceedsIfTheFileCannotBeCreated) {
    UseLibraryCopy();
    Pdu();
    MakeImpossible(LibraryConfigPath());
    StdoutCapture console;
    Construct();  // every switch is off, as before the first successful read
    EXPECT_EQ(console.Text(),
              "Creating default config file\nFailed to create config file: " + LibraryConfigPath() +
                  "\nFailed to create config file: " + UserConfigPath() + "\n" + kCloudStart);
    EXPECT_FALSE(FileExists(LogPath()));
    Destruct();
}

FRESH_PROCESS_TEST(FreshConfig, FailedLoadKeepsTheValuesReadBefore) {
    UseLibraryCopy();
    Pdu();
    MakeImpossible(LibraryConfigPath());
    Settings{.dummyDevice = true}.Store();
    EXPECT_TRUE(DemoStarts());
    std::filesystem::remove_all(JoinPath(UserFolder(), "Tarvik"));
    EXPECT_TRUE(DemoStarts());
}
