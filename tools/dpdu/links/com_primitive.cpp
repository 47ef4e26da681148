#include "links/com_primitive.h"

#include "console/failure.h"
#include "console/interruption.h"
#include "pdu/status_text.h"

namespace dpdu {
namespace {

using Clock = std::chrono::steady_clock;

// How long to wait for the end of a cancelled ComPrimitive before destroying its link.
constexpr std::chrono::milliseconds kCancelLimit{1000};

// Libraries may keep the pointer to the transmit flags until the ComPrimitive ends.
UNUM8 no_tx_flags[4] = {0, 0, 0, 0};
UNUM8 tx_flags_29_bit[4] = {0, 0, PDU_TX_FLAG2_CAN_29BIT_ID, 0};

std::string LimitText(std::chrono::milliseconds limit) {
    const bool is_whole = limit.count() % 1000 == 0;
    return is_whole ? std::to_string(limit.count() / 1000) + " s"
                    : std::to_string(limit.count()) + " ms";
}

UNUM8* InputBytes(const Bytes& bytes) { return const_cast<UNUM8*>(bytes.data()); }

std::vector<PDU_EXP_RESP_DATA> ExpectedRecords(const std::vector<ExpectedResponse>& expected) {
    std::vector<PDU_EXP_RESP_DATA> records;
    for (const ExpectedResponse& response : expected) {
        PDU_EXP_RESP_DATA record = {};
        record.ResponseType = response.is_negative ? 1 : 0;
        record.AcceptanceId = static_cast<UNUM32>(records.size() + 1);
        record.NumMaskPatternBytes = static_cast<UNUM32>(response.pattern.size());
        record.pMaskData = InputBytes(response.mask);
        record.pPatternData = InputBytes(response.pattern);
        records.push_back(record);
    }
    return records;
}

// A ComPrimitive in execution with its results so far.
class Execution {
public:
    Execution(Session* session, const LinkHandles& link) : session_(session), link_(link) {}

    void Start(const ComPrimitive& primitive) {
        ends_on_interruption_ = primitive.ends_on_interruption;
        handle_ = StartComPrimitive(*session_, link_, primitive);
    }

    // False on time-out. Throws Failure if the user interrupts the program, unless the ComPrimitive
    // must be finished anyway.
    bool WaitUntilFinished(std::chrono::milliseconds limit) {
        const Clock::time_point deadline = Clock::now() + limit;
        for (;;) {
            LookAtQueues();
            if (finished_) return true;
            if (Clock::now() >= deadline) return false;
            session_->PauseForEvent();
            if (ends_on_interruption_) ThrowIfInterrupted();
        }
    }

    // Gives the library some time to end it; drops results that arrive meanwhile.
    void Cancel() {
        session_->Functions().CancelComPrimitive(link_.module, link_.link, handle_);
        const Clock::time_point deadline = Clock::now() + kCancelLimit;
        while (!finished_ && Clock::now() < deadline) {
            session_->PauseForEvent();
            LookAtQueues();
        }
    }

    Exchange TakeResult() { return std::move(result_); }

private:
    void LookAtQueues() {
        session_->DrainQueue(link_.module, link_.link,
                             [this](const PDU_EVENT_ITEM& item) { LookAt(item); });
        session_->DrainQueue(link_.module, PDU_HANDLE_UNDEF,
                             [this](const PDU_EVENT_ITEM& item) { NoteError(item); });
        session_->DiscardQueue(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF);
    }

    void LookAt(const PDU_EVENT_ITEM& item) {
        if (item.hCop == PDU_HANDLE_UNDEF) return NoteError(item);  // belongs to the link
        if (item.hCop != handle_ || !item.pData) return;
        if (item.ItemType == PDU_IT_RESULT) {
            Answer& answer = result_.answers.emplace_back(ReadAnswer(item));
            if (started_us_) answer.after_us = answer.timestamp_us - *started_us_;
        } else if (item.ItemType == PDU_IT_ERROR) {
            NoteError(item);
        } else if (item.ItemType == PDU_IT_STATUS) {
            const T_PDU_STATUS state = *static_cast<const PDU_STATUS_DATA*>(item.pData);
            if (state == PDU_COPST_EXECUTING) started_us_ = item.Timestamp;
            finished_ = IsFinalState(state);
        }
    }

    void NoteError(const PDU_EVENT_ITEM& item) {
        if (item.ItemType != PDU_IT_ERROR || !item.pData) return;
        const T_PDU_ERR_EVT code = static_cast<const PDU_ERROR_DATA*>(item.pData)->ErrorCodeId;
        result_.error = ErrorEventText(code);
        result_.code = ErrorEventCode(code);
    }

    Session* session_;
    LinkHandles link_;
    UNUM32 handle_ = PDU_HANDLE_UNDEF;
    bool ends_on_interruption_ = true;
    bool finished_ = false;
    std::optional<UNUM32> started_us_;
    Exchange result_;
};

}  // namespace

UNUM32 StartComPrimitive(const Session& session, const LinkHandles& link,
                         const ComPrimitive& primitive) {
    std::vector<PDU_EXP_RESP_DATA> expected = ExpectedRecords(primitive.expected);
    PDU_COP_CTRL_DATA control = {};
    control.NumSendCycles = primitive.send_cycles;
    control.NumReceiveCycles = primitive.receive_cycles;
    control.TxFlag = {sizeof no_tx_flags, primitive.is_29_bit ? tx_flags_29_bit : no_tx_flags};
    control.NumPossibleExpectedResponses = static_cast<UNUM32>(expected.size());
    control.pExpectedResponseArray = expected.data();
    UNUM32 handle = PDU_HANDLE_UNDEF;
    Check(session.Functions().StartComPrimitive(
              link.module, link.link, primitive.type, static_cast<UNUM32>(primitive.request.size()),
              InputBytes(primitive.request), &control, nullptr, &handle),
          "PDUStartComPrimitive");
    return handle;
}

Answer ReadAnswer(const PDU_EVENT_ITEM& item) {
    const auto* result = static_cast<const PDU_RESULT_DATA*>(item.pData);
    Answer answer;
    answer.unique_id = result->UniqueRespIdentifier;
    answer.acceptance_id = result->AcceptanceId;
    answer.timestamp_us = item.Timestamp;
    if (result->pDataBytes) {
        answer.data.assign(result->pDataBytes, result->pDataBytes + result->NumDataBytes);
    }
    return answer;
}

bool IsFinalState(T_PDU_STATUS state) {
    return state == PDU_COPST_FINISHED || state == PDU_COPST_CANCELLED;
}

Exchange Execute(Session* session, const LinkHandles& link, const ComPrimitive& primitive,
                 std::chrono::milliseconds limit) {
    Execution execution(session, link);
    execution.Start(primitive);
    try {
        if (!execution.WaitUntilFinished(limit)) {
            throw Failure("the library did not finish the request within " + LimitText(limit),
                          ExitCode::kNoAnswer);
        }
    } catch (const Failure&) {
        execution.Cancel();
        throw;
    }
    return execution.TakeResult();
}

}  // namespace dpdu
