// What the user sees when the relay cannot be reached: a box on the screen or, if there is none,
// text on standard error. The library shows it once in ten seconds, so each test is a process of
// its own.
#include "conformance/cloud/relay_fixture.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/surroundings.h"

namespace conformance {
namespace {

constexpr char kCaption[] = "Tarvik PDU DLL - Connection failure";
constexpr char kRefusing[] = "127.0.0.1:1";  // nobody listens there

class FailureBox {
public:
    // Ends the library first: it may still show a box.
    ~FailureBox() { Pdu().PDUDestruct(); }

    void Construct(const std::string& url, const std::string& proxy = "") {
        Settings settings = {.useCloud = true, .useWebsocket = true};
        settings.websocketAddress = url;
        settings.proxyAddress = proxy;
        settings.useProxy = !proxy.empty();
        settings.Store();
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    }
    bool Fails(const std::string& error, std::size_t times) {
        const std::string line = "WinHttpSendRequest Failed: " + error;
        return Eventually([&] { return log_.Count(line) >= times; });
    }
    std::vector<std::string> Texts() const { return boxes_.Texts(); }
    static std::string ConfigLine() { return "Check config file '" + UserConfigPath() + "'."; }

private:
    WarningBoxes boxes_{kCaption};
    LogCapture log_;
    StdoutCapture console_;
};

FRESH_PROCESS_TEST(FailureBoxTest, IsShownOnceForRepeatedFailures) {
    const std::string url = std::string("ws://") + kRefusing + "/dongles";
    FailureBox box;
    box.Construct(url);
    ASSERT_TRUE(box.Fails("12029", 3));
    const std::vector<std::string> expected = {"Failed to connect to '" + url +
                                               "'.\nAre you sure the settings are correct?\n" +
                                               FailureBox::ConfigLine()};
    EXPECT_EQ(box.Texts(), expected);
}

// A label of more than 63 characters, which the system refuses without a network.
FRESH_PROCESS_TEST(FailureBoxTest, NamesOnlyTheServerThatIsNotResolved) {
    const std::string server(64, 'n');
    FailureBox box;
    box.Construct("ws://" + server + "/dongles");
    ASSERT_TRUE(box.Fails("12007", 2));
    const std::vector<std::string> expected = {
        "Failed to resolve '" + server +
        "'.\nAre you sure the settings are correct?\nMaybe you need to set the proxy first?\n" +
        FailureBox::ConfigLine()};
    EXPECT_EQ(box.Texts(), expected);
}

FRESH_PROCESS_TEST(FailureBoxTest, NamesTheProxyIfOneIsUsed) {
    const std::string url = std::string("ws://") + kRefusing + "/dongles";
    FailureBox box;
    box.Construct(url, kRefusing);
    ASSERT_TRUE(box.Fails("12029", 2));
    const std::vector<std::string> expected = {
        "Failed to connect to '" + url + "' using Proxy '" + kRefusing +
        "'.\nAre you sure the Proxy settings are correct?\n" + FailureBox::ConfigLine()};
    EXPECT_EQ(box.Texts(), expected);
}

}  // namespace
}  // namespace conformance
