// Motion alarms: an HTTP POST to the event URL, sent from the camera's own
// address.
#include <gtest/gtest.h>

#include "CameraTestSupport.h"
#include "RtspTestPeer.h"

namespace camsim_test {
namespace {

using Alarms = CameraTest;
using netcam_test::PeerConnection;
using netcam_test::RtspText;

TEST_F(Alarms, MotionAlarmIsPostedFromTheCamerasAddressAndRefusalsAreReported) {
  EXPECT_FALSE(camera_->PostMotionAlarm());  // no event URL
  for (int status : {200, 500}) {
    // The scripted peer reads the HTTP request; the answer is HTTP too.
    netcam_test::ScriptedRtspPeer receiver([status](PeerConnection& connection, const RtspText&) {
      connection.Send("HTTP/1.1 " + std::to_string(status) + " X\r\nContent-Length: 0\r\n\r\n");
    });
    const std::string url = receiver.Url();  // rtsp://address:port/...
    camsim::CameraConfig config;
    config.eventUrl = "http" + url.substr(4, url.find('/', 7) - 4) + "/axis/uploadalarm/motion";
    Restart(config);
    EXPECT_EQ(camera_->PostMotionAlarm(), status == 200);
    const auto posts = receiver.RequestsOf("POST");
    ASSERT_EQ(posts.size(), 1u);
    EXPECT_EQ(posts[0].uri + " " + posts[0].from, "/axis/uploadalarm/motion " + config_.address);
    EXPECT_NE(posts[0].body.find("camera=1"), std::string::npos) << posts[0].body;
  }
}

}  // namespace
}  // namespace camsim_test
