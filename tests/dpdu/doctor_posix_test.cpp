// What depends on the modes of files.

#include "doctor_run.h"

namespace {

namespace fs = std::filesystem;

class DpduDoctorModes : public DoctorTest {
protected:
    static ClientResult RunWithMode(const nlohmann::ordered_json& config, fs::perms mode) {
        WriteConfig(config.dump());
        fs::permissions(ConfigPath(), fs::perms::owner_read | fs::perms::owner_write | mode);
        return Run();
    }
};

TEST_F(DpduDoctorModes, ConfigurationOfTheOwnerAloneIsFine) {
    const ClientResult result = RunWithMode(GoodConfig(), fs::perms::none);
    EXPECT_TRUE(HasLine(result, "ok", "permissions", "only its owner")) << result.output;
}

TEST_F(DpduDoctorModes, KeyThatOthersCanReadIsWrong) {
    const ClientResult everyone = RunWithMode(GoodConfig(), fs::perms::others_read);
    EXPECT_EQ(everyone.exit_code, kFailure);
    EXPECT_TRUE(HasLine(everyone, "WRONG", "permissions", "by everyone -> chmod 600 '"))
        << everyone.output;
    const ClientResult group = RunWithMode(GoodConfig(), fs::perms::group_read);
    EXPECT_TRUE(HasLine(group, "WRONG", "permissions", "by the group ")) << group.output;
}

TEST_F(DpduDoctorModes, ConfigurationWithoutAKeyThatOthersCanReadIsNoted) {
    nlohmann::ordered_json config = GoodConfig();
    config["devicePrivateKey"] = "";
    const ClientResult result = RunWithMode(config, fs::perms::others_read);
    EXPECT_EQ(result.exit_code, kOk);
    EXPECT_TRUE(HasLine(result, "note", "permissions", "by everyone")) << result.output;
}

}  // namespace
