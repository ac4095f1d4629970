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
  // A bad request gets the API's error code and changes nothing.
  EXPECT_EQ(Ntp("setNTPClientConfiguration", R"({"staticServers":["a b"]})"), "4002");
  EXPECT_EQ(Info("/data/client/staticServers/0"), "null");
}

// What the plug-in sets (NTP, the clock, presets) takes effect and survives a
// restart with a state directory; a broken state file is reported, not ignored.
TEST_F(TimeAndNtp, StateDirectoryKeepsSettingsAcrossARestart) {
  const std::string dir = ::testing::TempDir() + "camsim-state-" + config_.address;
  std::filesystem::remove_all(dir);
  camsim::CameraConfig config;
  config.stateDir = dir;
  Restart(config);
  Ntp("setNTPClientConfiguration", R"({"staticServers":["kept.example"],"enabled":true})");
  GetPath("/axis-cgi/admin/date.cgi?action=set&year=2033&month=3&day=3&hour=3&minute=3&second=3");
  GetPath("/axis-cgi/com/ptzconfig.cgi?setserverpresetno=2&setserverpresetname=Door");
  Restart(config);
  EXPECT_EQ(Info("/data/client/staticServers/0"), "kept.example");
  EXPECT_EQ(Date().substr(0, 12), "Mar 03, 2033");
  EXPECT_NE(GetPath("/axis-cgi/com/ptz.cgi?query=presetposall").body.find("presetposno2=Door"), std::string::npos);
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
