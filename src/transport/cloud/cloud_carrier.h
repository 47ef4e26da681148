#pragma once

#include <cstdint>

#include "link/packet.h"
#include "platform/thread.h"

namespace tarvik {

// How packets reach the relay: over TCP, or over a WebSocket.
struct CloudCarrier {
    // Connects and starts the receive and the transmit thread. False: it failed, which it has
    // logged. Threads that it has started continue until they are stopped.
    bool (*Connect)();
    // Makes its threads end soon. Any thread, at any time.
    void (*Abort)();
    // After its threads have ended; also after a failed Connect.
    void (*Disconnect)();
};
extern const CloudCarrier kNativeCarrier;
extern const CloudCarrier kWebSocketCarrier;

// One of the two threads of a connection.
struct CarrierThread {
    OsThreadEntry entry;
    const char* description;
    const char* entry_name;
};

struct CarrierThreads {
    CarrierThread receive;
    CarrierThread transmit;
    const char* log_name;                       // of the function that starts them
    void (*LogFailure)(const char* direction);  // "RX" or "TX": the thread could not be started
};

// Starts the receive thread, then the transmit thread. False: logged; one may run already.
bool StartCarrierThreads(const CarrierThreads& threads);
// Closes a thread that has ended and logs that under these names.
void CloseCarrierThread(OsThread** thread, const char* log_name, const char* name);

// The receive thread's loop: until the connection ends or `receive` returns false.
void RunReceiver(bool (*receive)());

// The transmit thread's loop: until the connection ends or `send` fails. `send` returns 0 or an
// error code, which LogFailure, unless it is null, gets once the packet is back in its queue.
struct PacketSender {
    std::uint32_t (*send)(const Packet& packet);
    void (*LogFailure)(std::uint32_t error);
};
void RunTransmitter(const PacketSender& sender, const char* log_name);

}  // namespace tarvik
