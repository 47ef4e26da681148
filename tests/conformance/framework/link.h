#pragma once

// A logical link for tests, and the events that its requests produce.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "conformance/framework/library.h"

namespace conformance {

// Like Eventually, for conditions that need a connected dongle. On a busy machine a port may miss
// the 300 ms in which it must answer, and the library then ignores it until it comes back. So the
// dongle is pulled out and plugged in again now and then, as a user would.
bool EventuallyConnected(const std::function<bool()>& happened, int dongle = 0);

// The first module that a scan finds; waits for one, and fails the test if none appears.
UNUM32 FindModule();

// The resource data of UDS on CAN, with the ids from the library.
PDU_RSC_DATA CanResource();

struct Result {
    std::vector<UNUM8> data;
    UNUM32 unique_id;
    UNUM32 acceptance_id;
    std::vector<UNUM8> rx_flag;
};
Result ResultOf(const PDU_EVENT_ITEM& event);  // of a result item

// What one ComPrimitive produced up to its final state.
struct Outcome {
    UNUM32 hCoP = PDU_HANDLE_UNDEF;
    std::vector<UNUM32> states;
    std::vector<UNUM32> errors;
    std::vector<Result> results;

    // The last state, 0 if there was none.
    UNUM32 FinalState() const { return states.empty() ? 0 : states.back(); }
    bool IsFinal() const {
        return FinalState() == PDU_COPST_FINISHED || FinalState() == PDU_COPST_CANCELLED;
    }
    // Adds an event of this ComPrimitive; fails the test if a ComPrimitive has no events of that
    // kind.
    void Add(const PDU_EVENT_ITEM& event);
};

// The ComPrimitive finished with only this error and without a result.
void ExpectError(const Outcome& outcome, UNUM32 error);

// One expected response.
struct Expected {
    UNUM32 type = 0;  // 0 positive, 1 negative
    UNUM32 acceptance_id = 1;
    std::vector<UNUM8> mask;
    std::vector<UNUM8> pattern;
};
// Any response at all.
std::vector<Expected> AnyResponse();

// The control data of a ComPrimitive and everything it points to.
class ControlData {
public:
    explicit ControlData(std::vector<Expected> expected = AnyResponse(), SNUM32 send_cycles = 1,
                         SNUM32 receive_cycles = 1);
    ControlData(const ControlData&) = delete;
    ControlData& operator=(const ControlData&) = delete;
    PDU_COP_CTRL_DATA* Data() { return &data_; }
    // What the TxFlag says about the frame that a raw link sends.
    ControlData& Extended() {
        tx_flag_[2] = 1;
        return *this;
    }

private:
    std::vector<Expected> expected_;
    std::vector<PDU_EXP_RESP_DATA> records_;
    UNUM8 tx_flag_[4] = {};
    PDU_COP_CTRL_DATA data_{};
};

// Created by the constructor, destroyed at the end of the scope unless it already is.
class Link {
public:
    // UDS on CAN; `create_flag` is the first byte of the creation flag.
    explicit Link(UNUM32 hMod, void* tag = nullptr, UNUM8 create_flag = 0);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    UNUM32 hMod() const { return hMod_; }
    UNUM32 hCLL() const { return hCLL_; }
    T_PDU_ERROR Connect() { return Pdu().PDUConnect(hMod_, hCLL_); }
    T_PDU_ERROR Disconnect() { return Pdu().PDUDisconnect(hMod_, hCLL_); }
    T_PDU_ERROR Destroy();
    T_PDU_ERROR Cancel(UNUM32 hCoP) { return Pdu().PDUCancelComPrimitive(hMod_, hCLL_, hCoP); }
    T_PDU_ERROR Register(CALLBACKFNC callback) {
        return Pdu().PDURegisterEventCallback(hMod_, hCLL_, callback);
    }

    UNUM32 State() const;
    // The ids of one control unit, through a unique response table of one entry.
    void Address(UNUM32 request_id, UNUM32 response_id);

    // PDU_HANDLE_UNDEF if the library refused it, which fails the test.
    UNUM32 Start(UNUM32 type, const std::vector<UNUM8>& data = {},
                 PDU_COP_CTRL_DATA* control = nullptr, void* tag = nullptr);
    // Takes events until the ComPrimitive is finished or cancelled; fails the test if that does not
    // happen. Events of other ComPrimitives and of the link itself are dropped.
    Outcome WaitFor(UNUM32 hCoP);
    // Starts a SENDRECV.
    UNUM32 StartRequest(const std::vector<UNUM8>& data,
                        const std::vector<Expected>& expected = AnyResponse());
    // StartRequest and WaitFor.
    Outcome Request(const std::vector<UNUM8>& data,
                    const std::vector<Expected>& expected = AnyResponse());

    void DropEvents();
    // Returns when the link's worker has finished everything that was started before, including
    // callbacks. An event alone does not show that, because its callback follows it. Runs a
    // ComPrimitive of its own.
    void Settle();

private:
    UNUM32 hMod_;
    UNUM32 hCLL_ = PDU_HANDLE_UNDEF;
    bool destroyed_ = false;
};

std::string Hex(const std::vector<UNUM8>& bytes);  // "62 F1 90"

}  // namespace conformance
