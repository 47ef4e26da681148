// The cloud transport's time limits in its unit tests. The pauses, which are most of what the tests
// take, are short.
#include "transport/cloud/cloud_limits.h"

namespace tarvik {

const CloudLimits& GetCloudLimits() {
    static constexpr CloudLimits kLimits = {
        .step_pause_ms = 10,
        .thread_end_ms = 10,
        .connect_poll_ms = 10,
        .connect_stagger_ms = 50,
        .link_idle_ms = 20'000,
        .link_dead_ms = 30'000,
        .failure_box_quiet_s = 10,
        .transmit_wait_ms = 10,
        .receive_wait_ms = 20,
        .incomplete_pause_ms = 5,
        .invalid_pause_ms = 20,
        .send_poll_ms = 10,
        .answer_ms = 20,
        .link_poll_ms = 10,
        .login_wait_ms = 50,
        .websocket_connect_s = 60,
        .websocket_answer_s = 30,
        .websocket_pong_ms = 30'000,
        .websocket_closing_ms = 250,
    };
    return kLimits;
}

}  // namespace tarvik
