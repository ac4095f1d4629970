// TestSockets.h - plain TCP for tests that play a peer of our servers (a
// camera posting alarms, a misbehaving client), on Linux and on Windows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace netcam_test {

#ifdef _WIN32
using Socket = uintptr_t;  // SOCKET
#else
using Socket = int;
#endif
extern const Socket kNoSocket;

// A socket bound to `from` (any port) and connected to `to`:`port`, or
// kNoSocket; its reads time out after `receiveTimeoutSeconds`.
Socket ConnectFrom(const std::string& from, uint16_t port, const std::string& to = "127.0.0.1",
                   int receiveTimeoutSeconds = 30);
// Sends every byte; false when the connection failed.
bool SendBytes(Socket socket, const void* data, size_t size);
// What recv returns: the bytes read, 0 at the peer's orderly close, < 0 on error or time-out.
long ReceiveBytes(Socket socket, void* buffer, size_t size);
// True when the peer has closed its side; never blocks and consumes nothing.
bool PeerHasClosed(Socket socket);
// Closes it; kNoSocket is ignored.
void CloseSocket(Socket socket);

// True when `port` on `address` could be bound just now (0: any port).
bool CanBind(const std::string& address, uint16_t port);
// A port the system just handed out on `address`, now free again.
uint16_t EphemeralPort(const std::string& address);

}  // namespace netcam_test
