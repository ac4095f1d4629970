// A camera captured through plugin-host and replayed by the simulator must
// look to the plug-in like the camera itself: the same tour summary, line for
// line, and nothing of the credentials in the folder. A capture edited into
// nonsense must be refused naming the file and line.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "LoopbackAddress.h"
#include "TestSockets.h"
#include "camera_sim/Camera.h"

namespace fs = std::filesystem;

namespace {

constexpr char kUser[] = "capturer";
constexpr char kPassword[] = "Cap7ure-Secret!";

// Standard output of a command (stderr goes to the test's log).
std::string RunCommand(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return output;
  std::array<char, 4096> buffer{};
  while (size_t got = fread(buffer.data(), 1, buffer.size(), pipe)) output.append(buffer.data(), got);
  pclose(pipe);
  return output;
}

// The tour's table: the lines after "== summary".
std::vector<std::string> Summary(const std::string& output) {
  std::vector<std::string> lines;
  std::istringstream text(output.substr(std::min(output.find("== summary"), output.size())));
  for (std::string line; std::getline(text, line) && lines.size() < 40;) {
    lines.push_back(line);
    if (line.rfind("tour:", 0) == 0) break;
  }
  return lines;
}

std::string ReadAll(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// A stage as the platform installs the plug-in, with an event port of its own.
fs::path Stage() {
  const fs::path stage = fs::temp_directory_path() / ("capture-test-" + netcam_test::UniqueLoopbackAddress());
  fs::remove_all(stage);
  fs::create_directories(stage / "plugins/axis");
  fs::create_directories(stage / "META_INFO/extdev_axis.d/runtime_script");
  fs::copy_file(NETCAM_TEST_PLUGIN_PATH, stage / "plugins/axis/netcam_plugin.so");
  std::ofstream(stage / "META_INFO/extdev_axis.d/runtime_script/Setup.xml")
      << "<Configs><AxisPort><Event>" << netcam_test::EphemeralPort("127.0.0.1") << "</Event></AxisPort></Configs>\n";
  return stage;
}

std::string Host(const fs::path& stage, const std::string& address, uint16_t port, const std::string& command) {
  return "cd " + stage.string() + " && NETCAM_LOG_FILE=plugin.log " NETCAM_TEST_PLUGIN_HOST_PATH " --plugin " +
         (stage / "plugins/axis/netcam_plugin.so").string() + " --camera " + address + ":" + std::to_string(port) +
         " --user " + kUser + " --password '" + kPassword + "' " + command;
}

TEST(CaptureReplay, TheReplayedCameraTellsTheTourWhatTheCameraDid) {
  const bool rtsp = netcam_test::CanBindPrivilegedPorts();
  const fs::path stage = Stage();
  camsim::CameraConfig config;
  config.address = netcam_test::UniqueLoopbackAddress(554);
  config.rtspPort = rtsp ? 554 : 0;
  config.user = kUser;
  config.password = kPassword;
  config.model = "AXIS Q1798-LE";
  config.serial = "ACCC8E012345";
  config.firmware = "10.12.199";
  config.hasPtz = false;  // so that the same lines fail on both
  std::string error;
  std::vector<std::string> direct;
  {
    camsim::Camera camera(config);
    ASSERT_TRUE(camera.Start(&error)) << error;
    const std::string capture =
        RunCommand(Host(stage, config.address, camera.HttpPort(),
                 "capture --output capture --relay-address " + netcam_test::UniqueLoopbackAddress(554)));
    direct = Summary(capture);
    ASSERT_GT(direct.size(), 20u) << capture;
    EXPECT_NE(capture.find("index.json"), std::string::npos) << "the listing names what was written";
  }

  // Nothing of the credentials anywhere in the folder; the user only where the camera's answers hold it.
  for (const auto& entry : fs::recursive_directory_iterator(stage / "capture")) {
    if (!entry.is_regular_file()) continue;
    const std::string bytes = ReadAll(entry.path());
    EXPECT_EQ(bytes.find(kPassword), std::string::npos) << entry.path();
    EXPECT_EQ(bytes.find("Digest username"), std::string::npos) << entry.path();
    EXPECT_EQ(bytes.find("Authorization"), std::string::npos) << entry.path();
  }

  camsim::CameraConfig replayConfig;
  replayConfig.address = netcam_test::UniqueLoopbackAddress(554);
  replayConfig.rtspPort = rtsp ? 554 : 0;
  replayConfig.user = kUser;
  replayConfig.password = kPassword;
  replayConfig.replayDir = (stage / "capture").string();
  {
    camsim::Camera replay(replayConfig);
    ASSERT_TRUE(replay.Start(&error)) << error;
    EXPECT_EQ(replay.Config().serial, config.serial);
    const std::string tour = RunCommand(Host(stage, replayConfig.address, replay.HttpPort(), "tour"));
    EXPECT_EQ(Summary(tour), direct) << tour;
  }

  // A damaged capture is refused with its file and line, never served.
  const fs::path folder = stage / "capture";
  std::string http = ReadAll(folder / "http.jsonl");
  const size_t third = http.find('\n', http.find('\n') + 1) + 1;
  const std::string firstAnswer = http.substr(http.find("\"answerFile\":\"") + 14, 40);
  const struct {
    const char* what;
    std::function<void()> damage;
    std::string expected;
  } kDamages[] = {
      {"a cut line", [&] { std::ofstream(folder / "http.jsonl") << http.substr(0, third + 20) << "\n"; },
       "http.jsonl:3: not JSON"},
      {"a status that is no number",
       [&] {
         std::ofstream(folder / "http.jsonl") << R"({"method":"GET","path":"/x","status":"200"})"
                                              << "\n";
       },
       "http.jsonl:1: \"status\" missing or not a number"},
      {"an answer file gone",
       [&] {
         std::ofstream(folder / "http.jsonl") << http;
         fs::remove(folder / firstAnswer.substr(0, firstAnswer.find('"')));
       },
       "http.jsonl:1: http/"},
      {"a file outside the folder",
       [&] {
         std::ofstream(folder / "http.jsonl") << R"({"method":"GET","path":"/","status":200,"answerFile":"../x"})";
       },
       "http.jsonl:1: \"answerFile\" must name a file inside the folder"},
      {"an index of another format", [&] { std::ofstream(folder / "index.json") << R"({"format":2})"; },
       "index.json: \"format\" is not 1"},
  };
  for (const auto& damage : kDamages) {
    damage.damage();
    replayConfig.address = netcam_test::UniqueLoopbackAddress();
    replayConfig.rtspPort = 0;
    camsim::Camera broken(replayConfig);
    EXPECT_FALSE(broken.Start(&error)) << damage.what;
    EXPECT_NE(error.find(damage.expected), std::string::npos) << damage.what << ": " << error;
  }
  fs::remove_all(stage);
}

}  // namespace
