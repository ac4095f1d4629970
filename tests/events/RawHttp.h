// RawHttp.h - HTTP over plain sockets from a chosen loopback source address,
// so a test can be any camera (or any misbehaving peer) it likes.
#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace events_test {

struct Reply {
  int status = 0;  // 0: closed without an answer
  std::string headers;
  std::string body;
};

// A connected socket from `from` to `to`:`port`, or -1. Reads time out after 30 s.
int Connect(const std::string& from, const std::string& to, uint16_t port);
// Sends `request` on `fd` and reads one answer.
Reply Exchange(int fd, const std::string& request);
// Connects, exchanges and closes.
Reply Send(const std::string& from, const std::string& to, uint16_t port, const std::string& request);
std::string Post(const std::string& path, const std::string& body = "Motion detected camera=1\r\n");
// "address:port" of every TCP socket this process listens on.
std::set<std::string> ListeningSockets();

}  // namespace events_test
