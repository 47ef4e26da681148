#pragma once

#include <cstdint>

#include "api/dpdu_types.h"

// Making and releasing the items that reach the application. Whatever the release table of
// FreePduItem does not name lies in the item's own block, so that nothing leaks.
namespace tarvik {

// Each is null when memory is out. Time stamps are taken now.
PDU_EVENT_ITEM* MakeStatusItem(std::uint32_t hCop, void* pCoPTag, std::uint32_t status);
PDU_EVENT_ITEM* MakeErrorItem(std::uint32_t hCop, void* pCoPTag, std::uint32_t error_code);
PDU_EVENT_ITEM* MakeInfoItem(std::uint32_t info_code);

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
PDU_EVENT_ITEM* MakeResultItem(const ResultContent& content);

// Releases an item of any type by the ownership rules; null does nothing.
void FreePduItem(PDU_ITEM* item);

}  // namespace tarvik
