// CHttpServer: what becomes of requests nobody answers and of silent peers
// (answers, routing and limits are exercised through the event centre), and
// the replay of the event fuzz corpus.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <iterator>
#include <mutex>
#include <thread>

#include "EventTestSupport.h"
#include "FuzzEntries.h"
#include "HttpServer.h"
#include "LoopbackAddress.h"

namespace {

using Tarn::Net::CHttpServer;
using namespace events_test;

TEST(HttpServer, ReleasesRequestsNobodyAnswers) {
  std::mutex mutex;
  std::vector<int32_t> links;  // never answered by the callback
  // Room for two connections per peer; idle for 1 s, unanswered for 2 s.
  const Tarn::Net::HttpServerLimits limits{64 * 1024, 1024, 2, 1, 30, 2};
  const std::string address = netcam_test::UniqueLoopbackAddress(), peer = netcam_test::UniqueLoopbackAddress();
  auto keep = [&](int32_t link, const Tarn::Net::HttpRequest&) {
    std::lock_guard<std::mutex> lock(mutex);
    links.push_back(link);
  };
  int32_t handle = 0;
  ASSERT_EQ(CHttpServer::StartHttpServer(handle, address, 0, keep, limits), 0);
  const uint16_t port = CHttpServer::GetServerPort(handle);
  auto seen = [&] {
    std::lock_guard<std::mutex> lock(mutex);
    return links.size();
  };
  // Sends a request from `from` until the server takes it (it closes at once while the peer has no room).
  auto post = [&](const std::string& from) {
    const size_t before = seen();
    int fd = -1;
    for (int attempt = 0; attempt < 200 && seen() == before; ++attempt) {
      if (fd >= 0) close(fd);
      fd = Connect(from, port, address);
      send(fd, Post("/x").data(), Post("/x").size(), MSG_NOSIGNAL);
      for (int wait = 0; wait < 10 && seen() == before; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(seen(), before + 1);
    return fd;
  };
  const int held[2] = {post(peer), post(peer)};
  EXPECT_EQ(Send(peer, port, Post("/x"), address).status, 0);  // no room for a third
  close(held[0]);
  close(held[1]);
  const int third = post(peer);                // their peers closed, so their places are free again
  EXPECT_EQ(Exchange(third, "").status, 503);  // after the answer time
  EXPECT_EQ(CHttpServer::HttpServerSyncSend(links[2], {}, 0, nullptr), Tarn::Net::kHttpErrLinkGone);
  const int idle = Connect(netcam_test::UniqueLoopbackAddress(), port, address);
  char byte;
  EXPECT_EQ(recv(idle, &byte, 1, 0), 0);  // the server closed it, well before the 30 s read bound
  // Stopping answers what waits; nothing listens afterwards.
  const int waiting = post(netcam_test::UniqueLoopbackAddress());
  std::thread stopper([&] { EXPECT_EQ(CHttpServer::StopServer(handle), 0); });
  EXPECT_EQ(Exchange(waiting, "").status, 503);
  stopper.join();
  EXPECT_EQ(CHttpServer::HttpServerSyncSend(links[3], {}, 0, nullptr), Tarn::Net::kHttpErrLinkGone);
  EXPECT_LT(Connect(peer, port, address), 0);
  for (int fd : {third, idle, waiting}) close(fd);
}

TEST(EventFuzzCorpus, SeedsReplay) {
  for (const auto& file : std::filesystem::directory_iterator(EVENTS_CORPUS_DIR)) {
    std::ifstream in(file.path(), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(events_fuzz::FuzzEventRequest(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), 0);
  }
}

}  // namespace
