// A user whose name is beyond every ANSI code page.

#include <cstdlib>

#include "conformance/cloud/relay_fixture.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/surroundings.h"

namespace conformance {
namespace {

constexpr char kSharedFolder[] = "TARVIK_TEST_SHARED_FOLDER";

class ForeignUserProcess : public RelayFixture {
public:
    static void Start() {
        const char* const folder = std::getenv(kSharedFolder);
        ASSERT_NE(folder, nullptr);
        UseForeignFolders(folder);
        Relay().Reset();
        if (!FileExists(UserConfigPath())) SettingsFor(Way::kTcp).Store();
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        ConnectModule();
        EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        const auto config = nlohmann::json::parse(ReadFile(UserConfigPath()));
        WriteFile(JoinPath(folder, "key"), config.value("devicePrivateKey", ""));
    }
};

TEST(ForeignUser, KeepsItsDeviceKeyOverTwoStarts) {
    if (IsProcessFor(RunningTest())) return ForeignUserProcess::Start();
    const std::string folder = JoinPath(PrivateFolder(), "shared");
    std::string keys[2];
    for (std::string& key : keys) {
        const ProgramRun run = RunTestInFreshProcess(RunningTest(), {{kSharedFolder, folder}});
        ASSERT_EQ(run.exit_code, 0) << run.output;
        key = ReadFile(JoinPath(folder, "key"));
    }
    EXPECT_EQ(keys[0].size(), 64u);
    EXPECT_EQ(keys[0], keys[1]);
}

}  // namespace
}  // namespace conformance
