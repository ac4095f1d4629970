#include "TestSockets.h"

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace netcam_test {

#ifdef _WIN32
const Socket kNoSocket = INVALID_SOCKET;

namespace {
// Winsock must be started before the first socket; once per process is enough.
const bool g_winsockStarted = [] {
  WSADATA data;
  return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}();
constexpr int kNoSignal = 0;
}  // namespace

void CloseSocket(Socket socket) {
  if (socket != kNoSocket) closesocket(socket);
}
#else
const Socket kNoSocket = -1;

namespace {
constexpr int kNoSignal = MSG_NOSIGNAL;
}

void CloseSocket(Socket socket) {
  if (socket != kNoSocket) close(socket);
}
#endif

namespace {

sockaddr_in Address(const std::string& text, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  inet_pton(AF_INET, text.c_str(), &address.sin_addr);
  return address;
}

bool Bind(Socket socket, const std::string& text, uint16_t port) {
  const sockaddr_in address = Address(text, port);
  return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

Socket ConnectFrom(const std::string& from, uint16_t port, const std::string& to, int receiveTimeoutSeconds) {
  const Socket socket = ::socket(AF_INET, SOCK_STREAM, 0);
  if (socket == kNoSocket) return kNoSocket;
#ifdef _WIN32
  const DWORD timeout = static_cast<DWORD>(receiveTimeoutSeconds) * 1000;
#else
  const timeval timeout{receiveTimeoutSeconds, 0};
#endif
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&timeout), sizeof timeout);
  const sockaddr_in remote = Address(to, port);
  if (Bind(socket, from, 0) && connect(socket, reinterpret_cast<const sockaddr*>(&remote), sizeof remote) == 0)
    return socket;
  CloseSocket(socket);
  return kNoSocket;
}

bool SendBytes(Socket socket, const void* data, size_t size) {
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const auto sent = send(socket, bytes, static_cast<int>(size), kNoSignal);
    if (sent <= 0) return false;
    bytes += sent;
    size -= static_cast<size_t>(sent);
  }
  return true;
}

long ReceiveBytes(Socket socket, void* buffer, size_t size) {
  return static_cast<long>(recv(socket, static_cast<char*>(buffer), static_cast<int>(size), 0));
}

bool PeerHasClosed(Socket socket) {
  char byte = 0;
#ifdef _WIN32
  // A zero-time select first: Windows has no per-call non-blocking flag.
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(socket, &readable);
  timeval now{0, 0};
  return select(0, &readable, nullptr, nullptr, &now) == 1 && recv(socket, &byte, 1, MSG_PEEK) == 0;
#else
  return recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
#endif
}

bool CanBind(const std::string& address, uint16_t port) {
  const Socket socket = ::socket(AF_INET, SOCK_STREAM, 0);
  if (socket == kNoSocket) return false;
#ifndef _WIN32
  // Linux keeps a closed listener's port for a while; Windows would let two share it.
  const int one = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
#endif
  const bool bound = Bind(socket, address, port);
  CloseSocket(socket);
  return bound;
}

uint16_t EphemeralPort(const std::string& address) {
  const Socket socket = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in bound{};
  socklen_t length = sizeof bound;
  uint16_t port = 0;
  if (socket != kNoSocket && Bind(socket, address, 0) &&
      getsockname(socket, reinterpret_cast<sockaddr*>(&bound), &length) == 0)
    port = ntohs(bound.sin_port);
  CloseSocket(socket);
  return port;
}

}  // namespace netcam_test
