// Checks of the relay's certificate: validation on, relay behind TLS.
#include "conformance/cloud/relay_fixture.h"

namespace conformance {
namespace {

// While it lives, OpenSSL's default store holds only the relay's certificate.
class TrustedRelay {
public:
    TrustedRelay() { SetVariable("SSL_CERT_FILE", Relay::CertificateFile()); }
    ~TrustedRelay() {
        Pdu().PDUDestruct();  // its threads read the variable
        SetVariable("SSL_CERT_FILE", "");
    }
    TrustedRelay(const TrustedRelay&) = delete;
    TrustedRelay& operator=(const TrustedRelay&) = delete;
};

class CertificateCheck : public RelayFixture {
protected:
    static Settings CheckingSettings() {
        Settings settings = SettingsFor(Way::kSecureWebSocket);
        settings.disableCertValidation = false;
        return settings;
    }
    // The relay's certificate is for localhost.
    static std::string LocalhostAddress() {
        const std::string address = Relay::SecureWebSocketAddress();
        return "wss://localhost" + address.substr(address.rfind(':'));
    }
    // Reaches the relay by a name that is not in its certificate but is known to the proxy.
    Settings SettingsForAnotherName() {
        const std::string address = Relay::SecureWebSocketAddress();
        const std::size_t port = address.rfind(':') + 1;
        const std::string target = "127.0.0.1:" + address.substr(port, address.rfind('/') - port);
        relay_.Command("proxy map relay.example:443 " + target);
        Settings settings = CheckingSettings();
        settings.websocketAddress = "wss://relay.example/dongles";
        settings.useProxy = true;
        settings.proxyAddress = Relay::ProxyAddress();
        return settings;
    }
    bool IsRefused() { return Logs("WinHttpSendRequest Failed: 12175"); }
};

TEST_F(CertificateCheck, KnownIssuerAndNameAreAccepted) {
    const TrustedRelay trusted;
    Settings settings = CheckingSettings();
    settings.websocketAddress = LocalhostAddress();
    Construct(settings);
    EXPECT_TRUE(IsConnected());
    EXPECT_FALSE(log_.Has("   Disabling certificate checks"));
}

TEST_F(CertificateCheck, NameOfAnotherHostIsRefused) {
    const TrustedRelay trusted;
    Construct(SettingsForAnotherName());
    EXPECT_TRUE(IsRefused());
    EXPECT_EQ(relay_.Count("in NHS1"), 0u);
}

TEST_F(CertificateCheck, AnyIsAcceptedWithValidationOff) {
    Settings settings = SettingsForAnotherName();
    settings.disableCertValidation = true;
    Construct(settings);
    EXPECT_TRUE(IsConnected());
    EXPECT_TRUE(log_.Has("   Disabling certificate checks"));
}

}  // namespace
}  // namespace conformance
