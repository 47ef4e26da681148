#include "pdu/status_text.h"

#include <cstdio>
namespace dpdu {
namespace {

struct Name {
    UNUM32 value;
    const char* text;
};

#define NAME(constant) \
    { constant, #constant }
constexpr Name kStatusNames[] = {
    NAME(PDU_STATUS_NOERROR),
    NAME(PDU_ERR_FCT_FAILED),
    NAME(PDU_ERR_RESERVED_1),
    NAME(PDU_ERR_COMM_PC_TO_VCI_FAILED),
    NAME(PDU_ERR_PDUAPI_NOT_CONSTRUCTED),
    NAME(PDU_ERR_SHARING_VIOLATION),
    NAME(PDU_ERR_RESOURCE_BUSY),
    NAME(PDU_ERR_RESOURCE_TABLE_CHANGED),
    NAME(PDU_ERR_RESOURCE_ERROR),
    NAME(PDU_ERR_CLL_NOT_CONNECTED),
    NAME(PDU_ERR_CLL_NOT_STARTED),
    NAME(PDU_ERR_INVALID_PARAMETERS),
    NAME(PDU_ERR_INVALID_HANDLE),
    NAME(PDU_ERR_VALUE_NOT_SUPPORTED),
    NAME(PDU_ERR_ID_NOT_SUPPORTED),
    NAME(PDU_ERR_COMPARAM_NOT_SUPPORTED),
    NAME(PDU_ERR_COMPARAM_LOCKED),
    NAME(PDU_ERR_TX_QUEUE_FULL),
    NAME(PDU_ERR_EVENT_QUEUE_EMPTY),
    NAME(PDU_ERR_VOLTAGE_NOT_SUPPORTED),
    NAME(PDU_ERR_MUX_RSC_NOT_SUPPORTED),
    NAME(PDU_ERR_CABLE_UNKNOWN),
    NAME(PDU_ERR_NO_CABLE_DETECTED),
    NAME(PDU_ERR_CLL_CONNECTED),
    NAME(PDU_ERR_TEMPPARAM_NOT_ALLOWED),
    NAME(PDU_ERR_RSC_LOCKED),
    NAME(PDU_ERR_RSC_LOCKED_BY_OTHER_CLL),
    NAME(PDU_ERR_RSC_NOT_LOCKED),
    NAME(PDU_ERR_MODULE_NOT_CONNECTED),
    NAME(PDU_ERR_API_SW_OUT_OF_DATE),
    NAME(PDU_ERR_MODULE_FW_OUT_OF_DATE),
    NAME(PDU_ERR_PIN_NOT_CONNECTED),
    NAME(PDU_ERR_IP_PROTOCOL_NOT_SUPPORTED),
    NAME(PDU_ERR_DOIP_ROUTING_ACTIVATION_FAILED),
    NAME(PDU_ERR_DOIP_ROUTING_ACTIVATION_AUTHENTICATION_FAILED),
    NAME(PDU_ERR_DOIP_AMBIGUOUS_LOGICAL_ADDRESS),
    NAME(PDU_ERR_DOIP_ROUTING_ACTIVATION_INVALID_SOURCE_ADDRESS),
    NAME(PDU_ERR_DOIP_ROUTING_ACTIVATION_NO_DATA_SOCKET_AVAILABLE),
    NAME(PDU_ERR_DOIP_ROUTING_ACTIVATION_SOURCE_ADDRESS_CHANGED),
    NAME(PDU_ERR_DOIP_ROUTING_ACTIVATION_SOURCE_ADDRESS_IN_USE),
    NAME(PDU_ERR_DOIP_ROUTING_ACTIVATION_CONFIRMATION_REJECTED),
    NAME(PDU_ERR_DOIP_ROUTING_ACTIVATION_TYPE_UNSUPPORTED),
    NAME(PDU_ERR_DOIP_ROUTING_ACTIVATION_RESPONSE_CODE_UNKNOWN),
    NAME(PDU_ERR_DOIP_ROUTING_ACTIVATION_RESPONSE_TIMEOUT),
    NAME(PDU_ERR_DOIP_RESPONSE_TIMEOUT),
    NAME(PDU_ERR_TLS_REQUIRED),
    NAME(PDU_ERR_TLS_CONF_INCOMPLETE),
    NAME(PDU_ERR_TLS_VERSION_AGREEMENT_FAILED),
    NAME(PDU_ERR_TLS_CIPHER_AGREEMENT_FAILED),
    NAME(PDU_ERR_TLS_CERT_VERIFY_FAILED),
    NAME(PDU_ERR_TLS_VERSION_NOT_SUPPORTED),
    NAME(PDU_ERR_TLS_CIPHER_NOT_SUPPORTED),
};

constexpr Name kStateNames[] = {
    NAME(PDU_COPST_IDLE),      NAME(PDU_COPST_EXECUTING),    NAME(PDU_COPST_FINISHED),
    NAME(PDU_COPST_CANCELLED), NAME(PDU_COPST_WAITING),      NAME(PDU_CLLST_OFFLINE),
    NAME(PDU_CLLST_ONLINE),    NAME(PDU_CLLST_COMM_STARTED), NAME(PDU_MODST_READY),
    NAME(PDU_MODST_NOT_READY), NAME(PDU_MODST_NOT_AVAIL),    NAME(PDU_MODST_AVAIL),
};
#undef NAME

// Libraries use the first two with different meanings; the text gives both.
constexpr Name kErrorEventNames[] = {
    {PDU_ERR_EVT_NOERROR, "no error (PDU_ERR_EVT_NOERROR)"},
    {PDU_ERR_EVT_TX_ERROR,
     "the request could not be sent or nothing came back "
     "(PDU_ERR_EVT_TX_ERROR)"},
    {PDU_ERR_EVT_RX_TIMEOUT, "no answer, or none that was expected (PDU_ERR_EVT_RX_TIMEOUT)"},
    {PDU_ERR_EVT_FRAME_STRUCT, "malformed frame (PDU_ERR_EVT_FRAME_STRUCT)"},
    {PDU_ERR_EVT_TESTER_PRESENT_ERROR, "tester present failed (PDU_ERR_EVT_TESTER_PRESENT_ERROR)"},
    {PDU_ERR_EVT_RX_ERROR, "receiving failed (PDU_ERR_EVT_RX_ERROR)"},
    {PDU_ERR_EVT_PROT_ERR, "protocol error (PDU_ERR_EVT_PROT_ERR)"},
    {PDU_ERR_EVT_LOST_COMM_TO_VCI, "the module is gone (PDU_ERR_EVT_LOST_COMM_TO_VCI)"},
    {PDU_ERR_EVT_VCI_HARDWARE_FAULT, "the module is broken (PDU_ERR_EVT_VCI_HARDWARE_FAULT)"},
    {PDU_ERR_EVT_INIT_ERROR, "initialisation failed (PDU_ERR_EVT_INIT_ERROR)"},
    {PDU_ERR_EVT_RSC_LOCKED, "the resource is locked (PDU_ERR_EVT_RSC_LOCKED)"},
};

std::string Hex(UNUM32 value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%02X", value);
    return text;
}

// What libraries report for a connected module that has gone.
bool IsLoss(T_PDU_ERROR status) {
    return status == PDU_ERR_COMM_PC_TO_VCI_FAILED || status == PDU_ERR_MODULE_NOT_CONNECTED;
}

template <std::size_t kCount>
const char* FindName(const Name (&names)[kCount], UNUM32 value) {
    for (const Name& name : names) {
        if (name.value == value) return name.text;
    }
    return nullptr;
}

}  // namespace

std::string StatusText(T_PDU_ERROR status) {
    const char* name = FindName(kStatusNames, status);
    return name ? std::string(name) + " (" + Hex(status) + ")" : "status " + Hex(status);
}

std::string ErrorEventText(T_PDU_ERR_EVT code) {
    const char* name = FindName(kErrorEventNames, code);
    return name ? name : "error event " + Hex(code);
}

ExitCode ErrorEventCode(T_PDU_ERR_EVT code) {
    switch (code) {
        case PDU_ERR_EVT_LOST_COMM_TO_VCI:
            return ExitCode::kModuleLost;
        case PDU_ERR_EVT_TX_ERROR:
        case PDU_ERR_EVT_RX_TIMEOUT:
            return ExitCode::kNoAnswer;
        default:
            return ExitCode::kFailure;
    }
}

std::string StateText(T_PDU_STATUS state) {
    const char* name = FindName(kStateNames, state);
    return name ? name : "state " + Hex(state);
}

void Check(T_PDU_ERROR status, const char* function) {
    if (status == PDU_STATUS_NOERROR) return;
    throw Failure(std::string(function) + " failed with " + StatusText(status),
                  IsLoss(status) ? ExitCode::kModuleLost : ExitCode::kFailure);
}

}  // namespace dpdu
