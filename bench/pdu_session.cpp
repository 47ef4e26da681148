#include "pdu_session.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace tarvik::bench {

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::seconds kPatience{30};
constexpr std::uint32_t kResponseLength = 20;  // 62 F1 90 and 17 characters
constexpr UNUM8 kRawMode = 0x80;               // in the first byte of the creation flag

[[noreturn]] void FailCall(const char* what) {
    std::fprintf(stderr, "bench: %s failed\n", what);
    std::_Exit(1);
}

void Check(T_PDU_ERROR status, const char* what) {
    if (status != PDU_STATUS_NOERROR) FailCall(what);
}

}  // namespace

struct PduSession::Link {
    UNUM32 hCLL = PDU_HANDLE_UNDEF;
    std::size_t units = 1;    // number of expected answers
    std::size_t answers = 0;  // correct ones; only the callback uses it until finished is set
    std::mutex lock;
    std::condition_variable changed;
    bool is_raw = false;
    bool finished = false;         // guarded by lock
    std::size_t raw_received = 0;  // likewise
    std::size_t raw_wanted = 0;    // likewise
};

PduSession::PduSession(const PduFunctions& pdu, std::size_t links) : pdu_(pdu) {
    Check(pdu_.Construct(nullptr, this), "PDUConstruct");
    constructed_ = true;
    ConnectModule();
    SetNumber("CP_CanPhysReqId", 0x7E0);
    SetNumber("CP_CanRespUSDTId", 0x7E8);
    SetNumber("CP_CanFuncReqId", 0x7DF);
    SetNumber("CP_RequestAddrMode", 1);
    SetNumber("CP_P2Max", 2'000'000);
    for (std::size_t i = 0; i < links; ++i)
        OpenLink();
}

PduSession::~PduSession() {
    if (constructed_) pdu_.Destruct();
}

void PduSession::ConnectModule() {
    const Clock::time_point limit = Clock::now() + kPatience;
    while (hMod_ == PDU_HANDLE_UNDEF) {
        if (Clock::now() > limit) FailCall("finding the dongle");
        PDU_MODULE_ITEM* modules = nullptr;
        Check(pdu_.GetModuleIds(&modules), "PDUGetModuleIds");
        if (modules->NumEntries > 0) hMod_ = modules->pModuleData[0].hMod;
        pdu_.DestroyItem(reinterpret_cast<PDU_ITEM*>(modules));
    }
    Check(pdu_.ModuleConnect(hMod_), "PDUModuleConnect");
}

std::uint32_t PduSession::ObjectId(T_PDU_OBJT type, const char* name) {
    char text[64];
    std::snprintf(text, sizeof text, "%s", name);
    UNUM32 id = 0;
    Check(pdu_.GetObjectId(type, text, &id), name);
    return id;
}

void PduSession::SetNumber(const char* name, std::uint32_t value) {
    const UNUM32 id = ObjectId(PDU_OBJT_COMPARAM, name);
    PDU_PARAM_ITEM* param = nullptr;  // owned by the library
    Check(pdu_.GetComParam(hMod_, PDU_HANDLE_UNDEF, id, &param), "PDUGetComParam");
    std::memcpy(param->pComParamData, &value, sizeof value);
    Check(pdu_.SetComParam(hMod_, PDU_HANDLE_UNDEF, param), "PDUSetComParam");
}

void PduSession::OpenLink(PDU_FLAG_DATA* flag) {
    auto link = std::make_unique<Link>();
    PDU_RSC_DATA resource = {};
    resource.BusTypeId = ObjectId(PDU_OBJT_BUSTYPE, "ISO_11898_2_DWCAN");
    resource.ProtocolId = ObjectId(PDU_OBJT_PROTOCOL, "ISO_15765_3_on_ISO_15765_2");
    Check(pdu_.CreateComLogicalLink(hMod_, &resource, PDU_ID_UNDEF, link.get(), &link->hCLL, flag),
          "PDUCreateComLogicalLink");
    Check(pdu_.RegisterEventCallback(hMod_, link->hCLL, &PduSession::OnEvent),
          "PDURegisterEventCallback");
    Check(pdu_.Connect(hMod_, link->hCLL), "PDUConnect");
    links_.push_back(std::move(link));
}

// A table with one row would result in a physical request, so it has the control unit twice; the
// library omits the second.
void PduSession::AskUnits(std::size_t link, const std::vector<Unit>& units) {
    std::vector<Unit> rows = units;
    if (rows.size() == 1) rows.push_back(rows.front());
    const UNUM32 request_id = ObjectId(PDU_OBJT_COMPARAM, "CP_CanPhysReqId");
    const UNUM32 response_id = ObjectId(PDU_OBJT_COMPARAM, "CP_CanRespUSDTId");
    std::vector<PDU_PARAM_ITEM> params;
    for (Unit& row : rows) {
        params.push_back({PDU_IT_PARAM, request_id, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, &row.request});
        params.push_back(
            {PDU_IT_PARAM, response_id, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, &row.response});
    }
    std::vector<PDU_ECU_UNIQUE_RESP_DATA> entries;
    for (std::size_t i = 0; i < rows.size(); ++i)
        entries.push_back({static_cast<UNUM32>(i), 2, &params[2 * i]});
    PDU_UNIQUE_RESP_ID_TABLE_ITEM table = {PDU_IT_UNIQUE_RESP_ID_TABLE,
                                           static_cast<UNUM32>(entries.size()), entries.data()};
    Check(pdu_.SetUniqueRespIdTable(hMod_, links_[link]->hCLL, &table), "PDUSetUniqueRespIdTable");
    links_[link]->units = units.size();
}

void PduSession::OnEvent(T_PDU_EVT_DATA, UNUM32, UNUM32, void* link, void* session) {
    static_cast<PduSession*>(session)->Drain(static_cast<Link*>(link));
}

void PduSession::Drain(Link* link) {
    bool finished = false;
    std::size_t results = 0;
    PDU_EVENT_ITEM* item = nullptr;
    while (pdu_.GetEventItem(hMod_, link->hCLL, &item) == PDU_STATUS_NOERROR) {
        if (item->ItemType == PDU_IT_RESULT) {
            ++results;
            const auto* result = static_cast<const PDU_RESULT_DATA*>(item->pData);
            if (result->NumDataBytes == kResponseLength) ++link->answers;
        } else if (item->ItemType == PDU_IT_STATUS && item->hCop != PDU_HANDLE_UNDEF) {
            finished = *static_cast<const PDU_STATUS_DATA*>(item->pData) == PDU_COPST_FINISHED;
        }
        pdu_.DestroyItem(reinterpret_cast<PDU_ITEM*>(item));
    }
    if (!finished && !link->is_raw) return;
    bool wake = finished;
    {
        const std::lock_guard hold(link->lock);
        if (finished) link->finished = true;
        link->raw_received += results;
        wake = wake || (link->raw_wanted > 0 && link->raw_received >= link->raw_wanted);
    }
    if (wake) link->changed.notify_one();
}

bool PduSession::Ask(std::size_t position) {
    Link* link = links_[position].get();
    link->finished = false;
    link->answers = 0;
    UNUM8 request[] = {0x22, 0xF1, 0x90};
    UNUM8 mask[] = {0xFF};
    UNUM8 pattern[] = {0x62};
    PDU_EXP_RESP_DATA expected = {};
    expected.NumMaskPatternBytes = sizeof mask;
    expected.pMaskData = mask;
    expected.pPatternData = pattern;
    PDU_COP_CTRL_DATA control = {};
    control.NumSendCycles = 1;
    control.NumReceiveCycles = 1;
    control.NumPossibleExpectedResponses = 1;
    control.pExpectedResponseArray = &expected;
    UNUM32 hCoP = PDU_HANDLE_UNDEF;
    Check(pdu_.StartComPrimitive(hMod_, link->hCLL, PDU_COPT_SENDRECV, sizeof request, request,
                                 &control, link, &hCoP),
          "PDUStartComPrimitive");
    std::unique_lock hold(link->lock);
    return link->changed.wait_for(hold, kPatience, [link] { return link->finished; }) &&
           link->answers == link->units;
}

void PduSession::OpenRawLink() {
    UNUM8 bytes[4] = {kRawMode, 0, 0, 0};
    PDU_FLAG_DATA flag = {sizeof bytes, bytes};
    OpenLink(&flag);
    links_.back()->is_raw = true;
}

void PduSession::ListenRaw(std::size_t link) {
    PDU_COP_CTRL_DATA control = {};
    control.NumReceiveCycles = -1;  // any number
    UNUM32 hCoP = PDU_HANDLE_UNDEF;
    Check(pdu_.StartComPrimitive(hMod_, links_[link]->hCLL, PDU_COPT_SENDRECV, 0, nullptr, &control,
                                 nullptr, &hCoP),
          "PDUStartComPrimitive");
}

void PduSession::SendRaw(std::size_t link, std::uint32_t can_id) {
    UNUM8 frame[12] = {};
    for (int i = 0; i < 4; ++i)
        frame[i] = static_cast<UNUM8>(can_id >> (24 - 8 * i));
    PDU_COP_CTRL_DATA control = {};
    control.NumSendCycles = 1;
    UNUM32 hCoP = PDU_HANDLE_UNDEF;
    Check(pdu_.StartComPrimitive(hMod_, links_[link]->hCLL, PDU_COPT_STARTCOMM, sizeof frame, frame,
                                 &control, nullptr, &hCoP),
          "PDUStartComPrimitive");
}

bool PduSession::AwaitRaw(std::size_t position, std::size_t count) {
    Link* link = links_[position].get();
    std::unique_lock hold(link->lock);
    link->raw_wanted = count;
    const bool all = link->changed.wait_for(
        hold, kPatience, [link] { return link->raw_received >= link->raw_wanted; });
    link->raw_received -= std::min(count, link->raw_received);
    link->raw_wanted = 0;
    return all;
}

double PduSession::DestructMs() {
    const Clock::time_point start = Clock::now();
    Check(pdu_.Destruct(), "PDUDestruct");
    constructed_ = false;
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

}  // namespace tarvik::bench
