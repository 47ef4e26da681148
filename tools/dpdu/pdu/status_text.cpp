#include "pdu/status_text.h"

#include <cstdio>

#include "dpdu.hpp"

namespace dpdu {
namespace {

struct Meaning {
    T_PDU_ERR_EVT code;
    const char* text;
};

// Libraries use the next two with different meanings; the texts give both.
constexpr Meaning kErrorEventMeanings[] = {
    {PDU_ERR_EVT_NOERROR, "no error"},
    {PDU_ERR_EVT_TX_ERROR, "the request could not be sent or nothing came back"},
    {PDU_ERR_EVT_RX_TIMEOUT, "no answer, or none that was expected"},
    {PDU_ERR_EVT_FRAME_STRUCT, "malformed frame"},
    {PDU_ERR_EVT_TESTER_PRESENT_ERROR, "tester present failed"},
    {PDU_ERR_EVT_RX_ERROR, "receiving failed"},
    {PDU_ERR_EVT_PROT_ERR, "protocol error"},
    {PDU_ERR_EVT_LOST_COMM_TO_VCI, "the module is gone"},
    {PDU_ERR_EVT_VCI_HARDWARE_FAULT, "the module is broken"},
    {PDU_ERR_EVT_INIT_ERROR, "initialisation failed"},
    {PDU_ERR_EVT_RSC_LOCKED, "the resource is locked"},
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

}  // namespace

std::string StatusText(T_PDU_ERROR status) {
    const char* name = pdu::StatusName(status);
    return name ? std::string(name) + " (" + Hex(status) + ")" : "status " + Hex(status);
}

std::string ErrorEventText(T_PDU_ERR_EVT code) {
    const char* name = pdu::ErrorEventName(code);
    for (const Meaning& row : kErrorEventMeanings) {
        if (row.code == code && name) return std::string(row.text) + " (" + name + ")";
    }
    return "error event " + Hex(code);
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
    const char* name = pdu::StateName(state);
    return name ? name : "state " + Hex(state);
}

void Check(T_PDU_ERROR status, const char* function) {
    if (status == PDU_STATUS_NOERROR) return;
    throw Failure(std::string(function) + " failed with " + StatusText(status),
                  IsLoss(status) ? ExitCode::kModuleLost : ExitCode::kFailure);
}

}  // namespace dpdu
