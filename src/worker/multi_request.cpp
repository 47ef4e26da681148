#include "worker/multi_request.h"

#include <utility>

#include "comparam/comparams.h"
#include "link/comm_request.h"
#include "objects/state_changes.h"
#include "objects/unique_resp_tables.h"
#include "support/memory.h"
#include "worker/response_match.h"
#include "worker/response_timeout.h"
#include "worker/result_delivery.h"
#include "worker/worker_log.h"

namespace tarvik {
namespace {

// The responders of one request. Releases the answers that nobody took over.
class Responders {
public:
    explicit Responders(std::uint32_t capacity)
        : entries_(static_cast<CommMultiEntry*>(AllocateArray(capacity, sizeof(CommMultiEntry)))) {}
    ~Responders() {
        for (std::uint32_t i = 0; i < count_; ++i)
            FreeMem(entries_.get()[i].rsp_data);
    }
    Responders(const Responders&) = delete;
    Responders& operator=(const Responders&) = delete;

    bool Allocated() const { return entries_ != nullptr; }
    std::uint32_t Count() const { return count_; }
    CommMultiEntry* Entries() { return entries_.get(); }

    // One row per response identifier; repeated ones are skipped.
    void Add(std::uint32_t position, std::uint32_t phys_id, std::uint32_t resp_id) {
        for (std::uint32_t i = 0; i < count_; ++i) {
            if (entries_.get()[i].addr_b == resp_id) return;
        }
        entries_.get()[count_++] = {position, phys_id, resp_id, 0, nullptr};
    }

private:
    Tracked<CommMultiEntry> entries_;
    std::uint32_t count_ = 0;
};

void CollectResponders(const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table, Responders* responders) {
    // An entry without the item keeps the value of the entry before it.
    std::uint32_t phys_id = ReadComParam(kCpCanPhysReqId);
    std::uint32_t resp_id = ReadComParam(kCpCanRespUSDTId);
    for (std::uint32_t i = 0; i < table.NumEntries; ++i) {
        OverrideFromEntry(table.pUniqueData[i], kCpCanPhysReqId, &phys_id);
        OverrideFromEntry(table.pUniqueData[i], kCpCanRespUSDTId, &resp_id);
        responders->Add(i, phys_id, resp_id);
    }
}

constexpr MatchLog kMatchLog = {
    .checking =
        [](std::uint32_t index) {
            WORKER_LOG("          Check against pExpectedResponseArray[#%u] ", index);
        },
    .missed = nullptr,
};

void ReportResponder(LinkRecord* link, ComPrimitive* cop, std::uint32_t row,
                     CommMultiEntry* entry) {
    if (entry->rsp_data == nullptr || entry->rsp_len == 0) {
        WORKER_LOG("      #%u -> no data", row);
        return;
    }
    WORKER_LOG("      #%u -> received %u bytes", row, entry->rsp_len);
    const PDU_EXP_RESP_DATA* match =
        FindMatch(cop->pCopCtrlData, {entry->rsp_data, entry->rsp_len}, kMatchLog);
    if (match == nullptr) {
        WORKER_LOG("        -> No match");
        return;
    }
    WORKER_LOG("            -> this is a match!");
    WORKER_LOG("        -> Reporting back matched response for table entry %i",
               static_cast<int>(row));
    // Deliberate: the row's position identifies the responder, not the application's identifier.
    DeliverResult(link, cop,
                  {row, match->AcceptanceId, std::exchange(entry->rsp_data, nullptr),
                   entry->rsp_len, true, 0});
}

}  // namespace

void RunMultiRequest(LinkRecord* link, ComPrimitive* cop,
                     const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table) {
    const std::uint32_t timeout_ms = ResponseTimeoutMs();
    Responders responders(table.NumEntries);
    if (!responders.Allocated()) {
        WORKER_LOG("   Failed to allocate response collection");
        cop_error(link, cop, kErrorNothingReceived);
        return;
    }
    WORKER_LOG("    prepare multi-request packet with %u entries in UniqueRespTable",
               table.NumEntries);
    CollectResponders(table, &responders);
    WORKER_LOG("    send multi-request packet with %u entries", responders.Count());
    CommMultiRequest request{cop->hCoP,          ReadComParam(kCpCanFuncReqId),
                             responders.Count(), responders.Entries(),
                             cop->pCoPData,      cop->CoPDataSize,
                             timeout_ms};
    const CommLink exchange{link->Device(), &link->may_exchange};
    if (!CommRequestMulti(&exchange, &request, &cop->abort)) {
        WORKER_LOG("   Request timed out - is the OBD interface connected?");
        cop_error(link, cop, kErrorNoMatch);
        return;
    }
    WORKER_LOG("    done, parse %u responses", responders.Count());
    for (std::uint32_t row = 0; row < responders.Count(); ++row) {
        ReportResponder(link, cop, row, &responders.Entries()[row]);
    }
}

}  // namespace tarvik
