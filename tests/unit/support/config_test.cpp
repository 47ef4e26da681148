#include "support/config.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "platform/files.h"
#include "unit/faults/files_fault.h"
#include "unit/faults/heap_fault.h"
#include "unit/test_support.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using test::StdoutCapture;

constexpr const char* kKeysInOrder[] = {"showDebug",
                                        "enableCopTrace",
                                        "enableDebugLogFile",
                                        "useWebsocket",
                                        "useSerial",
                                        "useCloud",
                                        "useBle",
                                        "dummyDevice",
                                        "useProxy",
                                        "disableCertValidation",
                                        "serverAddress",
                                        "websocketAddress",
                                        "proxyAddress",
                                        "devicePrivateKey",
                                        "serverPublicKey"};

class ConfigFile : public testing::Test {
protected:
    fs::path UserFile() const {
        return (folders_.User() / "Tarvik" / "Brennix" / "config.json").make_preferred();
    }
    fs::path LibraryFile() const { return folders_.Library() / "config.json"; }
    void CreateUserFolder() const { fs::create_directories(UserFile().parent_path()); }

    static std::string Resolved() {
        char path[kMaxPath] = "";
        return ResolveConfigPath(path) ? path : "(failed)";
    }
    void ExpectReadOnlyLibraryFileStaysInUse() const {
        test::WriteFile(LibraryFile(), "{}");
        const auto protection = test::ProtectFromWriting(LibraryFile().string());
        EXPECT_EQ(Resolved(), LibraryFile().string());
    }
    // What is printed while the record is loaded.
    std::string Load() {
        StdoutCapture console;
        loaded_ = LoadConfig(&record_);
        return Plain(console.Text());
    }
    Config LoadText(const std::string& text) {
        test::WriteFile(LibraryFile(), text);
        Load();
        EXPECT_TRUE(loaded_);
        return record_;
    }
    static std::string Plain(std::string text) {
        std::erase(text, '\r');
        return text;
    }

    test::TestFolders folders_;
    Config record_{};
    bool loaded_ = false;
};

// --- where the file is ---

TEST_F(ConfigFile, UserFileIsPreferred) {
    CreateUserFolder();
    test::WriteFile(UserFile(), "{}");
    test::WriteFile(LibraryFile(), "{}");
    EXPECT_EQ(Resolved(), UserFile().string());
}

TEST_F(ConfigFile, WritableLibraryFileIsUsedInPlace) {
    test::WriteFile(LibraryFile(), "{}");
    EXPECT_EQ(Resolved(), LibraryFile().string());
    EXPECT_FALSE(fs::exists(UserFile()));
}

TEST_F(ConfigFile, LibraryPathIsChosenIfThereIsNoFile) {
    EXPECT_EQ(Resolved(), LibraryFile().string());
}

TEST_F(ConfigFile, UnknownLibraryFolderFailsUnlessThereIsAUserFile) {
    test::HideLibraryFolder();
    EXPECT_EQ(Resolved(), "(failed)");
    CreateUserFolder();
    test::WriteFile(UserFile(), "{}");
    EXPECT_EQ(Resolved(), UserFile().string());
}

TEST_F(ConfigFile, ReadOnlyLibraryFileStaysInUseWhenTheUserFolderIsUnknown) {
    test::HideUserFolder();
    ExpectReadOnlyLibraryFileStaysInUse();
}

TEST_F(ConfigFile, ReadOnlyLibraryFileStaysInUseWhenTheUserFolderCannotBeCreated) {
    test::WriteFile(folders_.User() / "Tarvik", "a file where a folder should be");
    ExpectReadOnlyLibraryFileStaysInUse();
}

TEST_F(ConfigFile, ReadOnlyLibraryFileStaysInUseWhenTheUserFileCannotBeCreated) {
    fs::create_directories(UserFile());  // a folder where the file should be
    ExpectReadOnlyLibraryFileStaysInUse();
}

TEST_F(ConfigFile, ReadOnlyLibraryFileStaysInUseWhenItCannotBeReadToTheEnd) {
    const test::FileFault fault(LibraryFile(), test::FileFault::Kind::kRead);
    ExpectReadOnlyLibraryFileStaysInUse();
}

// --- loading ---

TEST_F(ConfigFile, ByteOrderMarkIsSkipped) {
    const Config read =
        LoadText("\xEF\xBB\xBF{\"useSerial\": false, \"serverAddress\": \"relay:1\"}");
    EXPECT_FALSE(read.useSerial);
    EXPECT_STREQ(read.serverAddress, "relay:1");
}

TEST_F(ConfigFile, ByteOrderMarkIsNotKeptByWriting) {
    Config read = LoadText("\xEF\xBB\xBF{\"useSerial\": false}");
    StdoutCapture console;
    ASSERT_TRUE(WriteConfig(&read));
    EXPECT_EQ(test::ReadFile(LibraryFile()).front(), '{');
}

TEST_F(ConfigFile, PartOfAByteOrderMarkIsNotSkipped) {
    EXPECT_TRUE(LoadText("\xEF\xBB{\"useSerial\": false}").useSerial);
    EXPECT_TRUE(LoadText("\xEF").useSerial);
}

TEST_F(ConfigFile, EmptyObjectEnablesEverythingThatNeedsNoAddress) {
    const Config read = LoadText("{}");
    EXPECT_TRUE(read.showDebug);
    EXPECT_TRUE(read.enableCopTrace);
    EXPECT_TRUE(read.enableDebugLogFile);
    EXPECT_TRUE(read.useSerial);
    EXPECT_TRUE(read.useCloud);
    EXPECT_TRUE(read.useBle);
    EXPECT_TRUE(read.dummyDevice);
    EXPECT_TRUE(read.disableCertValidation);
    EXPECT_FALSE(read.useWebsocket);
    EXPECT_FALSE(read.useProxy);
    EXPECT_STREQ(read.serverAddress, "");
    EXPECT_STREQ(read.devicePrivateKey, "");
}

TEST_F(ConfigFile, MissingFileIsCreatedWithEveryTransportOffAndThenRead) {
    record_.useSerial = true;
    EXPECT_EQ(Load(),
              "Creating default config file\nOpened config file: " + LibraryFile().string() + "\n");
    EXPECT_TRUE(loaded_);
    EXPECT_FALSE(record_.showDebug);
    EXPECT_TRUE(record_.enableCopTrace);
    EXPECT_TRUE(record_.enableDebugLogFile);
    EXPECT_FALSE(record_.useWebsocket || record_.useSerial || record_.useCloud || record_.useBle ||
                 record_.dummyDevice);
    EXPECT_FALSE(record_.useProxy);
    EXPECT_FALSE(record_.disableCertValidation);
    EXPECT_EQ(Load(), "Opened config file: " + LibraryFile().string() + "\n");
}

TEST_F(ConfigFile, NewFileHasItsKeysInOrderOnePerLine) {
    Load();
    std::string expected = "{\n";
    for (const char* key : kKeysInOrder) {
        const bool text =
            std::strstr(key, "Address") != nullptr || std::strstr(key, "Key") != nullptr;
        const bool on = std::string(key).starts_with("enable");
        expected += "  \"" + std::string(key) + "\":" + (text ? "\"\"" : on ? "true" : "false");
        expected += key == std::string("serverPublicKey") ? "\n}" : ",\n";
    }
    EXPECT_EQ(Plain(test::ReadFile(LibraryFile())), expected);
}

TEST_F(ConfigFile, NewFileThatCannotBeReadIsReported) {
    const test::FileFault fault(LibraryFile(), test::FileFault::Kind::kOpen);
    EXPECT_EQ(Load(),
              "Creating default config file\n"
              "Failed to open newly created config file: " +
                  LibraryFile().string() + "\n");
    EXPECT_FALSE(loaded_);
    EXPECT_TRUE(fs::exists(LibraryFile()));
}

TEST_F(ConfigFile, FailedLoadLeavesTheRecordUnchanged) {
    fs::remove(folders_.Library());
    record_.useProxy = true;
    std::strcpy(record_.serverAddress, "kept");
    EXPECT_EQ(Load(),
              "Creating default config file\n"
              "Failed to create config file: " +
                  LibraryFile().string() +
                  "\n"
                  "Failed to create config file: " +
                  UserFile().string() + "\n");
    EXPECT_FALSE(loaded_);
    EXPECT_TRUE(record_.useProxy);
    EXPECT_STREQ(record_.serverAddress, "kept");
    EXPECT_FALSE(fs::exists(UserFile()));  // its folder is not created here
}

TEST_F(ConfigFile, FileThatCannotBeOpenedFailsTheLoadAndIsNotReplaced) {
    CreateUserFolder();
    test::WriteFile(LibraryFile(), "the device's key");
    const test::FileFault fault(LibraryFile(), test::FileFault::Kind::kOpen);
    EXPECT_EQ(Load(), "");
    EXPECT_FALSE(loaded_);
    EXPECT_EQ(test::ReadFile(LibraryFile()), "the device's key");
    EXPECT_FALSE(fs::exists(UserFile()));
}

TEST_F(ConfigFile, UnknownPathFailsTheLoad) {
    test::HideLibraryFolder();
    EXPECT_EQ(Load(), "Failed to get config file path\n");
    EXPECT_FALSE(loaded_);
}

TEST_F(ConfigFile, AllKeysAreRead) {
    const Config read = LoadText(
        R"({"showDebug":false,"enableCopTrace":false,"enableDebugLogFile":false,
            "useWebsocket":true,"useSerial":false,"useCloud":false,"useBle":false,
            "dummyDevice":false,"useProxy":true,"disableCertValidation":false,
            "serverAddress":"relay:1","websocketAddress":"wss://relay/x",
            "proxyAddress":"proxy:2","devicePrivateKey":"00ff","serverPublicKey":"04aa",
            "unknown":{"nested":[1,2]}})");
    EXPECT_FALSE(read.showDebug || read.enableCopTrace || read.enableDebugLogFile ||
                 read.useSerial || read.useCloud || read.useBle || read.dummyDevice ||
                 read.disableCertValidation);
    EXPECT_TRUE(read.useWebsocket);
    EXPECT_TRUE(read.useProxy);
    EXPECT_STREQ(read.serverAddress, "relay:1");
    EXPECT_STREQ(read.websocketAddress, "wss://relay/x");
    EXPECT_STREQ(read.proxyAddress, "proxy:2");
    EXPECT_STREQ(read.devicePrivateKey, "00ff");
    EXPECT_STREQ(read.serverPublicKey, "04aa");
}

TEST_F(ConfigFile, ProxyAndWebsocketNeedTheirAddresses) {
    EXPECT_FALSE(LoadText(R"({"useProxy":true,"proxyAddress":""})").useProxy);
    EXPECT_TRUE(LoadText(R"({"useProxy":true,"proxyAddress":"p:1"})").useProxy);
    EXPECT_FALSE(LoadText(R"({"proxyAddress":"p:1"})").useProxy);  // absent is off for this one
    EXPECT_FALSE(LoadText(R"({"useWebsocket":true})").useWebsocket);
    EXPECT_TRUE(LoadText(R"({"websocketAddress":"w"})").useWebsocket);
    EXPECT_FALSE(LoadText(R"({"useWebsocket":false,"websocketAddress":"w"})").useWebsocket);
}

TEST_F(ConfigFile, OtherJsonTypesCountAsTheParserConvertsThem) {
    const Config read = LoadText(
        R"({"useSerial":0,"useCloud":1,"useBle":"","dummyDevice":"x","serverAddress":42})");
    EXPECT_FALSE(read.useSerial);
    EXPECT_TRUE(read.useCloud);
    EXPECT_FALSE(read.useBle);
    EXPECT_TRUE(read.dummyDevice);
    EXPECT_STREQ(read.serverAddress, "42");
}

TEST_F(ConfigFile, NullCountsAsMissing) {
    const Config read = LoadText(R"({"useSerial":null,"serverAddress":null})");
    EXPECT_TRUE(read.useSerial);
    EXPECT_STREQ(read.serverAddress, "");
}

TEST_F(ConfigFile, TextThatIsNotAnObjectLeavesEveryKeyMissing) {
    for (const char* text : {"", "no json", "[false]", "{\"useSerial\":false", "false", "\0"}) {
        const Config read = LoadText(text);
        EXPECT_TRUE(read.useSerial) << text;
        EXPECT_FALSE(read.useProxy) << text;
    }
}

TEST_F(ConfigFile, LongTextIsCutToItsField) {
    const std::string key(200, 'k');
    EXPECT_EQ(LoadText(R"({"devicePrivateKey":")" + key + "\"}").devicePrivateKey,
              key.substr(0, 127));
    const std::string address(300, 'a');
    EXPECT_EQ(LoadText(R"({"serverAddress":")" + address + "\"}").serverAddress,
              address.substr(0, 255));
}

TEST_F(ConfigFile, FileThatCannotBeReadToTheEndFailsTheLoad) {
    test::WriteFile(LibraryFile(), R"({"disableCertValidation":false})");
    const test::FileFault fault(LibraryFile(), test::FileFault::Kind::kRead);
    std::strcpy(record_.serverAddress, "kept");
    Load();
    EXPECT_FALSE(loaded_);
    EXPECT_STREQ(record_.serverAddress, "kept");
}

constexpr char kFullText[] =
    R"({"showDebug":false,"enableCopTrace":false,"enableDebugLogFile":false,
        "useWebsocket":true,"useSerial":false,"useCloud":false,"useBle":0,
        "dummyDevice":false,"useProxy":true,"disableCertValidation":false,
        "serverAddress":42,"websocketAddress":"wss:\/\/relay.example.org:8443/dongles/by/name",
        "proxyAddress":"proxy:2","serverPublicKey":"04aa","unknown":{"nested":[1,2.5]},
        "devicePrivateKey":"00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff"})";

TEST_F(ConfigFile, RecordIsWholeOrUnchangedWhenAnyOneAllocationFails) {
    const Config before = LoadText(R"({"serverAddress":"before"})");
    const Config whole = LoadText(kFullText);
    int failures = 0;
    bool refused = true;
    for (std::uint32_t allowed = 0; refused; ++allowed) {
        Config record = before;
        bool parsed = false;
        {
            const test::FailingHeap heap(allowed, 1);
            parsed = ParseConfig(kFullText, &record);
            refused = heap.Refused();
        }
        EXPECT_TRUE(parsed || refused) << allowed;
        failures += parsed ? 0 : 1;
        EXPECT_EQ(std::memcmp(&record, parsed ? &whole : &before, sizeof record), 0) << allowed;
    }
    EXPECT_GT(failures, 40);  // each key and each value, at least
}

// --- writing ---

TEST_F(ConfigFile, NullRecordIsRefused) {
    StdoutCapture console;
    EXPECT_FALSE(WriteConfig(nullptr));
    EXPECT_EQ(Plain(console.Text()), "WriteConfig: NULL config pointer\n");
}

TEST_F(ConfigFile, WrittenRecordIsReadBackTheSame) {
    record_ = LoadText(R"({"useProxy":true,"proxyAddress":"http://p:1/","serverPublicKey":"04"})");
    std::strcpy(record_.devicePrivateKey, std::string(64, 'e').c_str());
    const Config written = record_;
    {
        StdoutCapture console;
        EXPECT_TRUE(WriteConfig(&written));
        EXPECT_EQ(Plain(console.Text()),
                  "Config file written successfully: " + LibraryFile().string() + "\n");
    }
    const std::string text = test::ReadFile(LibraryFile());
    std::size_t at = 0;
    for (const char* key : kKeysInOrder) {
        const std::size_t found = text.find("\"" + std::string(key) + "\":");
        ASSERT_NE(found, std::string::npos) << key;
        EXPECT_GT(found, at) << key;
        at = found;
    }
    record_ = {};
    Load();
    EXPECT_EQ(std::memcmp(&record_, &written, sizeof written), 0);
}

// How many files the library's folder has besides the configuration.
std::ptrdiff_t OtherFilesIn(const fs::path& folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator()) - 1;
}

TEST_F(ConfigFile, FailedWriteLeavesTheOldFile) {
    using Kind = test::FileFault::Kind;
    const std::string old = R"({"disableCertValidation":false,"devicePrivateKey":"00ff"})";
    record_ = LoadText(old);
    for (const Kind kind : {Kind::kWrite, Kind::kSync, Kind::kReplace}) {
        const test::FileFault fault(LibraryFile(), kind);
        StdoutCapture console;
        EXPECT_FALSE(WriteConfig(&record_));
        EXPECT_EQ(Plain(console.Text()),
                  kind != Kind::kReplace
                      ? ""
                      : "Failed to open config file for writing: " + LibraryFile().string() + "\n");
        EXPECT_EQ(test::ReadFile(LibraryFile()), old);
        EXPECT_EQ(OtherFilesIn(folders_.Library()), 0);
    }
}

TEST_F(ConfigFile, FailedCreationLeavesNoFile) {
    for (const auto kind : {test::FileFault::Kind::kWrite, test::FileFault::Kind::kSync}) {
        const test::FileFault fault(LibraryFile(), kind);
        Load();
        EXPECT_FALSE(loaded_);
        EXPECT_TRUE(fs::is_empty(folders_.Library()));
    }
}

TEST_F(ConfigFile, OldFileStaysWhenAnyOneAllocationOfWritingFails) {
    const std::string old = R"({"disableCertValidation":false})";
    record_ = LoadText(kFullText);
    StdoutCapture console;
    bool refused = true;
    for (std::uint32_t allowed = 0; refused; ++allowed) {
        test::WriteFile(LibraryFile(), old);
        bool written = false;
        {
            const test::FailingHeap heap(allowed, 1);
            written = WriteConfig(&record_);
            refused = heap.Refused();
        }
        EXPECT_EQ(written, !refused) << allowed;
        EXPECT_EQ(test::ReadFile(LibraryFile()) == old, refused) << allowed;
    }
    console.Text();
    Config read{};
    EXPECT_TRUE(ParseConfig(test::ReadFile(LibraryFile()).c_str(), &read));
    EXPECT_EQ(std::memcmp(&read, &record_, sizeof read), 0);
}

TEST_F(ConfigFile, LeftoverOfAnEndedProcessDoesNotPreventWriting) {
    test::WriteFile(LibraryFile() += ".new", "half a fi");
    LoadText("{}");
    StdoutCapture console;
    EXPECT_TRUE(WriteConfig(&record_));
    EXPECT_EQ(OtherFilesIn(folders_.Library()), 0);
}

TEST_F(ConfigFile, ReadOnlyFileIsNotReplaced) {
    CreateUserFolder();
    test::WriteFile(UserFile(), "{}");
    const auto protection = test::ProtectFromWriting(UserFile().string());
    StdoutCapture console;
    EXPECT_FALSE(WriteConfig(&record_));
    EXPECT_EQ(Plain(console.Text()),
              "Failed to open config file for writing: " + UserFile().string() + "\n");
    EXPECT_EQ(test::ReadFile(UserFile()), "{}");
}

TEST_F(ConfigFile, WrittenSizeIsThatOfTheFile) {
    record_ = LoadText(kFullText);
    StdoutCapture console;
    ASSERT_TRUE(WriteConfig(&record_));
    EXPECT_EQ(WrittenConfigSize(record_), fs::file_size(LibraryFile()));
}

TEST_F(ConfigFile, UnknownKeysAreLostOnWriting) {
    LoadText(R"({"unknown":1})");
    StdoutCapture console;
    EXPECT_TRUE(WriteConfig(&record_));
    EXPECT_EQ(test::ReadFile(LibraryFile()).find("unknown"), std::string::npos);
}

TEST_F(ConfigFile, WritingTruncatesALongerFile) {
    LoadText("{}" + std::string(9'000, ' '));
    StdoutCapture console;
    EXPECT_TRUE(WriteConfig(&record_));
    EXPECT_LT(fs::file_size(LibraryFile()), 1'000u);
}

TEST_F(ConfigFile, FolderOfTheFileIsCreatedForWriting) {
    fs::remove(folders_.Library());
    StdoutCapture console;
    EXPECT_TRUE(WriteConfig(&record_));
    EXPECT_TRUE(fs::exists(LibraryFile()));
}

TEST_F(ConfigFile, UnwritablePathFailsTheWrite) {
    fs::create_directories(LibraryFile());  // a folder where the file should be
    StdoutCapture console;
    EXPECT_FALSE(WriteConfig(&record_));
    EXPECT_EQ(Plain(console.Text()),
              "Failed to open config file for writing: " + LibraryFile().string() + "\n");
}

TEST_F(ConfigFile, UnknownPathFailsTheWrite) {
    test::HideLibraryFolder();
    StdoutCapture console;
    EXPECT_FALSE(WriteConfig(&record_));
    EXPECT_EQ(Plain(console.Text()), "Failed to get config file path\n");
}

}  // namespace
}  // namespace tarvik
