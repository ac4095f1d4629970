// Motion alarms: an HTTP POST to the event URL, sent from the camera's own address.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "CameraTestSupport.h"
#include "LoopbackAddress.h"

namespace camsim_test {
namespace {

// A one-request HTTP receiver on its own loopback address that notes who called.
class Receiver {
 public:
  explicit Receiver(int answerStatus) : address_(netcam_test::UniqueLoopbackAddress()) {
    fd_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    inet_pton(AF_INET, address_.c_str(), &addr.sin_addr);
    EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    EXPECT_EQ(listen(fd_, 4), 0);
    socklen_t length = sizeof(addr);
    getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &length);
    port_ = ntohs(addr.sin_port);
    thread_ = std::thread([this, answerStatus] { Serve(answerStatus); });
  }
  ~Receiver() {
    shutdown(fd_, SHUT_RDWR);
    if (thread_.joinable()) thread_.join();
    close(fd_);
  }
  std::string Url(const std::string& path) const { return "http://" + address_ + ":" + std::to_string(port_) + path; }
  void Join() { thread_.join(); }

  std::string peer;
  std::string request;

 private:
  void Serve(int answerStatus) {
    sockaddr_in from{};
    socklen_t length = sizeof(from);
    const int client = accept(fd_, reinterpret_cast<sockaddr*>(&from), &length);
    if (client < 0) return;
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &from.sin_addr, text, sizeof(text));
    peer = text;
    char buffer[4096];
    // Headers and the short body arrive together or in a few pieces; stop once the body is in.
    while (request.find("\r\n\r\n") == std::string::npos || request.find("camera=1") == std::string::npos) {
      const ssize_t got = recv(client, buffer, sizeof(buffer), 0);
      if (got <= 0) break;
      request.append(buffer, static_cast<size_t>(got));
    }
    const std::string answer =
        "HTTP/1.1 " + std::to_string(answerStatus) + " X\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
    close(client);
  }

  std::string address_;
  int fd_ = -1;
  uint16_t port_ = 0;
  std::thread thread_;
};

using Alarms = CameraTest;

TEST_F(Alarms, MotionAlarmIsPostedFromTheCamerasAddress) {
  Receiver receiver(200);
  camsim::CameraConfig config;
  config.eventUrl = receiver.Url("/axis/uploadalarm/motiondetection");
  Restart(config);
  EXPECT_TRUE(camera_->PostMotionAlarm());
  receiver.Join();
  EXPECT_EQ(receiver.peer, config_.address);
  EXPECT_EQ(receiver.request.rfind("POST /axis/uploadalarm/motiondetection HTTP/1.1\r\n", 0), 0u) << receiver.request;
}

TEST_F(Alarms, RefusedOrMissingReceiverIsReportedNotHung) {
  EXPECT_FALSE(camera_->PostMotionAlarm());  // no event URL

  Receiver refusing(500);
  camsim::CameraConfig config;
  config.eventUrl = refusing.Url("/axis/uploadalarm/motiondetection");
  Restart(config);
  EXPECT_FALSE(camera_->PostMotionAlarm());

  config.eventUrl = "http://" + netcam_test::UniqueLoopbackAddress() + ":9/nobody";
  Restart(config);
  EXPECT_FALSE(camera_->PostMotionAlarm());
}

}  // namespace
}  // namespace camsim_test
