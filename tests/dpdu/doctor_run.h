// Runs "dpdu doctor" with the test's configuration.

#ifndef TESTS_DPDU_DOCTOR_RUN_H
#define TESTS_DPDU_DOCTOR_RUN_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>

#include "client_run.h"
#include "conformance/framework/relay.h"
#include "file_access.h"
#include "path_text.h"

// What the doctor reported.
struct Examined {
    int exit_code = -1;
    std::string output;
    Json document;

    // Null: it has no such finding whose text contains `part`.
    const Json* Find(const std::string& id, const std::string& part = "") const {
        for (const Json& finding : document["findings"]) {
            if (finding["id"] == id && Contains(finding["what"], part)) return &finding;
        }
        return nullptr;
    }
    bool Has(const std::string& id, const std::string& part = "") const {
        return Find(id, part) != nullptr;
    }
};

class DoctorTest : public testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories(ConfigPath().parent_path()); }
    void TearDown() override { std::filesystem::remove_all(Folder()); }

    // A folder whose name is beyond every ANSI code page, in one provided by the launcher.
    static std::filesystem::path Folder() {
        const char* scratch = std::getenv("BRENNIX_SIM_SCRATCH");
        static const std::string own = TemporaryPath("doctor");
        return scratch ? PathOf(scratch) / PathOf(kForeignName) : PathOf(own);
    }
    // Where the program looks for it.
    static std::filesystem::path ConfigPath() {
        return Folder() / "Tarvik" / "Brennix" / "config.json";
    }

    // A valid configuration with the dongle on the serial port.
    static nlohmann::ordered_json SerialConfig() {
        return {{"showDebug", false},
                {"enableCopTrace", false},
                {"enableDebugLogFile", true},
                {"useWebsocket", false},
                {"useSerial", true},
                {"useCloud", false},
                {"useBle", false},
                {"dummyDevice", false},
                {"useProxy", false},
                {"disableCertValidation", false},
                {"serverAddress", conformance::Relay::TcpAddress()},
                {"websocketAddress", ""},
                {"proxyAddress", ""},
                {"devicePrivateKey", std::string(64, '1')},
                {"serverPublicKey", conformance::Relay::PublicKey()}};
    }

    static void WriteConfig(const std::string& text) {
        std::ofstream(ConfigPath(), std::ios::binary) << text;
        EXPECT_TRUE(SetReaders(TextOf(ConfigPath()), Readers::kOwner));
    }

    static std::string LibraryUnderTest() {
        const char* path = std::getenv("TARVIK_DPDU_LIBRARY");
        return path ? path : "";
    }
    using Variables = std::vector<std::pair<std::string, std::string>>;
    static Examined RunDoctor(const std::vector<std::string>& options,
                              const Variables& environment = {}) {
        ClientSetup setup;
        setup.arguments = {"doctor", "--json"};
        setup.arguments.insert(setup.arguments.end(), options.begin(), options.end());
        setup.environment = environment;
        const ClientResult result = RunClient(setup);
        return {result.exit_code, result.output, Document(result)};
    }
    static Examined Run(const std::string& library = LibraryUnderTest()) {
        return RunDoctor({"--library", library});
    }
    static Examined RunWith(const nlohmann::ordered_json& config) {
        WriteConfig(config.dump());
        return Run();
    }
    // A valid configuration except for this key.
    static Examined RunWith(const std::string& key, const nlohmann::ordered_json& value) {
        nlohmann::ordered_json config = SerialConfig();
        config[key] = value;
        return RunWith(config);
    }

    const UserFolder user_folder_{TextOf(Folder())};
};

// A finding of this state with this id, whose text contains `part`. Only what is fine may lack a
// reason and advice, and every value is filled in.
inline void ExpectFinding(const Examined& examined, const std::string& state, const std::string& id,
                          const std::string& part) {
    const Json* const finding = examined.Find(id, part);
    ASSERT_NE(finding, nullptr) << id << ": " << part << "\n" << examined.output;
    EXPECT_EQ((*finding)["state"], state) << examined.output;
    for (const char* field : {"what", "why", "next"}) {
        const std::string text = (*finding)[field];
        EXPECT_TRUE(state == "ok" || !text.empty()) << field << "\n" << examined.output;
        EXPECT_FALSE(std::regex_search(text, std::regex("\\{[a-z]+\\}"))) << text;
    }
}

inline void ExpectFine(const Examined& examined, const std::string& id,
                       const std::string& part = "") {
    EXPECT_EQ(examined.exit_code, kOk) << examined.output;
    ExpectFinding(examined, "ok", id, part);
}

inline void ExpectNote(const Examined& examined, const std::string& id,
                       const std::string& part = "") {
    EXPECT_EQ(examined.exit_code, kOk) << examined.output;
    ExpectFinding(examined, "note", id, part);
}

// The program failed because of this.
inline void ExpectWrong(const Examined& examined, const std::string& id,
                        const std::string& part = "") {
    EXPECT_EQ(examined.exit_code, kFailure) << examined.output;
    ExpectFinding(examined, "WRONG", id, part);
}

#endif  // TESTS_DPDU_DOCTOR_RUN_H
