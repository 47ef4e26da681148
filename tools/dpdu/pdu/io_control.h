// The standard's IOCTLs with their inputs and outputs. Input types:
//
//   none        no input
//   number      13800 or 0x35E8
//   bytes       3E80
//   voltage     MILLIVOLTS:PIN
//   filters     pass|block|pass-uudt|block-uudt:NUMBER:MASK:PATTERN, separated by commas
//   queue       SIZE:unlimited|limited|circular
//   vehicle     none|vin|eid[:VALUE[:none|vin|group|all[:MILLISECONDS]]]
//   switch      on|off[:PIN]
//   address     LOGICAL_ADDRESS[:MILLISECONDS]

#ifndef TOOLS_DPDU_PDU_IO_CONTROL_H
#define TOOLS_DPDU_PDU_IO_CONTROL_H

#include <array>
#include <span>
#include <string>
#include <vector>

#include "console/output.h"
#include "dpdu_types.h"
#include "text/hex.h"

namespace dpdu {

// Meaning of the number that an IOCTL returns.
enum class IoMeaning { kNumber, kMillivolts, kIgnition, kPowerMode };

struct IoControl {
    const char* name;        // in the standard
    const char* short_name;  // for users; null: none
    const char* input_type;  // as above
    IoMeaning meaning;
};

std::span<const IoControl> IoControls();

// Finds an IOCTL by either name; null if it is unknown.
const IoControl* FindIoControl(const std::string& name);

// An input item; its records live as long as this object.
class IoInput {
public:
    // Throws UsageError for an unknown type or an invalid value.
    IoInput(const std::string& type, const std::string& text);
    IoInput(const IoInput&) = delete;
    IoInput& operator=(const IoInput&) = delete;

    // Null for the type "none".
    PDU_DATA_ITEM* Get() { return item_.pData ? &item_ : nullptr; }

private:
    friend struct IoInputParsers;

    std::string text_;
    Bytes bytes_;
    UNUM32 number_ = 0;
    PDU_IO_PROG_VOLTAGE_DATA voltage_{};
    PDU_IO_BYTEARRAY_DATA byte_array_{};
    std::vector<PDU_IO_FILTER_DATA> filters_;
    PDU_IO_FILTER_LIST filter_list_{};
    PDU_IO_EVENT_QUEUE_PROPERTY_DATA queue_{};
    PDU_IO_VEHICLE_ID_REQUEST vehicle_{};
    PDU_IO_ETH_SWITCH_STATE switch_{};
    PDU_IO_ENTITY_ADDRESS_DATA address_{};
    PDU_DATA_ITEM item_{};
};

// The output of an IOCTL, as text and as JSON.
std::string IoOutputText(const PDU_DATA_ITEM& output, IoMeaning meaning);
Json IoOutputJson(const PDU_DATA_ITEM& output);

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_IO_CONTROL_H
