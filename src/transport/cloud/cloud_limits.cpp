#include "transport/cloud/cloud_limits.h"

namespace tarvik {

const CloudLimits& GetCloudLimits() {
    static constexpr CloudLimits kLimits = {
        .step_pause_ms = 100,
        .thread_end_ms = 100,
        .connect_poll_ms = 50,
        .connect_stagger_ms = 250,
        .link_idle_ms = 20'000,
        .link_dead_ms = 30'000,
        .failure_box_quiet_s = 10,
        .transmit_wait_ms = 50,
        .receive_wait_ms = 100,
        .incomplete_pause_ms = 5,
        .invalid_pause_ms = 100,
        .send_poll_ms = 50,
        .answer_ms = 1000,
        .link_poll_ms = 50,
        .login_wait_ms = 500,
        .websocket_connect_s = 60,
        .websocket_answer_s = 30,
        .websocket_pong_ms = 30'000,
        .websocket_closing_ms = 250,
    };
    return kLimits;
}

}  // namespace tarvik
