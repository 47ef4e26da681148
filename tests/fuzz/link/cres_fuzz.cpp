// A CRES as the answer to a single request.

#include "fuzz_support.h"
#include "link/comm_request.h"

using namespace tarvik;
using namespace tarvik::fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::uint32_t kFixedSize = 20;
    Dongle dongle;
    PacketPtr packet = PacketFrom(kTypeCres, data, size);
    const PacketPtr sent = CopyPacket(*packet);
    Require(EnqueueReceivedPacket(&dongle, packet));
    if (sent->length < kFixedSize) {
        Require(QueueRemoveByTag(&dongle.rx, kNoTag) != nullptr);
        return 0;
    }

    const CommLink link = {&dongle, nullptr};
    const std::uint8_t request = 0x3E;
    CommAnswer answer;
    Require(CommRequest(&link,
                        {.req_id = sent->U32(16),
                         .data = &request,
                         .data_len = 1,
                         .can_id_tx = 0x7E0,
                         .can_id_rx = 0x7E8,
                         .timeout_ms = 25},
                        &answer));
    Require(answer.data != nullptr && answer.wait_time == sent->U32(8));
    Require(answer.length <= sent->length - kFixedSize);
    Require(std::memcmp(answer.data.get(), sent->Bytes() + kFixedSize, answer.length) == 0);
    return 0;
}
