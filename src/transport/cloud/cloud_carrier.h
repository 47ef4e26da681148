#pragma once

#include "platform/thread.h"

namespace tarvik {

// How packets reach the relay: over TCP, or over a WebSocket.
struct CloudCarrier {
    // Connects and starts the receive and the transmit thread. False, which it has logged: the
    // threads that it has started run on, until they are stopped.
    bool (*Connect)();
    // Makes its threads end soon. Any thread, at any time.
    void (*Abort)();
    // After its threads have ended; also when Connect has failed.
    void (*Disconnect)();
};
extern const CloudCarrier kNativeCarrier;
extern const CloudCarrier kWebSocketCarrier;

// Starts one of the two threads of a connection and logs so. Null: the system refused.
OsThread* StartCarrierThread(OsThreadEntry entry, const char* description, const char* entry_name,
                             const char* log_name);

}  // namespace tarvik
