#include "links/bare_link.h"

#include "pdu/functions.h"
#include "pdu/status_text.h"

namespace dpdu {
namespace {

// The pins that carry the diagnostic CAN bus on the vehicle connector.
struct Pin {
    const char* type;
    UNUM32 number;
};
constexpr Pin kCanPins[] = {{"HI", 6}, {"LOW", 14}};

// Omits pins of types that the library does not know.
std::vector<PDU_PIN_DATA> CanPins(const Session& session) {
    std::vector<PDU_PIN_DATA> pins;
    for (const Pin& pin : kCanPins) {
        const std::optional<UNUM32> type = session.FindObject(PDU_OBJT_PINTYPE, pin.type);
        if (type) pins.push_back({pin.number, *type});
    }
    return pins;
}

UNUM32 CreateLink(const ConnectedModule& module, const LinkResource& wanted) {
    const Session& session = *module.GetSession();
    std::vector<PDU_PIN_DATA> pins = CanPins(session);
    PDU_RSC_DATA resource = {};
    resource.BusTypeId = session.RequireObject(PDU_OBJT_BUSTYPE, wanted.bus_type);
    resource.ProtocolId = session.RequireObject(PDU_OBJT_PROTOCOL, wanted.protocol);
    resource.NumPinData = static_cast<UNUM32>(pins.size());
    resource.pDLCPinData = pins.data();

    UNUM8 flags[4] = {};
    if (wanted.is_raw) flags[0] = PDU_CREATE_FLAG0_RAW_MODE;
    PDU_FLAG_DATA create_flag = {sizeof flags, flags};
    UNUM32 link = PDU_HANDLE_UNDEF;
    Check(session.Functions().CreateComLogicalLink(module.Handle(), &resource, PDU_ID_UNDEF,
                                                   nullptr, &link, &create_flag),
          "PDUCreateComLogicalLink");
    return link;
}

}  // namespace

BareLink::BareLink(const ConnectedModule& module, const LinkResource& resource)
    : session_(module.GetSession()), handles_{module.Handle(), CreateLink(module, resource)} {
    session_->Functions().RegisterEventCallback(handles_.module, handles_.link,
                                                Session::Callback());
}

BareLink::~BareLink() {
    const pdu::Functions& functions = session_->Functions();
    if (is_connected_) functions.Disconnect(handles_.module, handles_.link);
    functions.RegisterEventCallback(handles_.module, handles_.link, nullptr);
    session_->DiscardQueue(handles_.module, handles_.link);
    functions.DestroyComLogicalLink(handles_.module, handles_.link);
}

void BareLink::Connect() {
    Check(session_->Functions().Connect(handles_.module, handles_.link), "PDUConnect");
    is_connected_ = true;
}

}  // namespace dpdu
