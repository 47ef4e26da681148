#pragma once

#include <atomic>
#include <cstdint>

#include "dpdu_types.h"
#include "objects/lifecycle.h"
#include "platform/thread.h"
#include "support/cop_trace.h"
#include "support/counted.h"

namespace tarvik {

// How far the reception of a receive thread has got in the dongle.
enum class Reception : std::uint8_t { kNotBegun, kOn, kOver };

// One unit of work on a link. References are held by the link's registry until the worker is done
// with it, by its receive thread, by the queue it waits in and by every thread that works on it.
// Only the worker writes it, except for the atomics.
struct ComPrimitive : Counted {
    ~ComPrimitive();

    std::uint32_t hCoP = 0;
    std::atomic<std::uint32_t> state{PDU_COPST_IDLE};
    std::uint32_t hMod = 0;
    std::uint32_t hCLL = 0;
    std::uint32_t CoPType = 0;
    std::uint32_t CoPDataSize = 0;
    std::uint8_t* pCoPData = nullptr;           // own copy; null for size 0
    PDU_COP_CTRL_DATA* pCopCtrlData = nullptr;  // own deep copy; null when none was given
    void* pCoPTag = nullptr;
    void* CllTag = nullptr;  // filled in when the worker takes it
    std::atomic<bool> abort{false};
    std::uint64_t lastChange = 0;  // tick in ms of the last state change; 0 before the first
    std::uint64_t duration = 0;    // ms that the previous state lasted

    // Raw links only.
    bool extended_frame = false;         // of a frame to send; from the TxFlag
    bool has_receive_thread = false;     // now or earlier: it stays registered until the clean-up
    OsThread* receive_thread = nullptr;  // null again once its end was noticed
    std::atomic<std::uint32_t> receive_thread_id{0};
    ThreadCalls receiver_calls;                  // that callbacks of the thread are inside
    Reception reception = Reception::kNotBegun;  // guarded by the link's reception_mutex
};

// Its handles, for the trace.
inline TraceCop TraceIds(const ComPrimitive& cop) { return {cop.hMod, cop.hCLL, cop.hCoP}; }

// Deep copy of the caller's control data in tracked blocks; only the TxFlag bytes stay the
// caller's. Null for null, or when memory is out.
PDU_COP_CTRL_DATA* CopyControlData(const PDU_COP_CTRL_DATA* source);
void FreeControlData(PDU_COP_CTRL_DATA* data);

}  // namespace tarvik
