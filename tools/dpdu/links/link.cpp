#include "links/link.h"

#include "console/failure.h"
#include "console/terminal.h"
#include "links/unique_response_table.h"
#include "params/com_params.h"

namespace dpdu {
namespace {

constexpr UNUM32 kMicrosecondsPerMs = 1000;
constexpr UNUM32 kPhysicalAddressing = 1;
constexpr UNUM32 kFunctionalAddressing = 2;
constexpr SNUM32 kReceiveAllWithinTime = -2;
constexpr std::chrono::milliseconds kStartLimit{5000};
constexpr std::chrono::milliseconds kStopLimit{2000};

}  // namespace

Link::Link(const ConnectedModule& module, const LinkOptions& options)
    : options_(options),
      bare_(module, {options.protocol, options.bus_type}),
      session_(bare_.GetSession()) {}

Link::Link(const ConnectedModule& module, const LinkOptions& options, const LinkTargets& targets)
    : Link(module, options) {
    is_functional_ = targets.functional_id.has_value();
    SetTiming();
    SetTesterPresent();
    TrySetComParam(*session_, Handles(), "CP_RequestAddrMode",
                   std::to_string(is_functional_ ? kFunctionalAddressing : kPhysicalAddressing));
    if (targets.functional_id) SetFunctionalAddress(*targets.functional_id);
    for (const auto& [name, text] : options_.params)
        SetComParam(*session_, Handles(), name, text);
    // Set the identifiers through the table: a link need not read the ComParams after its creation.
    SetUniqueResponseTable(*session_, Handles(), targets.ecus);
    bare_.Connect();
}

Link::~Link() {
    if (is_started_) StopCommunication();
}

void Link::SetTiming() {
    TrySetComParam(*session_, Handles(), "CP_P2Max",
                   std::to_string(options_.p2_ms * kMicrosecondsPerMs));
    // Response pending: wait as long as the control unit asks for.
    TrySetComParam(*session_, Handles(), "CP_RC78Handling", "2");
    if (options_.p2_star_ms) {
        SetComParam(*session_, Handles(), "CP_P2Star",
                    std::to_string(*options_.p2_star_ms * kMicrosecondsPerMs));
    }
}

void Link::SetTesterPresent() {
    if (!options_.tester_present_ms) {
        TrySetComParam(*session_, Handles(), "CP_TesterPresentHandling", "0");
        // Libraries without that switch send nothing if the message is empty.
        TrySetComParam(*session_, Handles(), "CP_TesterPresentMessage", "");
        return;
    }
    TrySetComParam(*session_, Handles(), "CP_TesterPresentHandling", "1");
    TrySetComParam(*session_, Handles(), "CP_TesterPresentReqRsp", "0");
    SetComParam(*session_, Handles(), "CP_TesterPresentMessage",
                HexText(options_.tester_present_message));
    SetComParam(*session_, Handles(), "CP_TesterPresentTime",
                std::to_string(*options_.tester_present_ms * kMicrosecondsPerMs));
}

void Link::SetFunctionalAddress(std::uint32_t can_id) {
    SetComParam(*session_, Handles(), "CP_CanFuncReqId", std::to_string(can_id));
    TrySetComParam(*session_, Handles(), "CP_CanFuncReqFormat",
                   std::to_string(pdu::CanFormat(can_id)));
}

void Link::StartCommunication() {
    if (is_started_) return;
    ComPrimitive start;
    start.type = PDU_COPT_STARTCOMM;
    Execute(session_, Handles(), start, kStartLimit);
    is_started_ = true;
}

UNUM32 Link::BeginCommunication() {
    ComPrimitive start;
    start.type = PDU_COPT_STARTCOMM;
    const UNUM32 handle = StartComPrimitive(*session_, Handles(), start);
    is_started_ = true;
    return handle;
}

Exchange Link::Request(const Bytes& request, const std::vector<ExpectedResponse>& expected) {
    StartCommunication();
    return Execute(session_, Handles(), RequestPrimitive(request, expected), options_.limit);
}

ComPrimitive Link::RequestPrimitive(const Bytes& request,
                                    const std::vector<ExpectedResponse>& expected) const {
    ComPrimitive primitive;
    primitive.request = request;
    primitive.expected = expected;
    if (is_functional_) primitive.receive_cycles = kReceiveAllWithinTime;
    return primitive;
}

// Also ends tester present in the dongle, so that has to happen even when the user wants to leave.
void Link::StopCommunication() noexcept {
    if (WasInterrupted() && !options_.tester_present_ms) return;
    try {
        ComPrimitive stop;
        stop.type = PDU_COPT_STOPCOMM;
        stop.ends_on_interruption = false;
        Execute(session_, Handles(), stop, kStopLimit);
    } catch (const Failure&) {
        // The request's own outcome matters more than that of the farewell.
    }
}

}  // namespace dpdu
