// A session of a diagnostic application written for D-PDU libraries in general, not for this one.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "conformance/client_profile/inbox.h"
#include "conformance/client_profile/score.h"
#include "conformance/framework/callbacks.h"
#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"
#include "conformance/replug/recovery.h"

namespace conformance {
namespace {

// docs/compatibility.md states it.
constexpr int kFullScore = 47;

constexpr UNUM32 kQueueEmpty = PDU_ERR_EVENT_QUEUE_EMPTY;

// A number that a client passes as a pointer; it must not be dereferenced.
void* Tag(std::uintptr_t number) { return reinterpret_cast<void*>(number); }

UNUM32 ObjectId(T_PDU_OBJT type, std::string name) {
    UNUM32 id = PDU_ID_UNDEF;
    EXPECT_EQ(Pdu().PDUGetObjectId(type, name.data(), &id), PDU_STATUS_NOERROR) << name;
    return id;
}

// Positive answers first, then negative ones, as description files list them.
std::vector<Expected> PositiveOrNegative() {
    return {{.type = 0, .acceptance_id = 1, .mask = {0xFF}, .pattern = {0x62}},
            {.type = 1, .acceptance_id = 2, .mask = {0xFF}, .pattern = {0x7F}}};
}

// The value of one key in "Key='value' Key='value'".
std::string ValueOfKey(const std::string& text, const std::string& key) {
    const std::size_t at = text.find(key + "='");
    if (at == std::string::npos) return "";
    const std::size_t begin = at + key.size() + 2;
    return text.substr(begin, text.find('\'', begin) - begin);
}

class ClientProfile : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Simulator::IsThere()) << "needs a simulated dongle";
        simulator_.Reset();
        Settings{.useSerial = true}.Store();
        for (CallbackSpy* spy : {&system_, &module_, &link_events_}) {
            spy->OnCall([this](const CallbackCall& call) { inbox_.Drain(call); });
        }
    }
    void TearDown() override {
        Pdu().PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr);
        Pdu().PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, nullptr);
        Pdu().PDUDestruct();
        EXPECT_EQ(simulator_.Violations(), 0u) << simulator_.Command("violations");
    }

    void ComeUp(Score& score);
    void ReadTheDongle(Score& score);
    void ChangeComParams(Score& score);
    void OpenTheLink(Score& score);
    void TalkToOneControlUnit(Score& score);
    void TalkToSeveral(Score& score);
    void ListenAtEveryLevel(Score& score);
    void ListenToTheBus(Score& score);
    void WorkForALongTime(Score& score);
    void LoseTheDongleAndRecover(Score& score);
    void CloseEverything(Score& score);

    bool FindModuleByName(const std::string& name);
    UNUM32 CreateLink(PDU_RSC_DATA* resource, UNUM32 resource_id, PDU_FLAG_DATA* flag);
    UNUM32 Start(UNUM32 type, std::vector<UNUM8> data = {}, PDU_COP_CTRL_DATA* control = nullptr);
    Outcome Ask(std::vector<UNUM8> data);
    void ExpectVin(const Outcome& outcome, std::size_t answers = 1);
    T_PDU_ERROR SetThroughGet(const char* name, void (*modify)(void* data));
    T_PDU_ERROR AddressInPlace(UNUM32 request_id, UNUM32 response_id);
    UNUM32 ModuleState() const;

    Simulator simulator_;
    Inbox inbox_;
    CallbackSpy system_;
    CallbackSpy module_;
    CallbackSpy link_events_;

    UNUM32 hMod_ = PDU_HANDLE_UNDEF;
    UNUM32 hCLL_ = PDU_HANDLE_UNDEF;
    std::string module_name_;
    PDU_PIN_DATA pins_[2] = {};
    PDU_RSC_DATA resource_ = {};
    ControlData control_{PositiveOrNegative()};
};

// ---- client operations

bool ClientProfile::FindModuleByName(const std::string& name) {
    return EventuallyConnected([&] {
        const auto list = GetModuleIds();
        if (list == nullptr || list->ItemType != PDU_IT_MODULE_ID) return false;
        for (UNUM32 i = 0; i < list->NumEntries; ++i) {
            const PDU_MODULE_DATA& module = list->pModuleData[i];
            const bool hidden = module.ModuleStatus == PDU_MODST_NOT_READY ||
                                module.ModuleStatus == PDU_MODST_NOT_AVAIL;
            if (hidden || (!name.empty() && name != module.pVendorModuleName)) continue;
            hMod_ = module.hMod;
            module_name_ = module.pVendorModuleName;
            return true;
        }
        return false;
    });
}

UNUM32 ClientProfile::CreateLink(PDU_RSC_DATA* resource, UNUM32 resource_id, PDU_FLAG_DATA* flag) {
    UNUM32 hCLL = PDU_HANDLE_UNDEF;
    EXPECT_EQ(Pdu().PDUCreateComLogicalLink(hMod_, resource, resource_id, Tag(0x4711), &hCLL, flag),
              PDU_STATUS_NOERROR);
    return hCLL;
}

UNUM32 ClientProfile::Start(UNUM32 type, std::vector<UNUM8> data, PDU_COP_CTRL_DATA* control) {
    UNUM32 hCoP = PDU_HANDLE_UNDEF;
    EXPECT_EQ(Pdu().PDUStartComPrimitive(hMod_, hCLL_, type, static_cast<UNUM32>(data.size()),
                                         data.empty() ? nullptr : data.data(), control, Tag(0x815),
                                         &hCoP),
              PDU_STATUS_NOERROR);
    return hCoP;
}

Outcome ClientProfile::Ask(std::vector<UNUM8> data) {
    return inbox_.WaitFor(Start(PDU_COPT_SENDRECV, std::move(data), control_.Data()));
}

void ClientProfile::ExpectVin(const Outcome& outcome, std::size_t answers) {
    EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
    EXPECT_TRUE(outcome.errors.empty());
    ASSERT_EQ(outcome.results.size(), answers);
    for (std::size_t i = 0; i < answers; ++i) {
        const Result& result = outcome.results[i];
        EXPECT_EQ(result.acceptance_id, 1u);
        EXPECT_EQ(std::string(result.data.begin() + 3, result.data.end()), "WTVDEM0S1M0000001");
    }
}

T_PDU_ERROR ClientProfile::SetThroughGet(const char* name, void (*modify)(void* data)) {
    const UNUM32 id = ObjectId(PDU_OBJT_COMPARAM, name);
    PDU_PARAM_ITEM* item = nullptr;
    T_PDU_ERROR status = Pdu().PDUGetComParam(hMod_, PDU_HANDLE_UNDEF, id, &item);
    if (status != PDU_STATUS_NOERROR) return status;
    EXPECT_EQ(item->ItemType, PDU_IT_PARAM);
    EXPECT_EQ(item->ComParamId, id);
    modify(item->pComParamData);
    status = Pdu().PDUSetComParam(hMod_, PDU_HANDLE_UNDEF, item);
    EXPECT_EQ(Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item)), PDU_STATUS_NOERROR);
    return status;
}

// Get, edit in place, set with the same pointer, destroy.
T_PDU_ERROR ClientProfile::AddressInPlace(UNUM32 request_id, UNUM32 response_id) {
    const auto table = GetUniqueTable(hMod_, hCLL_);
    if (table == nullptr || table->NumEntries != 1) return PDU_ERR_FCT_FAILED;
    PDU_ECU_UNIQUE_RESP_DATA& entry = table->pUniqueData[0];
    entry.UniqueRespIdentifier = 1;
    for (UNUM32 i = 0; i < entry.NumParamItems; ++i) {
        PDU_PARAM_ITEM& param = entry.pParams[i];
        if (param.ComParamId == ParamId("CP_CanPhysReqId")) {
            std::memcpy(param.pComParamData, &request_id, sizeof request_id);
        } else if (param.ComParamId == ParamId("CP_CanRespUSDTId")) {
            std::memcpy(param.pComParamData, &response_id, sizeof response_id);
        }
    }
    return Pdu().PDUSetUniqueRespIdTable(hMod_, hCLL_, table.get());
}

UNUM32 ClientProfile::ModuleState() const { return ModuleStatus(hMod_); }

// ---- the steps

void ClientProfile::ComeUp(Score& score) {
    score.Step("all 29 functions are there", [] { Pdu(); });
    score.Step("construct with neither options nor tag",
               [] { EXPECT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR); });
    score.Step("register a callback for the system", [this] {
        EXPECT_EQ(
            Pdu().PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, system_.Function()),
            PDU_STATUS_NOERROR);
    });
    score.Step("find a module", [this] { ASSERT_TRUE(FindModuleByName("")); });
    score.Step("read its name as a row of keys", [this] {
        EXPECT_EQ(ValueOfKey(module_name_, "ModuleName"), "Brennix demo");
        EXPECT_EQ(ValueOfKey(module_name_, "SerialNumber"), "02:42:52:4E:58:01");
        EXPECT_NE(ValueOfKey(module_name_, "ConnectionType"), "");
    });
    score.Step("find it again by its whole name",
               [this] { EXPECT_TRUE(FindModuleByName(std::string(module_name_))); });
    score.Step("connect the module", [this] {
        EXPECT_EQ(Pdu().PDUModuleConnect(hMod_), PDU_STATUS_NOERROR);
        EXPECT_EQ(ModuleState(), PDU_MODST_READY);
    });
}

void ClientProfile::ReadTheDongle(Score& score) {
    const auto read = [this](const char* name) -> UNUM32 {
        PDU_DATA_ITEM* output = nullptr;
        EXPECT_EQ(Pdu().PDUIoCtl(hMod_, PDU_HANDLE_UNDEF, ObjectId(PDU_OBJT_IO_CTRL, name), nullptr,
                                 &output),
                  PDU_STATUS_NOERROR);
        if (output == nullptr || output->ItemType != PDU_IT_IO_UNUM32) return 0;
        KeepForGood(output);
        const UNUM32 value = *static_cast<UNUM32*>(output->pData);
        EXPECT_EQ(Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(output)), PDU_STATUS_NOERROR);
        return value;
    };
    score.Step("read the battery's voltage", [&] {
        const UNUM32 millivolts = read("PDU_IOCTL_READ_VBATT");
        EXPECT_GT(millivolts, 9'000u);
        EXPECT_LT(millivolts, 16'000u);
    });
    score.Step("see the ignition switched on",
               [&] { EXPECT_EQ(read("PDU_IOCTL_READ_IGNITION_SENSE_STATE") & 1u, 1u); });
    score.Step("read the version", [this] {
        PDU_VERSION_DATA version = {};
        EXPECT_EQ(Pdu().PDUGetVersion(hMod_, &version), PDU_STATUS_NOERROR);
        EXPECT_GT(std::strlen(version.VendorName), 0u);
    });
    score.Step("read a time stamp", [this] {
        UNUM32 timestamp = 0;
        EXPECT_EQ(Pdu().PDUGetTimestamp(hMod_, &timestamp), PDU_STATUS_NOERROR);
    });
    score.Step("reset the module", [this] {
        EXPECT_EQ(Pdu().PDUIoCtl(hMod_, PDU_HANDLE_UNDEF,
                                 ObjectId(PDU_OBJT_IO_CTRL, "PDU_IOCTL_RESET"), nullptr, nullptr),
                  PDU_STATUS_NOERROR);
    });
    score.Step("take no for an answer about unknown names and unsupported commands", [this] {
        std::string name = "CP_OfSomeOtherMaker";
        UNUM32 id = 1;
        const T_PDU_ERROR unknown = Pdu().PDUGetObjectId(PDU_OBJT_COMPARAM, name.data(), &id);
        EXPECT_TRUE(unknown != PDU_STATUS_NOERROR || id == PDU_ID_UNDEF);
        PDU_DATA_ITEM* output = nullptr;
        EXPECT_EQ(
            Pdu().PDUIoCtl(hMod_, PDU_HANDLE_UNDEF,
                           ObjectId(PDU_OBJT_IO_CTRL, "PDU_IOCTL_GET_CABLE_ID"), nullptr, &output),
            PDU_ERR_ID_NOT_SUPPORTED);
        EXPECT_EQ(output, nullptr);
    });
}

void ClientProfile::ChangeComParams(Score& score) {
    score.Step("change a number through get", [this] {
        const auto two_seconds = [](void* data) {
            const UNUM32 microseconds = 2'000'000;
            std::memcpy(data, &microseconds, sizeof microseconds);
        };
        EXPECT_EQ(SetThroughGet("CP_P2Max", two_seconds), PDU_STATUS_NOERROR);
        EXPECT_EQ(GetNumber("CP_P2Max"), 2'000'000u);
    });
    score.Step("change a byte field through get", [this] {
        const auto tester_present = [](void* data) {
            auto* field = static_cast<PDU_PARAM_BYTEFIELD_DATA*>(data);
            ASSERT_GE(field->ParamMaxLen, 2u);
            field->pDataArray[0] = 0x3E;
            field->pDataArray[1] = 0x80;
            field->ParamActLen = 2;
        };
        EXPECT_EQ(SetThroughGet("CP_TesterPresentMessage", tester_present), PDU_STATUS_NOERROR);
        const auto* field = static_cast<PDU_PARAM_BYTEFIELD_DATA*>(
            GetParam("CP_TesterPresentMessage")->pComParamData);
        EXPECT_EQ(field->ParamActLen, 2u);
        EXPECT_EQ(field->pDataArray[1], 0x80);
    });
    score.Step("change a long field through get", [this] {
        const auto baud_rates = [](void* data) {
            auto* field = static_cast<PDU_PARAM_LONGFIELD_DATA*>(data);
            ASSERT_GE(field->ParamMaxLen, 2u);
            field->pDataArray[0] = 500'000;
            field->pDataArray[1] = 250'000;
            field->ParamActLen = 2;
        };
        EXPECT_EQ(SetThroughGet("CP_CanBaudrateRecord", baud_rates), PDU_STATUS_NOERROR);
        const auto* field =
            static_cast<PDU_PARAM_LONGFIELD_DATA*>(GetParam("CP_CanBaudrateRecord")->pComParamData);
        EXPECT_EQ(field->ParamActLen, 2u);
        EXPECT_EQ(field->pDataArray[1], 250'000u);
    });
    score.Step("change session timings through get", [this] {
        const auto session = [](void* data) {
            auto* field = static_cast<PDU_PARAM_STRUCTFIELD_DATA*>(data);
            ASSERT_EQ(field->ComParamStructType, PDU_CPST_SESSION_TIMING);
            static_cast<PDU_PARAM_STRUCT_SESS_TIMING*>(field->pStructArray)[0] = {3, 0, 50, 1, 244};
            field->ParamActEntries = 1;
        };
        EXPECT_EQ(SetThroughGet("CP_SessionTimingOverride", session), PDU_STATUS_NOERROR);
    });
    score.Step("change access timings with records of its own", [] {
        PDU_PARAM_STRUCT_ACCESS_TIMING timings[2] = {{1, 2, 3, 4, 5, 1}, {6, 7, 8, 9, 10, 3}};
        PDU_PARAM_STRUCTFIELD_DATA field = {PDU_CPST_ACCESS_TIMING, 2, 2, timings};
        PDU_PARAM_ITEM item = {PDU_IT_PARAM, ParamId("CP_AccessTimingOverride"), PDU_PT_STRUCTFIELD,
                               PDU_PC_TIMING, &field};
        EXPECT_EQ(Pdu().PDUSetComParam(0, 0, &item), PDU_STATUS_NOERROR);
        const auto* kept = static_cast<PDU_PARAM_STRUCTFIELD_DATA*>(
            GetParam("CP_AccessTimingOverride")->pComParamData);
        EXPECT_EQ(kept->ParamActEntries, 2u);
        EXPECT_EQ(static_cast<PDU_PARAM_STRUCT_ACCESS_TIMING*>(kept->pStructArray)[1].P4Min, 10);
    });
}

void ClientProfile::OpenTheLink(Score& score) {
    score.Step("ask for resources by bus type, protocol and pins", [this] {
        pins_[0] = {6, ObjectId(PDU_OBJT_PINTYPE, "HI")};
        pins_[1] = {14, ObjectId(PDU_OBJT_PINTYPE, "LOW")};
        resource_ = {ObjectId(PDU_OBJT_BUSTYPE, "ISO_11898_2_DWCAN"),
                     ObjectId(PDU_OBJT_PROTOCOL, "ISO_15765_3_on_ISO_15765_2"), 2, pins_};
        PDU_RSC_ID_ITEM* item = nullptr;
        ASSERT_EQ(Pdu().PDUGetResourceIds(hMod_, &resource_, &item), PDU_STATUS_NOERROR);
        const ItemPtr<PDU_RSC_ID_ITEM> resources(item);
        ASSERT_EQ(resources->ItemType, PDU_IT_RSC_ID);
        ASSERT_EQ(resources->NumModules, 1u);
        EXPECT_EQ(resources->pResourceIdDataArray[0].hMod, hMod_);
        ASSERT_EQ(resources->pResourceIdDataArray[0].NumIds, 1u);
        EXPECT_EQ(resources->pResourceIdDataArray[0].pResourceIdArray[0],
                  ObjectId(PDU_OBJT_RESOURCE, "ISO_UDS_on_OBD"));
    });
    score.Step("create a link by resource id and destroy it", [this] {
        const UNUM32 hCLL =
            CreateLink(nullptr, ObjectId(PDU_OBJT_RESOURCE, "ISO_UDS_on_OBD"), nullptr);
        EXPECT_EQ(Pdu().PDUDestroyComLogicalLink(hMod_, hCLL), PDU_STATUS_NOERROR);
    });
    score.Step("create a link by bus type, protocol and pins", [this] {
        UNUM8 bytes[4] = {0x40, 0, 0, 0};  // as many clients pass it for normal links
        PDU_FLAG_DATA flag = {sizeof bytes, bytes};
        hCLL_ = CreateLink(&resource_, PDU_ID_UNDEF, &flag);
    });
    score.Step("register a callback for the link", [this] {
        EXPECT_EQ(Pdu().PDURegisterEventCallback(hMod_, hCLL_, link_events_.Function()),
                  PDU_STATUS_NOERROR);
    });
    score.Step("lock nothing and ask for no errors", [this] {
        T_PDU_ERR_EVT error = 0;
        UNUM32 hCoP = 0;
        UNUM32 timestamp = 0;
        UNUM32 extra = 0;
        EXPECT_EQ(Pdu().PDULockResource(hMod_, hCLL_, 1), PDU_STATUS_NOERROR);
        EXPECT_EQ(Pdu().PDUUnlockResource(hMod_, hCLL_, 1), PDU_STATUS_NOERROR);
        EXPECT_EQ(Pdu().PDUGetLastError(hMod_, hCLL_, &error, &hCoP, &timestamp, &extra),
                  PDU_STATUS_NOERROR);
    });
    score.Step("put one control unit into the response table in place", [this] {
        EXPECT_EQ(AddressInPlace(kEngineRequest, kEngineResponse), PDU_STATUS_NOERROR);
    });
    score.Step("connect the link and hear of it", [this] {
        EXPECT_EQ(Pdu().PDUConnect(hMod_, hCLL_), PDU_STATUS_NOERROR);
        EXPECT_TRUE(inbox_.WaitForLinkState(PDU_CLLST_ONLINE));
    });
}

void ClientProfile::TalkToOneControlUnit(Score& score) {
    score.Step("take the ComParams over", [this] {
        EXPECT_EQ(inbox_.WaitFor(Start(PDU_COPT_UPDATEPARAM)).states,
                  std::vector<UNUM32>{PDU_COPST_FINISHED});
    });
    score.Step("start communication with tester present", [this] {
        SetNumber("CP_TesterPresentTime", 2'000'000);
        EXPECT_EQ(inbox_.WaitFor(Start(PDU_COPT_STARTCOMM)).FinalState(), PDU_COPST_FINISHED);
        EXPECT_TRUE(inbox_.WaitForLinkState(PDU_CLLST_COMM_STARTED));
        EXPECT_TRUE(simulator_.WaitFor(1, "in TSPR"));
    });
    score.Step("read the VIN, draining in the callback", [this] { ExpectVin(Ask(ReadVin())); });
    score.Step("hear a negative response", [this] {
        const Outcome outcome = Ask({0x22, 0xFF, 0xFF});
        EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
        ASSERT_EQ(outcome.results.size(), 1u);
        EXPECT_EQ(Hex(outcome.results[0].data), "7F 22 31");
    });
    score.Step("hear that a control unit keeps silent", [this] {
        simulator_.Command(R"(unit engine {"silent": true})");
        const Outcome outcome = Ask(ReadVin());
        EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
        EXPECT_TRUE(outcome.results.empty());
        EXPECT_EQ(outcome.errors.size(), 1u);
        simulator_.Command(R"(unit engine {"silent": false})");
    });
    score.Step("go on to another control unit", [this] {
        EXPECT_EQ(AddressInPlace(kGearboxRequest, kGearboxResponse), PDU_STATUS_NOERROR);
        ExpectVin(Ask(ReadVin()));
        EXPECT_EQ(simulator_.Last(1, "in CREQ")[0]["fields"]["physical"], "7E1");
    });
}

void ClientProfile::TalkToSeveral(Score& score) {
    score.Step("put two control units into the response table", [this] {
        UniqueTable table;
        table.ControlUnit(11, kEngineRequest, kEngineResponse)
            .ControlUnit(12, kAbsRequest, kAbsResponse);
        SetNumber("CP_CanFuncReqId", kFunctionalRequest);
        EXPECT_EQ(Pdu().PDUSetUniqueRespIdTable(hMod_, hCLL_, table.Item()), PDU_STATUS_NOERROR);
    });
    score.Step("ask both at once", [this] {
        const Outcome outcome = Ask(ReadVin());
        ExpectVin(outcome, 2);
        ASSERT_EQ(outcome.results.size(), 2u);
        EXPECT_NE(outcome.results[0].unique_id, outcome.results[1].unique_id);
    });
    score.Step("cancel a request", [this] {
        simulator_.Command("record clear");
        simulator_.Command(R"(next 1 {"lost": true})");
        const UNUM32 hCoP = Start(PDU_COPT_SENDRECV, ReadVin(), control_.Data());
        ASSERT_TRUE(simulator_.WaitFor(1, "in CREQ"));
        EXPECT_EQ(Pdu().PDUCancelComPrimitive(hMod_, hCLL_, hCoP), PDU_STATUS_NOERROR);
        EXPECT_EQ(inbox_.WaitFor(hCoP).FinalState(), PDU_COPST_CANCELLED);
    });
}

void ClientProfile::ListenAtEveryLevel(Score& score) {
    score.Step("hear of a link's events at the module", [this] {
        EXPECT_EQ(Pdu().PDURegisterEventCallback(hMod_, PDU_HANDLE_UNDEF, module_.Function()),
                  PDU_STATUS_NOERROR);
        EXPECT_EQ(Pdu().PDURegisterEventCallback(hMod_, hCLL_, nullptr), PDU_STATUS_NOERROR);
        ExpectVin(Ask(ReadVin()), 2);
        EXPECT_GT(module_.Count(), 0u);
    });
    score.Step("hear of a link's events at the system", [this] {
        const std::size_t before = system_.Count();
        EXPECT_EQ(Pdu().PDURegisterEventCallback(hMod_, PDU_HANDLE_UNDEF, nullptr),
                  PDU_STATUS_NOERROR);
        ExpectVin(Ask(ReadVin()), 2);
        EXPECT_GT(system_.Count(), before);
        EXPECT_EQ(Pdu().PDURegisterEventCallback(hMod_, hCLL_, link_events_.Function()),
                  PDU_STATUS_NOERROR);
    });
}

void ClientProfile::ListenToTheBus(Score& score) {
    UNUM32 raw_link = PDU_HANDLE_UNDEF;
    score.Step("listen to raw CAN frames on a second link", [&] {
        UNUM8 bytes[4] = {0x80, 0, 0, 0};
        PDU_FLAG_DATA flag = {sizeof bytes, bytes};
        PDU_RSC_DATA raw = resource_;
        raw.ProtocolId = ObjectId(PDU_OBJT_PROTOCOL, "ISO_11898_RAW");
        raw_link = CreateLink(&raw, PDU_ID_UNDEF, &flag);
        EXPECT_EQ(Pdu().PDURegisterEventCallback(hMod_, raw_link, link_events_.Function()),
                  PDU_STATUS_NOERROR);
        EXPECT_EQ(Pdu().PDUConnect(hMod_, raw_link), PDU_STATUS_NOERROR);
        ControlData control(AnyResponse(), 0, -1);
        UNUM32 hCoP = PDU_HANDLE_UNDEF;
        EXPECT_EQ(Pdu().PDUStartComPrimitive(hMod_, raw_link, PDU_COPT_SENDRECV, 0, nullptr,
                                             control.Data(), nullptr, &hCoP),
                  PDU_STATUS_NOERROR);
        EXPECT_TRUE(inbox_.WaitForResults(hCoP, 10));
    });
    score.Step("ask on the first link meanwhile", [this] { ExpectVin(Ask(ReadVin()), 2); });
    Pdu().PDUDestroyComLogicalLink(hMod_, raw_link);
}

void ClientProfile::WorkForALongTime(Score& score) {
    score.Step("run a thousand ComPrimitives", [this] {
        EXPECT_EQ(
            Pdu().PDUSetUniqueRespIdTable(
                hMod_, hCLL_, UniqueTable().ControlUnit(1, kEngineRequest, kEngineResponse).Item()),
            PDU_STATUS_NOERROR);
        constexpr int kComPrimitives = 1000;
        constexpr int kAtOnce = 50;
        for (int i = 0; i < kComPrimitives / kAtOnce && !HasFailure(); ++i) {
            std::vector<UNUM32> started;
            for (int k = 0; k < kAtOnce; ++k)
                started.push_back(Start(PDU_COPT_SENDRECV, ReadVin(), control_.Data()));
            for (const UNUM32 hCoP : started)
                ExpectVin(inbox_.WaitFor(hCoP));
        }
    });
    score.Step("stop communication", [this] {
        EXPECT_EQ(inbox_.WaitFor(Start(PDU_COPT_STOPCOMM)).FinalState(), PDU_COPST_FINISHED);
        EXPECT_TRUE(simulator_.WaitFor(1, "in TSPR"));
    });
}

void ClientProfile::LoseTheDongleAndRecover(Score& score) {
    score.Step("lose the dongle during a request", [this] {
        simulator_.Command("record clear");
        simulator_.Command(R"(next 1 {"lost": true})");
        const UNUM32 hCoP = Start(PDU_COPT_SENDRECV, ReadVin(), control_.Data());
        ASSERT_TRUE(simulator_.WaitFor(1, "in CREQ"));
        simulator_.Unplug();
        const Outcome outcome = inbox_.WaitFor(hCoP);
        EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
        EXPECT_EQ(outcome.errors.size(), 1u);
        EXPECT_TRUE(ScanUntilNotAvailable(hMod_));
    });
    score.Step("recover it", [this] {
        simulator_.Replug();
        EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        EXPECT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        ASSERT_TRUE(FindModuleByName(std::string(module_name_)));
        EXPECT_EQ(Pdu().PDUModuleConnect(hMod_), PDU_STATUS_NOERROR);
        hCLL_ = CreateLink(&resource_, PDU_ID_UNDEF, nullptr);
        EXPECT_EQ(Pdu().PDURegisterEventCallback(hMod_, hCLL_, link_events_.Function()),
                  PDU_STATUS_NOERROR);
        EXPECT_EQ(AddressInPlace(kEngineRequest, kEngineResponse), PDU_STATUS_NOERROR);
        EXPECT_EQ(Pdu().PDUConnect(hMod_, hCLL_), PDU_STATUS_NOERROR);
        SetNumber("CP_P2Max", 2'000'000);
        ExpectVin(Ask(ReadVin()));
    });
}

void ClientProfile::CloseEverything(Score& score) {
    score.Step("disconnect the link and hear of it", [this] {
        EXPECT_EQ(Pdu().PDUDisconnect(hMod_, hCLL_), PDU_STATUS_NOERROR);
        EXPECT_TRUE(inbox_.WaitForLinkState(PDU_CLLST_OFFLINE));
    });
    score.Step("find its queues empty", [this] {
        PDU_EVENT_ITEM* item = nullptr;
        EXPECT_EQ(Pdu().PDUGetEventItem(hMod_, hCLL_, &item), kQueueEmpty);
        EXPECT_EQ(Pdu().PDUGetEventItem(hMod_, PDU_HANDLE_UNDEF, &item), kQueueEmpty);
    });
    score.Step("destroy the link", [this] {
        EXPECT_EQ(Pdu().PDUDestroyComLogicalLink(hMod_, hCLL_), PDU_STATUS_NOERROR);
        EXPECT_EQ(Pdu().PDUConnect(hMod_, hCLL_), PDU_ERR_INVALID_HANDLE);
    });
    score.Step("disconnect the module", [this] {
        Pdu().PDUModuleDisconnect(PDU_HANDLE_UNDEF);  // all modules; may be refused
        EXPECT_EQ(Pdu().PDUModuleDisconnect(hMod_), PDU_STATUS_NOERROR);
    });
    score.Step("destruct, with every item given back", [this] {
        EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        EXPECT_GT(inbox_.ItemsTaken(), 3000u);  // a thousand ComPrimitives had three each
        EXPECT_EQ(inbox_.ItemsGivenBack(), inbox_.ItemsTaken());
        PDU_MODULE_ITEM* modules = nullptr;
        EXPECT_EQ(Pdu().PDUGetModuleIds(&modules), PDU_ERR_PDUAPI_NOT_CONSTRUCTED);
    });
}

TEST_F(ClientProfile, ReachesItsFullScore) {
    Score score;
    StdoutCapture console;
    ComeUp(score);
    ReadTheDongle(score);
    ChangeComParams(score);
    OpenTheLink(score);
    TalkToOneControlUnit(score);
    TalkToSeveral(score);
    ListenAtEveryLevel(score);
    ListenToTheBus(score);
    WorkForALongTime(score);
    LoseTheDongleAndRecover(score);
    CloseEverything(score);
    console.Text();
    score.Print();
    EXPECT_EQ(score.Steps(), kFullScore);
    EXPECT_EQ(score.Passed(), score.Steps());
}

}  // namespace
}  // namespace conformance
