#include "FuzzEntries.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "HttpServer.h"
#include "events/event_messages.h"
#include "evlog.h"

namespace events_fuzz {

int FuzzEventRequest(const uint8_t* data, size_t size) {
  using Tarn::Net::CHttpServer;
  // One server for the process, answering on its own thread as the centre's
  // queues would: the fuzzer looks at what a request does to our code.
  static uint16_t port = [] {
    evlog_set_level(EVLOG_ERROR);  // every refusal is logged: too much at this rate
    Tarn::Net::HttpServerLimits limits;
    limits.nIdleTimeoutSeconds = limits.nRequestTimeoutSeconds = limits.nAnswerTimeoutSeconds = 1;
    static int32_t handle = 0;
    CHttpServer::StartHttpServer(
        handle, "127.0.0.1", 0,
        [](int32_t link, const Tarn::Net::HttpRequest& request) {
          uint16_t eventPort = 0;
          ParseEventPort(std::string(request.pBody, request.nBodyLength), eventPort);
          const std::string reply = FormatEventReply(IsMotionAlarmUrl(request.strUrl) ? EventOutcome::kDelivered
                                                                                      : EventOutcome::kUnsupported);
          CHttpServer::HttpServerSyncSend(link, Tarn::Net::HttpResponse{}, reply.size(), reply.data());
        },
        limits);
    static const struct Stop {
      ~Stop() { CHttpServer::StopServer(handle); }
    } stop;
    return CHttpServer::GetServerPort(handle);
  }();
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
  // The server closes at once after an unfinished request (it sees the peer's
  // close) and answers a finished one at once; the bound is a safety net only.
  const timeval timeout{0, 200 * 1000};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
    send(fd, data, size, MSG_NOSIGNAL);
    shutdown(fd, SHUT_WR);
    char buffer[4096];
    while (recv(fd, buffer, sizeof buffer, 0) > 0) {
    }
  }
  close(fd);
  return 0;
}

}  // namespace events_fuzz
