#include <random>
#include <string>
#include <utility>

#include "doctor/configuration.h"
#include "doctor/relay_conversation.h"
#include "doctor/relay_link.h"
#include "doctor/surroundings.h"
#include "support/text.h"
#include "text/hex.h"
#include "transport/cloud/secure_channel.h"
#include "transport/cloud/secure_channel_crypto.h"

namespace dpdu {
namespace {

// Never written anywhere: the library makes its own.
std::string TemporaryDeviceKey() {
    std::random_device random;
    for (;;) {
        Bytes key(tarvik::kScalarSize);
        for (std::uint8_t& byte : key)
            byte = static_cast<std::uint8_t>(random());
        const std::string text = HexText(key);
        if (IsDeviceKey(text)) return text;
    }
}

// The library reads its keys from the process's configuration, and writes a file only if it has to
// make a key, so there is always a valid one.
bool LoadIdentity(const tarvik::Config& config, const std::string& device_key) {
    tarvik::config = config;
    tarvik::FormatText(tarvik::config.devicePrivateKey, sizeof tarvik::config.devicePrivateKey,
                       "%s", device_key.c_str());
    return tarvik::CloudSecLoadIdentity();
}

std::string StatusText(std::uint32_t status) {
    return "status " + std::to_string(status) + ", " + tarvik::CloudSecStatusText(status);
}

std::string Joined(const std::vector<std::string>& texts) {
    std::string list;
    for (const std::string& text : texts)
        list += (list.empty() ? "" : ", ") + text;
    return list;
}

class RelayCheck {
public:
    RelayCheck(std::string relay, std::unique_ptr<RelayLink> link, CheckRun* run)
        : relay_(std::move(relay)), run_(run), conversation_(std::move(link), run->Stop()) {}

    void ExamineKeyExchange(bool has_own_key) {
        if (!conversation_.ExchangesKeys()) {
            return Add(conversation_.WasAnswered() ? Diagnosis::kRelayWrongKey
                                                   : Diagnosis::kRelayNoHandshake);
        }
        if (!has_own_key) return Add(Diagnosis::kRelayReached);
        ExamineIdentification();
    }

private:
    void ExamineIdentification() {
        std::uint32_t status = 0;
        if (!conversation_.Identifies(&status)) return Add(Diagnosis::kRelayNoIdentification);
        if (status == tarvik::kDeviceRejected) {
            return Add(Diagnosis::kRelayRejected, StatusText(status));
        }
        if (status == tarvik::kDeviceIsolated) {
            return Add(Diagnosis::kRelayIsolated, StatusText(status));
        }
        const std::string dongles = Joined(conversation_.Dongles());
        Add(dongles.empty() ? Diagnosis::kRelayNoDongle : Diagnosis::kRelay, StatusText(status),
            dongles);
    }

    // What was not said for lack of time is no finding.
    void Add(Diagnosis diagnosis, const std::string& status = "", const std::string& dongles = "") {
        if (run_->Stop()) return;
        run_->Add(Found(diagnosis, {{"relay", relay_}, {"status", status}, {"dongles", dongles}}));
    }

    const std::string relay_;
    CheckRun* const run_;
    RelayConversation conversation_;
};

}  // namespace

void CheckRelay(const tarvik::Config& config, CheckRun* run) {
    if (!config.useCloud) return;
    RelayOpening opening = OpenRelay(config, run);
    if (!opening.link) return;
    const bool has_own_key = IsDeviceKey(config.devicePrivateKey);
    const bool is_possible =
        IsServerKey(config.serverPublicKey) && !IsMalformedDeviceKey(config.devicePrivateKey);
    if (!is_possible ||
        !LoadIdentity(config, has_own_key ? config.devicePrivateKey : TemporaryDeviceKey())) {
        run->Add(Found(Diagnosis::kRelayNoKeys, {{"relay", opening.relay}}));
        return;
    }
    RelayCheck(opening.relay, std::move(opening.link), run).ExamineKeyExchange(has_own_key);
}

}  // namespace dpdu
