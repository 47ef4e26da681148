#include "torture/session.h"

#include "conformance/framework/items.h"
#include "conformance/framework/vehicle.h"

namespace torture {

// A configuration that cannot be read switches everything on. The log file then stays open.
void Session::Prepare() {
    conformance::Settings().Store();
    Construct();
    Destruct();
}

bool Session::Construct() {
    constructed_ = CALL(PDUConstruct, nullptr, nullptr) == PDU_STATUS_NOERROR;
    return constructed_;
}

bool Session::TakeFirstModule() {
    PDU_MODULE_ITEM* modules = nullptr;
    if (CALL(PDUGetModuleIds, &modules) != PDU_STATUS_NOERROR) return false;
    const bool found = modules != nullptr && modules->NumEntries > 0;
    if (found) hMod_ = modules->pModuleData[0].hMod;
    CALL(PDUDestroyItem, reinterpret_cast<PDU_ITEM*>(modules));
    return found;
}

bool Session::FindModule() {
    hMod_ = PDU_HANDLE_UNDEF;
    const bool found = IsArmed() ? Eventually([this] { return TakeFirstModule(); })
                                 : conformance::EventuallyConnected([this] {
                                       StillRunning();
                                       return TakeFirstModule();
                                   });
    return found && CALL(PDUModuleConnect, hMod_) == PDU_STATUS_NOERROR;
}

bool Session::Destruct() {
    if (!constructed_) return true;
    constructed_ = false;
    return CALL(PDUDestruct) == PDU_STATUS_NOERROR;
}

void LinkScenario::SetUp() {
    ResetDevice();
    Store();
    if (!Construct() || !FindModule()) {
        NoteBad("no module is found");
        return;
    }
    link_ = MakeLink();
}

std::unique_ptr<conformance::Link> LinkScenario::MakeLink() {
    return std::make_unique<conformance::EngineLink>(hMod_);
}

void LinkScenario::TearDown() {
    link_.reset();
    Session::TearDown();
}

UNUM32 LinkScenario::Start(UNUM32 type, const std::vector<UNUM8>& data,
                           conformance::ControlData* control) {
    UNUM32 hCoP = PDU_HANDLE_UNDEF;
    CALL(PDUStartComPrimitive, hMod_, link_->hCLL(), type, static_cast<UNUM32>(data.size()),
         const_cast<UNUM8*>(data.data()), control == nullptr ? nullptr : control->Data(), nullptr,
         &hCoP);
    return hCoP;
}

bool LinkScenario::Await(UNUM32 hCoP, Answers* answers) {
    if (hCoP == PDU_HANDLE_UNDEF) return false;
    return Eventually([&] {
        PDU_EVENT_ITEM* event = nullptr;
        while (CALL(PDUGetEventItem, hMod_, link_->hCLL(), &event) == PDU_STATUS_NOERROR) {
            if (event->hCop == hCoP) {
                answers->results += event->ItemType == PDU_IT_RESULT ? 1 : 0;
                answers->errors += event->ItemType == PDU_IT_ERROR ? 1 : 0;
                const UNUM32 state =
                    event->ItemType == PDU_IT_STATUS ? conformance::StatusOf(*event) : 0;
                answers->is_final = state == PDU_COPST_FINISHED || state == PDU_COPST_CANCELLED;
            }
            CALL(PDUDestroyItem, reinterpret_cast<PDU_ITEM*>(event));
            if (answers->is_final) return true;
        }
        return false;
    });
}

bool LinkScenario::AwaitResults(int count) {
    return Eventually([&] {
        PDU_EVENT_ITEM* event = nullptr;
        while (CALL(PDUGetEventItem, hMod_, link_->hCLL(), &event) == PDU_STATUS_NOERROR) {
            count -= event->ItemType == PDU_IT_RESULT ? 1 : 0;
            CALL(PDUDestroyItem, reinterpret_cast<PDU_ITEM*>(event));
            if (count <= 0) return true;
        }
        return false;
    });
}

}  // namespace torture
