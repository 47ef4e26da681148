// A CRES in multi form, answering a request to several control units. The input follows the marker
// of the form: count, request id, entries.

#include "fuzz_support.h"
#include "link/comm_request.h"

using namespace tarvik;
using namespace tarvik::fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 8) return 0;  // no request id: answers nothing
    std::uint8_t payload[MAX_PKT_SIZE] = {0xFD, 0xFF, 0xFF, 0xFF};
    size = std::min<std::size_t>(size, sizeof payload - 4);
    std::memcpy(payload + 4, data, size);
    Dongle dongle;
    PacketPtr packet = PacketFrom(kTypeCres, payload, size + 4);
    const std::uint32_t length = packet->length;
    const std::uint32_t req_id = packet->U32(16);
    Require(EnqueueReceivedPacket(&dongle, packet));

    const CommLink link = {&dongle, nullptr};
    const std::uint8_t bytes[] = {0x22, 0xF1, 0x90};
    CommMultiEntry entries[4] = {};
    for (std::uint32_t i = 0; i < 4; ++i)
        entries[i].id = i;
    CommMultiRequest request = {.req_id = req_id,
                                .can_id_tx_func = 0x7DF,
                                .count = 4,
                                .entries = entries,
                                .data = bytes,
                                .data_len = sizeof bytes,
                                .timeout_ms = 25};
    Require(CommRequestMulti(&link, &request, nullptr));
    std::uint64_t received = 0;
    for (const CommMultiEntry& entry : entries) {
        Require(entry.rsp_len == 0 || entry.rsp_data != nullptr);
        received += entry.rsp_len;
        FreeMem(entry.rsp_data);
    }
    Require(received <= length - 20);
    return 0;
}
