// Runs "dpdu doctor" with the test's configuration.

#ifndef TESTS_DPDU_DOCTOR_RUN_H
#define TESTS_DPDU_DOCTOR_RUN_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "client_run.h"
#include "conformance/framework/relay.h"
#include "file_access.h"
#include "path_text.h"

class DoctorTest : public testing::Test {
protected:
    void SetUp() override {
        relay_.Reset();
        std::filesystem::create_directories(ConfigPath().parent_path());
    }
    void TearDown() override { std::filesystem::remove(ConfigPath()); }

    // A folder whose name is beyond every ANSI code page, in one provided by the launcher.
    static std::filesystem::path Folder() {
        const char* scratch = std::getenv("BRENNIX_SIM_SCRATCH");
        return PathOf(scratch ? scratch : "") / PathOf(kForeignName);
    }
    // Where the program looks for it.
    static std::filesystem::path ConfigPath() {
        return Folder() / "Tarvik" / "Brennix" / "config.json";
    }

    // A valid configuration: the dongle on the serial port, and a relay over TCP.
    static nlohmann::ordered_json GoodConfig() {
        return {{"showDebug", false},
                {"enableCopTrace", false},
                {"enableDebugLogFile", false},
                {"useWebsocket", false},
                {"useSerial", true},
                {"useCloud", true},
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

    // The same with the relay over a WebSocket.
    static nlohmann::ordered_json WebSocketConfig(
        const std::string& address = conformance::Relay::WebSocketAddress()) {
        nlohmann::ordered_json config = GoodConfig();
        config["useWebsocket"] = true;
        config["websocketAddress"] = address;
        return config;
    }

    static void WriteConfig(const std::string& text) {
        std::ofstream(ConfigPath(), std::ios::binary) << text;
        EXPECT_TRUE(SetReaders(TextOf(ConfigPath()), Readers::kOwner));
    }

    static std::string LibraryUnderTest() {
        const char* path = std::getenv("TARVIK_DPDU_LIBRARY");
        return path ? path : "";
    }
    static ClientResult Run(const std::string& library = LibraryUnderTest()) {
        return RunClient({"doctor", "--library", library});
    }
    static ClientResult RunWith(const nlohmann::ordered_json& config) {
        WriteConfig(config.dump());
        return Run();
    }
    // A valid configuration except for this key.
    static ClientResult RunWith(const std::string& key, const nlohmann::ordered_json& value) {
        nlohmann::ordered_json config = GoodConfig();
        config[key] = value;
        return RunWith(config);
    }

    conformance::Relay relay_;
    const UserFolder user_folder_{TextOf(Folder())};
};

// True if one line contains all of these, from left to right.
inline bool HasLine(const ClientResult& result, const std::string& state,
                    const std::string& subject, const std::string& part) {
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t at = line.find(subject);
        if (line.starts_with(state) && at != line.npos && line.find(part, at) != line.npos) {
            return true;
        }
    }
    return false;
}

// The program failed because of this subject, whose line contains `part`.
inline void ExpectWrong(const ClientResult& result, const std::string& subject,
                        const std::string& part) {
    EXPECT_EQ(result.exit_code, kFailure) << result.output;
    EXPECT_TRUE(HasLine(result, "WRONG", subject, part)) << subject << "\n" << result.output;
}

#endif  // TESTS_DPDU_DOCTOR_RUN_H
