#pragma once

#include <cstdint>
#include <memory>

#include "dpdu_types.h"

// Making and releasing the items that reach the application. Whatever FreePduItem does not release
// separately lies in the item's own block, so that nothing leaks.
namespace tarvik {

// Releases an item of any type by the ownership rules; null does nothing.
void FreePduItem(PDU_ITEM* item);

// Releases an event item that never reached the application, and logs nothing. Information items
// are included: FreePduItem leaves those alone, since they may be the application's.
struct ReleaseEvent {
    void operator()(PDU_EVENT_ITEM* event) const noexcept;
};
using EventPtr = std::unique_ptr<PDU_EVENT_ITEM, ReleaseEvent>;

// Each is null when memory is out. Time stamps are taken now.
EventPtr MakeStatusItem(std::uint32_t hCop, void* pCoPTag, std::uint32_t status);
EventPtr MakeErrorItem(std::uint32_t hCop, void* pCoPTag, std::uint32_t error_code);
EventPtr MakeInfoItem(std::uint32_t info_code);

struct ResultContent {
    std::uint32_t hCop;
    void* pCoPTag;
    std::uint32_t unique_resp_identifier;
    std::uint32_t acceptance_id;
    std::uint8_t* data;  // a tracked block; taken over on success, the caller's on failure
    std::uint32_t data_length;
    bool tx_done_timestamp;      // 4 TimestampFlags bytes and TxMsgDoneTimestamp = time stamp
    std::uint8_t rx_flag_byte2;  // third byte of the 4 RxFlag bytes
};
EventPtr MakeResultItem(const ResultContent& content);

}  // namespace tarvik
