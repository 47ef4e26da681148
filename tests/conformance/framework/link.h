#pragma once

// A logical link as tests use it, and the events that its requests produce.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "conformance/framework/library.h"

namespace conformance {

// Like Eventually, for what needs the port of a dongle to be connected. A busy machine may miss the
// 300 ms in which a port must answer, and such a port is left alone until it comes back: the dongle
// is pulled out and put back now and then, as a user would.
bool EventuallyConnected(const std::function<bool()>& happened, int dongle = 0);

// The first module that a scan finds, with patience; fails the test when there is none.
UNUM32 FindModule();

// The resource data of UDS on CAN, the ids asked from the library.
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

    // The last state, 0 when there was none.
    UNUM32 FinalState() const { return states.empty() ? 0 : states.back(); }
    bool IsFinal() const {
        return FinalState() == PDU_COPST_FINISHED || FinalState() == PDU_COPST_CANCELLED;
    }
    // An event of this ComPrimitive; fails the test when it is of a kind that has none.
    void Add(const PDU_EVENT_ITEM& event);
};

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
    // What the TxFlag says of the frame that a raw link sends.
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

// Created at once, destroyed at the end of its scope unless that happened before.
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

    UNUM32 State() const;
    // The ids of one control unit, through a unique response table of one entry.
    void Address(UNUM32 request_id, UNUM32 response_id);

    // PDU_HANDLE_UNDEF: the library refused it, which fails the test.
    UNUM32 Start(UNUM32 type, const std::vector<UNUM8>& data = {},
                 PDU_COP_CTRL_DATA* control = nullptr, void* tag = nullptr);
    // Takes events until the ComPrimitive is finished or cancelled; fails the test when that does
    // not come. Events of other ComPrimitives and of the link itself are dropped.
    Outcome WaitFor(UNUM32 hCoP);
    // Start and WaitFor of a SENDRECV that expects anything.
    Outcome Request(const std::vector<UNUM8>& data,
                    const std::vector<Expected>& expected = AnyResponse());

    void DropEvents();
    // Returns when the link's worker is done with all that was started before, callbacks included;
    // an event alone does not tell, as its callback comes behind it. Runs a ComPrimitive of its
    // own.
    void Settle();

private:
    UNUM32 hMod_;
    UNUM32 hCLL_ = PDU_HANDLE_UNDEF;
    bool destroyed_ = false;
};

std::string Hex(const std::vector<UNUM8>& bytes);  // "62 F1 90"

}  // namespace conformance
