#include "pdu/io_control.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

#include "console/failure.h"
#include "text/split.h"

namespace dpdu {
namespace {

constexpr IoMeaning kNumber = IoMeaning::kNumber;

constexpr IoControl kControls[] = {
    {"PDU_IOCTL_RESET", "reset", "none", kNumber},
    {"PDU_IOCTL_CLEAR_TX_QUEUE", "clear-tx-queue", "none", kNumber},
    {"PDU_IOCTL_SUSPEND_TX_QUEUE", "suspend-tx-queue", "none", kNumber},
    {"PDU_IOCTL_RESUME_TX_QUEUE", "resume-tx-queue", "none", kNumber},
    {"PDU_IOCTL_CLEAR_RX_QUEUE", "clear-rx-queue", "none", kNumber},
    {"PDU_IOCTL_READ_VBATT", "battery", "none", IoMeaning::kMillivolts},
    {"PDU_IOCTL_SET_PROG_VOLTAGE", "set-voltage", "voltage", kNumber},
    {"PDU_IOCTL_READ_PROG_VOLTAGE", "voltage", "none", IoMeaning::kMillivolts},
    {"PDU_IOCTL_GENERIC", "generic", "bytes", kNumber},
    {"PDU_IOCTL_SET_BUFFER_SIZE", "buffer-size", "number", kNumber},
    {"PDU_IOCTL_START_MSG_FILTER", "start-filter", "filters", kNumber},
    {"PDU_IOCTL_CLEAR_MSG_FILTER", "clear-filters", "none", kNumber},
    {"PDU_IOCTL_STOP_MSG_FILTER", "stop-filter", "number", kNumber},
    {"PDU_IOCTL_SET_EVENT_QUEUE_PROPERTIES", "event-queue", "queue", kNumber},
    {"PDU_IOCTL_GET_CABLE_ID", "cable", "none", kNumber},
    {"PDU_IOCTL_SEND_BREAK", "break", "none", kNumber},
    {"PDU_IOCTL_READ_IGNITION_SENSE_STATE", "ignition", "number", IoMeaning::kIgnition},
    {"PDU_IOCTL_VEHICLE_ID_REQUEST", "vehicle-id", "vehicle", kNumber},
    {"PDU_IOCTL_SET_ETH_SWITCH_STATE", "ethernet-switch", "switch", kNumber},
    {"PDU_IOCTL_GET_ENTITY_STATUS", "entity-status", "address", kNumber},
    {"PDU_IOCTL_GET_DIAGNOSTIC_POWER_MODE", "power-mode", "address", IoMeaning::kPowerMode},
    {"PDU_IOCTL_GET_ETH_PIN_OPTION", "ethernet-pins", "none", kNumber},
    {"PDU_IOCTL_TLS_SET_CERTIFICATE", nullptr, "none", kNumber},
    {"PDU_IOCTL_TLS_GET_CURRENT_SESSION_MODE", "tls-mode", "none", kNumber},
    {"PDU_IOCTL_ISOBUS_GET_DETECTED_CFS", "isobus-functions", "none", kNumber},
};

// A word in an input and its value.
struct Word {
    const char* text;
    UNUM32 value;
};

constexpr Word kFilterTypes[] = {{"pass", PDU_FLT_PASS},
                                 {"block", PDU_FLT_BLOCK},
                                 {"pass-uudt", PDU_FLT_PASS_UUDT},
                                 {"block-uudt", PDU_FLT_BLOCK_UUDT}};
constexpr Word kQueueModes[] = {
    {"unlimited", PDU_QUE_UNLIMITED}, {"limited", PDU_QUE_LIMITED}, {"circular", PDU_QUE_CIRCULAR}};
constexpr Word kSelections[] = {{"none", 0}, {"vin", 1}, {"eid", 2}};
constexpr Word kCombinations[] = {{"none", 0}, {"vin", 1}, {"group", 2}, {"all", 3}};
constexpr Word kSwitchStates[] = {{"off", 0}, {"on", 1}};

constexpr UNUM32 kUsualSwitchPin = 8;
constexpr UNUM32 kUsualDiscoveryMs = 1000;
constexpr UNUM32 kUsualEntityMs = 2000;

// The fields of one value, read from left to right.
class Fields {
public:
    Fields(const std::string& text, const char* form) : text_(text), form_(form) {
        parts_ = Split(text, ':');
    }

    UNUM32 Number(std::optional<UNUM32> usual = std::nullopt) {
        if (IsAtEnd() && usual) return *usual;
        const std::optional<UNUM32> number = ParseNumber(Next());
        if (!number) Refuse();
        return *number;
    }

    template <std::size_t kCount>
    UNUM32 OneOf(const Word (&words)[kCount], std::optional<UNUM32> usual = std::nullopt) {
        if (IsAtEnd() && usual) return *usual;
        const std::string text = Next();
        for (const Word& word : words) {
            if (text == word.text) return word.value;
        }
        Refuse();
    }

    Bytes ByteRow() {
        const std::optional<Bytes> bytes = ParseHex(Next());
        if (!bytes || bytes->empty()) Refuse();
        return *bytes;
    }

    std::string Text() { return IsAtEnd() ? "" : Next(); }

    void End() {
        if (!IsAtEnd()) Refuse();
    }

    [[noreturn]] void Refuse() {
        throw UsageError("'" + text_ + "' is not an input of the form " + form_);
    }

private:
    bool IsAtEnd() const { return at_ == parts_.size(); }

    const std::string& Next() {
        if (IsAtEnd()) Refuse();
        return parts_[at_++];
    }

    std::string text_;
    const char* form_;
    std::vector<std::string> parts_;
    std::size_t at_ = 0;
};

PDU_IO_FILTER_DATA ParseFilter(const std::string& text) {
    Fields fields(text, "pass|block|pass-uudt|block-uudt:NUMBER:MASK:PATTERN");
    PDU_IO_FILTER_DATA filter = {};
    filter.FilterType = fields.OneOf(kFilterTypes);
    filter.FilterNumber = fields.Number();
    const Bytes mask = fields.ByteRow();
    const Bytes pattern = fields.ByteRow();
    fields.End();
    if (mask.size() != pattern.size() || mask.size() > sizeof filter.FilterMaskMessage) {
        throw UsageError("in '" + text + "' mask and pattern need the same length, at most 12");
    }
    filter.FilterCompareSize = static_cast<UNUM32>(mask.size());
    std::copy(mask.begin(), mask.end(), filter.FilterMaskMessage);
    std::copy(pattern.begin(), pattern.end(), filter.FilterPatternMessage);
    return filter;
}

const UNUM32* NumberIn(const PDU_DATA_ITEM& output) {
    return output.ItemType == PDU_IT_IO_UNUM32 ? static_cast<const UNUM32*>(output.pData) : nullptr;
}

Bytes BytesIn(const PDU_DATA_ITEM& output) {
    const auto* array = static_cast<const PDU_IO_BYTEARRAY_DATA*>(output.pData);
    if (!array->pData) return {};
    return Bytes(array->pData, array->pData + array->DataSize);
}

std::string NumberText(UNUM32 value, IoMeaning meaning) {
    switch (meaning) {
        case IoMeaning::kMillivolts: {
            char text[40];
            std::snprintf(text, sizeof text, "%u.%03u V", value / 1000, value % 1000);
            return text;
        }
        case IoMeaning::kIgnition:
            return value == 0 ? "off" : value == 1 ? "on" : std::to_string(value);
        case IoMeaning::kPowerMode:
            return value == 0 ? "not ready" : value == 1 ? "ready" : std::to_string(value);
        case IoMeaning::kNumber:
            break;
    }
    return std::to_string(value);
}

}  // namespace

std::span<const IoControl> IoControls() { return kControls; }

const IoControl* FindIoControl(const std::string& name) {
    for (const IoControl& control : kControls) {
        if (name == control.name || (control.short_name && name == control.short_name)) {
            return &control;
        }
    }
    return nullptr;
}

// One function per input type; each fills its record and lets the item point to it.
struct IoInputParsers {
    static void None(IoInput* input) {
        if (!input->text_.empty()) throw UsageError("this command takes no input");
    }
    static void Number(IoInput* input) {
        if (input->text_.empty()) return;  // omitted: the library uses its own default
        Fields fields(input->text_, "NUMBER");
        input->number_ = fields.Number();
        fields.End();
        input->item_ = {PDU_IT_IO_UNUM32, &input->number_};
    }
    static void ByteArray(IoInput* input) {
        Fields fields(input->text_, "HEXADECIMAL BYTES");
        input->bytes_ = fields.ByteRow();
        fields.End();
        input->byte_array_ = {static_cast<UNUM32>(input->bytes_.size()), input->bytes_.data()};
        input->item_ = {PDU_IT_IO_BYTEARRAY, &input->byte_array_};
    }
    static void Voltage(IoInput* input) {
        Fields fields(input->text_, "MILLIVOLTS:PIN");
        input->voltage_.ProgVoltage_mv = fields.Number();
        input->voltage_.PinOnDLC = fields.Number();
        fields.End();
        input->item_ = {PDU_IT_IO_PROG_VOLTAGE, &input->voltage_};
    }
    static void Filters(IoInput* input) {
        for (const std::string& text : Split(input->text_, ','))
            input->filters_.push_back(ParseFilter(text));
        input->filter_list_ = {static_cast<UNUM32>(input->filters_.size()), input->filters_.data()};
        input->item_ = {PDU_IT_IO_FILTER, &input->filter_list_};
    }
    static void Queue(IoInput* input) {
        Fields fields(input->text_, "SIZE:unlimited|limited|circular");
        input->queue_.QueueSize = fields.Number();
        input->queue_.QueueMode = fields.OneOf(kQueueModes);
        fields.End();
        input->item_ = {PDU_IT_IO_EVENT_QUEUE_PROPERTY, &input->queue_};
    }
    static void Vehicle(IoInput* input) {
        Fields fields(input->text_.empty() ? "none" : input->text_,
                      "none|vin|eid[:VALUE[:none|vin|group|all[:MILLISECONDS]]]");
        input->vehicle_.PreselectionMode = fields.OneOf(kSelections);
        input->text_ = fields.Text();
        input->vehicle_.PreselectionValue = input->text_.data();
        input->vehicle_.CombinationMode = fields.OneOf(kCombinations, 0);
        input->vehicle_.VehicleDiscoveryTime = fields.Number(kUsualDiscoveryMs);
        fields.End();
        input->item_ = {PDU_IT_IO_VEHICLE_ID_REQUEST, &input->vehicle_};
    }
    static void Switch(IoInput* input) {
        Fields fields(input->text_, "on|off[:PIN]");
        input->switch_.EthernetSenseState = fields.OneOf(kSwitchStates);
        input->switch_.EthernetActPinNumber = fields.Number(kUsualSwitchPin);
        fields.End();
        input->item_ = {PDU_IT_IO_ETH_SWITCH_STATE, &input->switch_};
    }
    static void Address(IoInput* input) {
        Fields fields(input->text_, "LOGICAL_ADDRESS[:MILLISECONDS]");
        input->address_.LogicalAddress = fields.Number();
        input->address_.DoIPCtrlTimeout = fields.Number(kUsualEntityMs);
        fields.End();
        input->item_ = {PDU_IT_IO_ENTITY_ADDRESS, &input->address_};
    }
};

namespace {

struct InputType {
    const char* name;
    void (*parse)(IoInput* input);
};

constexpr InputType kInputTypes[] = {
    {"none", IoInputParsers::None},       {"number", IoInputParsers::Number},
    {"bytes", IoInputParsers::ByteArray}, {"voltage", IoInputParsers::Voltage},
    {"filters", IoInputParsers::Filters}, {"queue", IoInputParsers::Queue},
    {"vehicle", IoInputParsers::Vehicle}, {"switch", IoInputParsers::Switch},
    {"address", IoInputParsers::Address},
};

std::string InputTypeNames() {
    std::string names;
    for (const InputType& row : kInputTypes)
        names += (names.empty() ? "" : ", ") + std::string(row.name);
    return names;
}

}  // namespace

IoInput::IoInput(const std::string& type, const std::string& text) : text_(text) {
    const auto row = std::find_if(std::begin(kInputTypes), std::end(kInputTypes),
                                  [&type](const InputType& known) { return type == known.name; });
    if (row == std::end(kInputTypes)) {
        throw UsageError("'" + type + "' is not a type of input; known: " + InputTypeNames());
    }
    row->parse(this);
}

std::string IoOutputText(const PDU_DATA_ITEM& output, IoMeaning meaning) {
    if (!output.pData) return "an item without data";
    if (const UNUM32* number = NumberIn(output)) return NumberText(*number, meaning);
    if (output.ItemType == PDU_IT_IO_BYTEARRAY) return HexText(BytesIn(output), " ");
    if (output.ItemType == PDU_IT_IO_ENTITY_STATUS) {
        const auto* entity = static_cast<const PDU_IO_ENTITY_STATUS_DATA*>(output.pData);
        return std::string(entity->EntityType == 0 ? "gateway" : "node") + ", " +
               std::to_string(entity->TcpClients) + " of " + std::to_string(entity->TcpClientsMax) +
               " sockets open, longest request " +
               (entity->MaxDataSize == 0 ? "not told"
                                         : std::to_string(entity->MaxDataSize) + " bytes");
    }
    return "an item of type 0x" + HexNumber(output.ItemType, 4);
}

Json IoOutputJson(const PDU_DATA_ITEM& output) {
    Json json = {{"itemType", "0x" + HexNumber(output.ItemType, 4)}};
    if (!output.pData) return json;
    if (const UNUM32* number = NumberIn(output)) {
        json["value"] = *number;
    } else if (output.ItemType == PDU_IT_IO_BYTEARRAY) {
        json["value"] = HexText(BytesIn(output));
    } else if (output.ItemType == PDU_IT_IO_ENTITY_STATUS) {
        const auto* entity = static_cast<const PDU_IO_ENTITY_STATUS_DATA*>(output.pData);
        json["value"] = {{"entityType", entity->EntityType},
                         {"tcpClientsMax", entity->TcpClientsMax},
                         {"tcpClients", entity->TcpClients},
                         {"maxDataSize", entity->MaxDataSize}};
    }
    return json;
}

}  // namespace dpdu
