// Many dongles behind one relay, and as many clients, each a process of its own with its own
// dongle, that send requests at the same time. No answer is lost, repeated or given to another
// client. DPDU_STRESS_SECONDS sets the duration, DPDU_LOAD_CLIENTS the number of clients.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "conformance/cloud/relay_fixture.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/requester.h"
#include "conformance/framework/rounds.h"

namespace conformance {
namespace {

constexpr std::uint32_t kDongles = 50;
constexpr std::uint32_t kFirstMacByte = 1;
constexpr char kFigures[] = "requests ";

std::uint32_t NumberFrom(const char* variable, std::uint32_t otherwise) {
    const char* text = std::getenv(variable);
    return text == nullptr ? otherwise
                           : static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
}
std::uint32_t Clients() { return NumberFrom("DPDU_LOAD_CLIENTS", Rounds(5, 2, 2)); }
// 50 links in total; few clients have fewer.
std::uint32_t LinksOfEach() { return std::max(1u, Rounds(kDongles, 10, 10) / Clients()); }
std::chrono::seconds Duration() {
    return std::chrono::seconds(NumberFrom("DPDU_STRESS_SECONDS", 2));
}

// Each link of a client reads its own identifier, whose data name client and link.
struct Question {
    std::uint32_t client;
    std::uint32_t link;

    std::vector<UNUM8> Request() const { return {0x22, 0x20, static_cast<UNUM8>(link)}; }
    std::vector<UNUM8> Answer() const {
        const auto byte = static_cast<UNUM8>(link);
        return {0x62, 0x20, byte, static_cast<UNUM8>(client), static_cast<UNUM8>(byte ^ 0xFF)};
    }
    std::string Command() const {
        char text[64];
        std::snprintf(text, sizeof text, "@%u data engine 20%02X %02X %02X", client, link, client,
                      link ^ 0xFFu);
        return text;
    }
};

struct Tally {
    std::uint64_t requests = 0;
    std::uint64_t wrong = 0;
    std::vector<double> times_us;
};

class RelayLoad : public EachWay {
protected:
    void SetUp() override {
        if (!IsProcessFor(RunningTest())) return EachWay::SetUp();
        Pdu();  // does not reset the relay, which has other clients
    }

    // ---- the processes ----

    static bool HasSerialNumber(const PDU_MODULE_DATA& module, std::uint32_t dongle) {
        char text[40];
        std::snprintf(text, sizeof text, "SerialNumber='02:42:52:4E:58:%02X'",
                      dongle + kFirstMacByte);
        return std::string(module.pVendorModuleName).find(text) != std::string::npos;
    }
    static UNUM32 FindDongle(std::uint32_t dongle) {
        UNUM32 hMod = PDU_HANDLE_UNDEF;
        EXPECT_TRUE(Eventually([&] {
            const auto modules = GetModuleIds();
            for (UNUM32 i = 0; modules != nullptr && i < modules->NumEntries; ++i) {
                const PDU_MODULE_DATA& module = modules->pModuleData[i];
                if (!HasSerialNumber(module, dongle)) continue;
                hMod = module.hMod;
            }
            return hMod != PDU_HANDLE_UNDEF;
        }));
        return hMod;
    }

    static void AskUntil(std::chrono::steady_clock::time_point end, Requester* requester,
                         const Question& question, Tally* tally) {
        while (std::chrono::steady_clock::now() < end) {
            const auto begin = std::chrono::steady_clock::now();
            const Outcome outcome = requester->Request(question.Request());
            const std::chrono::duration<double, std::micro> time =
                std::chrono::steady_clock::now() - begin;
            const bool right = outcome.errors.empty() && outcome.results.size() == 1 &&
                               outcome.results[0].data == question.Answer();
            ++tally->requests;
            tally->wrong += right ? 0 : 1;
            tally->times_us.push_back(time.count());
        }
    }

    static Tally AskOnAllLinks(UNUM32 hMod, std::uint32_t client) {
        SetNumber("CP_P2Max", 4'000'000);
        std::vector<std::unique_ptr<Requester>> requesters;
        std::vector<Tally> tallies(LinksOfEach());
        for (std::uint32_t i = 0; i < LinksOfEach(); ++i) {
            requesters.push_back(
                std::make_unique<Requester>(hMod, kEngineRequest, kEngineResponse));
        }
        const auto end = std::chrono::steady_clock::now() + Duration();
        {
            std::vector<std::unique_ptr<Thread>> threads;
            for (std::uint32_t i = 0; i < LinksOfEach(); ++i) {
                threads.push_back(std::make_unique<Thread>([&, i] {
                    AskUntil(end, requesters[i].get(), Question{client, i}, &tallies[i]);
                }));
            }
        }
        Pdu().PDUDestruct();  // until then the library may call the requesters
        Tally sum;
        for (const Tally& tally : tallies) {
            sum.requests += tally.requests;
            sum.wrong += tally.wrong;
            sum.times_us.insert(sum.times_us.end(), tally.times_us.begin(), tally.times_us.end());
        }
        return sum;
    }

    static void RunClient() {
        const auto client = static_cast<std::uint32_t>(ProcessNumber());
        Settings settings = SettingsFor(GetParam());
        settings.enableDebugLogFile = false;
        Construct(settings);
        const UNUM32 hMod = FindDongle(client);
        ASSERT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
        Tally tally = AskOnAllLinks(hMod, client);
        ASSERT_GT(tally.requests, 0u);
        std::sort(tally.times_us.begin(), tally.times_us.end());
        const auto at = [&tally](double part) {
            return tally.times_us[static_cast<std::size_t>(
                part * static_cast<double>(tally.times_us.size() - 1))];
        };
        std::fprintf(stderr, "%s%llu, wrong %llu, median %.0f us, p99 %.0f us, longest %.0f us\n",
                     kFigures, static_cast<unsigned long long>(tally.requests),
                     static_cast<unsigned long long>(tally.wrong), at(0.5), at(0.99), at(1));
        EXPECT_EQ(tally.wrong, 0u);
    }
};

INSTANTIATE_TEST_SUITE_P(Over, RelayLoad, testing::Values(Way::kTcp, Way::kWebSocket),
                         [](const auto& suite) { return NameOf(suite.param); });

TEST_P(RelayLoad, OfManyClientsLosesRepeatsAndMixesUpNoAnswer) {
    if (IsProcessFor(RunningTest())) return RunClient();
    for (std::uint32_t client = 0; client < Clients(); ++client) {
        for (std::uint32_t link = 0; link < LinksOfEach(); ++link)
            relay_.Command(Question{client, link}.Command());
    }
    std::uint64_t requests = 0;
    for (const ProgramRun& run : RunTestInProcesses(RunningTest(), Clients())) {
        EXPECT_EQ(run.exit_code, 0) << run.output;
        const std::size_t at = run.output.find(kFigures);
        ASSERT_NE(at, std::string::npos) << run.output;
        std::fprintf(stderr, "%s\n", run.output.substr(at, run.output.find('\n', at) - at).c_str());
        requests += std::strtoul(run.output.c_str() + at + sizeof kFigures - 1, nullptr, 10);
    }
    std::fprintf(stderr, "%llu requests of %u clients with %u links each\n",
                 static_cast<unsigned long long>(requests), Clients(), LinksOfEach());
    EXPECT_EQ(relay_.Count("in CREQ"), requests);
    EXPECT_EQ(relay_.Count("out CRES"), requests);
    EXPECT_EQ(relay_.Violations(), 0u) << relay_.Command("violations");
}

// One after another: a connection to the relay has one dongle at a time.
TEST_P(RelayLoad, EachDongleAnswersForItsOwnVehicle) {
    for (const std::uint32_t dongle : {3u, 47u})
        relay_.Command(Question{dongle, 1}.Command());
    Construct(SettingsFor(GetParam()));
    for (const std::uint32_t dongle : {3u, 47u, 3u}) {
        const UNUM32 hMod = FindDongle(dongle);
        ASSERT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
        EngineLink link(hMod);
        const Question question{dongle, 1};
        const Outcome outcome = link.Request(question.Request(), PositiveRead());
        ASSERT_EQ(outcome.results.size(), 1u) << dongle;
        EXPECT_EQ(outcome.results[0].data, question.Answer());
        ASSERT_EQ(Pdu().PDUModuleDisconnect(hMod), PDU_STATUS_NOERROR);
    }
}

}  // namespace
}  // namespace conformance
