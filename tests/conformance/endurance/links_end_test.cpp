// The end of a hundred logical links, together or one by one.

#include <gtest/gtest.h>

#include <memory>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

constexpr std::uint32_t kLinks = 100;
constexpr std::uint64_t kInFlight = 10;  // the library's maximum

class HundredLinks : public SerialDongle {
protected:
    void CreateLinks() {
        for (std::uint32_t i = 0; i < kLinks; ++i) {
            Link& link = *links_.emplace_back(std::make_unique<Link>(hMod));
            link.Address(kEngineRequest, kEngineResponse);
            link.Connect();
        }
    }
    void StartRequestsThatAreNotAnswered() {
        simulator.Command(R"(behaviour {"lost": true})");
        for (const auto& link : links_) {
            link->Start(PDU_COPT_SENDRECV, ReadVin(), control_.Data());
        }
        ASSERT_TRUE(simulator.WaitFor(kInFlight, "in CREQ"));
    }
    static void ExpectDestructToEndAllInTime() {
        const LogCapture log;
        EXPECT_TRUE(EndsInTime([] { Pdu().PDUDestruct(); }));
        EXPECT_EQ(log.CountLike("[PDUDestruct] Stopping logical link #*"), kLinks);
        EXPECT_EQ(log.CountLike("*did not exit, terminating"), 0u);
        EXPECT_TRUE(log.Has("[PDUDestruct] Cleaned up 100 logical links for module 0"));
    }

    std::vector<std::unique_ptr<Link>> links_;
    ControlData control_{PositiveRead()};
};

TEST_F(HundredLinks, EndTogetherWithTheLibraryInTime) {
    CreateLinks();
    ExpectDestructToEndAllInTime();
}

TEST_F(HundredLinks, WithWaitingRequestsEndTogetherWithTheLibraryInTime) {
    CreateLinks();
    StartRequestsThatAreNotAnswered();
    ExpectDestructToEndAllInTime();
}

TEST_F(HundredLinks, MayBeDestroyedOneByOneWithWaitingRequests) {
    CreateLinks();
    StartRequestsThatAreNotAnswered();
    const LogCapture log;
    for (const auto& link : links_)
        EXPECT_EQ(link->Destroy(), PDU_STATUS_NOERROR);
    EXPECT_TRUE(Eventually([&] { return log.Count("[CommThreadFunc] exiting") == kLinks; }));
}

}  // namespace
}  // namespace conformance
