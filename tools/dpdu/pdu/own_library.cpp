#include "pdu/own_library.h"

#include <string_view>

namespace dpdu {

bool IsOwnLibrary(const ConnectedModule& module) {
    constexpr std::string_view kName = "Tarvik D-PDU API";
    PDU_VERSION_DATA version = {};
    if (module.GetSession()->Functions().GetVersion(module.Handle(), &version) !=
        PDU_STATUS_NOERROR) {
        return false;
    }
    const std::string_view field(version.PDUApiSwName, sizeof version.PDUApiSwName);
    return field.substr(0, field.find('\0')) == kName;
}

}  // namespace dpdu
