#pragma once

// A link made by hand, whose dongle is a pair of queues in memory, and what its worker's work
// leaves: events, log lines.

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "comparam/comparam_table.h"
#include "comparam/comparams.h"
#include "link/packet_queue.h"
#include "objects/com_primitive.h"
#include "objects/link_record.h"
#include "objects/unique_resp_tables.h"
#include "platform/mutex.h"
#include "support/memory.h"
#include "unit/faults/heap_fault.h"
#include "unit/test_support.h"
#include "unit/worker/fake_exchange.h"
#include "unit/worker/test_limits.h"

namespace tarvik::test {

using Bytes = std::vector<std::uint8_t>;
using Texts = std::vector<std::string>;

inline Tracked<std::uint8_t> TrackedCopy(const Bytes& bytes) {
    Tracked<std::uint8_t> copy(static_cast<std::uint8_t*>(AllocateMem(bytes.size())));
    if (!bytes.empty()) std::memcpy(copy.get(), bytes.data(), bytes.size());
    return copy;
}

inline std::string Hex(const std::uint8_t* bytes, std::size_t count) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    return text;
}

inline void SetNumber(std::uint32_t id, std::uint32_t value) {
    const PDU_PARAM_ITEM item = {PDU_IT_PARAM, id, PDU_PT_UNUM32, DescribeComParam(id).param_class,
                                 &value};
    ASSERT_EQ(SetComParam(&item, "Test"), PDU_STATUS_NOERROR);
}

inline void SetBytes(std::uint32_t id, Bytes bytes) {
    PDU_PARAM_BYTEFIELD_DATA field = {static_cast<UNUM32>(bytes.size()),
                                      static_cast<UNUM32>(bytes.size()), bytes.data()};
    const PDU_PARAM_ITEM item = {PDU_IT_PARAM, id, PDU_PT_BYTEFIELD,
                                 DescribeComParam(id).param_class, &field};
    ASSERT_EQ(SetComParam(&item, "Test"), PDU_STATUS_NOERROR);
}

// The application's response table. Entries have the numbers of `params` only.
class TableOf {
public:
    struct Param {
        std::uint32_t id, value;
    };
    explicit TableOf(std::initializer_list<std::vector<Param>> entries) {
        item_ = AllocateRecord<PDU_UNIQUE_RESP_ID_TABLE_ITEM>();
        item_->ItemType = PDU_IT_UNIQUE_RESP_ID_TABLE;
        values_.reserve(100);
        for (const std::vector<Param>& params : entries) {
            std::vector<PDU_PARAM_ITEM>& items = params_.emplace_back();
            for (const Param& param : params) {
                values_.push_back(param.value);
                items.push_back(
                    {PDU_IT_PARAM, param.id, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, &values_.back()});
            }
        }
        for (std::vector<PDU_PARAM_ITEM>& items : params_) {
            const auto id = static_cast<UNUM32>(0x100 + entries_.size());
            entries_.push_back({id, static_cast<UNUM32>(items.size()), items.data()});
        }
        item_->NumEntries = static_cast<UNUM32>(entries_.size());
        item_->pUniqueData = entries_.empty() ? nullptr : entries_.data();
    }
    const PDU_UNIQUE_RESP_ID_TABLE_ITEM& Item() const { return *item_; }

private:
    Tracked<PDU_UNIQUE_RESP_ID_TABLE_ITEM> item_;
    std::vector<std::vector<PDU_PARAM_ITEM>> params_;
    std::vector<PDU_ECU_UNIQUE_RESP_DATA> entries_;
    std::vector<UNUM32> values_;
};

struct Expected {
    std::uint32_t acceptance_id;
    Bytes pattern;  // every bit counts
    std::uint32_t type = 0;
};

inline std::uint64_t QueuedPackets(PacketQueue& queue) {
    const LockGuard hold(queue.lock);
    return queue.count;
}

class WorkerLink : public testing::Test {
protected:
    static constexpr std::uint32_t kModule = 3;
    static constexpr std::uint32_t kHandle = 4;
    static constexpr std::uint32_t kCop = 77;

    void SetUp() override {
        DebugLogPath();
        ASSERT_TRUE(AllocParamItems());
        InitializeQueue(&dongle.rx);
        InitializeQueue(&dongle.tx);
        dongle.available = true;
        exchange = nullptr;
        multi_exchange = nullptr;
        on_event = nullptr;
        link = MakeCounted<LinkRecord>();
        link->hMod = kModule;
        link->hCLL = kHandle;
        link->CllTag = &link_tag;
        link->device = &dongle;
        link->mutex = OsMutexCreate();
        link->reception_mutex = OsMutexCreate();
        link->pending.Initialize();
        link->registry.Initialize();
        link->events.Initialize();
        link->raw_receive.Initialize();
        link->unique_table =
            UniqueRespTable::Adopt(DuplicatePduUniqueResponseTable(&TableOf({{}}).Item()));
        link->callback.store(OnEvent);
        link->running.store(true);
    }
    void TearDown() override {
        link.Reset();
        on_event = nullptr;
        dongle.available = false;
        FreeQueue(&dongle.rx);
        FreeQueue(&dongle.tx);
        FreeParamItems();
    }

    // One that asks for one frame to be sent and any number to be received.
    static Ref<ComPrimitive> MakeCop(std::uint32_t type, const Bytes& data = {},
                                     std::vector<Expected> expected = {},
                                     std::uint32_t hCoP = kCop) {
        std::vector<PDU_EXP_RESP_DATA> responses;
        std::vector<Bytes> masks;
        for (const Expected& one : expected)
            masks.emplace_back(one.pattern.size(), std::uint8_t{0xFF});
        for (std::size_t i = 0; i < expected.size(); ++i) {
            PDU_EXP_RESP_DATA response{};
            response.ResponseType = expected[i].type;
            response.AcceptanceId = expected[i].acceptance_id;
            response.NumMaskPatternBytes = static_cast<UNUM32>(masks[i].size());
            response.pMaskData = masks[i].data();
            response.pPatternData = expected[i].pattern.data();
            responses.push_back(response);
        }
        PDU_COP_CTRL_DATA control{};
        control.NumSendCycles = 1;
        control.NumReceiveCycles = -1;
        control.NumPossibleExpectedResponses = static_cast<UNUM32>(responses.size());
        control.pExpectedResponseArray = responses.data();

        Ref<ComPrimitive> cop = MakeCounted<ComPrimitive>();
        cop->hMod = kModule;
        cop->hCLL = kHandle;
        cop->hCoP = hCoP;
        cop->CoPType = type;
        cop->pCoPTag = &cop_tag;
        cop->CoPDataSize = static_cast<std::uint32_t>(data.size());
        if (!data.empty()) cop->pCoPData = TrackedCopy(data).release();
        cop->pCopCtrlData = CopyControlData(&control);
        return cop;
    }
    static Ref<ComPrimitive> MakeRequest(std::vector<Expected> expected = {}) {
        return MakeCop(PDU_COPT_SENDRECV, {0x22, 0xF1, 0x90}, std::move(expected));
    }

    // What the application would find in the link's event queue, oldest first.
    Texts Events() const {
        Texts texts;
        while (const EventPtr item = link->events.Take())
            texts.push_back(Describe(*item));
        return texts;
    }
    static std::string Describe(const PDU_EVENT_ITEM& item) {
        std::ostringstream text;
        text << std::hex << std::uppercase;
        switch (item.ItemType) {
            case PDU_IT_STATUS:
                text << (item.hCop == PDU_HANDLE_UNDEF ? "link " : "status ")
                     << *static_cast<PDU_STATUS_DATA*>(item.pData);
                break;
            case PDU_IT_ERROR:
                text << "error " << std::dec
                     << static_cast<PDU_ERROR_DATA*>(item.pData)->ErrorCodeId;
                break;
            case PDU_IT_RESULT: {
                const auto& result = *static_cast<PDU_RESULT_DATA*>(item.pData);
                text << "result " << result.UniqueRespIdentifier << "/" << result.AcceptanceId
                     << " " << Hex(result.pDataBytes, result.NumDataBytes) << " rx "
                     << Hex(result.RxFlag.pFlagData, result.RxFlag.NumFlagBytes);
                if (result.TimestampFlags.NumFlagBytes > 0) {
                    text << (result.TxMsgDoneTimestamp == item.Timestamp ? " sent then"
                                                                         : " sent otherwise");
                }
                break;
            }
            default:
                text << "item " << item.ItemType;
        }
        if (item.hCop != PDU_HANDLE_UNDEF && item.pCoPTag != &cop_tag) text << " without tag";
        return text.str();
    }

    // Messages of the link's threads, without the line of the source that each names.
    static Texts ThreadLines(const LogCapture& log, const std::string& tag = "[CommThreadFunc]") {
        Texts lines;
        for (std::string line : log.Lines()) {
            const std::size_t colon = line.find(':');
            if (colon < line.find(']')) {
                std::size_t end = colon + 1;
                while (std::isdigit(static_cast<unsigned char>(line[end])) != 0)
                    ++end;
                line.erase(colon, end - colon);
            }
            if (line.starts_with(tag)) lines.push_back(line.substr(tag.size()));
        }
        return lines;
    }
    static bool HasThreadLine(const LogCapture& log, const std::string& line,
                              const std::string& tag = "[CommThreadFunc]") {
        for (const std::string& found : ThreadLines(log, tag)) {
            if (found == line) return true;
        }
        return false;
    }

    static PacketPtr NextSent() { return TakePacket(&dongle.tx, 0); }

    static inline std::function<void()> on_event;
    static void PDU_CALL OnEvent(T_PDU_EVT_DATA, UNUM32, UNUM32, void*, void*) {
        if (on_event) on_event();
    }

    static inline DeviceQueues dongle;
    static inline int link_tag = 0;
    static inline int cop_tag = 0;
    LinkRef link;
};

}  // namespace tarvik::test
