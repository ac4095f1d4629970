// admin/date.cgi and ntp.cgi: the clock and the NTP client settings as the plug-in sets and reads them.
#include <gtest/gtest.h>

#include <filesystem>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

class TimeAndNtp : public CameraTest {
 protected:
  // The answer's value at `pointer` as text; "" when absent.
  std::string Ntp(const std::string& method, const std::string& params = "", const char* pointer = "/error/code") {
    return JsonAt(PostPath("/axis-cgi/ntp.cgi", R"({"apiVersion":"1.1","method":")" + method + "\"" +
                                                    (params.empty() ? "" : R"(,"params":)" + params) + "}")
                      .body,
                  pointer);
  }
  std::string Info(const char* pointer) { return Ntp("getNTPInfo", "", pointer); }
  std::string Date() { return GetPath("/axis-cgi/admin/date.cgi?action=get").body.substr(0, 18); }
};

TEST_F(TimeAndNtp, DateSetMovesTheCameraClock) {
  Reply set = GetPath("/axis-cgi/admin/date.cgi?action=set&year=2031&month=2&day=3&hour=4&minute=5&second=6");
  EXPECT_EQ(set.body, "OK\r\n");
  EXPECT_EQ(Date(), "Feb 03, 2031 04:05");
  EXPECT_EQ(GetPath("/axis-cgi/admin/date.cgi?action=set&year=2031&month=2&day=30&hour=0&minute=0&second=0").status,
            400);
  EXPECT_EQ(Date(), "Feb 03, 2031 04:05");
}

TEST_F(TimeAndNtp, PluginBodiesSetAndReadTheStaticServer) {
  EXPECT_EQ(Info("/data/client/enabled"), "true");
  EXPECT_EQ(Ntp("setNTPClientConfiguration",
                R"({"serversSource":"static","staticServers":["ntp.example.org",null],"enabled":true})"),
            "");
  EXPECT_EQ(Info("/data/client/staticServers/0"), "ntp.example.org");
  EXPECT_EQ(Info("/data/client/staticServers/1"), "");
  // Disabling sends the four letters "null" as a server name; the camera takes it as one.
  Ntp("setNTPClientConfiguration", R"({"staticServers":["null",null],"enabled":false})");
  EXPECT_EQ(Info("/data/client/enabled"), "false");
  EXPECT_EQ(Info("/data/client/staticServers/0"), "null");
  // Bad requests get the API's error codes and change nothing.
  EXPECT_EQ(Ntp("setNTPClientConfiguration", R"({"staticServers":["a b"]})"), "4002");
  EXPECT_EQ(Ntp("setNTPServer"), "2004");
  EXPECT_EQ(Info("/data/client/staticServers/0"), "null");
}

// Everything the plug-in sets survives a restart with a state directory: NTP,
// clock, presets, schedules; and a broken state file is reported, not ignored.
TEST_F(TimeAndNtp, StateDirectoryKeepsSettingsAcrossARestart) {
  const std::string dir = ::testing::TempDir() + "camsim-state-" + config_.address;
  std::filesystem::remove_all(dir);
  camsim::CameraConfig config;
  config.stateDir = dir;
  Restart(config);
  Ntp("setNTPClientConfiguration", R"({"staticServers":["kept.example"],"enabled":true})");
  GetPath("/axis-cgi/admin/date.cgi?action=set&year=2033&month=3&day=3&hour=3&minute=3&second=3");
  GetPath("/axis-cgi/com/ptzconfig.cgi?setserverpresetno=2&setserverpresetname=Door");
  const std::string schedule = R"(<?xml version="1.0"?><Envelope xmlns="http://www.w3.org/2003/05/soap-envelope"><Body>
    <AddScheduledEvent xmlns="http://www.axis.com/vapix/ws/event1"><NewScheduledEvent><Name>Kept</Name><Schedule>
    <ICalendar Dialect="http://www.axis.com/vapix/ws/ical1">DTSTART:19700101T080000</ICalendar></Schedule>
    </NewScheduledEvent></AddScheduledEvent></Body></Envelope>)";
  const std::string added = PostPath("/vapix/services", schedule).body;
  const size_t at = added.find("com.axis.schedules.genid.id");
  ASSERT_NE(at, std::string::npos) << added;
  const std::string id = added.substr(at, added.find('<', at) - at);
  Restart(config);
  EXPECT_EQ(Info("/data/client/staticServers/0"), "kept.example");
  EXPECT_EQ(Date().substr(0, 12), "Mar 03, 2033");
  EXPECT_NE(GetPath("/axis-cgi/com/ptz.cgi?query=presetposall").body.find("presetposno2=Door"), std::string::npos);
  EXPECT_NE(PostPath("/vapix/services", R"(<Envelope xmlns="http://www.w3.org/2003/05/soap-envelope"><Body>
    <GetScheduledEvents xmlns="http://www.axis.com/vapix/ws/event1"/></Body></Envelope>)")
                .body.find(id + "<"),
            std::string::npos);
  EXPECT_EQ(PostPath("/vapix/services", schedule).body.find(id + "<"), std::string::npos);  // ids are not reused
  camera_->Stop();
  std::filesystem::resize_file(dir + "/camera-state.json", 10);
  camsim::Camera camera(config_);
  std::string error;
  EXPECT_FALSE(camera.Start(&error));
  EXPECT_NE(error.find("camera-state.json"), std::string::npos) << error;
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace camsim_test
