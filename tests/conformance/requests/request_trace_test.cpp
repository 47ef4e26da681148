#include <gtest/gtest.h>

#include <algorithm>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/trace_file.h"
#include "conformance/framework/vehicle.h"

namespace conformance {
namespace {

class RequestTrace : public SerialDongle {
protected:
    void SetUp() override {
        SerialDongle::SetUp();
        Pdu().PDUDestruct();
        Construct(Settings{.enableCopTrace = true, .useSerial = true});
    }
};

std::vector<std::string> EventNames(const std::vector<nlohmann::json>& trace) {
    std::vector<std::string> names;
    for (const nlohmann::json& line : trace)
        names.push_back(line["ev"]);
    return names;
}

TEST_F(RequestTrace, ShowsEveryStepOfASingleRequestInOrder) {
    EngineLink link(hMod);
    const std::size_t before = WaitForTrace("log_start", 1).size();
    ASSERT_EQ(before, 1u);
    const UNUM32 hCoP = link.StartRequest(ReadVin(), PositiveRead());
    link.WaitFor(hCoP);
    WaitForTrace("cop_free", 1);
    std::vector<nlohmann::json> of_request;
    for (const nlohmann::json& line : ReadTrace()) {
        if (line.value("hCoP", 0u) == hCoP || line.value("req_id", 0u) == hCoP) {
            if (line["ev"] != "item_destroy") of_request.push_back(line);
        }
    }
    // A request is traced after it was sent, so the receiving thread may write its event first.
    const auto sent = std::find_if(of_request.begin(), of_request.end(),
                                   [](const auto& line) { return line["ev"] == "comm_req_sent"; });
    ASSERT_TRUE(sent != of_request.begin() && sent != of_request.end());
    if (sent[-1]["ev"] == "comm_res_received") std::iter_swap(sent - 1, sent);
    EXPECT_EQ(EventNames(of_request),
              (std::vector<std::string>{"cop_start", "cop_expected_responses", "cop_state",
                                        "notify_begin", "notify_end", "cop_sendrecv_meta",
                                        "cop_ecu_candidate", "comm_req_sent", "comm_res_received",
                                        "cop_rx", "notify_begin", "notify_end", "cop_state",
                                        "notify_begin", "notify_end", "cop_free"}));
    EXPECT_EQ(of_request[0]["tx_hex"], "22f190");
    EXPECT_EQ(of_request[0]["copType"], 0x8004);
    EXPECT_EQ(of_request[1]["items"][0]["acc"], 7);
    EXPECT_EQ(of_request[1]["items"][0]["pat"], "62");
    EXPECT_EQ(of_request[2]["from"], 0x8010);
    EXPECT_EQ(of_request[2]["to"], 0x8011);
    EXPECT_EQ(of_request[5]["raw"], false);
    EXPECT_EQ(of_request[6]["canPhysReqId"], 0x7E0);
    EXPECT_EQ(of_request[6]["canRespUSDTId"], 0x7E8);
    EXPECT_EQ(of_request[7]["timeout"], 1000);
    EXPECT_EQ(of_request[7]["can_id_tx_phys"], 0x7E0);
    EXPECT_EQ(of_request[8]["rx_len"], 20);
    EXPECT_EQ(of_request[9]["acc"], 7);
    EXPECT_EQ(of_request[9]["uniq"], 0);
    EXPECT_EQ(of_request[12]["to"], 0x8012);
    EXPECT_EQ(of_request[15]["final"], 0x8012);
}

TEST_F(RequestTrace, MultiRequestShowsMarkerAndCountInPlaceOfIdentifiers) {
    CarLink link(hMod);
    link.Request(ReadVin());
    const auto sent = WaitForTrace("comm_req_sent", 1);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0]["can_id_tx_phys"], 0xFFFFEEEE);
    EXPECT_EQ(sent[0]["can_id_rx"], 3);
    EXPECT_EQ(WaitForTrace("cop_ecu_candidate", 3).size(), 3u);
    EXPECT_EQ(WaitForTrace("cop_rx", 3).size(), 3u);
}

TEST_F(RequestTrace, BusyReasonIsEscaped) {
    EngineLink link(hMod);
    simulator.Command("busy 1 say \"no\"");
    link.Request(ReadVin());
    const auto busy = WaitForTrace("busy_received", 1);
    ASSERT_EQ(busy.size(), 1u);
    EXPECT_EQ(busy[0]["reason"], "say \"no\"");
    EXPECT_EQ(busy[0]["reason_len"], 8);
}

TEST_F(RequestTrace, CancellationIsTracedWhetherOrNotItFindsTheComPrimitive) {
    EngineLink link(hMod);
    simulator.HoldNextRequest();
    const UNUM32 hCoP = link.StartRequest(ReadVin());
    link.Cancel(hCoP);
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    simulator.AnswerRequest(hCoP, {0x62, 0xF1, 0x90});
    link.WaitFor(hCoP);
    Pdu().PDUCancelComPrimitive(link.hMod(), 99, hCoP);
    const auto results = WaitForTrace("cop_cancel_result", 2);
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0]["found"], true);
    EXPECT_EQ(results[0]["abort_set"], true);
    EXPECT_EQ(results[1]["found"], false);
    EXPECT_EQ(results[1]["last_status"], 0);
    EXPECT_EQ(results[1]["abort_set"], false);
    EXPECT_EQ(WaitForTrace("cop_cancel_req", 2).size(), 2u);
}

TEST_F(RequestTrace, ErrorsAndDestroyedItemsAreTraced) {
    EngineLink link(hMod);
    simulator.Command(R"(unit engine {"silent": true})");
    SetNumber("CP_P2Max", 2000);
    link.Request(ReadVin());
    const auto errors = WaitForTrace("cop_error", 1);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0]["err"], 257);
    const auto destroyed = WaitForTrace("item_destroy", 3);
    bool error_item = false;
    for (const nlohmann::json& line : destroyed)
        error_item |= line["itemType"] == PDU_IT_ERROR;
    EXPECT_TRUE(error_item);
}

TEST_F(RequestTrace, LongRequestIsCutToTheLengthOfALine) {
    EngineLink link(hMod);
    link.Request(std::vector<UNUM8>(600, 0x11));
    ASSERT_FALSE(TraceFiles().empty());
    Pdu().PDUDestruct();
    const std::string text = ReadFile(TraceFiles().back());
    const std::size_t line = text.find("\"ev\":\"cop_start\"");
    ASSERT_NE(line, std::string::npos);
    const std::size_t begin = text.rfind("{\"seq\":", line);
    // Cut to 1023 characters, including the line feed, so the next event follows directly.
    EXPECT_EQ(text.find("{\"seq\":", line) - begin, 1023u);
}

}  // namespace
}  // namespace conformance
