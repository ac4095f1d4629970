// PTZ, time and NTP, the status documents and snapshots of a device object
// against the simulated camera, read back from the requests the camera got.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

#include "LogCapture.h"
#include "PluginTestSupport.h"
#include "session/axis_device_object_implement.h"

namespace {

class Control : public OpenedCameraTest {
 protected:
  // "path?query" of each request that got past authentication.
  std::vector<std::string> Sent() const {
    std::vector<std::string> sent;
    for (const auto& r : Authenticated()) sent.push_back(r.path + (r.query.empty() ? "" : "?" + r.query));
    return sent;
  }
  camsim::ReceivedRequest LastSent() const {
    auto requests = m_camera->Requests();
    return requests.empty() ? camsim::ReceivedRequest{} : requests.back();
  }
  int32_t Ptz(uint32_t command, int32_t action, int32_t speed = 0, int32_t preset = 0, uint32_t type = 1) {
    m_camera->ClearRequests();
    const PtzControlInput input{0, command, action, speed, preset};
    return m_device.PTZControl(type, &input, sizeof input, 0);
  }
};

constexpr char kPosition[] = "/axis-cgi/com/ptz.cgi?query=position";

TEST_F(Control, AcceptedPtzCommandsAskThePositionThenSendTheirRequest) {
  const struct {
    uint32_t command;
    int32_t action, speed, preset;
    const char* sent;
  } rows[] = {
      {24, 0, 3, 0, "/axis-cgi/com/ptz.cgi?continuouspantiltmove=30,0"},
      {24, 1, 3, 0, "/axis-cgi/com/ptz.cgi?continuouspantiltmove=0,0"},
      {23, 0, 0, 0, "/axis-cgi/com/ptz.cgi?continuouspantiltmove=0,0"},
      {21, 0, 2, 0, "/axis-cgi/com/ptz.cgi?continuouspantiltmove=0,20"},
      {22, 5, 2, 0, "/axis-cgi/com/ptz.cgi?move=stop&speed=0"},
      {25, 0, 1, 0, "/axis-cgi/com/ptz.cgi?continuouspantiltmove=-10,10"},
      {28, 0, 1, 0, "/axis-cgi/com/ptz.cgi?continuouspantiltmove=10,-10"},
      {8, 7, 0, 5, "/axis-cgi/com/ptzconfig.cgi?setserverpresetno=5"},
      {39, 1, 0, 5, "/axis-cgi/com/ptz.cgi?gotoserverpresetno=5"},
      {9, 0, 0, 5, "/axis-cgi/com/ptzconfig.cgi?removeserverpresetno=5"},
      {11, 1, 9, 0, "/axis-cgi/com/ptz.cgi?continuouszoommove=0"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Ptz(row.command, row.action, row.speed, row.preset), 0) << row.sent;
    EXPECT_EQ(Sent(), (std::vector<std::string>{kPosition, row.sent}));
  }
  // And the camera moves the way it was told: right and up are positive.
  float pan = 0, tilt = 0;
  int32_t zoom = 0;
  ASSERT_EQ(Ptz(26, 0, 5), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  ASSERT_EQ(Ptz(26, 1, 5), 0);
  ASSERT_TRUE(m_device.GetPTZPosition(pan, tilt, zoom));
  EXPECT_GT(pan, 0);
  EXPECT_GT(tilt, 0);
}

TEST_F(Control, ZoomStepsFromTheCamerasPositionAndPositionAnswersAreReadLeniently) {
  const struct {
    const char* position;
    uint32_t command;
    const char* sent;
  } rows[] = {{"zoom=9950\r\n", 11, "/axis-cgi/com/ptz.cgi?zoom=10050&continuouszoommove=4"},
              {"zoom=50\r\n", 12, "/axis-cgi/com/ptz.cgi?zoom=0&continuouszoommove=-4"}};
  for (const auto& row : rows) {
    m_camera->Script("/axis-cgi/com/ptz.cgi", {200, "text/plain", row.position, {}});
    Ptz(row.command, 0, 50);
    EXPECT_EQ(Sent(), (std::vector<std::string>{kPosition, row.sent}));
  }
  m_camera->Script("/axis-cgi/com/ptz.cgi", {200, "text/plain", "pan=12.5\r\ntilt=-3\r\nzoom=800\r\n", {}});
  LogCapture log;
  float pan = 0, tilt = 0;
  int32_t zoom = 0;
  ASSERT_TRUE(m_device.GetPTZPosition(pan, tilt, zoom));
  EXPECT_EQ(pan, 12.5f);
  EXPECT_EQ(tilt, -3.0f);
  EXPECT_EQ(zoom, 800);
  EXPECT_EQ(log.Matching("]Value invalid, value[], url[").size(), 1u) << log.All();
}

TEST_F(Control, RefusedPtzRequestsSendNothingOrFailOnThePositionQuery) {
  LogCapture log;
  EXPECT_EQ(Ptz(13, 0, 1), -2);  // focus near: mapped, but not offered
  EXPECT_EQ(Ptz(13, 0, 1, 0, 7), -2);
  EXPECT_EQ(Ptz(24, 0, 1, 0, 3), -1);
  EXPECT_TRUE(log.Contains("]NetcamPlugin: unsupport ptz control command:3[")) << log.All();
  EXPECT_TRUE(Sent().empty());
  EXPECT_EQ(std::make_tuple(m_device.GetPTZConfig(3, &log, 0, 0), m_device.GetPTZConfig(4, &log, 0, 0),
                            m_device.SetPTZConfig(5, &log, 0, 0), m_device.SetPTZConfig(3, &log, 0, 0)),
            std::make_tuple(-2, -1, -2, -1));
  m_camera->InjectFault("/axis-cgi/com/ptz.cgi", {camsim::Fault::Kind::Status, 404, "no ptz"});
  EXPECT_EQ(Ptz(24, 0, 1), -1);
  EXPECT_EQ(Sent(), std::vector<std::string>{kPosition});
  EXPECT_TRUE(log.Contains("]GetPTZPosition failed.[")) << log.All();
  m_device.CloseDevice();
  EXPECT_EQ(Ptz(24, 0, 1), -1);
}

TEST_F(Control, TimeAndNtpRequestsCarryTheirExactBodies) {
  const NET_DEV_TIME time{2024, 2, 29, 10, 5, 9};
  EXPECT_EQ(m_device.SetConfigParam(PLUGIN_CFG_SET_TIME, &time, sizeof time, nullptr), 0);
  EXPECT_EQ(Sent(), std::vector<std::string>{
                        "/axis-cgi/admin/date.cgi?action=set&year=2024&month=2&day=29&hour=10&minute=5&second=9"});
  const std::string set = "{\"apiVersion\":\"1.1\",\"method\":\"setNTPClientConfiguration\",\"params\":{";
  const struct {
    uint8_t enabled;
    int32_t port;
    int32_t result;
    std::string body;  // empty: nothing sent
  } rows[] = {
      {1, 123, 0, set + "\"serversSource\":\"static\",\"staticServers\":[\"ntp.example.org\",null],\"enabled\":true}}"},
      {1, 124, -2, ""},
      {0, 124, 0, set + "\"serversSource\":\"static\",\"staticServers\":[\"null\",null],\"enabled\":false}}"},
  };
  for (const auto& row : rows) {
    m_camera->ClearRequests();
    DeviceNtpConfig config{row.enabled, " ntp.example.org\t", {}, row.port, 0};
    EXPECT_EQ(m_device.SetNtpCfg(&config), row.result);
    EXPECT_EQ(LastSent().body, row.body);
  }
  EXPECT_EQ(LastSent().headers["content-type"], "application/json; charset=utf-8");
  std::string document =
      "<Params><NTPServer>pool.example.org</NTPServer><Interval>60</Interval><EnableNTP>1</EnableNTP>"
      "<TimeDifferenceH>8</TimeDifferenceH><TimeDifferenceM>0</TimeDifferenceM><res1>0</res1><NtpPort>123</NtpPort>"
      "</Params>";
  m_camera->ClearRequests();
  EXPECT_EQ(m_device.SetConfigParam(PLUGIN_CFG_SET_TIME_NTP, document.c_str(), document.size(), nullptr), 0);
  EXPECT_EQ(LastSent().body, set + "\"staticServers\":[\"pool.example.org\",null],\"enabled\":true}}");
  document.replace(document.find("<res1>0</res1>"), 14, "");
  m_camera->ClearRequests();
  EXPECT_EQ(m_device.SetConfigParam(PLUGIN_CFG_SET_TIME_NTP, document.c_str(), document.size(), nullptr), -1);
  EXPECT_TRUE(Sent().empty());
}

TEST_F(Control, NtpAnswersAreReadAsTheirOperationsDo) {
  DeviceNtpConfig config;
  std::memset(&config, 0x5a, sizeof config);
  ASSERT_EQ(m_device.GetNtpCfg(&config), 0);
  EXPECT_EQ(std::make_tuple(config.enabled, std::string(config.server), config.port, config.interval),
            std::make_tuple(1, std::string("0.pool.ntp.org"), 123, 60));
  EXPECT_EQ(LastSent().headers["content-type"], "application/json");
  const std::string answer =
      "{\"data\":{\"client\":{\"enabled\":true,\"serversSource\":\"%s\",\"staticServers\":[\"%s\"]}}}";
  const std::string longName(40, 'n');
  char text[200];
  std::snprintf(text, sizeof text, answer.c_str(), "static", longName.c_str());
  m_camera->Script("/axis-cgi/ntp.cgi", {200, "application/json", text, {}});
  std::memset(&config, 0x5a, sizeof config);
  ASSERT_EQ(m_device.GetNtpCfg(&config), 0);
  EXPECT_EQ(std::string(config.server, 32), longName.substr(0, 32));
  EXPECT_EQ(std::make_tuple(config.padding[0], config.port), std::make_tuple(0x5a, 123));  // nothing overrun
  std::snprintf(text, sizeof text, answer.c_str(), "DHCP", "ntp.example.org");
  m_camera->Script("/axis-cgi/ntp.cgi", {200, "application/json", text, {}});
  std::memset(&config, 0x5a, sizeof config);
  ASSERT_EQ(m_device.GetNtpCfg(&config), 0);
  EXPECT_EQ(std::make_tuple(config.enabled, config.port), std::make_tuple(0, 0x5a5a5a5a));
  // A refusal fails SetNtpCfg only: getNTPInfo reads no error.
  m_camera->Script("/axis-cgi/ntp.cgi", {200, "application/json", "{\"error\":{\"code\":4002}}", {}});
  DeviceNtpConfig on{1, "ntp.example.org", {}, 123, 0};
  EXPECT_EQ(m_device.SetNtpCfg(&on), -1);
  EXPECT_EQ(m_device.GetNtpCfg(&config), 0);
  m_camera->Script("/axis-cgi/ntp.cgi", {200, "application/json", "{\"error\":", {}});
  EXPECT_EQ(m_device.SetNtpCfg(&on) + m_device.GetNtpCfg(&config), -2);
}

TEST_F(Control, DocumentsAndTheirBufferRules) {
  char out[4096];
  const std::string ability = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<VideoPicAbility version=\"2.0\">";
  std::string text;
  for (const char* command : {"15", "abc", "14"}) {
    const std::string in = std::string("<Params><Command>") + command + "</Command></Params>";
    std::memset(out, 0, sizeof out);
    EXPECT_EQ(m_device.GetDevcieAbility(in.c_str(), in.size(), out, sizeof out), command[1] == '4' ? 0 : -1);
    text = out;
  }
  EXPECT_EQ(text.rfind(ability, 0), 0u) << text;
  EXPECT_NE(text.find("<channelNO>1</channelNO>"), std::string::npos);
  EXPECT_NE(text.find("<MotionDetection>1</MotionDetection>"), std::string::npos);
  const char* in14 = "<Params><Command>14</Command></Params>";
  EXPECT_EQ(m_device.GetDevcieAbility(in14, 0, out, static_cast<int32_t>(text.size())), 0);
  EXPECT_EQ(m_device.GetDevcieAbility(in14, 0, out, static_cast<int32_t>(text.size()) - 1), -1);

  m_camera->Script("/axis-cgi/disks/list.cgi",
                   {200,
                    "text/xml",
                    "<root><disks><disk diskid=\"a\" totalsize=\"0\" status=\"OK\"/><disk totalsize=\"100\" "
                    "freesize=\"40\" status=\"OK\"/><disk totalsize=\"5\" status=\"disconnected\"/><disk "
                    "totalsize=\"7\" status=\"full\"/></disks></root>",
                    {}});
  LogCapture log;
  ASSERT_EQ(m_device.GetWorkStatus(out, sizeof out), 0);
  const std::string status = out;
  for (const char* part :
       {"<HDNum>3</HDNum>", "<Online>1</Online>", "<HardDisk index=\"1\">", "<Capacity>100</Capacity>",
        "<FreeCap>40</FreeCap>", "<Status>1</Status>", "<Channel index=\"1\" Index=\"1\">"})
    EXPECT_NE(status.find(part), std::string::npos) << part << "\n" << status;
  EXPECT_EQ(status.find("<HardDisk index=\"4\""), std::string::npos);
  EXPECT_EQ(status.find("<Status>1</Status>", status.find("<HardDisk index=\"2\"")), std::string::npos);
  EXPECT_EQ(m_device.GetWorkStatus(out, static_cast<int32_t>(status.size())), -1);
  EXPECT_TRUE(log.Contains("is small than retlen:" + std::to_string(status.size()))) << log.All();
  EXPECT_EQ(m_device.GetWorkStatus(out, static_cast<int32_t>(status.size()) + 1), 0);

  EXPECT_EQ(std::make_tuple(m_device.GetConfigParam(30, out, 0, nullptr), m_device.SetConfigParam(30, out, 0, nullptr),
                            m_device.GetConfigParam(23, out, 0, nullptr), m_device.SetConfigParam(25, out, 0, nullptr)),
            std::make_tuple(-1, -2, -2, -2));

  m_camera->Stop();  // unreachable: the document still says how things stand
  ASSERT_EQ(m_device.GetWorkStatus(out, sizeof out), 0);
  const std::string down = out;
  for (const char* part :
       {"<Online>0</Online>", "<WorkStatus>0</WorkStatus>", "<Signal>0</Signal>", "<HDNum>0</HDNum>"})
    EXPECT_NE(down.find(part), std::string::npos) << part << "\n" << down;
  EXPECT_EQ(down.find("<HardDisk"), std::string::npos);
}

// Width and height of a JPEG as ffprobe decodes it, "1920,1080".
std::string ProbeSize(const char* data, size_t size) {
  const std::string path = ::testing::TempDir() + "snapshot-" + std::to_string(getpid()) + ".jpg";
  std::ofstream(path, std::ios::binary).write(data, static_cast<std::streamsize>(size));
  std::string output(64, '\0');
  FILE* probe = popen(("ffprobe -v error -show_entries stream=width,height -of csv=p=0 " + path).c_str(), "r");
  output.resize(probe != nullptr ? std::fread(output.data(), 1, output.size(), probe) : 0);
  if (probe != nullptr) pclose(probe);
  std::remove(path.c_str());
  return output.substr(0, output.find_first_of("\n,", output.find(',') + 1));
}

TEST_F(Control, SnapshotsTryTheListedResolutionsInTurn) {
  std::vector<char> picture(4 << 20);
  uint32_t size = 0;
  ASSERT_EQ(m_device.CapturePicture(0, picture.data(), picture.size(), &size), 0);
  EXPECT_EQ(Sent(), (std::vector<std::string>{"/axis-cgi/param.cgi?action=list&group=Properties.Image.Resolution",
                                              "/axis-cgi/jpg/image.cgi?resolution=1920x1080&compression=25&camera=0"}));
  EXPECT_EQ(ProbeSize(picture.data(), size), "1920,1080");

  m_camera->Script("/axis-cgi/param.cgi",
                   {200, "text/plain", "root.Properties.Image.Resolution=1920x1080,1280x720", {}});
  m_camera->InjectFault("/axis-cgi/jpg/", {camsim::Fault::Kind::Status, 500, "busy", {}, "", 0, 1});
  m_camera->ClearRequests();
  ASSERT_EQ(m_device.CapturePicture(1, picture.data(), picture.size(), &size), 0);
  EXPECT_EQ(Sent().back(), "/axis-cgi/jpg/image.cgi?resolution=1280x720&compression=25&camera=1");
  EXPECT_EQ(ProbeSize(picture.data(), size), "1280,720");

  m_camera->Script("/axis-cgi/jpg/", {200, "image/jpeg", "0123456789", {}});
  size = 7;
  EXPECT_EQ(m_device.CapturePicture(0, picture.data(), 9, &size), -1);
  EXPECT_EQ(size, 7u);
  EXPECT_EQ(m_device.CapturePicture(0, picture.data(), 10, &size), 0);  // binary: no room for a terminator
  EXPECT_EQ(size, 10u);

  m_camera->ClearScripts();
  m_camera->Script("/axis-cgi/param.cgi", {200, "text/plain", "root.Properties.Image.Format=jpeg\n", {}});
  m_camera->ClearRequests();
  EXPECT_EQ(m_device.CapturePicture(0, picture.data(), picture.size(), &size), -1);  // the camera has no 320x240
  EXPECT_EQ(Sent().back(), "/axis-cgi/jpg/image.cgi?resolution=320x240&compression=25&camera=0");
  EXPECT_EQ(Sent().size(), 2u);
}

}  // namespace
