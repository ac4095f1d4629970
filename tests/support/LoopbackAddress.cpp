#include "LoopbackAddress.h"

#include <chrono>
#include <random>
#include <stdexcept>

#include "TestSockets.h"

namespace netcam_test {

bool CanBindPrivilegedPorts() {
  static const bool can = [] {
    // Port 1 on an unusual address: nobody else uses it, so failure means
    // permission.
    return CanBind("127.0.0.1", 1) || CanBind("127.255.0.1", 1);
  }();
  return can;
}

std::string UniqueLoopbackAddress(uint16_t port) {
  static thread_local std::mt19937 random{
      std::random_device{}() ^
      static_cast<unsigned>(std::chrono::steady_clock::now().time_since_epoch().count())};
  std::uniform_int_distribution<int> second(16, 254), third(0, 255), fourth(1, 254);
  for (int attempt = 0; attempt < 64; ++attempt) {
    std::string address = "127." + std::to_string(second(random)) + "." + std::to_string(third(random)) + "." +
                          std::to_string(fourth(random));
    if (CanBind(address, port)) return address;
  }
  throw std::runtime_error("no free loopback address for port " + std::to_string(port));
}

}  // namespace netcam_test
