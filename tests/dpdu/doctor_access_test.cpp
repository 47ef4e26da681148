// The doctor's check of who may read the configuration.

#include "doctor_run.h"

namespace {

class DpduDoctorAccess : public DoctorTest {
protected:
    static ClientResult RunWithReaders(const nlohmann::ordered_json& config, Readers readers) {
        WriteConfig(config.dump());
        EXPECT_TRUE(SetReaders(TextOf(ConfigPath()), readers));
        return Run();
    }
};

TEST_F(DpduDoctorAccess, ConfigurationReadableOnlyByTheOwnerIsFine) {
    const ClientResult result = RunWithReaders(GoodConfig(), Readers::kOwner);
    EXPECT_TRUE(HasLine(result, "ok", "permissions", "only its owner")) << result.output;
}

TEST_F(DpduDoctorAccess, KeyReadableByOthersIsWrong) {
    ExpectWrong(RunWithReaders(GoodConfig(), Readers::kEveryone), "permissions", "by everyone -> ");
}

TEST_F(DpduDoctorAccess, ConfigurationWithoutAKeyReadableByOthersIsNoted) {
    nlohmann::ordered_json config = GoodConfig();
    config["devicePrivateKey"] = "";
    const ClientResult result = RunWithReaders(config, Readers::kEveryone);
    EXPECT_EQ(result.exit_code, kOk);
    EXPECT_TRUE(HasLine(result, "note", "permissions", "by everyone")) << result.output;
}

}  // namespace
