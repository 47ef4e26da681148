// A D-PDU library of "another vendor" with a simulated vehicle, for tests of the client.
//
// It interprets the standard strictly where the product does not: its own object ids, PDU_ID_UNDEF
// for unknown names, ComParam items that must be destroyed, identifiers that may change only while
// a link is offline, requests only after communication was started, and results with the
// identifiers from the unique response table. It also prints to standard output in every function.
//
// FAKE_DPDU_SCENARIO selects a special case, one word: no-module, late-module, two-modules,
// slow-scan, refuses-construct, refuses-link, lost-module, unplugged (the module disappears after
// the second request and comes back some scans after the library was constructed again),
// equal-stamps (the answers to a functional request have the same time stamp),
// crashes-in-lookup, hangs-in-lookup, exits-in-lookup, hangs-at-end.
//
// On a raw link STARTCOMM and SENDRECV with at least four bytes send a frame, which is reported,
// and SENDRECV without bytes delivers several frames at once. FAKE_DPDU_REPORT names a file to
// which it appends one line per notable event, and finally what has not been released.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dpdu_api.h"

namespace {

using Bytes = std::vector<UNUM8>;

constexpr UNUM32 kFirstModule = 5;
constexpr UNUM32 kFirstLink = 40;
constexpr UNUM32 kBusType = 72;
constexpr UNUM32 kProtocol = 71;
constexpr UNUM32 kRawProtocol = 73;
constexpr UNUM32 kHigh = 81;
constexpr UNUM32 kLow = 82;

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool IsScenario(const char* name) { return Environment("FAKE_DPDU_SCENARIO") == name; }

void Report(const std::string& line) {
    const std::string path = Environment("FAKE_DPDU_REPORT");
    if (path.empty()) return;
    if (std::FILE* file = std::fopen(path.c_str(), "a")) {
        std::fprintf(file, "%s\n", line.c_str());
        std::fclose(file);
    }
}

void Chatter(const char* text) {
    std::printf("[fake] %s\n", text);
    std::fflush(stdout);
}

// -------------------------------------------------------------------------------------------
// ComParams
// -------------------------------------------------------------------------------------------

struct ParamRow {
    const char* name;
    UNUM32 id;
    T_PDU_PT type;
    T_PDU_PC param_class;
    UNUM32 initial;
};

constexpr ParamRow kParams[] = {
    {"CP_P2Max", 901, PDU_PT_UNUM32, PDU_PC_TIMING, 150000},
    {"CP_P2Star", 902, PDU_PT_UNUM32, PDU_PC_TIMING, 5000000},
    {"CP_RequestAddrMode", 903, PDU_PT_UNUM8, PDU_PC_COM, 1},
    {"CP_CanFuncReqId", 904, PDU_PT_UNUM32, PDU_PC_COM, 0},
    {"CP_CanPhysReqId", 905, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, 0},
    {"CP_CanPhysReqFormat", 906, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, 0},
    {"CP_CanRespUSDTId", 907, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, 0},
    {"CP_CanRespUSDTFormat", 908, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, 0},
    {"CP_CanRespUUDTId", 909, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, 0xFFFFFFFF},
    {"CP_TesterPresentHandling", 910, PDU_PT_UNUM32, PDU_PC_TESTER_PRESENT, 1},
    {"CP_TesterPresentTime", 911, PDU_PT_UNUM32, PDU_PC_TESTER_PRESENT, 2000000},
    {"CP_TesterPresentMessage", 912, PDU_PT_BYTEFIELD, PDU_PC_TESTER_PRESENT, 0},
    {"CP_CanBaudrateRecord", 913, PDU_PT_LONGFIELD, PDU_PC_BUSTYPE, 0},
    {"CP_SessionTimingOverride", 914, PDU_PT_STRUCTFIELD, PDU_PC_TIMING, 0},
    {"CP_T1Max", 915, PDU_PT_SNUM16, PDU_PC_TIMING, static_cast<UNUM32>(-3)},
    {"CP_Baudrate", 916, PDU_PT_UNUM32, PDU_PC_BUSTYPE, 500000},
};

const ParamRow* FindParam(UNUM32 id) {
    for (const ParamRow& row : kParams) {
        if (row.id == id) return &row;
    }
    return nullptr;
}

UNUM32 ParamId(const char* name) {
    for (const ParamRow& row : kParams) {
        if (std::strcmp(row.name, name) == 0) return row.id;
    }
    return PDU_ID_UNDEF;
}

unsigned NumberSize(T_PDU_PT type) {
    if (type == PDU_PT_UNUM8 || type == PDU_PT_SNUM8) return 1;
    return type == PDU_PT_UNUM16 || type == PDU_PT_SNUM16 ? 2 : 4;
}

struct Param {
    UNUM32 number = 0;
    Bytes bytes;
    std::vector<UNUM32> words;
    std::vector<PDU_PARAM_STRUCT_SESS_TIMING> records;
};

using ParamSet = std::map<UNUM32, Param>;

ParamSet InitialParams() {
    ParamSet params;
    for (const ParamRow& row : kParams)
        params[row.id].number = row.initial;
    params[ParamId("CP_CanBaudrateRecord")].words = {500000, 250000};
    params[ParamId("CP_SessionTimingOverride")].records = {{0x0301, 0, 50, 1, 244}};
    return params;
}

// -------------------------------------------------------------------------------------------
// Items: each is one object with everything it points to, found by its address
// -------------------------------------------------------------------------------------------

struct Block {
    virtual ~Block() = default;
};

struct EventBlock : Block {
    PDU_EVENT_ITEM item{};
    PDU_STATUS_DATA status = 0;
    PDU_ERROR_DATA error{};
    PDU_RESULT_DATA result{};
    PDU_INFO_DATA info{};
    Bytes data;
    UNUM8 rx_flags[4] = {};
};

struct ModuleBlock : Block {
    PDU_MODULE_ITEM item{};
    std::vector<PDU_MODULE_DATA> entries;
    std::deque<std::string> texts;
};

struct IoBlock : Block {
    PDU_DATA_ITEM item{};
    UNUM32 number = 0;
    Bytes bytes;
    PDU_IO_BYTEARRAY_DATA byte_array{};
    PDU_IO_ENTITY_STATUS_DATA entity{};
};

struct ParamBlock : Block {
    PDU_PARAM_ITEM item{};
    Param value;
    PDU_PARAM_BYTEFIELD_DATA byte_field{};
    PDU_PARAM_LONGFIELD_DATA long_field{};
    PDU_PARAM_STRUCTFIELD_DATA struct_field{};
};

struct TableBlock : Block {
    PDU_UNIQUE_RESP_ID_TABLE_ITEM item{};
    PDU_ECU_UNIQUE_RESP_DATA entry{};
    std::vector<PDU_PARAM_ITEM> params;
    std::deque<UNUM32> values;
};

struct EcuEntry {
    UNUM32 unique_id;
    UNUM32 request_id;
    UNUM32 request_format;
    UNUM32 response_id;
    UNUM32 response_format;
};

struct Link {
    bool is_raw = false;
    bool is_online = false;
    bool is_started = false;
    ParamSet params = InitialParams();
    std::vector<EcuEntry> ecus;
    std::deque<std::shared_ptr<EventBlock>> events;
    UNUM32 hanging = PDU_HANDLE_UNDEF;  // ComPrimitive that ends only when it is cancelled
    std::vector<std::thread> workers;
    CALLBACKFNC callback = nullptr;
};

std::mutex lock;  // guards everything below
bool constructed = false;
void* api_tag = nullptr;
UNUM32 constructions = 0;
UNUM32 scans = 0;  // since the last PDUConstruct
UNUM32 requests = 0;
UNUM32 next_primitive = 100;
UNUM32 next_link = kFirstLink;
std::map<UNUM32, bool> connected_modules;
std::map<UNUM32, Link> links;
std::map<void*, std::shared_ptr<Block>> items;  // owned by the application
std::deque<std::shared_ptr<EventBlock>> module_events;
std::deque<std::shared_ptr<EventBlock>> system_events;

template <typename BlockType>
void HandOut(const std::shared_ptr<BlockType>& block, PDU_EVENT_ITEM** out) {
    items[&block->item] = block;
    *out = &block->item;
}

constexpr UNUM32 kAnswerTime = 1234567;  // microseconds
constexpr UNUM32 kStartTime = kAnswerTime - 1500;
constexpr UNUM32 kNextAnswerAfter = 1000;

std::shared_ptr<EventBlock> MakeEvent(T_PDU_IT type, UNUM32 primitive, void* data) {
    auto block = std::make_shared<EventBlock>();
    block->item = {type, primitive, nullptr, kAnswerTime, data};
    return block;
}

void AddStatus(Link* link, UNUM32 primitive, T_PDU_STATUS state) {
    auto block = MakeEvent(PDU_IT_STATUS, primitive, nullptr);
    block->status = state;
    block->item.pData = &block->status;
    if (state == PDU_COPST_EXECUTING) block->item.Timestamp = kStartTime;
    link->events.push_back(block);
}

void AddError(Link* link, UNUM32 primitive, T_PDU_ERR_EVT code) {
    auto block = MakeEvent(PDU_IT_ERROR, primitive, nullptr);
    block->error = {code, 0};
    block->item.pData = &block->error;
    link->events.push_back(block);
}

std::shared_ptr<EventBlock> AddResult(Link* link, UNUM32 primitive, UNUM32 unique_id,
                                      UNUM32 acceptance_id, const Bytes& data) {
    auto block = MakeEvent(PDU_IT_RESULT, primitive, nullptr);
    block->data = data;
    block->result.UniqueRespIdentifier = unique_id;
    block->result.AcceptanceId = acceptance_id;
    block->result.NumDataBytes = static_cast<UNUM32>(data.size());
    block->result.pDataBytes = block->data.data();
    block->item.pData = &block->result;
    link->events.push_back(block);
    return block;
}

// The time stamps wrap between the second and the third frame.
void AddFrames(Link* link, UNUM32 primitive) {
    struct Frame {
        UNUM32 timestamp_us;
        UNUM8 flag;
        Bytes bytes;  // starting with four bytes of identifier
    };
    const Frame frames[] = {
        {0xFFFFF000, 0, {0x00, 0x00, 0x00, 0xC0, 0x0C, 0x80}},
        {0xFFFFFFFF, 0, {0x00, 0x00, 0x07, 0xE8, 0x03, 0x7F, 0x22, 0x31}},
        {0x00000000, 0, {0x00, 0x00, 0x00, 0xC0, 0x0D, 0x10}},
        {0x00001000, 0, {0x18, 0xDA, 0xF1, 0x10}},
        {0x00002000, 1, {0x00, 0x00, 0x01, 0x23, 0xFF}},  // a small 29-bit identifier
    };
    for (const Frame& frame : frames) {
        const auto block = AddResult(link, primitive, 0, 1, frame.bytes);
        block->item.Timestamp = frame.timestamp_us;
        block->rx_flags[2] = frame.flag;
        block->result.RxFlag = {sizeof block->rx_flags, block->rx_flags};
    }
}

// -------------------------------------------------------------------------------------------
// The vehicle
// -------------------------------------------------------------------------------------------

constexpr UNUM32 kSilentEcu = 0x7E3;
constexpr UNUM32 kHangingEcu = 0x7E5;

Bytes WithText(Bytes head, const char* text) {
    head.insert(head.end(), text, text + std::strlen(text));
    return head;
}

Bytes WithNumber(Bytes head, UNUM32 number) {
    for (int shift = 24; shift >= 0; shift -= 8)
        head.push_back(static_cast<UNUM8>(number >> shift));
    return head;
}

// Reports values set by a test: one identifier per value.
Bytes SettingAnswer(UNUM8 which, Link* link) {
    const Bytes head = {0x62, 0xF1, which};
    ParamSet& params = link->params;
    switch (which) {
        case 0xA0:
            return WithNumber(head, params[ParamId("CP_P2Max")].number);
        case 0xA1:
            return WithNumber(head, params[ParamId("CP_P2Star")].number);
        case 0xA2:
            return WithNumber(head, params[ParamId("CP_TesterPresentHandling")].number);
        case 0xA3:
            return WithNumber(head, params[ParamId("CP_TesterPresentTime")].number);
        case 0xA4: {
            Bytes answer = head;
            const Bytes& message = params[ParamId("CP_TesterPresentMessage")].bytes;
            answer.insert(answer.end(), message.begin(), message.end());
            return answer;
        }
        default:
            return {0x7F, 0x22, 0x31};
    }
}

Bytes VinAnswer(UNUM32 ecu) {
    const Bytes head = {0x62, 0xF1, 0x90};
    switch (ecu) {
        case 0x7E0:
            return WithText(head, "TESTV1N0000000001");
        case 0x7E1:
            return WithText(head, "TESTV1N0000000002");
        case 0x7E4:
            return WithText(head, "SHORT");
        case 0x18DA10F1:
            return WithText(head, "TESTV1N0000000029");
        default:
            return {0x7F, 0x22, 0x31};
    }
}

Bytes TroubleCodeAnswer(UNUM32 ecu, UNUM8 mask) {
    Bytes answer = {0x59, 0x02, 0xFF};
    if (ecu == 0x7E2) return {0x7F, 0x19, 0x11};
    if (ecu == 0x7E4) return {0x59, 0x02, 0xFF, 0x03, 0x01};
    if (ecu != 0x7E0) return answer;
    constexpr UNUM8 kCodes[][4] = {{0x03, 0x01, 0x00, 0x2F}, {0xC1, 0x23, 0x16, 0x04}};
    for (const UNUM8(&code)[4] : kCodes) {
        if (code[3] & mask) answer.insert(answer.end(), code, code + 4);
    }
    return answer;
}

Bytes AnswerOf(UNUM32 ecu, const Bytes& request, Link* link) {
    if (request.size() == 3 && request[0] == 0x22 && request[1] == 0xF1) {
        return request[2] == 0x90 ? VinAnswer(ecu) : SettingAnswer(request[2], link);
    }
    if (request.size() == 3 && request[0] == 0x19 && request[1] == 0x02) {
        return TroubleCodeAnswer(ecu, request[2]);
    }
    Bytes echo = request;
    echo[0] = static_cast<UNUM8>(echo[0] + 0x40);
    return echo;
}

bool HasFormat(const EcuEntry& ecu) {
    const UNUM32 wanted = ecu.request_id > 0x7FF ? 7 : 5;
    return ecu.request_format == wanted && ecu.response_format == wanted;
}

// A control unit answers on its own response identifier.
bool IsAddressed(const EcuEntry& ecu) {
    const bool is_11_bit = ecu.request_id <= 0x7FF;
    const UNUM32 response = is_11_bit ? ecu.request_id + 8 : 0x18DAF110;
    return HasFormat(ecu) && ecu.response_id == response && ecu.request_id != kSilentEcu;
}

struct Expected {
    UNUM32 acceptance_id;
    Bytes mask;
    Bytes pattern;
};

std::vector<Expected> CopyExpected(const PDU_COP_CTRL_DATA* control) {
    std::vector<Expected> copies;
    for (UNUM32 i = 0; control && i < control->NumPossibleExpectedResponses; ++i) {
        const PDU_EXP_RESP_DATA& from = control->pExpectedResponseArray[i];
        const UNUM32 length = from.NumMaskPatternBytes;
        copies.push_back({from.AcceptanceId,
                          {from.pMaskData, from.pMaskData + length},
                          {from.pPatternData, from.pPatternData + length}});
    }
    return copies;
}

const Expected* FindMatch(const std::vector<Expected>& expected, const Bytes& answer) {
    for (const Expected& response : expected) {
        bool matches = answer.size() >= response.mask.size();
        for (std::size_t i = 0; matches && i < response.mask.size(); ++i) {
            matches = ((answer[i] ^ response.pattern[i]) & response.mask[i]) == 0;
        }
        if (matches) return &response;
    }
    return nullptr;
}

std::string HexDigits(const UNUM8* bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02X", bytes[i]);
        text += digits;
    }
    return text;
}

// Puts the result of a request into the link's queue; false if it hangs.
bool Answer(Link* link, UNUM32 primitive, const Bytes& request,
            const std::vector<Expected>& expected) {
    const bool is_functional = link->params[ParamId("CP_RequestAddrMode")].number == 2;
    if (is_functional && link->params[ParamId("CP_CanFuncReqId")].number != 0x7DF) {
        AddError(link, primitive, PDU_ERR_EVT_RX_TIMEOUT);
        return true;
    }
    const std::size_t count = is_functional ? link->ecus.size() : 1;
    UNUM32 answers = 0;
    for (std::size_t i = 0; i < count && i < link->ecus.size(); ++i) {
        const EcuEntry& ecu = link->ecus[i];
        Report("sent " + HexDigits(request.data(), request.size()));
        if (!is_functional && ecu.request_id == kHangingEcu) return false;
        if (!IsAddressed(ecu)) continue;
        const Bytes answer = AnswerOf(ecu.request_id, request, link);
        const Expected* match = FindMatch(expected, answer);
        if (!match) continue;
        AddResult(link, primitive, ecu.unique_id, match->acceptance_id, answer)->item.Timestamp +=
            IsScenario("equal-stamps") ? 0 : kNextAnswerAfter * answers;
        ++answers;
    }
    if (answers == 0) AddError(link, primitive, PDU_ERR_EVT_RX_TIMEOUT);
    return true;
}

void Notify(UNUM32 module, UNUM32 link_handle) {
    CALLBACKFNC callback = nullptr;
    void* tag = nullptr;
    {
        const std::lock_guard hold(lock);
        const auto link = links.find(link_handle);
        if (link != links.end()) callback = link->second.callback;
        tag = api_tag;
    }
    if (callback) callback(PDU_EVT_DATA_AVAILABLE, module, link_handle, nullptr, tag);
}

// Runs on a separate thread for each request, which owns the referenced objects.
void Work(UNUM32 module, UNUM32 link_handle, UNUM32 primitive, const Bytes& request,
          const std::vector<Expected>& expected) {
    Chatter("working");
    {
        const std::lock_guard hold(lock);
        Link& link = links[link_handle];
        ++requests;
        AddStatus(&link, primitive, PDU_COPST_EXECUTING);
        if (IsScenario("lost-module")) {
            AddError(&link, PDU_HANDLE_UNDEF, PDU_ERR_EVT_LOST_COMM_TO_VCI);
            AddStatus(&link, primitive, PDU_COPST_CANCELLED);
        } else if (Answer(&link, primitive, request, expected)) {
            AddStatus(&link, primitive, PDU_COPST_FINISHED);
            if (constructions > 1) Report("answered after recovery");
        } else {
            link.hanging = primitive;
            Report("hanging");
        }
    }
    Notify(module, link_handle);
}

// -------------------------------------------------------------------------------------------
// Helpers of the functions
// -------------------------------------------------------------------------------------------

Link* FindLink(UNUM32 module, UNUM32 handle) {
    const auto found = links.find(handle);
    return connected_modules[module] && found != links.end() ? &found->second : nullptr;
}

void AddModule(ModuleBlock* block, UNUM32 handle, const char* text) {
    block->texts.emplace_back(text);
    CHAR8* name = block->texts.back().data();
    block->texts.emplace_back("Interface='wire'");
    block->entries.push_back({9, handle, name, block->texts.back().data(), PDU_MODST_AVAIL});
}

void FillModules(ModuleBlock* block) {
    if (IsScenario("no-module") || (IsScenario("late-module") && scans < 3)) return;
    if (IsScenario("unplugged") && constructions > 1 && scans < 3) return;
    AddModule(block, kFirstModule,
              "VendorName='Other' ModuleName='Probe' SerialNumber='S-1' ConnectionType='USB'");
    if (!IsScenario("two-modules")) return;
    AddModule(block, kFirstModule + 1,
              "VendorName='Other' ModuleName='Probe' SerialNumber='S-2' ConnectionType='WLAN'");
}

// An unplugged module comes back only after a new PDUConstruct.
bool IsUnplugged() { return IsScenario("unplugged") && constructions == 1 && requests >= 2; }

// Reports a frame as passed to the library.
void SendFrame(const UNUM8* bytes, UNUM32 size, const PDU_COP_CTRL_DATA& control) {
    const bool has_29_bits = control.TxFlag.NumFlagBytes > 2 && (control.TxFlag.pFlagData[2] & 1);
    Report("frame " + HexDigits(bytes, 4) + (has_29_bits ? " long " : " short ") +
           HexDigits(bytes + 4, size - 4));
}

void StartOnRawLink(Link* link, T_PDU_COPT type, UNUM32 primitive, const UNUM8* bytes, UNUM32 size,
                    const PDU_COP_CTRL_DATA& control) {
    if (size >= 4) SendFrame(bytes, size, control);
    // Like some libraries, this one does not report the end of a STARTCOMM that sends.
    if (type == PDU_COPT_STARTCOMM) return;
    AddStatus(link, primitive, PDU_COPST_FINISHED);
    if (type != PDU_COPT_SENDRECV || size > 0) return;
    if (control.NumReceiveCycles != -1) Report("violation: reception has an end");
    AddFrames(link, primitive);
    Report("receiving");
}

constexpr UNUM32 kReadBattery = 700;
constexpr UNUM32 kReadIgnition = 701;
constexpr UNUM32 kSetVoltage = 702;
constexpr UNUM32 kGeneric = 703;
constexpr UNUM32 kStartFilter = 704;
constexpr UNUM32 kEntityStatus = 705;
constexpr UNUM32 kReset = 706;

struct NamedId {
    T_PDU_OBJT type;
    const char* name;
    UNUM32 id;
};

// Besides the ComParams.
constexpr NamedId kNamedIds[] = {
    {PDU_OBJT_PROTOCOL, "ISO_15765_3_on_ISO_15765_2", kProtocol},
    {PDU_OBJT_PROTOCOL, "ISO_11898_RAW", kRawProtocol},
    {PDU_OBJT_BUSTYPE, "ISO_11898_2_DWCAN", kBusType},
    {PDU_OBJT_RESOURCE, "CAN", 5},
    {PDU_OBJT_PINTYPE, "HI", kHigh},
    {PDU_OBJT_PINTYPE, "LOW", kLow},
    {PDU_OBJT_IO_CTRL, "PDU_IOCTL_READ_VBATT", kReadBattery},
    {PDU_OBJT_IO_CTRL, "PDU_IOCTL_READ_IGNITION_SENSE_STATE", kReadIgnition},
    {PDU_OBJT_IO_CTRL, "PDU_IOCTL_SET_PROG_VOLTAGE", kSetVoltage},
    {PDU_OBJT_IO_CTRL, "PDU_IOCTL_GENERIC", kGeneric},
    {PDU_OBJT_IO_CTRL, "PDU_IOCTL_START_MSG_FILTER", kStartFilter},
    {PDU_OBJT_IO_CTRL, "PDU_IOCTL_GET_ENTITY_STATUS", kEntityStatus},
    {PDU_OBJT_IO_CTRL, "PDU_IOCTL_RESET", kReset},
};

// The input as a line of the report.
std::string InputText(const PDU_DATA_ITEM& input) {
    switch (input.ItemType) {
        case PDU_IT_IO_UNUM32:
            return "number " + std::to_string(*static_cast<UNUM32*>(input.pData));
        case PDU_IT_IO_PROG_VOLTAGE: {
            const auto* voltage = static_cast<PDU_IO_PROG_VOLTAGE_DATA*>(input.pData);
            return "voltage " + std::to_string(voltage->ProgVoltage_mv) + " pin " +
                   std::to_string(voltage->PinOnDLC);
        }
        case PDU_IT_IO_BYTEARRAY: {
            const auto* array = static_cast<PDU_IO_BYTEARRAY_DATA*>(input.pData);
            return "bytes " + HexDigits(array->pData, array->DataSize);
        }
        case PDU_IT_IO_FILTER: {
            const auto* list = static_cast<PDU_IO_FILTER_LIST*>(input.pData);
            std::string text = "filters";
            for (UNUM32 i = 0; i < list->NumFilterEntries; ++i) {
                const PDU_IO_FILTER_DATA& filter = list->pFilterData[i];
                text += " " + std::to_string(filter.FilterType) + ":" +
                        std::to_string(filter.FilterNumber) + ":" +
                        HexDigits(filter.FilterMaskMessage, filter.FilterCompareSize) + ":" +
                        HexDigits(filter.FilterPatternMessage, filter.FilterCompareSize);
            }
            return text;
        }
        case PDU_IT_IO_ENTITY_ADDRESS: {
            const auto* address = static_cast<PDU_IO_ENTITY_ADDRESS_DATA*>(input.pData);
            return "address " + std::to_string(address->LogicalAddress) + " wait " +
                   std::to_string(address->DoIPCtrlTimeout);
        }
        default:
            return "item type " + std::to_string(input.ItemType);
    }
}

std::shared_ptr<IoBlock> IoOutput(UNUM32 command, const PDU_DATA_ITEM* input) {
    auto block = std::make_shared<IoBlock>();
    block->item = {PDU_IT_IO_UNUM32, &block->number};
    if (command == kReadBattery) {
        block->number = 12034;
    } else if (command == kReadIgnition) {
        block->number = input ? 1 : 0;
    } else if (command == kGeneric) {
        block->bytes = {0xCA, 0xFE};
        block->byte_array = {2, block->bytes.data()};
        block->item = {PDU_IT_IO_BYTEARRAY, &block->byte_array};
    } else if (command == kEntityStatus) {
        block->entity = {1, 4, 2, 4096};
        block->item = {PDU_IT_IO_ENTITY_STATUS, &block->entity};
    } else {
        return nullptr;
    }
    return block;
}

void FillParam(ParamBlock* block, const ParamRow& row) {
    Param& value = block->value;
    void* data = &value.number;
    if (row.type == PDU_PT_BYTEFIELD) {
        const auto count = static_cast<UNUM32>(value.bytes.size());
        block->byte_field = {count, count, value.bytes.data()};
        data = &block->byte_field;
    } else if (row.type == PDU_PT_LONGFIELD) {
        const auto count = static_cast<UNUM32>(value.words.size());
        block->long_field = {count, count, value.words.data()};
        data = &block->long_field;
    } else if (row.type == PDU_PT_STRUCTFIELD) {
        const auto count = static_cast<UNUM32>(value.records.size());
        block->struct_field = {PDU_CPST_SESSION_TIMING, count, count, value.records.data()};
        data = &block->struct_field;
    }
    block->item = {PDU_IT_PARAM, row.id, row.type, row.param_class, data};
}

T_PDU_ERROR StoreParam(const ParamRow& row, const void* data, Param* value) {
    if (row.type == PDU_PT_BYTEFIELD) {
        const auto* field = static_cast<const PDU_PARAM_BYTEFIELD_DATA*>(data);
        value->bytes.assign(field->pDataArray, field->pDataArray + field->ParamActLen);
    } else if (row.type == PDU_PT_LONGFIELD) {
        const auto* field = static_cast<const PDU_PARAM_LONGFIELD_DATA*>(data);
        value->words.assign(field->pDataArray, field->pDataArray + field->ParamActLen);
    } else if (row.type == PDU_PT_STRUCTFIELD) {
        const auto* field = static_cast<const PDU_PARAM_STRUCTFIELD_DATA*>(data);
        const auto* records = static_cast<const PDU_PARAM_STRUCT_SESS_TIMING*>(field->pStructArray);
        value->records.assign(records, records + field->ParamActEntries);
    } else {
        value->number = 0;
        std::memcpy(&value->number, data, NumberSize(row.type));
        if (row.id == ParamId("CP_Baudrate") && value->number == 0) {
            return PDU_ERR_VALUE_NOT_SUPPORTED;
        }
    }
    return PDU_STATUS_NOERROR;
}

UNUM32 NumberIn(const PDU_ECU_UNIQUE_RESP_DATA& entry, const char* name) {
    for (UNUM32 i = 0; i < entry.NumParamItems; ++i) {
        const PDU_PARAM_ITEM& item = entry.pParams[i];
        if (item.ComParamId == ParamId(name)) return *static_cast<UNUM32*>(item.pComParamData);
    }
    Report(std::string("violation: a table entry lacks ") + name);
    return 0;
}

void TakeEvent(std::deque<std::shared_ptr<EventBlock>>* queue, PDU_EVENT_ITEM** out) {
    if (queue->empty()) return;
    HandOut(queue->front(), out);
    queue->pop_front();
}

constexpr char kFatalName[] = "ISO_11898_RAW";

[[noreturn]] void Hang() {
    for (;;)
        std::this_thread::sleep_for(std::chrono::seconds(1));
}

void Misbehave() {
    static volatile std::uintptr_t nowhere = 0;
    if (IsScenario("crashes-in-lookup")) *reinterpret_cast<volatile int*>(nowhere) = 1;
    if (IsScenario("exits-in-lookup")) std::_Exit(0);
    if (IsScenario("hangs-in-lookup")) Hang();
}

void JoinWorkers(std::vector<std::thread>* workers) {
    for (std::thread& worker : *workers)
        worker.join();
    workers->clear();
}

}  // namespace

// -------------------------------------------------------------------------------------------
// The exported functions
// -------------------------------------------------------------------------------------------

extern "C" {

T_PDU_ERROR PDUConstruct(CHAR8* OptionStr, void* pAPITag) {
    Chatter("constructing");
    if (IsScenario("refuses-construct")) return PDU_ERR_FCT_FAILED;
    Report(std::string("construct ") + (OptionStr ? OptionStr : "without options"));
    if (IsScenario("hangs-at-end")) std::atexit(Hang);
    constructed = true;
    api_tag = pAPITag;
    ++constructions;
    scans = 0;
    if (IsScenario("unplugged")) {
        const auto block = MakeEvent(PDU_IT_INFO, PDU_HANDLE_UNDEF, nullptr);
        block->info = {PDU_INFO_MODULE_LIST_CHG, 0};
        block->item.pData = &block->info;
        system_events.push_back(block);
    }
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUDestruct(void) {
    Chatter("destructing");
    std::size_t online = 0;
    for (const auto& [handle, is_connected] : connected_modules)
        online += is_connected ? 1 : 0;
    Report("destruct items=" + std::to_string(items.size()) +
           " links=" + std::to_string(links.size()) + " modules=" + std::to_string(online));
    for (auto& [handle, link] : links)
        JoinWorkers(&link.workers);
    constructed = false;
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUIoCtl(UNUM32 hMod, UNUM32, UNUM32 IoCtlCommandId, PDU_DATA_ITEM* pInputData,
                     PDU_DATA_ITEM** ppOutputData) {
    const std::lock_guard hold(lock);
    if (!connected_modules[hMod]) return PDU_ERR_MODULE_NOT_CONNECTED;
    if (IoCtlCommandId < kReadBattery || IoCtlCommandId > kReset) return PDU_ERR_ID_NOT_SUPPORTED;
    Report("ioctl " + std::to_string(IoCtlCommandId) + " " +
           (pInputData ? InputText(*pInputData) : "without input"));
    if (const auto block = IoOutput(IoCtlCommandId, pInputData)) {
        items[&block->item] = block;
        *ppOutputData = &block->item;
    }
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUGetVersion(UNUM32 hMod, PDU_VERSION_DATA* pVersionData) {
    const std::lock_guard hold(lock);
    if (!connected_modules[hMod]) return PDU_ERR_MODULE_NOT_CONNECTED;
    *pVersionData = {};
    pVersionData->MVCI_Part1StandardVersion = 0x02010000;
    pVersionData->MVCI_Part2StandardVersion = 0x02020000;
    pVersionData->HwSerialNumber = 4711;
    std::strcpy(pVersionData->HwName, "Probe");
    pVersionData->HwVersion = 0x01020300;
    std::strcpy(pVersionData->FwName, "probe-fw");
    pVersionData->FwVersion = 0x04050600;
    std::memset(pVersionData->VendorName, 'V', sizeof pVersionData->VendorName);  // no NUL
    std::strcpy(pVersionData->PDUApiSwName, "Other D-PDU");
    pVersionData->PDUApiSwVersion = 0x07080900;
    pVersionData->PDUApiSwDate = 0x36051600;
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUGetStatus(UNUM32 hMod, UNUM32, UNUM32, T_PDU_STATUS* pStatusCode, UNUM32*, UNUM32*) {
    const std::lock_guard hold(lock);
    *pStatusCode = connected_modules[hMod] ? PDU_MODST_READY : PDU_MODST_AVAIL;
    if (IsUnplugged()) *pStatusCode = PDU_MODST_NOT_AVAIL;
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUGetLastError(UNUM32, UNUM32, T_PDU_ERR_EVT*, UNUM32*, UNUM32*, UNUM32*) {
    return PDU_ERR_FCT_FAILED;
}

T_PDU_ERROR PDUGetResourceStatus(PDU_RSC_STATUS_ITEM*) { return PDU_ERR_FCT_FAILED; }

T_PDU_ERROR PDUCreateComLogicalLink(UNUM32 hMod, PDU_RSC_DATA* pRscData, UNUM32, void*,
                                    UNUM32* phCLL, PDU_FLAG_DATA* pCllCreateFlag) {
    const std::lock_guard hold(lock);
    if (IsScenario("refuses-link")) return PDU_ERR_RESOURCE_BUSY;
    if (!connected_modules[hMod]) return PDU_ERR_MODULE_NOT_CONNECTED;
    const bool is_raw = pCllCreateFlag && pCllCreateFlag->NumFlagBytes > 0 &&
                        (pCllCreateFlag->pFlagData[0] & PDU_CREATE_FLAG0_RAW_MODE);
    const UNUM32 protocol = is_raw ? kRawProtocol : kProtocol;
    if (!pRscData || pRscData->BusTypeId != kBusType || pRscData->ProtocolId != protocol ||
        pRscData->NumPinData != 2 || pRscData->pDLCPinData[0].DLCPinTypeId != kHigh ||
        pRscData->pDLCPinData[1].DLCPinTypeId != kLow || !pCllCreateFlag) {
        return PDU_ERR_INVALID_PARAMETERS;
    }
    *phCLL = next_link++;
    links[*phCLL].is_raw = is_raw;
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUDestroyComLogicalLink(UNUM32 hMod, UNUM32 hCLL) {
    std::vector<std::thread> workers;
    {
        const std::lock_guard hold(lock);
        Link* link = FindLink(hMod, hCLL);
        if (!link) return PDU_ERR_INVALID_HANDLE;
        if (link->is_online) Report("violation: an online link is destroyed");
        workers = std::move(link->workers);
    }
    JoinWorkers(&workers);
    const std::lock_guard hold(lock);
    links.erase(hCLL);
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUConnect(UNUM32 hMod, UNUM32 hCLL) {
    const std::lock_guard hold(lock);
    Link* link = FindLink(hMod, hCLL);
    if (!link) return PDU_ERR_INVALID_HANDLE;
    link->is_online = true;
    AddStatus(link, PDU_HANDLE_UNDEF, PDU_CLLST_ONLINE);
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUDisconnect(UNUM32 hMod, UNUM32 hCLL) {
    const std::lock_guard hold(lock);
    Link* link = FindLink(hMod, hCLL);
    if (!link) return PDU_ERR_INVALID_HANDLE;
    if (link->is_started) Report("disconnected while started");
    link->is_online = false;
    AddStatus(link, PDU_HANDLE_UNDEF, PDU_CLLST_OFFLINE);
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDULockResource(UNUM32, UNUM32, UNUM32) { return PDU_STATUS_NOERROR; }

T_PDU_ERROR PDUUnlockResource(UNUM32, UNUM32, UNUM32) { return PDU_STATUS_NOERROR; }

T_PDU_ERROR PDUGetComParam(UNUM32 hMod, UNUM32 hCLL, UNUM32 ParamId, PDU_PARAM_ITEM** pParamItem) {
    const std::lock_guard hold(lock);
    Link* link = FindLink(hMod, hCLL);
    if (!link) return PDU_ERR_INVALID_HANDLE;
    const ParamRow* row = FindParam(ParamId);
    if (!row) return PDU_ERR_COMPARAM_NOT_SUPPORTED;
    auto block = std::make_shared<ParamBlock>();
    block->value = link->params[ParamId];
    FillParam(block.get(), *row);
    items[&block->item] = block;
    *pParamItem = &block->item;
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUSetComParam(UNUM32 hMod, UNUM32 hCLL, PDU_PARAM_ITEM* pParamItem) {
    const std::lock_guard hold(lock);
    Link* link = FindLink(hMod, hCLL);
    if (!link) return PDU_ERR_INVALID_HANDLE;
    const ParamRow* row = FindParam(pParamItem->ComParamId);
    if (!row || pParamItem->ItemType != PDU_IT_PARAM || pParamItem->ComParamDataType != row->type ||
        pParamItem->ComParamClass != row->param_class) {
        return PDU_ERR_INVALID_PARAMETERS;
    }
    return StoreParam(*row, pParamItem->pComParamData, &link->params[row->id]);
}

T_PDU_ERROR PDUStartComPrimitive(UNUM32 hMod, UNUM32 hCLL, T_PDU_COPT CoPType, UNUM32 CoPDataSize,
                                 UNUM8* pCoPData, PDU_COP_CTRL_DATA* pCopCtrlData, void*,
                                 UNUM32* phCoP) {
    const std::lock_guard hold(lock);
    Link* link = FindLink(hMod, hCLL);
    if (!link) return PDU_ERR_INVALID_HANDLE;
    if (!link->is_online) return PDU_ERR_CLL_NOT_CONNECTED;
    *phCoP = next_primitive++;
    if (link->is_raw) {
        StartOnRawLink(link, CoPType, *phCoP, pCoPData, CoPDataSize, *pCopCtrlData);
        return PDU_STATUS_NOERROR;
    }
    if (CoPType == PDU_COPT_STARTCOMM || CoPType == PDU_COPT_STOPCOMM) {
        link->is_started = CoPType == PDU_COPT_STARTCOMM;
        Report(link->is_started ? "startcomm" : "stopcomm");
        const ParamSet& params = link->params;
        const Bytes& message = params.at(ParamId("CP_TesterPresentMessage")).bytes;
        if (link->is_started && !message.empty()) {
            Report("tester present " + HexDigits(message.data(), message.size()) + " every " +
                   std::to_string(params.at(ParamId("CP_TesterPresentTime")).number));
        }
        AddStatus(link, *phCoP, PDU_COPST_FINISHED);
        return PDU_STATUS_NOERROR;
    }
    if (CoPType == PDU_COPT_UPDATEPARAM) {
        Report("updateparam");
        AddStatus(link, *phCoP, PDU_COPST_FINISHED);
        return PDU_STATUS_NOERROR;
    }
    if (!link->is_started) return PDU_ERR_CLL_NOT_STARTED;
    link->workers.emplace_back(Work, hMod, hCLL, *phCoP, Bytes(pCoPData, pCoPData + CoPDataSize),
                               CopyExpected(pCopCtrlData));
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUCancelComPrimitive(UNUM32 hMod, UNUM32 hCLL, UNUM32 hCoP) {
    const std::lock_guard hold(lock);
    Link* link = FindLink(hMod, hCLL);
    if (!link || link->hanging != hCoP) return PDU_ERR_INVALID_HANDLE;
    Report("cancelled");
    link->hanging = PDU_HANDLE_UNDEF;
    AddStatus(link, hCoP, PDU_COPST_CANCELLED);
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUGetEventItem(UNUM32 hMod, UNUM32 hCLL, PDU_EVENT_ITEM** pEventItem) {
    const std::lock_guard hold(lock);
    *pEventItem = nullptr;
    if (hMod != PDU_HANDLE_UNDEF && hCLL != PDU_HANDLE_UNDEF) {
        Link* link = FindLink(hMod, hCLL);
        if (!link) return PDU_ERR_INVALID_HANDLE;
        TakeEvent(&link->events, pEventItem);
    } else if (hMod != PDU_HANDLE_UNDEF) {
        TakeEvent(&module_events, pEventItem);
    } else {
        TakeEvent(&system_events, pEventItem);
    }
    return *pEventItem ? PDU_STATUS_NOERROR : PDU_ERR_EVENT_QUEUE_EMPTY;
}

T_PDU_ERROR PDUDestroyItem(PDU_ITEM* pItem) {
    const std::lock_guard hold(lock);
    if (!constructed) Report("violation: an item is destroyed after the end");
    if (items.erase(pItem) == 0) Report("violation: an unknown item is destroyed");
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDURegisterEventCallback(UNUM32 hMod, UNUM32 hCLL, CALLBACKFNC EventCallbackFunction) {
    const std::lock_guard hold(lock);
    if (hMod == PDU_HANDLE_UNDEF || hCLL == PDU_HANDLE_UNDEF) return PDU_STATUS_NOERROR;
    Link* link = FindLink(hMod, hCLL);
    if (!link) return PDU_ERR_INVALID_HANDLE;
    link->callback = EventCallbackFunction;
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUGetObjectId(T_PDU_OBJT pduObjectType, CHAR8* pShortname, UNUM32* pPduObjectId) {
    if (std::strcmp(pShortname, kFatalName) == 0) Misbehave();
    *pPduObjectId = pduObjectType == PDU_OBJT_COMPARAM ? ParamId(pShortname) : PDU_ID_UNDEF;
    for (const NamedId& row : kNamedIds) {
        if (row.type == pduObjectType && std::strcmp(row.name, pShortname) == 0) {
            *pPduObjectId = row.id;
        }
    }
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUGetModuleIds(PDU_MODULE_ITEM** pModuleIdList) {
    Chatter("scanning");
    if (IsScenario("slow-scan")) std::this_thread::sleep_for(std::chrono::milliseconds(4000));
    const std::lock_guard hold(lock);
    ++scans;
    auto block = std::make_shared<ModuleBlock>();
    FillModules(block.get());
    block->item = {PDU_IT_MODULE_ID, static_cast<UNUM32>(block->entries.size()),
                   block->entries.empty() ? nullptr : block->entries.data()};
    items[&block->item] = block;
    *pModuleIdList = &block->item;
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUGetResourceIds(UNUM32, PDU_RSC_DATA*, PDU_RSC_ID_ITEM**) {
    return PDU_ERR_FCT_FAILED;
}

T_PDU_ERROR PDUGetConflictingResources(UNUM32, PDU_MODULE_ITEM*, PDU_RSC_CONFLICT_ITEM**) {
    return PDU_ERR_FCT_FAILED;
}

T_PDU_ERROR PDUGetUniqueRespIdTable(UNUM32 hMod, UNUM32 hCLL,
                                    PDU_UNIQUE_RESP_ID_TABLE_ITEM** pUniqueRespIdTable) {
    const std::lock_guard hold(lock);
    Link* link = FindLink(hMod, hCLL);
    if (!link) return PDU_ERR_INVALID_HANDLE;
    auto block = std::make_shared<TableBlock>();
    for (const ParamRow& row : kParams) {
        if (row.param_class != PDU_PC_UNIQUE_ID) continue;
        block->values.push_back(link->params[row.id].number);
        block->params.push_back(
            {PDU_IT_PARAM, row.id, row.type, row.param_class, &block->values.back()});
    }
    block->entry = {PDU_ID_UNDEF, static_cast<UNUM32>(block->params.size()), block->params.data()};
    block->item = {PDU_IT_UNIQUE_RESP_ID_TABLE, 1, &block->entry};
    items[&block->item] = block;
    *pUniqueRespIdTable = &block->item;
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUSetUniqueRespIdTable(UNUM32 hMod, UNUM32 hCLL,
                                    PDU_UNIQUE_RESP_ID_TABLE_ITEM* pUniqueRespIdTable) {
    const std::lock_guard hold(lock);
    Link* link = FindLink(hMod, hCLL);
    if (!link) return PDU_ERR_INVALID_HANDLE;
    if (link->is_online) return PDU_ERR_CLL_CONNECTED;
    link->ecus.clear();
    for (UNUM32 i = 0; i < pUniqueRespIdTable->NumEntries; ++i) {
        const PDU_ECU_UNIQUE_RESP_DATA& entry = pUniqueRespIdTable->pUniqueData[i];
        if (NumberIn(entry, "CP_CanRespUUDTId") != 0xFFFFFFFF) {
            Report("violation: a value of the link's own table was lost");
        }
        link->ecus.push_back({entry.UniqueRespIdentifier, NumberIn(entry, "CP_CanPhysReqId"),
                              NumberIn(entry, "CP_CanPhysReqFormat"),
                              NumberIn(entry, "CP_CanRespUSDTId"),
                              NumberIn(entry, "CP_CanRespUSDTFormat")});
    }
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUModuleConnect(UNUM32 hMod) {
    const std::lock_guard hold(lock);
    if (hMod < kFirstModule || hMod > kFirstModule + 1) return PDU_ERR_INVALID_HANDLE;
    Report("module " + std::to_string(hMod));
    connected_modules[hMod] = true;
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUModuleDisconnect(UNUM32 hMod) {
    const std::lock_guard hold(lock);
    connected_modules[hMod] = false;
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUGetTimestamp(UNUM32, UNUM32* pTimestamp) {
    *pTimestamp = 0;
    return PDU_STATUS_NOERROR;
}

}  // extern "C"
