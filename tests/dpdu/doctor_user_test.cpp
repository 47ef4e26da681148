// The doctor for a user who may not write everywhere: root may.

#include <sys/stat.h>
#include <unistd.h>

#include "doctor_run.h"

namespace {

class DpduDoctorUser : public DoctorTest {
protected:
    void SetUp() override {
        DoctorTest::SetUp();
        // The launcher has made a folder for its own user.
        namespace fs = std::filesystem;
        fs::permissions(Folder().parent_path(), fs::perms::others_exec, fs::perm_options::add);
    }
    static void WriteReadOnly(const std::filesystem::path& path,
                              const nlohmann::ordered_json& config) {
        std::ofstream(path) << config.dump();
        EXPECT_EQ(chmod(path.c_str(), 0444), 0);
    }
    static Examined RunAsUser(const std::string& library, const Variables& environment = {}) {
        ClientSetup setup;
        setup.arguments = {"doctor", "--json", "--library", library};
        if (geteuid() == 0) {
            setup.program = SETPRIV_PROGRAM;
            setup.arguments.insert(setup.arguments.begin(), {"--reuid=65534", "--regid=65534",
                                                             "--clear-groups", DPDU_PROGRAM});
        }
        setup.environment = environment;
        const ClientResult result = RunClient(setup);
        return {result.exit_code, result.output, Document(result)};
    }
};

TEST_F(DpduDoctorUser, WhoCannotWriteTheKeyIsToldSo) {
    nlohmann::ordered_json config = SerialConfig();
    config["useCloud"] = true;
    config["devicePrivateKey"] = "";
    WriteReadOnly(ConfigPath(), config);
    ExpectWrong(RunAsUser(LibraryUnderTest()), "permissions-write", "cannot keep its key");
}

TEST_F(DpduDoctorUser, WhoHasNoFileYetIsToldOfTheCopy) {
    const std::filesystem::path folder = Folder() / "library";
    std::filesystem::create_directories(folder);
    WriteReadOnly(folder / "config.json", SerialConfig());
    const Examined examined = RunAsUser(TextOf(folder / "library.so"));
    ExpectFinding(examined, "note", "config-template", "no file of their own");
    EXPECT_TRUE(Contains((*examined.Find("config-template"))["next"],
                         "'dpdu modules' makes " + TextOf(ConfigPath()) + ", a copy"));
}

TEST_F(DpduDoctorUser, WhoCannotWriteTheLogIsToldSo) {
    const std::filesystem::path folder = Folder() / "logs";
    std::filesystem::create_directories(folder);
    ASSERT_EQ(chmod(folder.c_str(), 0555), 0);
    WriteReadOnly(ConfigPath(), SerialConfig());
    ExpectWrong(RunAsUser(LibraryUnderTest(), {{"TMPDIR", TextOf(folder)}}), "log-folder-rights",
                "cannot create files");
}

}  // namespace
