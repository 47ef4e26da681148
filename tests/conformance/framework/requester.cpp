#include "conformance/framework/requester.h"

#include <gtest/gtest.h>

#include "conformance/framework/items.h"
#include "conformance/framework/waiting.h"

namespace conformance {

Requester::Requester(UNUM32 hMod, UNUM32 request_id, UNUM32 response_id)
    : Requester(hMod, UniqueTable().ControlUnit(1, request_id, response_id)) {}

Requester::Requester(UNUM32 hMod, UniqueTable& table) : link_(hMod, this) {
    EXPECT_EQ(Pdu().PDUSetUniqueRespIdTable(hMod, link_.hCLL(), table.Item()), PDU_STATUS_NOERROR);
    link_.Connect();
    link_.DropEvents();
    EXPECT_EQ(Pdu().PDURegisterEventCallback(hMod, link_.hCLL(), OnEvent), PDU_STATUS_NOERROR);
}

void PDU_CALL Requester::OnEvent(T_PDU_EVT_DATA, UNUM32, UNUM32, void* requester, void*) {
    auto* self = static_cast<Requester*>(requester);
    const std::lock_guard hold(self->lock_);
    self->was_called_ = true;
    self->called_.notify_one();
}

bool Requester::TakeEvents(Outcome* outcome) {
    while (const auto event = NextEvent(link_.hMod(), link_.hCLL())) {
        if (event->hCop != outcome->hCoP) {
            ADD_FAILURE() << "an event of ComPrimitive " << event->hCop << " in place of "
                          << outcome->hCoP;
            continue;
        }
        outcome->Add(*event);
    }
    return outcome->IsFinal();
}

Outcome Requester::Request(const std::vector<UNUM8>& data) {
    Outcome outcome;
    outcome.hCoP = link_.Start(PDU_COPT_SENDRECV, data, control_.Data());
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!TakeEvents(&outcome)) {
        std::unique_lock hold(lock_);
        if (!called_.wait_until(hold, deadline, [this] { return was_called_; })) break;
        was_called_ = false;
    }
    return outcome;
}

}  // namespace conformance
