// A sequence of API calls against a dongle inside the process. The input has a script for the
// dongle, one for what callbacks do, and the calls. Each call must return a status that its header
// names, the library must end, its memory must be as before, and the next session must work.

#include <atomic>
#include <chrono>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <thread>

#include "comparam/comparam_table.h"
#include "dpdu_api.h"
#include "fuzz/api/peer.h"
#include "fuzz/link/fuzz_support.h"
#include "fuzz/params/made_params.h"
#include "link/fragmentation.h"
#include "objects/lifecycle.h"
#include "support/memory.h"

using namespace tarvik;
using namespace tarvik::fuzz;

namespace {

constexpr int kMostCalls = 48;
constexpr std::uint32_t kMostLinks = 6;  // alive at a time: each is a thread

struct Handles {
    UNUM32 hMod, hCLL;
};

// What the calls share with the callbacks.
struct Session {
    std::unique_ptr<Input> callbacks = std::make_unique<Input>(Bytes{});
    std::mutex lock;
    std::vector<Handles> links;         // guarded by lock
    std::vector<UNUM32> cops;           // guarded by lock
    std::vector<PDU_ITEM*> items;       // guarded by lock
    std::vector<PDU_ITEM*> unreleased;  // guarded by lock; never released by PDUDestroyItem
    std::atomic<std::uint32_t> links_left{kMostLinks};
};
Session session;

void Check(T_PDU_ERROR status, std::initializer_list<T_PDU_ERROR> errors) {
    Require(status == PDU_STATUS_NOERROR ||
            std::find(errors.begin(), errors.end(), status) != errors.end());
}

// ---- Arguments ---------------------------------------------------------------------------------

UNUM32 AnyModule(Input& input) {
    static constexpr UNUM32 kModules[] = {0, 0, 0, 0, 1, 1, 2, 255, 256, PDU_HANDLE_UNDEF};
    return input.OneOf(kModules);
}

Handles AnyLink(Input& input) {
    static constexpr UNUM32 kOthers[] = {0, 1, 2, 1000, PDU_HANDLE_UNDEF};
    const std::lock_guard hold(session.lock);
    const std::uint8_t choice = input.U8();
    if (session.links.empty() || choice >= 240) return {AnyModule(input), input.OneOf(kOthers)};
    return session.links[choice % session.links.size()];
}

UNUM32 AnyCop(Input& input) {
    const std::lock_guard hold(session.lock);
    const std::uint8_t choice = input.U8();
    if (session.cops.empty() || choice >= 240) return choice;
    return session.cops[session.cops.size() - 1 - choice % session.cops.size()];
}

void Keep(void* item) {
    if (item == nullptr) return;
    const std::lock_guard hold(session.lock);
    session.items.push_back(static_cast<PDU_ITEM*>(item));
}

// Some the library leaves to the end of the process, as documented.
bool IsReleasedByDestroyItem(const PDU_ITEM& item) {
    return item.ItemType != PDU_IT_INFO && item.ItemType < PDU_IT_IO_VEHICLE_ID_REQUEST &&
           item.ItemType >= PDU_IT_RSC_STATUS;
}

void GiveBack(PDU_ITEM* item) {
    const bool released = IsReleasedByDestroyItem(*item);
    const T_PDU_ERROR status = PDUDestroyItem(item);
    Check(status, {PDU_ERR_PDUAPI_NOT_CONSTRUCTED});
    if (status == PDU_STATUS_NOERROR && released) return;
    const std::lock_guard hold(session.lock);
    (released ? session.items : session.unreleased).push_back(item);
}

// ---- The calls ---------------------------------------------------------------------------------

void TakeEvent(Input& input, Handles at) {
    PDU_EVENT_ITEM* item = nullptr;
    Check(PDUGetEventItem(at.hMod, at.hCLL, &item), {PDU_ERR_EVENT_QUEUE_EMPTY});
    if (item == nullptr) return;
    if (input.Flag()) {
        GiveBack(reinterpret_cast<PDU_ITEM*>(item));
    } else {
        Keep(item);
    }
}

// The events of a link that was destroyed meanwhile are in the queue of its module.
void GetEventItem(Input& input) { TakeEvent(input, AnyLink(input)); }
void GetSystemEvent(Input& input) { TakeEvent(input, {PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF}); }

void DestroyItem(Input& input) {
    PDU_ITEM* item = nullptr;
    {
        const std::lock_guard hold(session.lock);
        if (session.items.empty()) return;
        std::swap(session.items[input.U8() % session.items.size()], session.items.back());
        item = session.items.back();
        session.items.pop_back();
    }
    GiveBack(item);
}

void Construct(Input& input) {
    char option[] = "Fuzz='1'";
    Check(PDUConstruct(input.Flag() ? option : nullptr, &session), {PDU_ERR_SHARING_VIOLATION});
}

void Destruct(Input&) { Check(PDUDestruct(), {PDU_ERR_PDUAPI_NOT_CONSTRUCTED}); }

// Rare among random bytes, or no link would live for long.
void DestructAndConstruct(Input& input) {
    if (input.Below(4) != 0) return;
    Destruct(input);
    Construct(input);
}

void GetModuleIds(Input&) {
    PDU_MODULE_ITEM* modules = nullptr;
    Check(PDUGetModuleIds(&modules), {PDU_ERR_PDUAPI_NOT_CONSTRUCTED, PDU_ERR_FCT_FAILED});
    Keep(modules);
}

void ModuleConnect(Input& input) {
    Check(PDUModuleConnect(AnyModule(input)), {PDU_ERR_INVALID_HANDLE});
}
void ModuleDisconnect(Input& input) {
    Check(PDUModuleDisconnect(AnyModule(input)), {PDU_ERR_INVALID_HANDLE});
}

void CreateLink(Input& input) {
    if (session.links_left.load() == 0) return;
    session.links_left.fetch_sub(1);
    PDU_RSC_DATA resource = {input.U16(), input.U16(), 0, nullptr};
    Bytes flags = input.Take(input.Below(5));
    if (!flags.empty()) flags[0] &= 0xC0;
    PDU_FLAG_DATA flag = {static_cast<UNUM32>(flags.size()), flags.data()};
    const UNUM32 hMod = input.Below(8) == 0 ? AnyModule(input) : 0;
    UNUM32 hCLL = PDU_HANDLE_UNDEF;
    const T_PDU_ERROR status =
        PDUCreateComLogicalLink(hMod, input.Flag() ? &resource : nullptr, input.U16(), &session,
                                &hCLL, input.Flag() ? &flag : nullptr);
    Check(status, {PDU_ERR_INVALID_HANDLE, PDU_ERR_FCT_FAILED});
    if (status != PDU_STATUS_NOERROR) return;
    {
        const std::lock_guard hold(session.lock);
        session.links.push_back({hMod, hCLL});
    }
    if (input.Below(4) != 0) Check(PDUConnect(hMod, hCLL), {PDU_ERR_INVALID_HANDLE});
}

void DestroyLink(Input& input) {
    const Handles at = AnyLink(input);
    const T_PDU_ERROR status = PDUDestroyComLogicalLink(at.hMod, at.hCLL);
    Check(status, {PDU_ERR_INVALID_HANDLE});
    if (status == PDU_STATUS_NOERROR) session.links_left.fetch_add(1);
}

void Connect(Input& input) {
    const Handles at = AnyLink(input);
    Check(PDUConnect(at.hMod, at.hCLL), {PDU_ERR_INVALID_HANDLE, PDU_ERR_CLL_CONNECTED});
}

void Disconnect(Input& input) {
    const Handles at = AnyLink(input);
    Check(PDUDisconnect(at.hMod, at.hCLL), {PDU_ERR_INVALID_HANDLE, PDU_ERR_CLL_NOT_CONNECTED});
}

// What the control data of a ComPrimitive point to.
struct Control {
    explicit Control(Input& input) : tx_flag(input.Take(input.Below(5))) {
        for (std::uint32_t left = input.Below(4); left > 0; --left) {
            const std::uint32_t length = input.Below(4);
            masks.push_back(input.Flag() ? Bytes(length, 0xFF) : input.Take(length));
            patterns.push_back(input.Take(length));
            ids.emplace_back(input.Below(4), input.U8());
        }
        for (std::size_t i = 0; i < masks.size(); ++i) {
            PDU_EXP_RESP_DATA response{};
            response.ResponseType = input.Below(2);
            response.AcceptanceId = input.U8();
            response.NumMaskPatternBytes = static_cast<UNUM32>(masks[i].size());
            response.pMaskData = masks[i].data();
            response.pPatternData = patterns[i].data();
            response.NumUniqueRespIds = static_cast<UNUM32>(ids[i].size());
            response.pUniqueRespIds = ids[i].data();
            responses.push_back(response);
        }
        data.NumSendCycles = static_cast<SNUM32>(input.U8()) - 128;
        data.NumReceiveCycles = static_cast<SNUM32>(input.U8()) - 128;
        data.TxFlag = {static_cast<UNUM32>(tx_flag.size()), tx_flag.data()};
        data.NumPossibleExpectedResponses = static_cast<UNUM32>(responses.size());
        data.pExpectedResponseArray = responses.data();
    }
    Bytes tx_flag;
    std::vector<Bytes> masks, patterns;
    std::vector<std::vector<UNUM32>> ids;
    std::vector<PDU_EXP_RESP_DATA> responses;
    PDU_COP_CTRL_DATA data{};
};

void StartComPrimitive(Input& input) {
    static constexpr T_PDU_COPT kTypes[] = {PDU_COPT_SENDRECV,
                                            PDU_COPT_SENDRECV,
                                            PDU_COPT_SENDRECV,
                                            PDU_COPT_SENDRECV,
                                            PDU_COPT_STARTCOMM,
                                            PDU_COPT_STARTCOMM,
                                            PDU_COPT_STOPCOMM,
                                            PDU_COPT_DELAY,
                                            PDU_COPT_UPDATEPARAM,
                                            PDU_COPT_RESTORE_PARAM,
                                            0};
    const Handles at = AnyLink(input);
    Bytes data = input.Take(input.Below(24));
    if (input.Below(16) == 0) data.resize(data.size() + input.U16() % 5000);
    Control control(input);
    UNUM32 hCoP = 0;
    const T_PDU_ERROR status = PDUStartComPrimitive(
        at.hMod, at.hCLL, input.OneOf(kTypes), static_cast<UNUM32>(data.size()), data.data(),
        input.Below(8) == 0 ? nullptr : &control.data, &session, &hCoP);
    Check(status, {PDU_ERR_INVALID_HANDLE, PDU_ERR_CLL_NOT_CONNECTED, PDU_ERR_FCT_FAILED});
    if (status != PDU_STATUS_NOERROR) return;
    const std::lock_guard hold(session.lock);
    session.cops.push_back(hCoP);
}

void CancelComPrimitive(Input& input) {
    const Handles at = AnyLink(input);
    Check(PDUCancelComPrimitive(at.hMod, at.hCLL, AnyCop(input)), {PDU_ERR_INVALID_HANDLE});
}

void GetStatus(Input& input, UNUM32 hCoP) {
    const Handles at = AnyLink(input);
    T_PDU_STATUS state = 0;
    UNUM32 timestamp = 0, extra = 1;
    Check(PDUGetStatus(at.hMod, at.hCLL, hCoP, &state, &timestamp, &extra),
          {PDU_ERR_INVALID_HANDLE});
    Require(extra == 0);
}
void GetLinkStatus(Input& input) { GetStatus(input, PDU_HANDLE_UNDEF); }
// Leaves the calling thread with the module lock.
void GetCopStatus(Input& input) { GetStatus(input, AnyCop(input)); }

void GetComParam(Input& input) {
    PDU_PARAM_ITEM* item = nullptr;
    Check(PDUGetComParam(AnyModule(input), 0, input.U8(), &item), {PDU_ERR_COMPARAM_NOT_SUPPORTED});
}

void SetComParam(Input& input) {
    MadeParams params(input);
    PDU_PARAM_ITEM item = params.ForComParam();
    Check(PDUSetComParam(AnyModule(input), 0, input.Below(16) == 0 ? nullptr : &item),
          {PDU_ERR_INVALID_PARAMETERS, PDU_ERR_FCT_FAILED});
}

void SetTable(Input& input) {
    const Handles at = AnyLink(input);
    MadeParams params(input);
    PDU_UNIQUE_RESP_ID_TABLE_ITEM table = params.Table();
    Check(PDUSetUniqueRespIdTable(at.hMod, at.hCLL, input.Below(16) == 0 ? nullptr : &table),
          {PDU_ERR_INVALID_HANDLE});
}

void GetTable(Input& input) {
    const Handles at = AnyLink(input);
    PDU_UNIQUE_RESP_ID_TABLE_ITEM* table = nullptr;
    Check(PDUGetUniqueRespIdTable(at.hMod, at.hCLL, &table), {PDU_ERR_INVALID_HANDLE});
    if (table != nullptr && input.Flag()) {
        Check(PDUSetUniqueRespIdTable(at.hMod, at.hCLL, table), {PDU_ERR_INVALID_HANDLE});
    }
    Keep(table);
}

void IoCtl(Input& input) {
    PDU_IO_ENTITY_ADDRESS_DATA address = {input.U16(), input.U16()};
    PDU_IO_ETH_SWITCH_STATE state = {input.U8(), input.U8()};
    PDU_IO_VEHICLE_ID_REQUEST request{};
    Bytes text = input.Take(input.Below(20));
    text.push_back(0);
    request.PreselectionMode = input.Below(4);
    request.PreselectionValue = input.Flag() ? reinterpret_cast<CHAR8*>(text.data()) : nullptr;
    request.CombinationMode = input.Below(5);
    std::vector<UNUM8> bytes = input.Take(16);
    PDU_IP_ADDR_INFO destination = {input.Flag() ? 4u : 6u, bytes.data()};
    request.NumDestinationAddresses = input.Below(2);
    request.pDestinationAddresses = &destination;
    PDU_DATA_ITEM inputs[] = {{PDU_IT_IO_ENTITY_ADDRESS, &address},
                              {PDU_IT_IO_ETH_SWITCH_STATE, &state},
                              {PDU_IT_IO_VEHICLE_ID_REQUEST, &request},
                              {PDU_IT_IO_UNUM32, &address}};
    PDU_DATA_ITEM* output = nullptr;
    Check(PDUIoCtl(AnyModule(input), 0, 4999 + input.Below(28),
                   input.Below(8) == 0 ? nullptr : &inputs[input.Below(4)], &output),
          {PDU_ERR_ID_NOT_SUPPORTED, PDU_ERR_INVALID_PARAMETERS});
    Keep(output);
}

void GetVersion(Input& input) {
    PDU_VERSION_DATA version{};
    Check(PDUGetVersion(AnyModule(input), &version), {PDU_ERR_INVALID_HANDLE});
}

void GetTimestamp(Input& input) {
    UNUM32 timestamp = 0;
    Check(PDUGetTimestamp(AnyModule(input), &timestamp), {PDU_ERR_INVALID_HANDLE});
}

void GetResourceIds(Input& input) {
    PDU_RSC_DATA resource = {input.U16(), input.U16(), 0, nullptr};
    PDU_RSC_ID_ITEM* resources = nullptr;
    Check(PDUGetResourceIds(AnyModule(input), input.Flag() ? &resource : nullptr, &resources),
          {PDU_ERR_FCT_FAILED});
    Keep(resources);
}

void GetObjectId(Input& input) {
    std::string name(DescribeComParam(1 + input.Below(kComParamCount)).name);
    if (input.Flag()) name.push_back(static_cast<char>(input.U8()));
    UNUM32 id = 0;
    Check(PDUGetObjectId(0x8020 + input.Below(8), name.data(), &id), {PDU_ERR_INVALID_PARAMETERS});
}

void CallStubs(Input& input) {
    const Handles at = AnyLink(input);
    T_PDU_ERR_EVT error = 0;
    UNUM32 number = 0;
    PDU_RSC_STATUS_ITEM status = {PDU_IT_RSC_STATUS, 0, nullptr};
    PDU_RSC_CONFLICT_ITEM* conflicts = nullptr;
    Check(PDUGetLastError(at.hMod, at.hCLL, &error, &number, &number, &number), {});
    Check(PDUGetResourceStatus(&status), {});
    Check(PDULockResource(at.hMod, at.hCLL, input.U8()), {});
    Check(PDUUnlockResource(at.hMod, at.hCLL, input.U8()), {});
    Check(PDUGetConflictingResources(input.U8(), nullptr, &conflicts), {});
}

// Gives the other threads time.
void Pause(Input& input) {
    std::this_thread::sleep_for(std::chrono::microseconds(20 * input.U8()));
}

// ---- Callbacks ---------------------------------------------------------------------------------

void PDU_CALL OnEvent(T_PDU_EVT_DATA, UNUM32 hMod, UNUM32 hCLL, void*, void*);

void RegisterCallback(Input& input) {
    static constexpr CALLBACKFNC kCallbacks[] = {OnEvent, OnEvent, OnEvent, nullptr};
    const Handles at =
        input.Below(4) == 0 ? Handles{AnyModule(input), PDU_HANDLE_UNDEF} : AnyLink(input);
    Check(PDURegisterEventCallback(at.hMod, at.hCLL, input.OneOf(kCallbacks)),
          {PDU_ERR_INVALID_HANDLE});
}

using Action = void (*)(Input&);

// One that ends the library, and many that do not. None keeps the module lock.
constexpr Action kInCallbacks[] = {GetEventItem,
                                   GetEventItem,
                                   GetEventItem,
                                   DestroyItem,
                                   DestroyItem,
                                   GetTable,
                                   StartComPrimitive,
                                   CancelComPrimitive,
                                   RegisterCallback,
                                   GetLinkStatus,
                                   Connect,
                                   Disconnect,
                                   DestroyLink,
                                   SetTable,
                                   CreateLink,
                                   GetComParam,
                                   SetComParam,
                                   GetVersion,
                                   GetObjectId,
                                   GetResourceIds,
                                   GetTimestamp,
                                   CallStubs,
                                   IoCtl,
                                   ModuleConnect,
                                   ModuleDisconnect,
                                   Pause,
                                   GetSystemEvent,
                                   GetEventItem,
                                   DestroyItem,
                                   Destruct};

void PDU_CALL OnEvent(T_PDU_EVT_DATA, UNUM32 hMod, UNUM32 hCLL, void*, void*) {
    Input& input = *session.callbacks;
    if (input.AtEnd()) return TakeEvent(input, {hMod, hCLL});
    input.OneOf(kInCallbacks)(input);
}

// ---- The sequence ------------------------------------------------------------------------------

constexpr Action kCalls[] = {CreateLink,
                             CreateLink,
                             StartComPrimitive,
                             StartComPrimitive,
                             StartComPrimitive,
                             StartComPrimitive,
                             RegisterCallback,
                             RegisterCallback,
                             SetTable,
                             SetTable,
                             GetTable,
                             GetEventItem,
                             GetEventItem,
                             DestroyItem,
                             CancelComPrimitive,
                             Connect,
                             Disconnect,
                             DestroyLink,
                             Pause,
                             Pause,
                             SetComParam,
                             SetComParam,
                             GetComParam,
                             GetLinkStatus,
                             GetCopStatus,
                             GetSystemEvent,
                             IoCtl,
                             GetVersion,
                             GetTimestamp,
                             GetResourceIds,
                             GetObjectId,
                             CallStubs,
                             ModuleConnect,
                             ModuleDisconnect,
                             GetModuleIds,
                             Construct,
                             DestructAndConstruct};

bool Eventually(bool (*happened)()) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!happened()) {
        if (std::chrono::steady_clock::now() >= limit) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

// Also if a callback is about to destruct it.
void End() {
    PDUDestruct();
    Require(Eventually([] { return LibraryState() == Lifecycle::kNotConstructed; }));
    PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr);
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, nullptr);
}

// Items are released by the next session only.
void GiveBackAll() {
    Require(PDUConstruct(nullptr, nullptr) == PDU_STATUS_NOERROR);
    for (PDU_ITEM* item : std::exchange(session.items, {}))
        GiveBack(item);
    for (PDU_ITEM* item : std::exchange(session.unreleased, {}))
        FreeMem(item);
    Require(PDUDestruct() == PDU_STATUS_NOERROR);
    Require(session.items.empty());
}

MemoryUse before;

void Run(Input input) {
    SetPeerScript(input.Take(input.U8() % 64));
    session.callbacks = std::make_unique<Input>(input.Take(input.U8() % 64));
    session.links_left = kMostLinks;
    Construct(input);
    GetModuleIds(input);
    ModuleConnect(input);
    CreateLink(input);
    RegisterCallback(input);
    for (int i = 0; i < kMostCalls && !input.AtEnd(); ++i)
        input.OneOf(kCalls)(input);
    session.callbacks->SkipToEnd();  // some may be running
    End();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    FragInit();
    RegisterPeer();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    before = LiveMemory();
    Run(Input(data, size));
    GiveBackAll();
    session.links.clear();
    session.cops.clear();
    // A worker that was inside PDUDestruct releases its link when it ends.
    Require(Eventually([] { return LiveMemory().blocks == before.blocks; }));
    return 0;
}
