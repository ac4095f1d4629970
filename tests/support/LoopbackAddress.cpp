#include "LoopbackAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>
#include <stdexcept>

namespace netcam_test {
namespace {

bool CanBind(const std::string& address, uint16_t port) {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return false;
  int one = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(port);
  ::inet_pton(AF_INET, address.c_str(), &sa.sin_addr);
  bool ok = ::bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0;
  ::close(fd);
  return ok;
}

}  // namespace

bool CanBindPrivilegedPorts() {
  static const bool can = [] {
    // Port 1 on an unusual address: nobody else uses it, so failure means
    // permission.
    return CanBind("127.0.0.1", 1) || CanBind("127.255.0.1", 1);
  }();
  return can;
}

std::string UniqueLoopbackAddress(uint16_t port) {
  static thread_local std::mt19937 random{std::random_device{}() ^ static_cast<unsigned>(::getpid())};
  std::uniform_int_distribution<int> second(16, 254), third(0, 255), fourth(1, 254);
  for (int attempt = 0; attempt < 64; ++attempt) {
    std::string address = "127." + std::to_string(second(random)) + "." + std::to_string(third(random)) + "." +
                          std::to_string(fourth(random));
    if (CanBind(address, port)) return address;
  }
  throw std::runtime_error("no free loopback address for port " + std::to_string(port));
}

}  // namespace netcam_test
