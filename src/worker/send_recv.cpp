#include "worker/send_recv.h"

#include "comparam/comparams.h"
#include "objects/state_changes.h"
#include "objects/unique_resp_tables.h"
#include "support/cop_trace.h"
#include "support/log.h"
#include "worker/can_formats.h"
#include "worker/multi_request.h"
#include "worker/raw_receive.h"
#include "worker/single_request.h"
#include "worker/worker_log.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kAddressPhysical = 1;
constexpr std::uint32_t kAddressFunctional = 2;

// The link's response table as it is now; empty after a failed copy, or when another thread has
// destroyed the link.
Ref<UniqueRespTable> ResponseTable(LinkRecord* link) {
    const LinkMutexGuard mutex(link, LinkUser::kWorker);
    return mutex ? link->unique_table : Ref<UniqueRespTable>();
}

struct Addressing {
    std::uint32_t mode = ReadComParam(kCpRequestAddrMode);
    std::uint32_t func_id = ReadComParam(kCpCanFuncReqId);
    std::uint32_t func_format = ReadComParam(kCpCanFuncReqFormat);
    std::uint32_t phys_id = ReadComParam(kCpCanPhysReqId);
    std::uint32_t phys_format = ReadComParam(kCpCanPhysReqFormat);
    std::uint32_t resp_id = ReadComParam(kCpCanRespUSDTId);
    std::uint32_t resp_format = ReadComParam(kCpCanRespUSDTFormat);
    std::uint32_t rc78 = ReadComParam(kCpRC78Handling);
};

void TraceAddressing(const LinkRecord& link, const ComPrimitive& cop, const Addressing& used) {
    TraceCopSendRecvMeta(TraceIds(cop), {.raw = link.rawMode,
                                         .reqAddrMode = used.mode,
                                         .canFuncReqId = used.func_id,
                                         .canFuncReqFormat = used.func_format,
                                         .canPhysReqId = used.phys_id,
                                         .canPhysReqFormat = used.phys_format,
                                         .canRespUSDTId = used.resp_id,
                                         .canRespUSDTFormat = used.resp_format,
                                         .rc78 = used.rc78});
}

// The ComParams only place the mark. The response table decides whether one or many are asked.
void LogAddressing(const Addressing& used) {
    if (used.mode != kAddressPhysical && used.mode != kAddressFunctional) return;
    const bool physical = used.mode == kAddressPhysical;
    WORKER_LOG(" %s Physical,   Address %X, Format %u - %s", physical ? ">" : " ", used.phys_id,
               used.phys_format, CanFormatName(used.phys_format));
    WORKER_LOG(" %s Functional, Address %X, Format %u - %s", physical ? " " : ">", used.func_id,
               used.func_format, CanFormatName(used.func_format));
}

void LogExpectedResponses(const PDU_COP_CTRL_DATA* control) {
    if (control == nullptr) return;
    for (std::uint32_t i = 0; i < control->NumPossibleExpectedResponses; ++i) {
        const PDU_EXP_RESP_DATA& expected = control->pExpectedResponseArray[i];
        const HexText mask(expected.pMaskData, expected.NumMaskPatternBytes);
        const HexText pattern(expected.pPatternData, expected.NumMaskPatternBytes);
        WORKER_LOG("     ID:%u [%s] %s/ %s", expected.AcceptanceId,
                   expected.ResponseType != 0 ? "NAK" : "ACK", mask.c_str(), pattern.c_str());
    }
}

void LogRequest(const ComPrimitive& cop) {
    if (!LogEnabled(kLogTrace)) return;
    const HexText payload(cop.pCoPData, cop.CoPDataSize);
    WORKER_LOG("   Payload:  %s", payload.c_str());
    LogExpectedResponses(cop.pCopCtrlData);
}

void TraceCandidates(const ComPrimitive& cop, const Addressing& used,
                     const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table) {
    if (!CopTraceActive()) return;
    for (std::uint32_t i = 0; i < table.NumEntries; ++i) {
        const PDU_ECU_UNIQUE_RESP_DATA& entry = table.pUniqueData[i];
        std::uint32_t phys_id = used.phys_id;
        std::uint32_t resp_id = used.resp_id;
        OverrideFromEntry(entry, kCpCanPhysReqId, &phys_id);
        OverrideFromEntry(entry, kCpCanRespUSDTId, &resp_id);
        TraceCopEcuCandidate(TraceIds(cop), i, entry.UniqueRespIdentifier, phys_id, resp_id);
    }
}

void Exchange(LinkRecord* link, ComPrimitive* cop, const Addressing& used) {
    LogRequest(*cop);
    const Ref<UniqueRespTable> reference = ResponseTable(link);
    if (!reference) {
        WORKER_LOG("   Failed to duplicate UniqueRespTable");
        cop_error(link, cop, kErrorNothingReceived);
        return;
    }
    const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table = reference->Item();
    const LoggedTableCopy copy(table);
    TraceCandidates(*cop, used, table);
    if (table.NumEntries >= 2) {
        RunMultiRequest(link, cop, table);
    } else {
        RunSingleRequest(link, cop, table);
    }
}

}  // namespace

void ExecuteSendRecv(LinkRecord* link, ComPrimitive* cop) {
    UpdateCopState(link, cop, PDU_COPST_EXECUTING);
    WORKER_LOG("   PDU_COPT_SENDRECV");
    const Addressing used;
    TraceAddressing(*link, *cop, used);
    LogAddressing(used);
    if (link->rawMode) {
        StartRawReception(link, cop);
    } else {
        Exchange(link, cop, used);
    }
    UpdateCopState(link, cop, cop->abort.load() ? PDU_COPST_CANCELLED : PDU_COPST_FINISHED);
    ConsolePrint("[%s:%d] > Client side delay was %llu ms\n", "CommThreadFunc", __LINE__,
                 static_cast<unsigned long long>(cop->duration));
}

}  // namespace tarvik
