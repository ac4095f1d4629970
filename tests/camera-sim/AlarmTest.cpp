// Motion alarms: an HTTP POST to the event URL, sent from the camera's own address.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>

#include "CameraTestSupport.h"
#include "LoopbackAddress.h"

namespace camsim_test {
namespace {

using Alarms = CameraTest;

// A one-request HTTP receiver on its own loopback address: who called, what
// they sent, and the status it answered.
TEST_F(Alarms, MotionAlarmIsPostedFromTheCamerasAddressAndRefusalsAreReported) {
  EXPECT_FALSE(camera_->PostMotionAlarm());  // no event URL
  for (int answer : {200, 500}) {
    const std::string address = netcam_test::UniqueLoopbackAddress();
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    inet_pton(AF_INET, address.c_str(), &addr.sin_addr);
    socklen_t length = sizeof(addr);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    ASSERT_EQ(listen(fd, 4), 0);
    getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &length);
    auto received = std::async(std::launch::async, [fd, answer] {
      sockaddr_in from{};
      socklen_t size = sizeof(from);
      const int client = accept(fd, reinterpret_cast<sockaddr*>(&from), &size);
      std::string request;
      char buffer[4096];
      // Headers and the short body come together or in a few pieces; stop once the body is in.
      for (ssize_t got;
           request.find("camera=1") == std::string::npos && (got = recv(client, buffer, sizeof(buffer), 0)) > 0;) {
        request.append(buffer, static_cast<size_t>(got));
      }
      const std::string reply = "HTTP/1.1 " + std::to_string(answer) + " X\r\nContent-Length: 0\r\n\r\n";
      send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
      close(client);
      char peer[INET_ADDRSTRLEN] = {};
      return std::string(inet_ntop(AF_INET, &from.sin_addr, peer, sizeof(peer))) + " " + request;
    });
    camsim::CameraConfig config;
    config.eventUrl = "http://" + address + ":" + std::to_string(ntohs(addr.sin_port)) + "/axis/uploadalarm/motion";
    Restart(config);
    EXPECT_EQ(camera_->PostMotionAlarm(), answer == 200);
    EXPECT_EQ(received.get().rfind(config_.address + " POST /axis/uploadalarm/motion HTTP/1.1\r\n", 0), 0u);
    close(fd);
  }
  camsim::CameraConfig config;
  config.eventUrl = "http://" + netcam_test::UniqueLoopbackAddress() + ":9/nobody";  // refused, not hung
  Restart(config);
  EXPECT_FALSE(camera_->PostMotionAlarm());
}

}  // namespace
}  // namespace camsim_test
