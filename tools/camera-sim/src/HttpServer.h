// HttpServer.h - libmicrohttpd I/O for the simulated camera: binds one address,
// collects each request (headers, raw query, bounded body) and sends whatever
// the handler decides. No camera logic lives here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "HttpMessage.h"

namespace camsim {

class HttpServer {
 public:
  using Handler = std::function<HttpResponse(HttpRequest&)>;

  struct Options {
    std::string address = "127.0.0.1";
    uint16_t port = 0;  // 0: ephemeral
    size_t maxBodyBytes = 1 << 20;
    unsigned connectionTimeoutSeconds = 10;
    unsigned maxConnections = 256;
  };

  HttpServer(Options options, Handler handler);
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  bool Start(std::string* error);
  void Stop();
  uint16_t Port() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace camsim
