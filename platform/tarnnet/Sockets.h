// Sockets.h - the few socket calls the HTTP server makes itself, for Linux and
// Windows (libmicrohttpd does the rest).
#pragma once

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <microhttpd.h>

namespace tarnnet {

// True when the peer has closed its side: an orderly end of stream is waiting
// to be read. Never blocks and consumes nothing.
inline bool PeerHasClosed(MHD_socket socket) {
  char byte = 0;
#ifdef _WIN32
  // Windows has no per-call non-blocking flag: ask whether a read would block first.
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(socket, &readable);
  timeval now{0, 0};
  if (select(0, &readable, nullptr, nullptr, &now) != 1) return false;
  return recv(socket, &byte, 1, MSG_PEEK) == 0;
#else
  return recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
#endif
}

// Ends both directions; the socket stays open until its owner closes it.
inline void ShutdownSocket(MHD_socket socket) {
#ifdef _WIN32
  shutdown(socket, SD_BOTH);
#else
  shutdown(socket, SHUT_RDWR);
#endif
}

inline void CloseSocket(MHD_socket socket) {
#ifdef _WIN32
  closesocket(socket);
#else
  close(socket);
#endif
}

}  // namespace tarnnet
