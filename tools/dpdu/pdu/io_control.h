// The IOCTLs of the standard, what they take, and what they give back.
//
//   none        no input
//   number      13800 or 0x35E8
//   bytes       3E80
//   voltage     MILLIVOLTS:PIN
//   filters     pass|block|pass-uudt|block-uudt:NUMBER:MASK:PATTERN, comma between
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

// What the number that an IOCTL gives back means.
enum class IoMeaning { kNumber, kMillivolts, kIgnition, kPowerMode };

struct IoControl {
    const char* name;        // of the standard
    const char* short_name;  // for people; null: none
    const char* input_type;  // as above
    IoMeaning meaning;
};

std::span<const IoControl> IoControls();

// By either name; null when there is none.
const IoControl* FindIoControl(const std::string& name);

// An input item, whose records live as long as this object.
class IoInput {
public:
    // Throws UsageError for an unknown type or a text that is no value of it.
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

// What an IOCTL gave back, for people and as JSON.
std::string IoOutputText(const PDU_DATA_ITEM& output, IoMeaning meaning);
Json IoOutputJson(const PDU_DATA_ITEM& output);

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_IO_CONTROL_H
