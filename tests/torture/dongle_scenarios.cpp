// With a dongle on a serial port, with the demo device or without any.

#include <dlfcn.h>

#include <deque>

#include "conformance/framework/items.h"
#include "conformance/framework/simulator.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/vehicle.h"
#include "torture/modes.h"
#include "torture/session.h"

namespace torture {
namespace {

using conformance::ControlData;
using conformance::Settings;
using conformance::Simulator;
using Bytes = std::vector<UNUM8>;

class ConstructDestruct : public Session {
public:
    ConstructDestruct() : Session({.enableDebugLogFile = false}) {}

    void SetUp() override { Store(); }
    bool Run() override {
        const bool constructed = Construct();
        return Destruct() && constructed;
    }
};

// ---- serial port -------------------------------------------------------------------------------

class SerialScan : public Session {
public:
    SerialScan() : Session({.enableDebugLogFile = false, .useSerial = true}) {}

    void SetUp() override { Store(); }
    bool Run() override {
        const bool found = Construct() && FindModule();
        return Destruct() && found;
    }
};

// Base of those that ask the demonstration car.
class DongleScenario : public LinkScenario {
public:
    DongleScenario() : LinkScenario({.enableDebugLogFile = false, .useSerial = true}) {}

protected:
    void ResetDevice() override { simulator_.Reset(); }

    Simulator simulator_;
};

class LinksAndTables : public DongleScenario {
public:
    LinksAndTables() { table_.ControlUnit(1, 0x7E0, 0x7E8).ControlUnit(2, 0x7E1, 0x7E9); }

    void SetUp() override {
        DongleScenario::SetUp();
        resource_ = conformance::CanResource();
        message_id_ = conformance::ParamId("CP_TesterPresentMessage");
        table_.Item();
    }
    bool Run() override {
        UNUM32 hCLL = PDU_HANDLE_UNDEF;
        if (CALL(PDUCreateComLogicalLink, hMod_, &resource_, PDU_ID_UNDEF, nullptr, &hCLL,
                 nullptr) != PDU_STATUS_NOERROR) {
            return false;
        }
        const bool done =
            ReadAndWriteTables(hCLL) && SetBytes() && ListResources() && GoOnline(hCLL);
        CALL(PDUDestroyComLogicalLink, hMod_, hCLL);
        return done;
    }

private:
    bool ReadAndWriteTables(UNUM32 hCLL) {
        PDU_UNIQUE_RESP_ID_TABLE_ITEM* table = nullptr;
        CALL(PDUSetUniqueRespIdTable, hMod_, hCLL, table_.Item());
        CALL(PDUGetUniqueRespIdTable, hMod_, hCLL, &table);
        const bool complete = table != nullptr && table->NumEntries == 2;
        if (table != nullptr) CALL(PDUSetUniqueRespIdTable, hMod_, hCLL, table);
        CALL(PDUDestroyItem, reinterpret_cast<PDU_ITEM*>(table));
        return complete;
    }
    bool SetBytes() {
        UNUM8 bytes[200] = {0x3E};
        UNUM32 length = longer_ ? sizeof bytes : 2;
        longer_ = !longer_;  // so that the library needs memory
        PDU_PARAM_BYTEFIELD_DATA field = {length, length, bytes};
        PDU_PARAM_ITEM item = {PDU_IT_PARAM, message_id_, PDU_PT_BYTEFIELD, 0, &field};
        return CALL(PDUSetComParam, hMod_, PDU_HANDLE_UNDEF, &item) == PDU_STATUS_NOERROR;
    }
    bool ListResources() {
        PDU_RSC_ID_ITEM* resources = nullptr;
        const T_PDU_ERROR status = CALL(PDUGetResourceIds, hMod_, &resource_, &resources);
        if (status == PDU_STATUS_NOERROR && resources == nullptr) NoteBad("no list of resources");
        CALL(PDUDestroyItem, reinterpret_cast<PDU_ITEM*>(resources));
        return resources != nullptr;
    }
    bool GoOnline(UNUM32 hCLL) {
        CALL(PDURegisterEventCallback, hMod_, hCLL, OnEvent);
        CALL(PDUConnect, hMod_, hCLL);
        CALL(PDUDisconnect, hMod_, hCLL);
        PDU_EVENT_ITEM* event = nullptr;
        int events = 0;
        while (CALL(PDUGetEventItem, hMod_, hCLL, &event) == PDU_STATUS_NOERROR) {
            ++events;
            CALL(PDUDestroyItem, reinterpret_cast<PDU_ITEM*>(event));
        }
        return events == 2;
    }
    static void PDU_CALL OnEvent(T_PDU_EVT_DATA, UNUM32, UNUM32, void*, void*) {
        const InCallback not_counted;
    }

    PDU_RSC_DATA resource_{};
    UNUM32 message_id_ = 0;
    bool longer_ = false;
    conformance::UniqueTable table_;
};

class SingleRequest : public DongleScenario {
public:
    bool Run() override {
        Answers answers;
        return Await(Start(PDU_COPT_SENDRECV, request_, &control_), &answers) &&
               answers.results == 1;
    }

private:
    const Bytes request_ = conformance::ReadVin();
    ControlData control_{conformance::PositiveRead()};
};

// The answer comes in fragments.
class FragmentedAnswer : public SingleRequest {
public:
    // Ten fragments with four bytes of the answer each, but for the last byte.
    long PeerBytes() const override { return 10 * 20 - 1; }
    void ClosePeerAfter(long bytes) override { simulator_.Command("cut " + std::to_string(bytes)); }

private:
    void ResetDevice() override {
        SingleRequest::ResetDevice();
        simulator_.Command(R"(behaviour {"fragment": 20})");
    }
};

class FunctionalRequest : public DongleScenario {
public:
    bool Run() override {
        Answers answers;
        return Await(Start(PDU_COPT_SENDRECV, request_, &control_), &answers) &&
               answers.results == 3;
    }

protected:
    std::unique_ptr<conformance::Link> MakeLink() override {
        return std::make_unique<conformance::CarLink>(hMod_);
    }

private:
    const Bytes request_ = conformance::ReadVin();
    ControlData control_{conformance::PositiveRead()};
};

// The car sends frames of its own once somebody receives.
class RawFrames : public DongleScenario {
public:
    bool Run() override {
        Start(PDU_COPT_SENDRECV, {}, &receive_);
        Start(PDU_COPT_STARTCOMM, frame_, &send_);
        return AwaitResults(2);
    }

protected:
    std::unique_ptr<conformance::Link> MakeLink() override {
        constexpr UNUM8 kRaw = 0x80;
        auto link = std::make_unique<conformance::Link>(hMod_, nullptr, kRaw);
        link->Connect();
        link->DropEvents();
        return link;
    }

private:
    const Bytes frame_ = {0x00, 0x00, 0x06, 0x00, 0x01, 0x02};
    ControlData receive_{{}, 1, -1};
    ControlData send_{{}, 1, 0};
};

class TesterPresent : public DongleScenario {
public:
    bool Run() override { return Finishes(PDU_COPT_STARTCOMM) && Finishes(PDU_COPT_STOPCOMM); }

protected:
    std::unique_ptr<conformance::Link> MakeLink() override {
        auto link = DongleScenario::MakeLink();
        conformance::SetNumber("CP_TesterPresentTime", 20'000);  // 20 ms
        conformance::SetBytes("CP_TesterPresentMessage", {0x3E, 0x80});
        return link;
    }

private:
    bool Finishes(UNUM32 type) {
        Answers answers;
        return Await(Start(type, {}, nullptr), &answers);
    }
};

// One request is under way, one waits; both are cancelled.
class Cancel : public DongleScenario {
public:
    bool Run() override {
        const UNUM32 first = Start(PDU_COPT_SENDRECV, request_, &control_);
        const UNUM32 second = Start(PDU_COPT_SENDRECV, request_, &control_);
        for (const UNUM32 hCoP : {second, first}) {
            if (hCoP != PDU_HANDLE_UNDEF) CALL(PDUCancelComPrimitive, hMod_, link_->hCLL(), hCoP);
        }
        Answers answers;
        return Await(second, &answers);  // comes after the other
    }

private:
    void ResetDevice() override {
        DongleScenario::ResetDevice();
        simulator_.Command(R"(behaviour {"delay_ms": 50})");
    }

    const Bytes request_ = conformance::ReadVin();
    ControlData control_{conformance::PositiveRead()};
};

// ---- from construct to
// destruct---------------------------------------------------------------------

// A session with everything that is written about it.
class TraceAndLog : public LinkScenario {
public:
    explicit TraceAndLog(Settings settings = {.showDebug = true,
                                              .enableCopTrace = true,
                                              .enableDebugLogFile = true,
                                              .useSerial = true})
        : LinkScenario(settings) {}

    void SetUp() override { Store(); }
    bool MayRunTwice() const override { return false; }
    bool Run() override {
        const bool answered = Construct() && FindModuleWithoutFault() && AsksVehicle();
        return Destruct() && answered;
    }

protected:
    // SerialScan has those.
    bool FindModuleWithoutFault() {
        FaultsPause(1);
        const bool found = FindModule();
        FaultsPause(0);
        return found;
    }
    static bool SetNumber(const char* name, UNUM32 value) {
        UNUM32 id = 0;
        Api().PDUGetObjectId(PDU_OBJT_COMPARAM, const_cast<char*>(name), &id);
        PDU_PARAM_ITEM item = {PDU_IT_PARAM, id, PDU_PT_UNUM32, 0, &value};
        return CALL(PDUSetComParam, PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, &item) ==
               PDU_STATUS_NOERROR;
    }
    // The link is there until the library's end.
    bool AsksVehicle() {
        if (!SetNumber("CP_CanPhysReqId", conformance::kEngineRequest) ||
            !SetNumber("CP_CanRespUSDTId", conformance::kEngineResponse) ||
            !SetNumber("CP_P2Max", 1'000'000)) {
            return false;
        }
        UNUM32 hCLL = PDU_HANDLE_UNDEF;
        if (CALL(PDUCreateComLogicalLink, hMod_, nullptr, PDU_ID_UNDEF, nullptr, &hCLL, nullptr) !=
            PDU_STATUS_NOERROR) {
            return false;
        }
        CALL(PDUConnect, hMod_, hCLL);
        UNUM32 hCoP = PDU_HANDLE_UNDEF;
        CALL(PDUStartComPrimitive, hMod_, hCLL, PDU_COPT_SENDRECV,
             static_cast<UNUM32>(request_.size()), request_.data(), control_.Data(), nullptr,
             &hCoP);
        return hCoP != PDU_HANDLE_UNDEF && Eventually([&] { return IsFinished(hCLL, hCoP); });
    }

private:
    bool IsFinished(UNUM32 hCLL, UNUM32 hCoP) {
        PDU_EVENT_ITEM* event = nullptr;
        if (CALL(PDUGetEventItem, hMod_, hCLL, &event) != PDU_STATUS_NOERROR) return false;
        const bool finished = event->hCop == hCoP && event->ItemType == PDU_IT_STATUS &&
                              conformance::StatusOf(*event) == PDU_COPST_FINISHED;
        CALL(PDUDestroyItem, reinterpret_cast<PDU_ITEM*>(event));
        return finished;
    }

    Bytes request_ = conformance::ReadVin();
    ControlData control_{conformance::PositiveRead()};
};

class Unload : public TraceAndLog {
public:
    Unload() : TraceAndLog({.enableDebugLogFile = true, .useSerial = true}) {}

    void Prepare() override {}
    bool MayLoseMemory() const override { return true; }
    void SetUp() override {
        TraceAndLog::SetUp();
        library_.emplace_back(conformance::LibraryPath());
        UseApi(&*library_.back());
    }
    bool Run() override {
        const bool answered = TraceAndLog::Run();
        {
            const InLibrary counted;
            library_.back().Unload();
        }
        StillRunning();
        // A thread that has not ended in time keeps it.
        const bool gone =
            ::dlopen(conformance::LibraryPath().c_str(), RTLD_LAZY | RTLD_NOLOAD) == nullptr;
        return answered && gone;
    }
    void TearDown() override {
        UseApi(nullptr);
        library_.clear();
    }

private:
    std::deque<conformance::LibraryInstance> library_;
};

// ---- configuration -----------------------------------------------------------------------------

// A missing configuration is written; it is beside the library then.
class ConfigWriteBack : public ConstructDestruct {
public:
    void SetUp() override {
        conformance::RemoveFile(conformance::UserConfigPath());
        conformance::RemoveFile(conformance::LibraryConfigPath());
    }
    bool Run() override {
        const bool done = ConstructDestruct::Run();
        return done && conformance::FileSize(conformance::LibraryConfigPath()) > 0;
    }
};

const NamedScenario kScenarios[] = {
    {"ConstructDestruct", Make<ConstructDestruct>},
    {"ConfigWriteBack", Make<ConfigWriteBack>},
    {"SerialScan", Make<SerialScan>},
    {"LinksAndTables", Make<LinksAndTables>},
    {"SingleRequest", Make<SingleRequest>},
    {"FragmentedAnswer", Make<FragmentedAnswer>, true},
    {"FunctionalRequest", Make<FunctionalRequest>},
    {"RawFrames", Make<RawFrames>},
    {"TesterPresent", Make<TesterPresent>},
    {"Cancel", Make<Cancel>},
    {"TraceAndLog", Make<TraceAndLog>},
    {"Unload", Make<Unload>},
};

[[maybe_unused]] const bool added = AddCases(kScenarios);

}  // namespace
}  // namespace torture
