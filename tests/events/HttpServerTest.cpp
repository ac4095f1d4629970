// CHttpServer: what becomes of requests nobody answers and of silent peers
// (answers, routing and limits are exercised through the event centre), and
// the replay of the event fuzz corpus.
#include <gtest/gtest.h>

#include <iterator>
#include <mutex>
#include <thread>

#include "EventTestSupport.h"
#include "HttpServer.h"
#ifdef EVENTS_CORPUS_DIR
#include "FuzzEntries.h"
#endif
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
    Socket socket = kNoSocket;
    for (int attempt = 0; attempt < 200 && seen() == before; ++attempt) {
      CloseSocket(socket);
      socket = Connect(from, port, address);
      netcam_test::SendBytes(socket, Post("/x").data(), Post("/x").size());
      for (int wait = 0; wait < 10 && seen() == before; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(seen(), before + 1);
    return socket;
  };
  const Socket held[2] = {post(peer), post(peer)};
  EXPECT_EQ(Send(peer, port, Post("/x"), address).status, 0);  // no room for a third
  CloseSocket(held[0]);
  CloseSocket(held[1]);
  const Socket third = post(peer);             // their peers closed, so their places are free again
  EXPECT_EQ(Exchange(third, "").status, 503);  // after the answer time
  EXPECT_EQ(CHttpServer::HttpServerSyncSend(links[2], {}, 0, nullptr), Tarn::Net::kHttpErrLinkGone);
  const Socket idle = Connect(netcam_test::UniqueLoopbackAddress(), port, address);
  char byte;
  EXPECT_EQ(netcam_test::ReceiveBytes(idle, &byte, 1), 0);  // the server closed it, well before the 30 s read bound
  // Stopping answers what waits; nothing listens afterwards.
  const Socket waiting = post(netcam_test::UniqueLoopbackAddress());
  std::thread stopper([&] { EXPECT_EQ(CHttpServer::StopServer(handle), 0); });
  EXPECT_EQ(Exchange(waiting, "").status, 503);
  stopper.join();
  EXPECT_EQ(CHttpServer::HttpServerSyncSend(links[3], {}, 0, nullptr), Tarn::Net::kHttpErrLinkGone);
  EXPECT_EQ(Connect(peer, port, address), kNoSocket);
  for (Socket socket : {third, idle, waiting}) CloseSocket(socket);
}

TEST(HttpServer, CutsARequestStillArrivingAfterTheRequestTime) {
  // Request time 2 s; idle time 10 s, so a steady trickle is ended by the first alone.
  const Tarn::Net::HttpServerLimits limits{64 * 1024, 1024, 64, 10, 2, 30};
  const std::string address = netcam_test::UniqueLoopbackAddress(), peer = netcam_test::UniqueLoopbackAddress();
  auto answer = [](int32_t link, const Tarn::Net::HttpRequest&) { CHttpServer::HttpServerSyncSend(link, {}, 2, "ok"); };
  int32_t handle = 0;
  ASSERT_EQ(CHttpServer::StartHttpServer(handle, address, 0, answer, limits), 0);
  const uint16_t port = CHttpServer::GetServerPort(handle);
  // Requests that each arrive in time keep their connection, however long it lives.
  const Socket kept = Connect(peer, port, address);
  EXPECT_EQ(Exchange(kept, Post("/a")).status, 200);
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));
  EXPECT_EQ(Exchange(kept, Post("/b")).status, 200);
  // One header byte every 100 ms, for up to 10 s.
  const Socket slow = Connect(peer, port, address);
  const std::string header = "POST /x HTTP/1.1\r\nX-Slow: " + std::string(200, 'a');
  bool cut = false;
  for (size_t sent = 0; sent < 100 && !cut; ++sent) {
    cut = !netcam_test::SendBytes(slow, &header[sent], 1) || netcam_test::PeerHasClosed(slow);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_TRUE(cut);
  EXPECT_EQ(CHttpServer::StopServer(handle), 0);
  for (Socket socket : {kept, slow}) CloseSocket(socket);
}

#ifdef EVENTS_CORPUS_DIR
TEST(EventFuzzCorpus, SeedsReplay) {
  for (const auto& file : std::filesystem::directory_iterator(EVENTS_CORPUS_DIR)) {
    std::ifstream in(file.path(), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(events_fuzz::FuzzEventRequest(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), 0);
  }
}
#endif

}  // namespace
