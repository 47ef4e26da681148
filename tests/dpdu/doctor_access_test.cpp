// The doctor's check of who may read the configuration.

#include "doctor_run.h"

namespace {

class DpduDoctorAccess : public DoctorTest {
protected:
    static Examined RunWithReaders(const nlohmann::ordered_json& config, Readers readers) {
        WriteConfig(config.dump());
        EXPECT_TRUE(SetReaders(TextOf(ConfigPath()), readers));
        return Run();
    }
};

TEST_F(DpduDoctorAccess, ConfigurationReadableOnlyByTheOwnerIsFine) {
    ExpectFine(RunWithReaders(SerialConfig(), Readers::kOwner), "permissions", "only its owner");
}

TEST_F(DpduDoctorAccess, KeyReadableByOthersIsWrong) {
    ExpectWrong(RunWithReaders(SerialConfig(), Readers::kEveryone), "permissions-key",
                "by everyone");
}

TEST_F(DpduDoctorAccess, ConfigurationWithoutAKeyReadableByOthersIsNoted) {
    nlohmann::ordered_json config = SerialConfig();
    config["devicePrivateKey"] = "";
    ExpectNote(RunWithReaders(config, Readers::kEveryone), "permissions-readers", "by everyone");
}

}  // namespace
