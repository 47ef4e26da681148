// Folders of the user, for temporary files and of the library, whose names are beyond every ANSI
// code page.

#include <algorithm>

#include "conformance/frame/construct.h"
#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"
#include "conformance/framework/trace_file.h"

using namespace conformance;

FRESH_PROCESS_TEST(ForeignNames, ConfigurationLogAndTraceAreWhereTheyBelong) {
    UseForeignFolders();
    Settings{.enableCopTrace = true, .dummyDevice = true}.Store();
    const std::vector<std::string> before = FilesIn(PrivateFolder(), "", "");
    const DebugOutputCapture debugger;
    Construct();
    Destruct();
    EXPECT_NE(ReadFile(LogPath()).find("[DummyStart] Done"), std::string::npos);
    ASSERT_EQ(TraceFiles().size(), 1u);
    EXPECT_FALSE(ReadTrace().empty());
    EXPECT_TRUE(debugger.Has("[DebugLog] Writing to " + LogPath() + "\n")) << debugger.Text();
    EXPECT_TRUE(debugger.Has("[CopLog] Creating trace file: " + TraceFiles()[0] + "\n"))
        << debugger.Text();
    EXPECT_EQ(FilesIn(PrivateFolder(), "", ""), before);
}

FRESH_PROCESS_TEST(ForeignNames, MissingConfigurationIsCreatedBesideTheLibrary) {
    UseForeignFolders();
    StdoutCapture console;
    Construct();
    Destruct();
    EXPECT_TRUE(console.Has("Opened config file: " + LibraryConfigPath() + "\n")) << console.Text();
    EXPECT_TRUE(FileExists(LibraryConfigPath()));
    EXPECT_FALSE(FileExists(UserConfigPath()));
}

FRESH_PROCESS_TEST(ForeignNames, ReadOnlyConfigurationIsCopiedToTheUserFolder) {
    UseForeignFolders();
    Construct();  // opens the log before privileges are dropped
    Destruct();
    const std::string content = Settings{.dummyDevice = true}.Json();
    WriteFile(LibraryConfigPath(), content);
    const WriteProtection read_only(LibraryConfigPath(), PrivateFolder());
    Construct();
    Destruct();
    EXPECT_EQ(ReadFile(UserConfigPath()), content);
}
