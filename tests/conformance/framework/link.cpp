#include "conformance/framework/link.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <thread>
#include <utility>

#include "conformance/framework/items.h"
#include "conformance/framework/params.h"
#include "conformance/framework/simulator.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

constexpr std::chrono::seconds kReplugAfter{4};
// The library looks for ports every 100 ms, and forgets a port only if it is missing then.
constexpr std::chrono::milliseconds kPulledOut{500};

void PullOutAndPutBack(int dongle) {
    Simulator simulator;
    const std::string mark = "@" + std::to_string(dongle) + " ";
    simulator.Command(mark + "unplug");
    std::this_thread::sleep_for(kPulledOut);
    simulator.Command(mark + "replug");
}

UNUM32 ObjectId(T_PDU_OBJT type, std::string name) {
    UNUM32 id = 0;
    EXPECT_EQ(Pdu().PDUGetObjectId(type, name.data(), &id), PDU_STATUS_NOERROR) << name;
    return id;
}

}  // namespace

bool EventuallyConnected(const std::function<bool()>& happened, int dongle) {
    auto replug_at = std::chrono::steady_clock::now() + kReplugAfter;
    return Eventually([&] {
        if (happened()) return true;
        if (Simulator::IsThere() && std::chrono::steady_clock::now() >= replug_at) {
            PullOutAndPutBack(dongle);
            replug_at = std::chrono::steady_clock::now() + kReplugAfter;
        }
        return false;
    });
}

UNUM32 FindModule() {
    UNUM32 hMod = PDU_HANDLE_UNDEF;
    EXPECT_TRUE(EventuallyConnected([&] {
        const auto modules = GetModuleIds();
        if (modules == nullptr || modules->NumEntries == 0) return false;
        hMod = modules->pModuleData[0].hMod;
        return true;
    })) << "no module was found";
    return hMod;
}

PDU_RSC_DATA CanResource() {
    return {ObjectId(PDU_OBJT_BUSTYPE, "ISO_11898_2_DWCAN"),
            ObjectId(PDU_OBJT_PROTOCOL, "ISO_15765_3_on_ISO_15765_2"), 0, nullptr};
}

std::vector<Expected> AnyResponse() { return {Expected{}}; }

ControlData::ControlData(std::vector<Expected> expected, SNUM32 send_cycles, SNUM32 receive_cycles)
    : expected_(std::move(expected)) {
    for (Expected& response : expected_) {
        records_.push_back({response.type, response.acceptance_id,
                            static_cast<UNUM32>(response.mask.size()), response.mask.data(),
                            response.pattern.data(), 0, nullptr});
    }
    data_.NumSendCycles = send_cycles;
    data_.NumReceiveCycles = receive_cycles;
    data_.TxFlag = {sizeof tx_flag_, tx_flag_};
    data_.NumPossibleExpectedResponses = static_cast<UNUM32>(records_.size());
    data_.pExpectedResponseArray = records_.data();
}

Link::Link(UNUM32 hMod, void* tag, UNUM8 create_flag) : hMod_(hMod) {
    PDU_RSC_DATA resource = CanResource();
    UNUM8 bytes[4] = {create_flag};
    PDU_FLAG_DATA flag = {sizeof bytes, bytes};
    EXPECT_EQ(Pdu().PDUCreateComLogicalLink(hMod, &resource, PDU_ID_UNDEF, tag, &hCLL_, &flag),
              PDU_STATUS_NOERROR);
}

Link::~Link() {
    if (!destroyed_) Destroy();
}

T_PDU_ERROR Link::Destroy() {
    destroyed_ = true;
    return Pdu().PDUDestroyComLogicalLink(hMod_, hCLL_);
}

UNUM32 Link::State() const {
    UNUM32 state = 0;
    EXPECT_EQ(Pdu().PDUGetStatus(hMod_, hCLL_, PDU_HANDLE_UNDEF, &state, nullptr, nullptr),
              PDU_STATUS_NOERROR);
    return state;
}

void Link::Address(UNUM32 request_id, UNUM32 response_id) {
    UniqueTable table;
    table.ControlUnit(1, request_id, response_id);
    EXPECT_EQ(Pdu().PDUSetUniqueRespIdTable(hMod_, hCLL_, table.Item()), PDU_STATUS_NOERROR);
}

UNUM32 Link::Start(UNUM32 type, const std::vector<UNUM8>& data, PDU_COP_CTRL_DATA* control,
                   void* tag) {
    std::vector<UNUM8> copy = data;
    UNUM32 hCoP = PDU_HANDLE_UNDEF;
    EXPECT_EQ(Pdu().PDUStartComPrimitive(hMod_, hCLL_, type, static_cast<UNUM32>(copy.size()),
                                         copy.empty() ? nullptr : copy.data(), control, tag, &hCoP),
              PDU_STATUS_NOERROR);
    return hCoP;
}

Result ResultOf(const PDU_EVENT_ITEM& event) {
    const auto& result = *static_cast<PDU_RESULT_DATA*>(event.pData);
    const UNUM8* flags = result.RxFlag.pFlagData;
    return {{result.pDataBytes, result.pDataBytes + result.NumDataBytes},
            result.UniqueRespIdentifier,
            result.AcceptanceId,
            {flags, flags + result.RxFlag.NumFlagBytes}};
}

void Outcome::Add(const PDU_EVENT_ITEM& event) {
    switch (event.ItemType) {
        case PDU_IT_STATUS:
            states.push_back(StatusOf(event));
            break;
        case PDU_IT_ERROR:
            errors.push_back(static_cast<PDU_ERROR_DATA*>(event.pData)->ErrorCodeId);
            break;
        case PDU_IT_RESULT:
            results.push_back(ResultOf(event));
            break;
        default:
            ADD_FAILURE() << "unexpected item type " << event.ItemType;
    }
}

void ExpectError(const Outcome& outcome, UNUM32 error) {
    EXPECT_EQ(outcome.errors, std::vector<UNUM32>{error});
    EXPECT_TRUE(outcome.results.empty());
    EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
}

Outcome Link::WaitFor(UNUM32 hCoP) {
    Outcome outcome;
    outcome.hCoP = hCoP;
    EXPECT_TRUE(Eventually([&] {
        while (const auto event = NextEvent(hMod_, hCLL_)) {
            if (event->hCop == hCoP) outcome.Add(*event);
            if (outcome.IsFinal()) return true;
        }
        return false;
    })) << "ComPrimitive "
        << hCoP << " reaches no final state";
    return outcome;
}

UNUM32 Link::StartRequest(const std::vector<UNUM8>& data, const std::vector<Expected>& expected) {
    ControlData control(expected);
    return Start(PDU_COPT_SENDRECV, data, control.Data());
}

Outcome Link::Request(const std::vector<UNUM8>& data, const std::vector<Expected>& expected) {
    return WaitFor(StartRequest(data, expected));
}

void Link::DropEvents() {
    while (NextEvent(hMod_, hCLL_)) {
    }
}

void Link::Settle() {
    const UNUM32 hCoP = Start(PDU_COPT_UPDATEPARAM);
    EXPECT_TRUE(Eventually([&] { return Cancel(hCoP) == PDU_ERR_INVALID_HANDLE; }))
        << "ComPrimitive " << hCoP << " is not released";
}

std::string Hex(const std::vector<UNUM8>& bytes) {
    std::string text;
    char digits[4];
    for (const UNUM8 byte : bytes) {
        std::snprintf(digits, sizeof digits, "%02X", byte);
        text += (text.empty() ? "" : " ") + std::string(digits);
    }
    return text;
}

}  // namespace conformance
