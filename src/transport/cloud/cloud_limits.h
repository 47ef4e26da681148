#pragma once

#include <cstdint>

namespace tarvik {

// The time limits of the cloud transport.
struct CloudLimits {
    // The connection.
    std::int32_t step_pause_ms;         // between two steps of the connection thread
    std::int32_t thread_end_ms;         // of one wait for a connection's thread to end
    std::int32_t connect_poll_ms;       // how late a look-up or a connect notices an abort
    std::int32_t connect_stagger_ms;    // before another address is tried beside those before
    std::int32_t link_idle_ms;          // before an idle TCP connection's peer is probed
    std::int32_t link_dead_ms;          // until it counts as dead; both in whole seconds
    std::uint32_t failure_box_quiet_s;  // after a failure box, none is shown for so long
    // Packets.
    std::int32_t transmit_wait_ms;      // of one wait for a packet to send
    std::int32_t receive_wait_ms;       // of one wait for bytes on a TCP stream
    std::uint32_t incomplete_pause_ms;  // before a header that is not all there is read again
    std::uint32_t invalid_pause_ms;     // before a header with an impossible length is read again
    std::int32_t send_poll_ms;          // how late a TCP send that has no room notices an abort
    // The secure channel.
    std::uint32_t answer_ms;  // for NHS2, and for DEVA
    // A scan.
    std::int32_t link_poll_ms;    // how late a scan that waits for the link notices its end
    std::uint32_t login_wait_ms;  // of one wait for a login
    // The WebSocket client.
    std::uint32_t websocket_connect_s;  // to connect to the server or to its proxy
    std::uint32_t websocket_answer_s;   // of the proxy, the TLS handshake and the upgrade
    std::int32_t websocket_pong_ms;     // between two pongs that keep the connection open
    std::int32_t websocket_closing_ms;  // for the system to report that the handles are closed
};

const CloudLimits& GetCloudLimits();

}  // namespace tarvik
