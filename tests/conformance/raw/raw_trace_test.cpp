#include "conformance/framework/trace_file.h"
#include "conformance/raw/raw_link.h"

namespace conformance {
namespace {

class RawTrace : public RawDongle {
protected:
    Settings FirstSettings() const override { return {.enableCopTrace = true, .useSerial = true}; }

    // The events of one ComPrimitive, without item_destroy, which the application causes.
    static std::vector<nlohmann::json> EventsOf(UNUM32 hCoP) {
        std::vector<nlohmann::json> events;
        for (const nlohmann::json& line : ReadTrace()) {
            if (line.value("hCoP", 0u) == hCoP && line["ev"] != "item_destroy")
                events.push_back(line);
        }
        return events;
    }
    static std::vector<std::string> NamesOf(const std::vector<nlohmann::json>& events) {
        std::vector<std::string> names;
        for (const nlohmann::json& event : events)
            names.push_back(event["ev"]);
        return names;
    }
};

TEST_F(RawTrace, ShowsEveryStepOfAReceiver) {
    RawLink link(hMod);
    const UNUM32 hCoP = StartReception(&link);
    // The worker's events come first only if the worker is done when the frame arrives.
    ASSERT_EQ(WaitForTrace("notify_end", 2).size(), 2u);
    FrameOnBus("18DAF110 02 7E 00");
    link.TakeFrames(1);
    ASSERT_EQ(WaitForTrace("cop_rx", 1).size(), 1u);
    ASSERT_EQ(WaitForTrace("notify_end", 3).size(), 3u);
    const auto events = EventsOf(hCoP);
    EXPECT_EQ(NamesOf(events),
              (std::vector<std::string>{"cop_start", "cop_state", "notify_begin", "notify_end",
                                        "cop_sendrecv_meta", "cop_state", "notify_begin",
                                        "notify_end", "cop_rx", "notify_begin", "notify_end"}));
    ASSERT_EQ(events.size(), 11u);
    EXPECT_EQ(events[0]["copType"], PDU_COPT_SENDRECV);
    EXPECT_EQ(events[0]["numRecv"], 0xFFFFFFFF);
    EXPECT_EQ(events[4]["raw"], true);
    EXPECT_EQ(events[5]["to"], PDU_COPST_FINISHED);
    EXPECT_EQ(events[8]["uniq"], 0);
    EXPECT_EQ(events[8]["acc"], 0);
    EXPECT_EQ(events[8]["rx_len"], 7);
    EXPECT_EQ(events[8]["rx_hex"], "18daf110027e00");
    EXPECT_EQ(events[9]["itemType"], PDU_IT_RESULT);
}

TEST_F(RawTrace, SentFrameIsAStartAndARelease) {
    RawLink link(hMod);
    ControlData control({}, 1, 0);
    const UNUM32 hCoP = link.Send(0x123, {0xDE, 0xAD}, control);
    ASSERT_EQ(WaitForTrace("cop_free", 1).size(), 1u);
    const auto events = EventsOf(hCoP);
    EXPECT_EQ(NamesOf(events), (std::vector<std::string>{"cop_start", "cop_free"}));
    EXPECT_EQ(events[0]["tx_hex"], "00000123dead");
    EXPECT_EQ(events[0]["numSend"], 1);
    EXPECT_EQ(events[1]["final"], PDU_COPST_IDLE);
}

}  // namespace
}  // namespace conformance
