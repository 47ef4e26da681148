#include "raw/raw_link.h"

#include "console/failure.h"
#include "console/terminal.h"
#include "params/com_params.h"
#include "pdu/link_handles.h"
#include "pdu/status_text.h"

namespace dpdu {
namespace {

constexpr SNUM32 kEndless = -1;
constexpr std::chrono::milliseconds kSendLimit{10'000};

void ThrowError(const PDU_EVENT_ITEM& item) {
    const T_PDU_ERR_EVT code = static_cast<const PDU_ERROR_DATA*>(item.pData)->ErrorCodeId;
    throw Failure(ErrorEventText(code), ErrorEventCode(code));
}

}  // namespace

LinkOptions RawLinkOptions() {
    LinkOptions options;
    options.protocol = "ISO_11898_RAW";
    return options;
}

RawLink::RawLink(const ConnectedModule& module, const LinkOptions& options)
    : bare_(module, {options.protocol, options.bus_type, true}), session_(bare_.GetSession()) {
    for (const auto& [name, text] : options.params)
        SetComParam(*session_, bare_.Handles(), name, text);
    bare_.Connect();
}

void RawLink::Send(const CanFrame& frame, T_PDU_COPT type) {
    ComPrimitive primitive;
    primitive.type = type;
    primitive.request = RawBytes(frame);
    primitive.is_29_bit = frame.is_29_bit;
    primitive.receive_cycles = 0;
    StartComPrimitive(*session_, bare_.Handles(), primitive);
}

// A library need not report the end of a ComPrimitive that sends a frame, but it processes them in
// order and reports the end of this one.
void RawLink::FinishSending() {
    ComPrimitive last;
    last.type = PDU_COPT_UPDATEPARAM;
    last.ends_on_interruption = false;
    const Exchange exchange = Execute(session_, bare_.Handles(), last, kSendLimit);
    if (!exchange.error.empty()) throw Failure(exchange.error, exchange.code);
}

void RawLink::StartListening() {
    ComPrimitive primitive;
    primitive.type = PDU_COPT_SENDRECV;
    primitive.send_cycles = 0;
    primitive.receive_cycles = kEndless;
    primitive.expected = {ExpectedResponse{}};  // anything
    StartComPrimitive(*session_, bare_.Handles(), primitive);
}

// Ignores the state of the ComPrimitive: a library may report it finished and continue to receive.
void RawLink::TakeFrames(const std::function<void(const CanFrame&, UNUM32)>& look) {
    const auto look_at_item = [&look](const PDU_EVENT_ITEM& item) {
        if (!item.pData) return;
        if (item.ItemType == PDU_IT_ERROR) ThrowError(item);
        if (item.ItemType != PDU_IT_RESULT) return;
        if (const std::optional<CanFrame> frame = ReadFrame(item)) look(*frame, item.Timestamp);
    };
    const LinkHandles& handles = bare_.Handles();
    // On a busy bus frames may arrive as fast as they are taken.
    while (!WasInterrupted() && session_->TakeEvent(handles.module, handles.link, look_at_item)) {
    }
    session_->DiscardQueue(handles.module, PDU_HANDLE_UNDEF);
    session_->DiscardQueue(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF);
}

}  // namespace dpdu
