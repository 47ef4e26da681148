#pragma once

#include <atomic>
#include <cstdint>

// A TCP connection, as the native carrier needs it.
namespace tarvik {

struct TcpSocket;
struct TcpAddresses;

// Call these before the first and after the last call of the others, in pairs; the system counts.
void StartNetwork();
void EndNetwork();

// getaddrinfo for a stream of any address family: 0, or its error code. Cannot be interrupted; see
// LookUpTcp.
int ResolveTcp(const char* host, const char* port, TcpAddresses** addresses);
void FreeTcpAddresses(TcpAddresses* addresses);

// Connects to the first address that answers, as ConnectToFirst does; the only time limit is the
// system's. Null: none did, or *abort was set, which it notices within 50 ms. The socket sends
// without delay.
TcpSocket* ConnectTcp(const TcpAddresses& addresses, const std::atomic<bool>& abort);
// Ends every current and later wait and transfer, and the connection to the peer. Any thread.
void AbortTcp(TcpSocket* socket);
// After the threads that use it have ended.
void CloseTcp(TcpSocket* socket);

enum class TcpWait : std::uint8_t { kReadable, kTimeout, kFailed };
// Readable: there are bytes, or the peer has ended.
TcpWait WaitForTcpData(TcpSocket* socket, std::int32_t timeout_ms);
// According to the last wait: the peer sends nothing more. What it sent may still be unread.
bool TcpPeerEnded(const TcpSocket* socket);
// Takes what there is, at most `size` bytes: their number, or below 1 for the end and for failures.
int PeekTcp(TcpSocket* socket, void* data, std::uint32_t size);
int ReadTcp(TcpSocket* socket, void* data, std::uint32_t size);
// Sends all of it. False: the connection has ended.
bool SendTcp(TcpSocket* socket, const void* data, std::uint32_t size);

}  // namespace tarvik
