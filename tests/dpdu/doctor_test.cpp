// The doctor's report, and what it finds in files.

#include <algorithm>
#include <chrono>

#include "conformance/framework/system.h"
#include "doctor_run.h"
#include "root/own_entry.h"
#include "root/root_edit.h"

namespace {

class DpduDoctor : public DoctorTest {};

// ---------------------------------------------------------------- report

TEST_F(DpduDoctor, PrintsReasonAndAdviceBelowAFinding) {
    nlohmann::ordered_json config = SerialConfig();
    config["useSerial"] = false;
    WriteConfig(config.dump());
    const ClientResult result = RunClient({"doctor", "--library", LibraryUnderTest()});
    EXPECT_EQ(result.exit_code, kFailure);
    EXPECT_TRUE(std::regex_search(result.output,
                                  std::regex("\nWRONG +transports +all are off *\n"
                                             " +the library looks for no dongle *\n"
                                             " +-> set useSerial, useCloud or useBle to true *\n")))
        << result.output;
    EXPECT_TRUE(std::regex_search(result.output, std::regex("(^|\n)ok +library +[^ ].*\n")))
        << result.output;
}

TEST_F(DpduDoctor, CountsWhatIsWrongAndWhatIsNoted) {
    nlohmann::ordered_json config = SerialConfig();
    config["useSerial"] = false;
    config["useSriel"] = true;
    WriteConfig(config.dump());
    const std::string root = TextOf(Folder() / "none.xml");
    const Examined examined = RunDoctor({"--library", LibraryUnderTest(), "--root", root});
    EXPECT_EQ(examined.document["wrong"], 1) << examined.output;
    EXPECT_EQ(examined.document["notes"], 2) << examined.output;
    EXPECT_EQ(examined.document["interrupted"], false);
}

TEST_F(DpduDoctor, ListHasEveryFindingOnceAndChecksNothing) {
    const Examined examined = RunDoctor({"--list", "--library", "no_such_library"});
    EXPECT_EQ(examined.exit_code, kOk);
    std::vector<std::string> ids;
    for (const Json& finding : examined.document["findings"]) {
        ids.push_back(finding["id"]);
        EXPECT_EQ(finding["state"] == "ok" || !finding["next"].get<std::string>().empty(), true)
            << finding;
    }
    EXPECT_GT(ids.size(), 90u);
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(std::unique(ids.begin(), ids.end()), ids.end());
}

// "| `relay` | ok | ... | ... |"
std::string DocumentRow(const Json& finding) {
    std::string row = "| `" + finding["id"].get<std::string>() + "` |";
    for (const char* field : {"state", "what", "next"})
        row += " " + finding[field].get<std::string>() + " |";
    return row;
}

TEST_F(DpduDoctor, DocumentHasTheRowsOfTheList) {
    const std::string text = ReadWholeFile(DOCTOR_DOCUMENT);
    const Examined listed = RunDoctor({"--list"});
    std::string rows;
    for (const Json& finding : listed.document["findings"])
        rows += DocumentRow(finding) + "\n";
    EXPECT_TRUE(text.ends_with("|---|---|---|---|\n" + rows))
        << "docs/doctor.md should end with these rows:\n"
        << rows;
}

// ---------------------------------------------------------------- library

TEST_F(DpduDoctor, LibraryThatDoesNotLoadHasAnExitCodeOfItsOwn) {
    WriteConfig(SerialConfig().dump());
    const Examined examined = Run(INCOMPLETE_LIBRARY);
    EXPECT_EQ(examined.exit_code, kNoLibrary);
    ExpectFinding(examined, "WRONG", "library-unusable", "lacks");
}

TEST_F(DpduDoctor, NamesBeyondTheCodePageAreShownAsTheyAre) {
    WriteConfig(SerialConfig().dump());
    const std::filesystem::path library =
        Folder() / std::filesystem::path(LibraryUnderTest()).filename();
    std::filesystem::copy_file(LibraryUnderTest(), library);
    const Examined examined = Run(TextOf(library));
    ExpectFine(examined, "library", TextOf(library));
    ExpectFine(examined, "config", TextOf(ConfigPath()));

    std::filesystem::rename(ConfigPath(), Folder() / "config.json");
    ExpectFine(Run(TextOf(library)), "config", TextOf(Folder() / "config.json"));
}

// ---------------------------------------------------------------- root file

class DpduDoctorRoot : public DoctorTest {
protected:
    static std::string Path() { return TextOf(Folder() / "root.xml"); }
    static Examined RunWithRoot(const std::string& text) {
        std::ofstream(PathOf(Path()), std::ios::binary) << text;
        WriteConfig(SerialConfig().dump());
        return RunDoctor({"--library", LibraryUnderTest(), "--root", Path()});
    }
    // A root file with this project's entry for another file.
    static std::string FileNaming(const std::string& library_uri) {
        dpdu::root::Entry entry;
        entry.short_name = dpdu::root::OwnShortName();
        entry.description = entry.supplier = "x";
        entry.library_uri = library_uri;
        entry.module_description_uri = entry.cable_description_uri = "file:///x";
        return dpdu::root::WithEntry(dpdu::root::EmptyRootFile(), entry);
    }
};

TEST_F(DpduDoctorRoot, ThatNamesTheLibraryIsFine) {
    ExpectFine(RunWithRoot(FileNaming(dpdu::root::UriOfPath(LibraryUnderTest()))), "root-entry",
               Path());
}

TEST_F(DpduDoctorRoot, ThatIsMissingOrHasNoEntryIsNoted) {
    WriteConfig(SerialConfig().dump());
    ExpectNote(RunDoctor({"--library", LibraryUnderTest(), "--root", Path()}), "root-file-missing",
               Path());
    ExpectNote(RunWithRoot(dpdu::root::EmptyRootFile()), "root-entry-missing",
               dpdu::root::OwnShortName());
}

TEST_F(DpduDoctorRoot, ThatIsNoXmlIsWrong) {
    ExpectWrong(RunWithRoot("<MVCI_PDU_API_ROOT>"), "root-file-unreadable", Path());
}

TEST_F(DpduDoctorRoot, ThatNamesNoFileIsWrong) {
    ExpectWrong(RunWithRoot(FileNaming("http://host/library")), "root-entry-address",
                "http://host/library");
    ExpectWrong(RunWithRoot(FileNaming("file:///no/such/library")), "root-entry-gone",
                "no/such/library");
}

TEST_F(DpduDoctorRoot, ThatNamesAnotherLibraryIsNoted) {
    const std::string other = INCOMPLETE_LIBRARY;
    const Examined examined = RunWithRoot(FileNaming(dpdu::root::UriOfPath(other)));
    ExpectNote(examined, "root-entry-other", "not the library that is checked here");
}

TEST_F(DpduDoctorRoot, ThatHasTheEntryTwiceIsWrong) {
    std::string text = FileNaming(dpdu::root::UriOfPath(LibraryUnderTest()));
    const std::size_t begin = text.find("<MVCI_PDU_API>");
    const std::size_t end = text.find("</MVCI_PDU_API>") + std::string("</MVCI_PDU_API>").size();
    ASSERT_LT(begin, end);
    const std::string entry = text.substr(begin, end - begin);
    ExpectWrong(RunWithRoot(text.insert(end, entry)), "root-entry-twice", Path());
}

// ---------------------------------------------------------------- configuration

class DpduDoctorConfig : public DoctorTest {};

TEST_F(DpduDoctorConfig, ThatIsMissingIsWrongAndNotMade) {
    ExpectWrong(Run(), "config-missing", "is missing");
    EXPECT_FALSE(std::filesystem::exists(ConfigPath()));
}

TEST_F(DpduDoctorConfig, ThatIsMissingNeedsItsFolderIfTheLibraryCannotMakeTheFileBesideItself) {
    const auto advice = [](const Examined& examined) {
        const Json* const finding = examined.Find("config-missing");
        return finding ? (*finding)["next"].get<std::string>() : examined.output;
    };
    std::filesystem::remove_all(Folder() / "Tarvik");
    EXPECT_TRUE(advice(Run("no_such_folder/library")).starts_with("create its folder: mkdir"));
    EXPECT_TRUE(advice(Run()).starts_with("'dpdu modules' makes one"));  // beside the library

    std::filesystem::create_directories(ConfigPath().parent_path());
    EXPECT_TRUE(advice(Run("no_such_folder/library")).starts_with("'dpdu modules' makes one"));
}

// Windows always knows the folder.
TEST_F(DpduDoctorConfig, WithoutAFolderOfTheUserIsWrong) {
    if (conformance::kPathSeparator == '\\') GTEST_SKIP() << "the system knows the folder";
    const Examined examined =
        RunDoctor({"--library", "no_such_folder/library"}, {{"HOME", ""}, {"XDG_CONFIG_HOME", ""}});
    ExpectFinding(examined, "WRONG", "config-no-folder", "no folder");
}

TEST_F(DpduDoctorConfig, ThatIsAFolderIsWrong) {
    std::filesystem::create_directories(ConfigPath());
    const Examined examined = Run();
    ExpectWrong(examined, "config-folder", "is a folder");
    EXPECT_FALSE(examined.Has("config-missing"));
}

TEST_F(DpduDoctorConfig, ThatCannotBeReadIsWrong) {
    WriteConfig(SerialConfig().dump());
    const UnreadableFile unreadable(TextOf(ConfigPath()));
    ExpectWrong(Run(), "config-unreadable", "cannot be read");
}

TEST_F(DpduDoctorConfig, ThatIsNoJsonIsWrongAndThePlaceIsNamed) {
    const struct {
        const char* text;
        const char* fault;
    } rows[] = {
        {"{\n\"useSerial\": true,\n\"useCloud\": yes }", "line 3, column 13: "},
        {"{ \"useSerial\": true", "unexpected end of data"},
        {"", "line 1, column 1: unexpected end of data"},
        {"[ true ]", "it is not in { }"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        WriteConfig(row.text);
        ExpectWrong(Run(), "config-not-json", row.fault);
    }
}

TEST_F(DpduDoctorConfig, ThatIsInUtf16IsWrong) {
    WriteConfig(std::string("\xFF\xFE{\0}\0", 6));
    ExpectWrong(Run(), "config-utf-16", "UTF-16");
}

TEST_F(DpduDoctorConfig, MayBeginWithAByteOrderMark) {
    const std::string text = SerialConfig().dump();
    WriteConfig("\xEF\xBB\xBF" + text);
    const Examined examined = Run();
    ExpectFine(examined, "config-byte-order-mark");
    ExpectFine(examined, "config", std::to_string(text.size() + 3) + " of the 1024 bytes");
    ExpectFine(examined, "transports", "serial port");

    WriteConfig(text);
    EXPECT_FALSE(Run().Has("config-byte-order-mark"));
}

TEST_F(DpduDoctorConfig, MayHave1024BytesAndNotOneMore) {
    std::string text = SerialConfig().dump();
    text.resize(1024, ' ');
    WriteConfig(text);
    ExpectFine(Run(), "config", "1024 of the 1024 bytes");
    WriteConfig(text + ' ');
    ExpectWrong(Run(), "config-too-long", "1025 of the 1024 bytes");
}

// It is short enough if compact, but not as the library writes it.
TEST_F(DpduDoctorConfig, ThatGrowsTooLongWithTheLibrarysKeyIsWrong) {
    nlohmann::ordered_json config = SerialConfig();
    config["useCloud"] = true;
    config["devicePrivateKey"] = "";
    EXPECT_FALSE(RunWith(config).Has("config-grows"));
    config["websocketAddress"] = "ws://" + std::string(250, 'w');
    config["proxyAddress"] = std::string(220, 'p');
    ASSERT_LE(config.dump().size(), 1024u);
    ExpectWrong(RunWith(config), "config-grows", "of the 1024 bytes");
}

TEST_F(DpduDoctorConfig, WithMissingOrUnknownKeysIsNoted) {
    nlohmann::ordered_json config = SerialConfig();
    config.erase("showDebug");
    config["useBluetooth"] = false;
    const Examined examined = RunWith(config);
    ExpectNote(examined, "config-keys-missing", "count as on: showDebug");
    ExpectNote(examined, "config-keys-unknown", "useBluetooth");
}

TEST_F(DpduDoctorConfig, WithoutTheKeyForCertificatesIsNotedWithTheConsequence) {
    nlohmann::ordered_json config = SerialConfig();
    EXPECT_FALSE(RunWith(config).Has("config-certificates-unchecked"));
    config.erase("disableCertValidation");
    const Examined examined = RunWith(config);
    ExpectNote(examined, "config-certificates-unchecked", "counts as on");
    const Json& finding = *examined.Find("config-certificates-unchecked");
    EXPECT_TRUE(Contains(finding["why"], "is not checked"));
    EXPECT_TRUE(Contains(finding["next"], TextOf(ConfigPath())));
    EXPECT_FALSE(examined.Has("config-keys-missing")) << examined.output;
}

TEST_F(DpduDoctorConfig, WithAKeyOfAWrongTypeIsWrong) {
    ExpectWrong(RunWith("useSerial", "false"), "config-wrong-type", "useSerial (true or false)");
    ExpectWrong(RunWith("proxyAddress", 3128), "config-wrong-type", "proxyAddress (a text)");
}

TEST_F(DpduDoctorConfig, WithATextThatIsCutIsWrong) {
    ExpectWrong(RunWith("proxyAddress", std::string(256, 'p')), "config-cut", "proxyAddress");
    EXPECT_FALSE(RunWith("proxyAddress", std::string(255, 'p')).Has("config-cut"));
}

TEST_F(DpduDoctorConfig, WithoutATransportIsWrong) {
    ExpectWrong(RunWith("useSerial", false), "transports-off");
}

TEST_F(DpduDoctorConfig, WithTheDemoDeviceAloneIsWrong) {
    nlohmann::ordered_json config = SerialConfig();
    config["dummyDevice"] = true;
    ExpectFine(RunWith(config), "transports", "serial port, demo device");
    config["useSerial"] = false;
    const Examined examined = RunWith(config);
    ExpectWrong(examined, "transports-demo");
    EXPECT_TRUE(Contains((*examined.Find("transports-demo"))["why"], "model number"));
}

TEST_F(DpduDoctorConfig, WithASwitchThatHasNoEffectIsNoted) {
    nlohmann::ordered_json config = SerialConfig();
    config["useCloud"] = true;
    config["serverAddress"] = "";
    config["useWebsocket"] = true;
    EXPECT_TRUE(RunWith(config).Has("config-no-websocket"));
    config["useWebsocket"] = false;
    EXPECT_FALSE(RunWith(config).Has("config-no-websocket"));
    EXPECT_FALSE(RunWith(config).Has("config-no-proxy"));
    config["useProxy"] = true;
    EXPECT_TRUE(RunWith(config).Has("config-no-proxy", "proxyAddress is empty"));
    config["proxyAddress"] = "proxy:3128";
    EXPECT_TRUE(RunWith(config).Has("config-no-proxy", "only WebSockets"));
}

// ---------------------------------------------------------------- keys

TEST_F(DpduDoctorConfig, WithInvalidKeysIsReported) {
    std::string beside_the_curve = conformance::Relay::PublicKey();
    beside_the_curve.back() = beside_the_curve.back() == '0' ? '1' : '0';
    const struct {
        const char* key;
        std::string value;
        const char* state;
        const char* id;
        const char* part;
    } rows[] = {
        {"serverPublicKey", "", "WRONG", "server-key-missing", ""},
        {"serverPublicKey", std::string(129, '4'), "WRONG", "server-key-digits",
         "(129 characters)"},
        {"serverPublicKey", "zz" + std::string(128, '4'), "WRONG", "server-key-digits",
         "not 130 hexadecimal"},
        {"serverPublicKey", beside_the_curve, "WRONG", "server-key-curve", ""},
        {"serverPublicKey", conformance::Relay::PublicKey(), "ok", "server-key", ""},
        {"devicePrivateKey", std::string(63, '1'), "WRONG", "device-key-digits", "(63 characters)"},
        {"devicePrivateKey", "0x" + std::string(62, '1'), "WRONG", "device-key-digits",
         "not 64 hexadecimal"},
        {"devicePrivateKey", std::string(64, 'f'), "note", "device-key-curve", ""},
        {"devicePrivateKey", "", "ok", "device-key-none", ""},
        {"devicePrivateKey", std::string(64, '2'), "ok", "device-key", ""},
    };
    for (const auto& row : rows) {
        nlohmann::ordered_json config = SerialConfig();
        config["useCloud"] = true;
        config[row.key] = row.value;
        const Examined examined = RunWith(config);
        ExpectFinding(examined, row.state, row.id, row.part);
        EXPECT_EQ(examined.exit_code, std::string(row.state) == "WRONG" ? kFailure : kOk);
    }
}

// ---------------------------------------------------------------- folder for log and trace

class DpduDoctorLogFolder : public DoctorTest {
protected:
    static Examined RunWithLogFolder(const std::filesystem::path& folder,
                                     const nlohmann::ordered_json& config) {
        WriteConfig(config.dump());
        const std::string path = TextOf(folder);
        return RunDoctor({"--library", LibraryUnderTest()},
                         {{"TMPDIR", path}, {"TMP", path}, {"TEMP", path}});
    }
};

TEST_F(DpduDoctorLogFolder, ThatIsThereIsFineAndStaysAsItIs) {
    const std::filesystem::path folder = Folder() / "logs";
    std::filesystem::create_directories(folder);
    ExpectFine(RunWithLogFolder(folder, SerialConfig()), "log-folder", " MB free");
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(DpduDoctorLogFolder, ThatIsMissingIsWrongUnlessNothingIsWrittenThere) {
    nlohmann::ordered_json config = SerialConfig();
    const Examined examined = RunWithLogFolder(Folder() / "none", config);
    ExpectWrong(examined, "log-folder-missing", "does not exist");
    EXPECT_TRUE(Contains((*examined.Find("log-folder-missing"))["next"], "mkdir"));
    config["enableDebugLogFile"] = false;
    EXPECT_EQ(RunWithLogFolder(Folder() / "none", config).exit_code, kOk);
    config["enableCopTrace"] = true;
    EXPECT_TRUE(RunWithLogFolder(Folder() / "none", config).Has("log-folder-missing"));
}

TEST_F(DpduDoctorLogFolder, ThatIsAFileIsWrong) {
    std::ofstream(Folder() / "file") << "";
    ExpectWrong(RunWithLogFolder(Folder() / "file", SerialConfig()), "log-folder-missing");
}

// ---------------------------------------------------------------- clock

TEST_F(DpduDoctor, ClockBeforeTheConfigurationsTimeStampIsWrong) {
    WriteConfig(SerialConfig().dump());
    const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(ConfigPath(), now + std::chrono::hours(48));
    ExpectWrong(Run(), "clock-early", "config.json");
    std::filesystem::last_write_time(ConfigPath(), now);
    ExpectFine(Run(), "clock");
}

}  // namespace
