// HttpServer.h - TarnNet embedded HTTP server. The request callback runs on
// the server's own thread; the answer is given later, from any thread, with
// HttpServerSyncSend on the request's link handle, so a slow consumer never
// holds up the network thread.
//
// It binds only the address it is given. Bodies are size-limited, connections
// are limited in number (in all and per peer address) and time out when idle
// or when a request takes too long to arrive; a request nobody answers is
// released when its peer closes the connection, when its answer time runs out
// (503) or when the server stops.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace Tarn::Net {

// One received request, valid for the duration of the callback.
struct HttpRequest {
  std::string strPeerAddress;  // dotted IPv4 text of the sender
  std::string strMethod;
  std::string strUrl;  // path with its query string, as sent
  const char* pBody = nullptr;
  size_t nBodyLength = 0;
};

// One reply. The defaults are those the platform's server applies.
struct HttpResponse {
  int32_t nStatusCode = 200;
  int32_t nTimeoutMs = 20000;    // time the reply may take to be written
  int32_t nCloseConnection = 0;  // non-zero: close the connection after the reply
  std::string strContentType = "application/xml; charset=\"UTF-8\"";
  std::string strLocation;         // sent when not empty
  std::string strContentEncoding;  // sent when not empty
  std::string strCacheControl = "no-cache";
  std::map<std::string, std::string> mapHeaders;  // further header lines
};

// Bounds that keep a hostile or broken peer from exhausting the server.
struct HttpServerLimits {
  size_t nMaxBodyBytes = 64 * 1024;
  unsigned nMaxConnections = 1024;
  unsigned nMaxConnectionsPerAddress = 64;
  unsigned nIdleTimeoutSeconds = 10;  // silence on a connection
  // From a request's first byte (the connection's accept, or the end of the
  // previous request on it) to its last, headers and body: a peer still
  // sending then is disconnected, however steadily it trickles.
  unsigned nRequestTimeoutSeconds = 30;
  unsigned nAnswerTimeoutSeconds = 30;  // an unanswered request is answered 503 then
};

// link handle, request
using HttpServerCallback = std::function<void(int32_t, const HttpRequest&)>;

// Result codes besides 0 (success).
constexpr int32_t kHttpErrInvalidArg = 1;
constexpr int32_t kHttpErrStart = 2;  // bind or thread start failed
constexpr int32_t kHttpErrUnknownHandle = 3;
constexpr int32_t kHttpErrLinkGone = 4;  // closed, already answered or released

class CHttpServer {
 public:
  // Starts a server on `address`:`port` (port 0 picks a free one, see
  // GetServerPort). The handle is positive on success.
  static int32_t StartHttpServer(int32_t& handle, const std::string& address, uint16_t port,
                                 HttpServerCallback callback, const HttpServerLimits& limits = {});
  // Stops the server: unanswered requests get 503, every connection closes,
  // and no callback runs once it returns. Never call it from the callback.
  static int32_t StopServer(int32_t handle);
  // Answers the request of `link` with `length` bytes of `bytes`. Any thread.
  static int32_t HttpServerSyncSend(int32_t link, const HttpResponse& response, size_t length, const char* bytes);
  // The port the server listens on, 0 for an unknown handle.
  static uint16_t GetServerPort(int32_t handle);
};

}  // namespace Tarn::Net
