#include "pdu/session.h"

#include <algorithm>
#include <utility>

#include "console/failure.h"
#include "console/interruption.h"
#include "pdu/status_text.h"

namespace dpdu {
namespace {

void PDU_CALL OnEvent(T_PDU_EVT_DATA, UNUM32, UNUM32, void*, void* api_tag) {
    if (api_tag) static_cast<EventSignal*>(api_tag)->Raise();
}

}  // namespace

void EventSignal::Raise() {
    {
        const std::lock_guard hold(lock_);
        raised_ = true;
    }
    changed_.notify_all();
}

bool EventSignal::Wait(std::chrono::milliseconds limit) {
    std::unique_lock hold(lock_);
    const bool was_raised = changed_.wait_for(hold, limit, [this] { return raised_; });
    raised_ = false;
    return was_raised;
}

Session::Session(const pdu::Functions& functions, std::string option_string)
    : functions_(functions), option_string_(std::move(option_string)) {
    CHAR8* options = option_string_.empty() ? nullptr : option_string_.data();
    Check(functions_.Construct(options, &signal_), "PDUConstruct");
    // A library without callbacks is still usable: the queues are also polled.
    functions_.RegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, OnEvent);
}

Session::~Session() {
    functions_.RegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr);
    DiscardQueue(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF);
    functions_.Destruct();
}

std::optional<UNUM32> Session::FindObject(T_PDU_OBJT type, const std::string& name) const {
    return pdu::FindId(functions_, type, name);
}

UNUM32 Session::RequireObject(T_PDU_OBJT type, const std::string& name) const {
    const std::optional<UNUM32> id = FindObject(type, name);
    if (!id) throw Failure("the library does not know the name '" + name + "'");
    return *id;
}

CALLBACKFNC Session::Callback() { return OnEvent; }

void Session::PauseForEvent(std::chrono::milliseconds limit) {
    signal_.Wait(std::min(limit, kInterruptionPoll));
}

void Session::WaitForEvent() {
    PauseForEvent();
    ThrowIfInterrupted();
}

bool Session::TakeEvent(UNUM32 module, UNUM32 link,
                        const std::function<void(const PDU_EVENT_ITEM&)>& look) {
    pdu::Item<PDU_EVENT_ITEM> item(functions_);
    const T_PDU_ERROR status = functions_.GetEventItem(module, link, item.Out());
    if (status != PDU_STATUS_NOERROR || !item) return false;
    look(*item.Get());
    return true;
}

void Session::DrainQueue(UNUM32 module, UNUM32 link,
                         const std::function<void(const PDU_EVENT_ITEM&)>& look) {
    while (TakeEvent(module, link, look)) {
    }
}

void Session::DiscardQueue(UNUM32 module, UNUM32 link) {
    DrainQueue(module, link, [](const PDU_EVENT_ITEM&) {});
}

}  // namespace dpdu
