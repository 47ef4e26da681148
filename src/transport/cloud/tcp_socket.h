#pragma once

#include <atomic>
#include <cstdint>

// The system's TCP connection, as the native carrier needs it.
namespace tarvik {

struct TcpSocket;
struct TcpAddresses;

// Before the first and after the last call of the others, in pairs; counted by the system.
void StartNetwork();
void EndNetwork();

// getaddrinfo for a stream of any address family: 0, or its error code. Not to be
// interrupted; see LookUpTcp.
int ResolveTcp(const char* host, const char* port, TcpAddresses** addresses);
void FreeTcpAddresses(TcpAddresses* addresses);

// Connects to the first address that answers; there is no time limit but the system's own. Null:
// none did, or *abort was set, which it sees within 50 ms. The socket sends without delay.
TcpSocket* ConnectTcp(const TcpAddresses& addresses, const std::atomic<bool>& abort);
// Ends every wait and transfer, those to come included, and tells the peer. Any thread.
void AbortTcp(TcpSocket* socket);
// After the threads that use it have ended.
void CloseTcp(TcpSocket* socket);

enum class TcpWait : std::uint8_t { kReadable, kTimeout, kFailed };
// Readable means: bytes are there, or the peer has ended.
TcpWait WaitForTcpData(TcpSocket* socket, std::int32_t timeout_ms);
// As the last wait has found it: the peer sends nothing more. What it sent may be unread still.
bool TcpPeerEnded(const TcpSocket* socket);
// What is there, at most `size` bytes: their number, or below 1 for the end and for failures.
int PeekTcp(TcpSocket* socket, void* data, std::uint32_t size);
int ReadTcp(TcpSocket* socket, void* data, std::uint32_t size);
// All of it; false when the connection has ended meanwhile.
bool SendTcp(TcpSocket* socket, const void* data, std::uint32_t size);

}  // namespace tarvik
