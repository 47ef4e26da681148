#include "params/known_objects.h"

#include "params/com_param_names.h"
#include "pdu/io_control.h"

namespace dpdu {
namespace {

constexpr ObjectType kTypes[] = {
    {"protocol", "PROTOCOL", PDU_OBJT_PROTOCOL}, {"bus-type", "BUSTYPE", PDU_OBJT_BUSTYPE},
    {"ioctl", "IO_CTRL", PDU_OBJT_IO_CTRL},      {"comparam", "COMPARAM", PDU_OBJT_COMPARAM},
    {"pin-type", "PINTYPE", PDU_OBJT_PINTYPE},   {"resource", "RESOURCE", PDU_OBJT_RESOURCE},
};

struct KnownObject {
    T_PDU_OBJT type;
    const char* name;
};
constexpr KnownObject kKnownObjects[] = {
    {PDU_OBJT_PROTOCOL, "ISO_15765_3_on_ISO_15765_2"},
    {PDU_OBJT_PROTOCOL, "ISO_14229_3_on_ISO_15765_2"},
    {PDU_OBJT_PROTOCOL, "ISO_14229_5_on_ISO_13400_2"},
    {PDU_OBJT_PROTOCOL, "ISO_14230_3_on_ISO_14230_2"},
    {PDU_OBJT_PROTOCOL, "ISO_15031_5_on_ISO_15765_4"},
    {PDU_OBJT_PROTOCOL, "ISO_11898_RAW"},
    {PDU_OBJT_BUSTYPE, "ISO_11898_2_DWCAN"},
    {PDU_OBJT_BUSTYPE, "ISO_11898_3_DWFTCAN"},
    {PDU_OBJT_BUSTYPE, "ISO_14230_1_UART"},
    {PDU_OBJT_BUSTYPE, "IEEE_802_3"},
    {PDU_OBJT_PINTYPE, "HI"},
    {PDU_OBJT_PINTYPE, "LOW"},
    {PDU_OBJT_PINTYPE, "K"},
    {PDU_OBJT_PINTYPE, "L"},
    {PDU_OBJT_PINTYPE, "TX"},
    {PDU_OBJT_PINTYPE, "RX"},
    {PDU_OBJT_PINTYPE, "PLUS"},
    {PDU_OBJT_PINTYPE, "MINUS"},
    {PDU_OBJT_PINTYPE, "SINGLE"},
    {PDU_OBJT_RESOURCE, "ISO_UDS_on_OBD"},
};

}  // namespace

std::span<const ObjectType> ObjectTypes() { return kTypes; }

std::vector<std::string> KnownNames(T_PDU_OBJT type) {
    std::vector<std::string> names;
    if (type == PDU_OBJT_COMPARAM) {
        names.assign(KnownComParamNames().begin(), KnownComParamNames().end());
    } else if (type == PDU_OBJT_IO_CTRL) {
        for (const IoControl& control : IoControls())
            names.emplace_back(control.name);
    } else {
        for (const KnownObject& object : kKnownObjects) {
            if (object.type == type) names.emplace_back(object.name);
        }
    }
    return names;
}

}  // namespace dpdu
