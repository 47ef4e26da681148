#include "conformance/endurance/random_caller.h"

#include <atomic>
#include <chrono>
#include <iterator>
#include <mutex>
#include <thread>
#include <utility>

#include "conformance/framework/items.h"
#include "conformance/framework/link.h"
#include "conformance/framework/params.h"
#include "conformance/framework/system.h"
#include "conformance/framework/vehicle.h"

namespace conformance {
namespace {

constexpr std::uint64_t kDestructEveryMs = 1000;
constexpr std::int32_t kMaxLiveLinks = 24;
constexpr std::size_t kMaxKeptItems = 50;

// The first byte of a link's creation flag.
constexpr UNUM8 kRawMode = 0x80;
constexpr UNUM8 kAddChecksum = 0x40;

std::mutex leftovers_lock;
std::vector<PDU_ITEM*> leftovers;
std::atomic<std::uint64_t> results_taken{0};

void CountResult(const PDU_ITEM& item) {
    if (item.ItemType == PDU_IT_RESULT) results_taken.fetch_add(1);
}

void KeepForTheEnd(PDU_ITEM* item) {
    const std::lock_guard hold(leftovers_lock);
    leftovers.push_back(item);
}

void PDU_CALL DrainInCallback(T_PDU_EVT_DATA, UNUM32 hMod, UNUM32 hCLL, void*, void*) {
    PDU_EVENT_ITEM* event = nullptr;
    while (Pdu().PDUGetEventItem(hMod, hCLL, &event) == PDU_STATUS_NOERROR) {
        auto* item = reinterpret_cast<PDU_ITEM*>(event);
        CountResult(*item);
        if (Pdu().PDUDestroyItem(item) != PDU_STATUS_NOERROR) KeepForTheEnd(item);
    }
}

void PDU_CALL AskInCallback(T_PDU_EVT_DATA, UNUM32 hMod, UNUM32 hCLL, void*, void*) {
    UNUM32 status = 0;
    Pdu().PDUGetStatus(hMod, hCLL, PDU_HANDLE_UNDEF, &status, nullptr, nullptr);
}

}  // namespace

const char* FunctionName(std::size_t function) {
#define CONFORMANCE_NAME(name) #name,
    static constexpr const char* kNames[] = {CONFORMANCE_FUNCTIONS(CONFORMANCE_NAME)};
#undef CONFORMANCE_NAME
    static_assert(std::size(kNames) == kFunctionCount);
    return kNames[function];
}

const RandomCaller::WeightedAction RandomCaller::kActions[] = {
    {10, &RandomCaller::Construct},
    {10, &RandomCaller::Destruct},
    {2, &RandomCaller::Scan},
    {5, &RandomCaller::ModuleConnect},
    {5, &RandomCaller::ModuleDisconnect},
    {20, &RandomCaller::CreateLink},
    {3, &RandomCaller::DestroyLink},
    {30, &RandomCaller::Connect},
    {2, &RandomCaller::Disconnect},
    {100, &RandomCaller::Start},
    {20, &RandomCaller::Cancel},
    {150, &RandomCaller::TakeEvent},
    {150, &RandomCaller::DestroyItem},
    {10, &RandomCaller::RegisterCallback},
    {10, &RandomCaller::GetParam},
    {10, &RandomCaller::SetNumberParam},
    {10, &RandomCaller::SetBytesParam},
    {10, &RandomCaller::GetTable},
    {10, &RandomCaller::SetTable},
    {20, &RandomCaller::GetStatus},
    {10, &RandomCaller::GetVersion},
    {10, &RandomCaller::GetTimestamp},
    {10, &RandomCaller::GetResources},
    {10, &RandomCaller::GetObject},
    {5, &RandomCaller::IoCtl},
    {10, &RandomCaller::CallStubs},
};

RandomCaller::Action RandomCaller::ChooseAction() {
    static const std::uint32_t sum = [] {
        std::uint32_t weights = 0;
        for (const WeightedAction& action : kActions)
            weights += action.weight;
        return weights;
    }();
    std::uint32_t at = Below(sum);
    const WeightedAction* action = kActions;
    for (; at >= action->weight; ++action)
        at -= action->weight;
    return action->run;
}

void RandomCaller::RunUntil(std::uint64_t end_ms) {
    while (TickMs() < end_ms) {
        (this->*ChooseAction())();
        // An application also does other things.
        std::this_thread::sleep_for(std::chrono::microseconds(Below(200)));
    }
    for (PDU_ITEM* item : items_)
        GiveBack(item);
    items_.clear();
}

void RandomCaller::GiveBackLeftovers() {
    std::vector<PDU_ITEM*> items;
    {
        const std::lock_guard hold(leftovers_lock);
        items.swap(leftovers);
    }
    for (PDU_ITEM* item : items)
        Pdu().PDUDestroyItem(item);
}

std::uint64_t RandomCaller::ResultsTaken() { return results_taken.load(); }

// ---- arguments

UNUM32 RandomCaller::Module() {
    static constexpr UNUM32 kOthers[] = {2, 255, 256, 0x80000000, PDU_HANDLE_UNDEF};
    return OneIn(10) ? kOthers[Below(5)] : Below(2);  // there are two dongles
}

UNUM32 RandomCaller::UnknownLink() {
    static constexpr UNUM32 kOthers[] = {0, 1, 1000, 0xFFFFFFFE, PDU_HANDLE_UNDEF};
    return kOthers[Below(5)];
}

Handles RandomCaller::AnyLink() {
    if (OneIn(10)) return {Module(), UnknownLink()};
    return board_->links.Any(Below(LinkBoard::kKept));
}

UNUM32 RandomCaller::Param() { return Below(232); }  // 1 to 228 are known

void RandomCaller::GiveBack(PDU_ITEM* item) {
    CountResult(*item);
    if (Call(&Functions::PDUDestroyItem, item) != PDU_STATUS_NOERROR) KeepForTheEnd(item);
}

void RandomCaller::KeepOrGiveBack(PDU_ITEM* item) {
    if (item == nullptr) return;
    if (items_.size() < kMaxKeptItems) {
        items_.push_back(item);
    } else {
        GiveBack(item);
    }
}

// ---- actions

void RandomCaller::Construct() { Call(&Functions::PDUConstruct, nullptr, this); }

void RandomCaller::Destruct() {
    if (TickMs() < board_->next_destruct_ms.load()) return;
    if (Call(&Functions::PDUDestruct) == PDU_STATUS_NOERROR) {
        board_->live_links.store(0);
    }
    board_->next_destruct_ms.store(TickMs() + kDestructEveryMs);
}

void RandomCaller::Scan() {
    PDU_MODULE_ITEM* modules = nullptr;
    if (Call(&Functions::PDUGetModuleIds, &modules) != PDU_STATUS_NOERROR) return;
    board_->modules_found.fetch_add(modules->NumEntries);
    KeepOrGiveBack(reinterpret_cast<PDU_ITEM*>(modules));
}

void RandomCaller::ModuleConnect() { Call(&Functions::PDUModuleConnect, Module()); }
void RandomCaller::ModuleDisconnect() { Call(&Functions::PDUModuleDisconnect, Module()); }

void RandomCaller::CreateLink() {
    if (board_->live_links.load() >= kMaxLiveLinks) return;
    PDU_RSC_DATA resource = {4000, 3000, 0, nullptr};
    UNUM8 bytes[4] = {static_cast<UNUM8>(OneIn(4) ? kRawMode : kAddChecksum), 0, 0, 0};
    PDU_FLAG_DATA flag = {OneIn(4) ? 0 : UNUM32{sizeof bytes}, bytes};
    const UNUM32 hMod = Module();
    UNUM32 hCLL = 0;
    if (Call(&Functions::PDUCreateComLogicalLink, hMod, OneIn(4) ? nullptr : &resource, 2001u, this,
             &hCLL, OneIn(4) ? nullptr : &flag) != PDU_STATUS_NOERROR) {
        return;
    }
    board_->links.Add({hMod, hCLL});
    board_->live_links.fetch_add(1);
}

void RandomCaller::DestroyLink() {
    const Handles at = AnyLink();
    if (Call(&Functions::PDUDestroyComLogicalLink, at.hMod, at.hCLL) == PDU_STATUS_NOERROR) {
        board_->live_links.fetch_sub(1);
    }
}

void RandomCaller::Connect() {
    const Handles at = AnyLink();
    Call(&Functions::PDUConnect, at.hMod, at.hCLL);
}

void RandomCaller::Disconnect() {
    const Handles at = AnyLink();
    Call(&Functions::PDUDisconnect, at.hMod, at.hCLL);
}

void RandomCaller::Start() {
    static constexpr UNUM32 kOthers[] = {PDU_COPT_STARTCOMM,   PDU_COPT_STOPCOMM,
                                         PDU_COPT_UPDATEPARAM, PDU_COPT_RESTORE_PARAM,
                                         PDU_COPT_DELAY,       0};
    const Handles at = AnyLink();
    const UNUM32 type = OneIn(4) ? kOthers[Below(6)] : PDU_COPT_SENDRECV;
    ControlData control(OneIn(4) ? PositiveRead() : AnyResponse());
    std::vector<UNUM8> data = OneIn(8) ? std::vector<UNUM8>(Below(300) + 1, 0x22) : ReadVin();
    if (type == PDU_COPT_STARTCOMM) data = {0, 0, 7, 0xE0, 2, 0x3E, 0};  // a frame on a raw link
    UNUM32 hCoP = 0;
    if (Call(&Functions::PDUStartComPrimitive, at.hMod, at.hCLL, type,
             static_cast<UNUM32>(data.size()), data.data(), OneIn(20) ? nullptr : control.Data(),
             this, &hCoP) == PDU_STATUS_NOERROR) {
        board_->newest_cop.store(hCoP);
        board_->newest_cop_link.Store(at);
    }
}

void RandomCaller::Cancel() {
    const bool newest = OneIn(2);
    const Handles at = newest ? board_->newest_cop_link.Load() : AnyLink();
    Call(&Functions::PDUCancelComPrimitive, at.hMod, at.hCLL,
         board_->newest_cop.load() - Below(newest ? 2 : 20));
}

void RandomCaller::TakeEvent() {
    const Handles at = AnyLink();
    PDU_EVENT_ITEM* item = nullptr;
    if (Call(&Functions::PDUGetEventItem, at.hMod, at.hCLL, &item) != PDU_STATUS_NOERROR) return;
    KeepOrGiveBack(reinterpret_cast<PDU_ITEM*>(item));
}

void RandomCaller::DestroyItem() {
    if (items_.empty()) return;
    std::swap(items_[Below(static_cast<std::uint32_t>(items_.size()))], items_.back());
    GiveBack(items_.back());
    items_.pop_back();
}

void RandomCaller::RegisterCallback() {
    const Handles at = AnyLink();
    static constexpr CALLBACKFNC kCallbacks[] = {nullptr, DrainInCallback, AskInCallback};
    Call(&Functions::PDURegisterEventCallback, at.hMod, at.hCLL, kCallbacks[Below(3)]);
}

// Other threads change what the pointers point to, so they are not dereferenced.
void RandomCaller::GetParam() {
    const Handles at = AnyLink();
    PDU_PARAM_ITEM* item = nullptr;
    Call(&Functions::PDUGetComParam, at.hMod, at.hCLL, Param(), &item);
    if (item != nullptr) KeepOrGiveBack(reinterpret_cast<PDU_ITEM*>(item));
}

// Mostly values with which requests succeed.
void RandomCaller::SetNumberParam() {
    const Handles at = AnyLink();
    static const struct {
        UNUM32 id;
        UNUM32 values[4];
    } kNumbers[] = {
        {ParamId("CP_P2Max"), {100'000, 200'000, 2'000, 0}},
        {ParamId("CP_CanPhysReqId"), {kEngineRequest, kEngineRequest, kEngineRequest, 0x123}},
        {ParamId("CP_CanRespUSDTId"), {kEngineResponse, kEngineResponse, kEngineResponse, 0}},
        {ParamId("CP_RequestAddrMode"), {0, 1, 2, 3}}};
    const auto& number = kNumbers[Below(4)];
    UNUM32 value = number.values[Below(4)];
    PDU_PARAM_ITEM item = {PDU_IT_PARAM, number.id, PDU_PT_UNUM32, 0, &value};
    Call(&Functions::PDUSetComParam, at.hMod, at.hCLL, &item);
}

void RandomCaller::SetBytesParam() {
    const Handles at = AnyLink();
    static const UNUM32 kMessage = ParamId("CP_TesterPresentMessage");
    UNUM8 bytes[40] = {0x3E, 0x80};
    const UNUM32 length = Below(sizeof bytes);
    PDU_PARAM_BYTEFIELD_DATA field = {length, length, bytes};
    PDU_PARAM_ITEM item = {PDU_IT_PARAM, kMessage, PDU_PT_BYTEFIELD, 0, &field};
    Call(&Functions::PDUSetComParam, at.hMod, at.hCLL, &item);
}

void RandomCaller::GetTable() {
    const Handles at = AnyLink();
    PDU_UNIQUE_RESP_ID_TABLE_ITEM* table = nullptr;
    Call(&Functions::PDUGetUniqueRespIdTable, at.hMod, at.hCLL, &table);
    if (table != nullptr) KeepOrGiveBack(reinterpret_cast<PDU_ITEM*>(table));
}

void RandomCaller::SetTable() {
    const Handles at = AnyLink();
    UniqueTable table;
    if (!OneIn(5)) table.ControlUnit(1, kEngineRequest, kEngineResponse);
    if (OneIn(3)) table.ControlUnit(2, kGearboxRequest, kGearboxResponse);
    Call(&Functions::PDUSetUniqueRespIdTable, at.hMod, at.hCLL, table.Item());
}

// Never for a ComPrimitive that may exist: the query keeps a lock, see PolledComPrimitive.
void RandomCaller::GetStatus() {
    const Handles at = AnyLink();
    const UNUM32 hCoP = OneIn(4) ? 0x80000000 + Below(100) : PDU_HANDLE_UNDEF;
    UNUM32 status = 0;
    UNUM32 timestamp = 0;
    Call(&Functions::PDUGetStatus, at.hMod, OneIn(3) ? PDU_HANDLE_UNDEF : at.hCLL, hCoP, &status,
         &timestamp, nullptr);
}

void RandomCaller::GetVersion() {
    PDU_VERSION_DATA version{};
    Call(&Functions::PDUGetVersion, Module(), &version);
}

void RandomCaller::GetTimestamp() {
    UNUM32 timestamp = 0;
    Call(&Functions::PDUGetTimestamp, Module(), OneIn(4) ? nullptr : &timestamp);
}

void RandomCaller::GetResources() {
    PDU_RSC_DATA resource = {Below(2) + 4000, Below(2) + 3000, 0, nullptr};
    PDU_RSC_ID_ITEM* resources = nullptr;
    Call(&Functions::PDUGetResourceIds, Module(), &resource, &resources);
    if (resources != nullptr) KeepOrGiveBack(reinterpret_cast<PDU_ITEM*>(resources));
}

void RandomCaller::GetObject() {
    char name[] = "CP_P2Max";
    if (OneIn(2)) name[3] = 'X';
    UNUM32 id = 0;
    Call(&Functions::PDUGetObjectId, PDU_OBJT_COMPARAM, name, &id);
}

void RandomCaller::IoCtl() {
    PDU_IO_ENTITY_ADDRESS_DATA address = {0x1000, 2000};
    PDU_DATA_ITEM input = {PDU_IT_IO_ENTITY_ADDRESS, &address};
    PDU_DATA_ITEM* output = nullptr;
    const Handles at = AnyLink();
    if (Call(&Functions::PDUIoCtl, at.hMod, at.hCLL, 4998 + Below(30), OneIn(2) ? nullptr : &input,
             &output) == PDU_STATUS_NOERROR &&
        output != nullptr) {
        KeepForGood(output);
    }
}

void RandomCaller::CallStubs() {
    const Handles at = AnyLink();
    PDU_RSC_STATUS_ITEM status{};
    PDU_MODULE_ITEM modules{};
    PDU_RSC_CONFLICT_ITEM* conflicts = nullptr;
    T_PDU_ERR_EVT error = 0;
    Call(&Functions::PDUGetLastError, at.hMod, at.hCLL, &error, nullptr, nullptr, nullptr);
    Call(&Functions::PDUGetResourceStatus, &status);
    Call(&Functions::PDUGetConflictingResources, 2001u, &modules, &conflicts);
    Call(&Functions::PDULockResource, at.hMod, at.hCLL, 1u);
    Call(&Functions::PDUUnlockResource, at.hMod, at.hCLL, 1u);
}

}  // namespace conformance
