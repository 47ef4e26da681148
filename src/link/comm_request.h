#pragma once

#include <atomic>
#include <cstdint>

#include "link/packet_queue.h"

namespace tarvik {

// The link an exchange belongs to. Clearing `running` (null: never cleared) ends the exchange
// within 100 ms.
struct CommLink {
    DeviceQueues* queues;
    const std::atomic<bool>* running;
};

struct CommAnswer {
    std::uint32_t length = 0;
    Tracked<std::uint8_t> data;   // never null after success, not even for length 0
    std::uint32_t wait_time = 0;  // of the CRES
};

struct CommRequestData {
    std::uint32_t req_id;
    const std::uint8_t* data;  // must not be null, not even for 0 bytes
    std::uint32_t data_len;    // above 65535 the exchange fails and nothing is sent
    std::uint32_t can_id_tx;
    std::uint32_t can_id_rx;
    std::uint32_t timeout_ms;  // the dongle gets 500 ms more
};

// One request, one answer, up to 3 attempts. Blocks. The process runs at most 10 exchanges at a
// time; further ones wait.
bool CommRequest(const CommLink* link, const CommRequestData& request, CommAnswer* answer);

struct CommMultiEntry {
    std::uint32_t id;
    std::uint32_t addr_a;
    std::uint32_t addr_b;
    std::uint32_t rsp_len;   // set if this responder answered
    std::uint8_t* rsp_data;  // set if this responder answered: a tracked block, freed by the caller
};

struct CommMultiRequest {
    std::uint32_t req_id;
    std::uint32_t can_id_tx_func;
    std::uint32_t count;
    CommMultiEntry* entries;
    const std::uint8_t* data;  // may be null for 0 bytes
    std::uint32_t data_len;    // above 65535 the exchange fails and nothing is sent
    std::uint32_t timeout_ms;
};

// One request to several control units; their answers go to the entries with their ids.
// `abort` (may be null) ends the exchange within 100 ms.
bool CommRequestMulti(const CommLink* link, CommMultiRequest* request,
                      const std::atomic<bool>* abort);

}  // namespace tarvik
