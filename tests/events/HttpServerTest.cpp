// CHttpServer: answers given later from another thread, and the limits that
// keep a broken or hostile peer from wedging it.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "HttpServer.h"
#include "LoopbackAddress.h"
#include "RawHttp.h"

namespace {

using Tarn::Net::CHttpServer;
using Tarn::Net::HttpRequest;
using Tarn::Net::HttpResponse;

// A server whose requests are answered by a thread of their own, as the
// event centre's response queue does; `answer` false leaves them unanswered.
class AnsweringServer {
 public:
  explicit AnsweringServer(bool answers, Tarn::Net::HttpServerLimits limits = {})
      : address(netcam_test::UniqueLoopbackAddress()), answer(answers) {
    EXPECT_EQ(CHttpServer::StartHttpServer(
                  handle, address, 0,
                  [this](int32_t link, const HttpRequest& request) {
                    std::lock_guard<std::mutex> lock(m_mutex);
                    seen.push_back({request.strPeerAddress, request.strMethod, request.strUrl,
                                    std::string(request.pBody, request.nBodyLength)});
                    m_links.push_back(link);
                    m_wake.notify_one();
                  },
                  limits),
              0);
    port = CHttpServer::GetServerPort(handle);
    m_thread = std::thread([this] { Answer(); });
  }
  ~AnsweringServer() {
    Stop();
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_done = true;
    }
    m_wake.notify_one();
    m_thread.join();
  }
  void Stop() {
    if (handle != 0) {
      EXPECT_EQ(CHttpServer::StopServer(handle), 0);
    }
    handle = 0;
  }
  size_t SeenCount() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return seen.size();
  }
  struct Seen {
    std::string peer, method, url, body;
  };
  Seen LastSeen() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return seen.back();
  }
  int32_t LastLink() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_links.back();
  }

  std::string address;
  uint16_t port = 0;
  int32_t handle = 0;
  std::vector<Seen> seen;
  std::atomic<bool> answer;

 private:
  void Answer() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
      m_wake.wait_for(lock, std::chrono::milliseconds(20), [this] { return m_done || (answer && !m_links.empty()); });
      if (m_done) return;
      if (!answer || m_links.empty()) continue;
      const int32_t link = m_links.front();
      m_links.pop_front();
      const std::string body = "answer to " + seen.back().url;
      EXPECT_EQ(CHttpServer::HttpServerSyncSend(link, HttpResponse{}, body.size(), body.data()), 0);
    }
  }

  std::mutex m_mutex;
  std::condition_variable m_wake;
  std::deque<int32_t> m_links;
  bool m_done = false;
  std::thread m_thread;
};

TEST(HttpServer, HandsOverEachRequestAndSendsTheAnswerGivenLater) {
  AnsweringServer server(true);
  const std::string camera = netcam_test::UniqueLoopbackAddress();
  const struct {
    std::string request, method, url, body;
  } cases[] = {
      {events_test::Post("/axis/uploadalarm/motiondetection", "hello"), "POST", "/axis/uploadalarm/motiondetection",
       "hello"},
      {"GET /a/b/?x=1&y HTTP/1.1\r\nHost: h\r\n\r\n", "GET", "/a/b/?x=1&y", ""},
      {"POST /c HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n", "POST",
       "/c", "abcde"},
  };
  for (const auto& c : cases) {
    const events_test::Reply reply = events_test::Send(camera, server.address, server.port, c.request);
    ASSERT_EQ(reply.status, 200) << c.request;
    EXPECT_EQ(reply.body, "answer to " + c.url);
    EXPECT_NE(reply.headers.find("Content-Type: application/xml; charset=\"UTF-8\""), std::string::npos);
    EXPECT_NE(reply.headers.find("Cache-Control: no-cache"), std::string::npos);
    const auto seen = server.LastSeen();
    EXPECT_EQ(seen.peer + seen.method + seen.url + seen.body, camera + c.method + c.url + c.body);
  }
}

TEST(HttpServer, RefusesWhatItCannotServeAndStaysUp) {
  Tarn::Net::HttpServerLimits limits;
  limits.nMaxBodyBytes = 1024;
  limits.nAnswerTimeoutSeconds = 1;
  AnsweringServer server(false, limits);
  const std::string big(2000, 'x');
  const struct {
    std::string request;
    int status;  // 0: closed without an answer
  } cases[] = {
      {events_test::Post("/too-big", big), 413},
      {"POST /chunked HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n7d0\r\n" + big + "\r\n0\r\n\r\n", 0},
      {"GARBAGE\r\n\r\n", 0},
      {"GET / HTTP/1.1\r\nHost: h\r\nno colon here\r\n\r\n", 400},
      {"GET /" + std::string(40000, 'a') + " HTTP/1.1\r\nHost: h\r\n\r\n", 414},
      {events_test::Post("/nobody-answers"), 503},
  };
  for (const auto& c : cases) {
    const events_test::Reply reply =
        events_test::Send(netcam_test::UniqueLoopbackAddress(), server.address, server.port, c.request);
    EXPECT_EQ(reply.status, c.status) << c.request.substr(0, 60);
  }
}

TEST(HttpServer, ReleasesRequestsItCannotAnswer) {
  Tarn::Net::HttpServerLimits limits;
  limits.nMaxConnectionsPerAddress = 4;
  limits.nIdleTimeoutSeconds = 1;
  AnsweringServer server(false, limits);
  auto waitSeen = [&](size_t count) {
    while (server.SeenCount() < count) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  };
  // Unanswered requests whose peer closed give their places back.
  const std::string peer = netcam_test::UniqueLoopbackAddress();
  for (size_t i = 1; i <= 4; ++i) {
    const int fd = events_test::Connect(peer, server.address, server.port);
    ASSERT_GE(fd, 0);
    const std::string request = events_test::Post("/gone");
    send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    waitSeen(i);
    close(fd);
  }
  // No answer is ever given: only the released places let a fifth request in.
  int lateFd = -1;
  for (int attempt = 0; attempt < 200 && server.SeenCount() < 5; ++attempt) {
    if (lateFd >= 0) close(lateFd);
    lateFd = events_test::Connect(peer, server.address, server.port);
    const std::string request = events_test::Post("/after");
    send(lateFd, request.data(), request.size(), MSG_NOSIGNAL);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_EQ(server.SeenCount(), 5u);
  // A silent connection is closed by the server (the read bound is 30 s).
  const int idle = events_test::Connect(netcam_test::UniqueLoopbackAddress(), server.address, server.port);
  char byte;
  EXPECT_EQ(recv(idle, &byte, 1, 0), 0);
  close(idle);
  // Stopping answers what waits, and no late answer gets through.
  const int waiting = events_test::Connect(netcam_test::UniqueLoopbackAddress(), server.address, server.port);
  const std::string request = events_test::Post("/waits");
  const size_t seenBefore = server.SeenCount();
  send(waiting, request.data(), request.size(), MSG_NOSIGNAL);
  waitSeen(seenBefore + 1);
  const int32_t link = server.LastLink();
  std::thread stopper([&] { server.Stop(); });
  EXPECT_EQ(events_test::Exchange(waiting, "").status, 503);
  stopper.join();
  close(waiting);
  close(lateFd);
  EXPECT_EQ(CHttpServer::HttpServerSyncSend(link, HttpResponse{}, 0, nullptr), Tarn::Net::kHttpErrLinkGone);
  EXPECT_LT(events_test::Connect(peer, server.address, server.port), 0);
}

}  // namespace
