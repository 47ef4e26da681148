#include "worker/single_request.h"

#include "comparam/comparams.h"
#include "link/comm_request.h"
#include "link/wire_packets.h"
#include "objects/state_changes.h"
#include "objects/unique_resp_tables.h"
#include "support/log.h"
#include "worker/response_match.h"
#include "worker/response_timeout.h"
#include "worker/result_delivery.h"
#include "worker/worker_log.h"

namespace tarvik {
namespace {

constexpr int kMaxAttempts = 10;

void LogDoipAddresses(const LinkRecord& link) {
    if (link.protocolKind != ProtocolKind::kDoip) return;
    Log(kLogTrace, "[%s]   DoIP Protocol - LogicalAddr: 0x%X, Source: 0x%X, Target: 0x%X",
        "Transmit", link.doipLogicalAddress, link.doipSourceAddress, link.doipTargetAddress);
}

struct Identifiers {
    std::uint32_t functional = ReadComParam(kCpCanFuncReqId);
    std::uint32_t physical = ReadComParam(kCpCanPhysReqId);
    std::uint32_t response = ReadComParam(kCpCanRespUSDTId);
};

Identifiers SelectIdentifiers(const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table) {
    Identifiers ids;
    if (table.NumEntries == 1) {
        OverrideFromEntry(table.pUniqueData[0], kCpCanPhysReqId, &ids.physical);
        OverrideFromEntry(table.pUniqueData[0], kCpCanRespUSDTId, &ids.response);
    }
    return ids;
}

// Logs the outcome. True if there is an answer to match.
bool ReportOutcome(bool exchanged, const CommAnswer& answer) {
    if (!exchanged) {
        Log(kLogTrace, "[%s]   Request timed out - is the OBD interface connected?", "Transmit");
        return false;
    }
    if (answer.wait_time == kWaitTimeError) {
        Log(kLogTrace, "[%s]   Received an error", "Transmit");
        ConsolePrint("[%s] < (%u ms) ERROR\n", "Transmit", answer.wait_time);
        return false;
    }
    if (answer.wait_time == kWaitTimeNoAnswer) {
        Log(kLogTrace, "[%s]   Received a timeout", "Transmit");
        ConsolePrint("[%s] < TIMEOUT\n", "Transmit");
        return false;
    }
    const HexText bytes(answer.data.get(), answer.length);
    Log(kLogTrace, "[%s]   Rx (%u ms) %s", "Transmit", answer.wait_time, bytes.c_str());
    ConsolePrint("[%s] < (%u ms) %s\n", "Transmit", answer.wait_time, bytes.c_str());
    return true;
}

bool Transmit(LinkRecord* link, const ComPrimitive& cop, const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table,
              CommAnswer* answer) {
    const std::uint32_t timeout_ms = ResponseTimeoutMs();
    LogDoipAddresses(*link);
    const Identifiers ids = SelectIdentifiers(table);
    {
        const HexText bytes(cop.pCoPData, cop.CoPDataSize);
        Log(kLogTrace, "[%s]   Tx 0x%X/0x%X, Rx 0x%X, %u ms, %s", __func__, ids.functional,
            ids.physical, ids.response, timeout_ms, bytes.c_str());
        ConsolePrint("[%s] > 0x%X/0x%X, Rx 0x%X (%u ms) %s\n", __func__, ids.functional,
                     ids.physical, ids.response, timeout_ms, bytes.c_str());
    }
    const CommLink exchange{link->Device(), &link->may_exchange};
    answer->wait_time = kWaitTimeError;
    const bool exchanged = CommRequest(
        &exchange,
        {cop.hCoP, cop.pCoPData, cop.CoPDataSize, ids.physical, ids.response, timeout_ms}, answer);
    return ReportOutcome(exchanged, *answer);
}

constexpr MatchLog kMatchLog = {
    .checking = [](std::uint32_t index) { WORKER_LOG("    Response #%u ", index); },
    .missed = [] { WORKER_LOG("      no match"); },
};

}  // namespace

void RunSingleRequest(LinkRecord* link, ComPrimitive* cop,
                      const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table) {
    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
        CommAnswer answer;
        if (!Transmit(link, *cop, table, &answer)) {
            WORKER_LOG("  Nothing received at all. Abort.");
            cop_error(link, cop, kErrorNothingReceived);
            return;
        }
        const PDU_EXP_RESP_DATA* match =
            FindMatch(cop->pCopCtrlData, {answer.data.get(), answer.length}, kMatchLog);
        if (match != nullptr) {
            WORKER_LOG("      this is a match!");
            WORKER_LOG("  Reporting back matched response");
            DeliverResult(link, cop,
                          {0, match->AcceptanceId, answer.data.release(), answer.length, false, 0});
            return;
        }
        WORKER_LOG("  No match");
        cop_error(link, cop, kErrorNoMatch);
    }
}

}  // namespace tarvik
