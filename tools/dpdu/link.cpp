#include "link.h"

#include "failure.h"
#include "terminal.h"
#include "unique_response_table.h"

namespace dpdu {
namespace {

constexpr UNUM32 kMicrosecondsPerMs = 1000;
constexpr UNUM32 kPhysicalAddressing = 1;
constexpr UNUM32 kFunctionalAddressing = 2;
constexpr SNUM32 kReceiveAllWithinTime = -2;
constexpr std::chrono::milliseconds kStartLimit{5000};
constexpr std::chrono::milliseconds kStopLimit{2000};

// The pins that carry the diagnostic CAN bus on the vehicle connector.
struct Pin {
    const char* type;
    UNUM32 number;
};
constexpr Pin kCanPins[] = {{"HI", 6}, {"LOW", 14}};

// Pins of types that the library does not know are left out.
std::vector<PDU_PIN_DATA> CanPins(const Session& session) {
    std::vector<PDU_PIN_DATA> pins;
    for (const Pin& pin : kCanPins) {
        const std::optional<UNUM32> type = session.FindObject(PDU_OBJT_PINTYPE, pin.type);
        if (type) pins.push_back({pin.number, *type});
    }
    return pins;
}

UNUM32 CreateLink(const ConnectedModule& module, const LinkOptions& options) {
    const Session& session = *module.GetSession();
    std::vector<PDU_PIN_DATA> pins = CanPins(session);
    PDU_RSC_DATA resource = {};
    resource.BusTypeId = session.RequireObject(PDU_OBJT_BUSTYPE, options.bus_type);
    resource.ProtocolId = session.RequireObject(PDU_OBJT_PROTOCOL, options.protocol);
    resource.NumPinData = static_cast<UNUM32>(pins.size());
    resource.pDLCPinData = pins.data();

    UNUM8 flags[4] = {0, 0, 0, 0};
    PDU_FLAG_DATA create_flag = {sizeof flags, flags};
    UNUM32 link = PDU_HANDLE_UNDEF;
    Check(session.Functions().CreateComLogicalLink(module.Handle(), &resource, PDU_ID_UNDEF,
                                                   nullptr, &link, &create_flag),
          "PDUCreateComLogicalLink");
    return link;
}

}  // namespace

Link::Link(const ConnectedModule& module, const LinkOptions& options)
    : session_(module.GetSession()),
      options_(options),
      handles_{module.Handle(), CreateLink(module, options)} {}

// The link exists once the constructor that this one delegates to has returned, so that the
// destructor releases it even when a step below throws.
Link::Link(const ConnectedModule& module, const LinkOptions& options, const LinkTargets& targets)
    : Link(module, options) {
    is_functional_ = targets.functional_id.has_value();
    const PduFunctions& functions = session_->Functions();
    functions.RegisterEventCallback(handles_.module, handles_.link, Session::Callback());

    SetTiming();
    SetTesterPresent();
    TrySetComParam(*session_, handles_, "CP_RequestAddrMode",
                   std::to_string(is_functional_ ? kFunctionalAddressing : kPhysicalAddressing));
    if (targets.functional_id) SetFunctionalAddress(*targets.functional_id);
    for (const auto& [name, text] : options_.params)
        SetComParam(*session_, handles_, name, text);
    // The identifiers go through the table because a link need not look at the ComParams any more
    // once it exists.
    SetUniqueResponseTable(*session_, handles_, targets.ecus);

    Check(functions.Connect(handles_.module, handles_.link), "PDUConnect");
    is_connected_ = true;
}

Link::~Link() {
    const PduFunctions& functions = session_->Functions();
    if (is_started_) StopCommunication();
    if (is_connected_) functions.Disconnect(handles_.module, handles_.link);
    functions.RegisterEventCallback(handles_.module, handles_.link, nullptr);
    session_->DiscardQueue(handles_.module, handles_.link);
    functions.DestroyComLogicalLink(handles_.module, handles_.link);
}

void Link::SetTiming() {
    TrySetComParam(*session_, handles_, "CP_P2Max",
                   std::to_string(options_.p2_ms * kMicrosecondsPerMs));
    // Response pending: wait as long as the control unit asks for it.
    TrySetComParam(*session_, handles_, "CP_RC78Handling", "2");
    if (options_.p2_star_ms) {
        SetComParam(*session_, handles_, "CP_P2Star",
                    std::to_string(*options_.p2_star_ms * kMicrosecondsPerMs));
    }
}

void Link::SetTesterPresent() {
    if (!options_.tester_present_ms) {
        TrySetComParam(*session_, handles_, "CP_TesterPresentHandling", "0");
        // Libraries without that switch send no message when there is none.
        TrySetComParam(*session_, handles_, "CP_TesterPresentMessage", "");
        return;
    }
    TrySetComParam(*session_, handles_, "CP_TesterPresentHandling", "1");
    TrySetComParam(*session_, handles_, "CP_TesterPresentReqRsp", "0");
    SetComParam(*session_, handles_, "CP_TesterPresentMessage", "3E80");
    SetComParam(*session_, handles_, "CP_TesterPresentTime",
                std::to_string(*options_.tester_present_ms * kMicrosecondsPerMs));
}

void Link::SetFunctionalAddress(std::uint32_t can_id) {
    SetComParam(*session_, handles_, "CP_CanFuncReqId", std::to_string(can_id));
    TrySetComParam(*session_, handles_, "CP_CanFuncReqFormat", std::to_string(CanFormat(can_id)));
}

Exchange Link::Request(const Bytes& request, const std::vector<ExpectedResponse>& expected) {
    if (!is_started_) {
        ComPrimitive start;
        start.type = PDU_COPT_STARTCOMM;
        Execute(session_, handles_, start, kStartLimit);
        is_started_ = true;
    }
    ComPrimitive primitive;
    primitive.request = request;
    primitive.expected = expected;
    if (is_functional_) primitive.receive_cycles = kReceiveAllWithinTime;
    return Execute(session_, handles_, primitive, options_.limit);
}

// Also ends tester present in the dongle, so that has to happen even when the user wants to leave.
void Link::StopCommunication() noexcept {
    if (WasInterrupted() && !options_.tester_present_ms) return;
    try {
        ComPrimitive stop;
        stop.type = PDU_COPT_STOPCOMM;
        stop.ends_on_interruption = false;
        Execute(session_, handles_, stop, kStopLimit);
    } catch (const Failure&) {
        // The request's own outcome matters more than that of the farewell.
    }
}

}  // namespace dpdu
