#include "FuzzEntries.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>

#include "HttpServer.h"
#include "events/event_messages.h"

namespace events_fuzz {
namespace {

using Tarn::Net::CHttpServer;

// Answers on the server's own thread: the fuzzer looks at what the request
// does to our code, not at the queues between.
struct Centre {
  int32_t handle = 0;
  uint16_t port = 0;

  Centre() {
    Tarn::Net::HttpServerLimits limits;
    limits.nIdleTimeoutSeconds = 2;
    limits.nRequestTimeoutSeconds = 2;
    limits.nAnswerTimeoutSeconds = 2;
    CHttpServer::StartHttpServer(
        handle, "127.0.0.1", 0,
        [](int32_t link, const Tarn::Net::HttpRequest& request) {
          const std::string body(request.pBody, request.nBodyLength);
          uint16_t eventPort = 0;
          ParseEventPort(body, eventPort);
          const EventOutcome outcome = !IsMotionAlarmUrl(request.strUrl)       ? EventOutcome::kUnsupported
                                       : request.strPeerAddress == "127.0.0.1" ? EventOutcome::kDelivered
                                                                               : EventOutcome::kNoSubscriber;
          const std::string reply = FormatEventReply(outcome);
          Tarn::Net::HttpResponse response;
          response.nTimeoutMs = 5000;
          CHttpServer::HttpServerSyncSend(link, response, reply.size(), reply.data());
        },
        limits);
    port = CHttpServer::GetServerPort(handle);
  }
  ~Centre() { CHttpServer::StopServer(handle); }
};

}  // namespace

int FuzzEventRequest(const uint8_t* data, size_t size) {
  static Centre centre;
  if (centre.port == 0) return 0;
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(centre.port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  timeval timeout{5, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
    for (size_t sent = 0; sent < size;) {
      const ssize_t n = send(fd, data + sent, size - sent, MSG_NOSIGNAL);
      if (n <= 0) break;
      sent += static_cast<size_t>(n);
    }
    shutdown(fd, SHUT_WR);  // the end of the input ends the request
    char buffer[4096];
    while (recv(fd, buffer, sizeof buffer, 0) > 0) {
    }
  }
  close(fd);
  return 0;
}

}  // namespace events_fuzz
