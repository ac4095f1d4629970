// admin/date.cgi and ntp.cgi: the clock and the NTP client settings as the plug-in sets and reads them.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>

#include <filesystem>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

class TimeAndNtp : public CameraTest {
 protected:
  rapidjson::Document Ntp(const std::string& body) {
    Reply reply = PostPath("/axis-cgi/ntp.cgi", body);
    EXPECT_EQ(reply.status, 200) << reply.body;
    rapidjson::Document doc;
    doc.Parse(reply.body.c_str());
    EXPECT_FALSE(doc.HasParseError()) << reply.body;
    return doc;
  }
  static std::string Text(const rapidjson::Document& doc, const char* pointer) {
    const rapidjson::Value* v = rapidjson::Pointer(pointer).Get(doc);
    if (v == nullptr) return "<absent>";
    if (v->IsBool()) return v->GetBool() ? "true" : "false";
    return v->IsString() ? v->GetString() : "<other>";
  }
  static int Code(const rapidjson::Document& doc) {
    const rapidjson::Value* v = rapidjson::Pointer("/error/code").Get(doc);
    return v != nullptr && v->IsInt() ? v->GetInt() : 0;
  }
  rapidjson::Document Info() { return Ntp(R"({"apiVersion":"1.1","method":"getNTPInfo"})"); }
};

TEST_F(TimeAndNtp, DateSetMovesTheCameraClock) {
  Reply set = GetPath("/axis-cgi/admin/date.cgi?action=set&year=2031&month=2&day=3&hour=4&minute=5&second=6");
  EXPECT_EQ(set.status, 200);
  EXPECT_EQ(set.body, "OK\r\n");
  EXPECT_EQ(GetPath("/axis-cgi/admin/date.cgi?action=get").body.substr(0, 18), "Feb 03, 2031 04:05");

  for (const char* query :
       {"action=set&year=2031&month=13&day=1&hour=0&minute=0&second=0",
        "action=set&year=2031&month=2&day=30&hour=0&minute=0&second=0",
        "action=set&year=2031&month=2&day=3&hour=4&minute=5", "action=set&year=x", "action=reboot", ""}) {
    EXPECT_EQ(GetPath(std::string("/axis-cgi/admin/date.cgi?") + query).status, 400) << query;
  }
  EXPECT_EQ(GetPath("/axis-cgi/admin/date.cgi?action=get").body.substr(0, 12), "Feb 03, 2031");
}

TEST_F(TimeAndNtp, PluginBodiesSetAndReadTheStaticServer) {
  auto info = Info();
  EXPECT_EQ(Text(info, "/data/client/enabled"), "true");
  EXPECT_EQ(Text(info, "/data/client/serversSource"), "static");

  auto set = Ntp(
      R"({"apiVersion":"1.1","method":"setNTPClientConfiguration","params":{"serversSource":"static","staticServers":["ntp.example.org",null],"enabled":true}})");
  EXPECT_EQ(Code(set), 0);
  EXPECT_TRUE(set.HasMember("data"));
  info = Info();
  EXPECT_EQ(Text(info, "/data/client/staticServers/0"), "ntp.example.org");
  EXPECT_EQ(info["data"]["client"]["staticServers"].Size(), 1u);

  // Disabling sends the four letters "null" as a server name; the camera takes it as one.
  Ntp(R"({"apiVersion":"1.1","method":"setNTPClientConfiguration","params":{"staticServers":["null",null],"enabled":false}})");
  info = Info();
  EXPECT_EQ(Text(info, "/data/client/enabled"), "false");
  EXPECT_EQ(Text(info, "/data/client/staticServers/0"), "null");

  Ntp(R"({"apiVersion":"1.1","method":"setNTPClientConfiguration","params":{"serversSource":"DHCP"}})");
  EXPECT_EQ(Text(Info(), "/data/client/serversSource"), "DHCP");
}

TEST_F(TimeAndNtp, BadNtpRequestsGetErrorCodesAndChangeNothing) {
  struct Case {
    const char* body;
    int code;
  };
  for (const Case& c :
       {Case{R"({"apiVersion":"1.1","method":"setNTPClientConfiguration","params":{"enabled":"yes"}})", 4002},
        Case{R"({"apiVersion":"1.1","method":"setNTPClientConfiguration","params":{"staticServers":"a"}})", 4002},
        Case{R"({"apiVersion":"1.1","method":"setNTPClientConfiguration","params":{"staticServers":["a b"]}})", 4002},
        Case{R"({"apiVersion":"1.1","method":"setNTPClientConfiguration","params":{"staticServers":[7]}})", 4002},
        Case{R"({"apiVersion":"1.1","method":"setNTPClientConfiguration","params":{"serversSource":"x"}})", 4002},
        Case{R"({"apiVersion":"1.1","method":"setNTPClientConfiguration","params":{"colour":"red"}})", 4002},
        Case{R"({"apiVersion":"1.1","method":"setNTPClientConfiguration"})", 4002},
        Case{R"({"apiVersion":"1.1","method":"setNTPServer"})", 2004},
        Case{R"({"apiVersion":"3.0","method":"getNTPInfo"})", 2003}, Case{"{", 4000}}) {
    EXPECT_EQ(Code(Ntp(c.body)), c.code) << c.body;
  }
  EXPECT_EQ(Text(Info(), "/data/client/staticServers/0"), "0.pool.ntp.org");
  EXPECT_EQ(Text(Info(), "/data/client/enabled"), "true");
}

TEST_F(TimeAndNtp, StateDirectoryKeepsNtpClockAndPresetsAcrossARestart) {
  const std::string dir = ::testing::TempDir() + "camsim-ntp-" + config_.address;
  std::filesystem::remove_all(dir);
  camsim::CameraConfig config;
  config.stateDir = dir;
  Restart(config);
  Ntp(R"({"apiVersion":"1.1","method":"setNTPClientConfiguration","params":{"staticServers":["kept.example"],"enabled":true}})");
  GetPath("/axis-cgi/admin/date.cgi?action=set&year=2033&month=3&day=3&hour=3&minute=3&second=3");
  GetPath("/axis-cgi/com/ptz.cgi?pan=12");
  GetPath("/axis-cgi/com/ptzconfig.cgi?setserverpresetno=2&setserverpresetname=Door");

  Restart(config);
  EXPECT_EQ(Text(Info(), "/data/client/staticServers/0"), "kept.example");
  EXPECT_EQ(GetPath("/axis-cgi/admin/date.cgi?action=get").body.substr(0, 12), "Mar 03, 2033");
  EXPECT_NE(GetPath("/axis-cgi/com/ptz.cgi?query=presetposall").body.find("presetposno2=Door"), std::string::npos);

  // A broken state file is reported, not ignored.
  camera_->Stop();
  std::filesystem::resize_file(dir + "/camera-state.json", 10);
  camsim::CameraConfig broken = config_;
  camsim::Camera camera(broken);
  std::string error;
  EXPECT_FALSE(camera.Start(&error));
  EXPECT_NE(error.find("camera-state.json"), std::string::npos) << error;
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace camsim_test
