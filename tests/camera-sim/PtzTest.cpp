// com/ptz.cgi: the position text the plug-in parses and moves over time; presets are stored with the
// camera's state (TimeAndNtpTest).
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <thread>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

class Ptz : public CameraTest {
 protected:
  // Parsed the way the plug-in does it: "\r\n"-separated "key=value" lines.
  std::map<std::string, std::string> Position() {
    std::map<std::string, std::string> values;
    const std::string body = GetPath("/axis-cgi/com/ptz.cgi?query=position").body;
    for (size_t start = 0, end; start < body.size(); start = end + 2) {
      end = std::min(body.find("\r\n", start), body.size());
      const std::string line = body.substr(start, end - start);
      if (line.find('=') != std::string::npos) values[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
    }
    return values;
  }
  int Command(const std::string& query) { return static_cast<int>(GetPath("/axis-cgi/com/" + query).status); }
  // Polls until `key` satisfies `condition`; the bound only guards against a hang.
  template <typename F>
  bool Eventually(const char* key, F condition) {
    for (int i = 0; i < 1000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
      if (condition(std::stod(Position()[key]))) return true;
    }
    return false;
  }
};

TEST_F(Ptz, AbsoluteAndContinuousMovesShowInThePosition) {
  auto position = Position();
  for (const char* key : {"pan", "tilt", "zoom", "iris", "focus", "autofocus"}) EXPECT_EQ(position.count(key), 1u);
  EXPECT_EQ(Command("ptz.cgi?pan=-45.5&tilt=-10&zoom=2500"), 204);
  position = Position();
  EXPECT_DOUBLE_EQ(std::stod(position["pan"]), -45.5);
  EXPECT_DOUBLE_EQ(std::stod(position["tilt"]), -10);
  EXPECT_EQ(position["zoom"], "2500");
  EXPECT_EQ(Command("ptz.cgi?continuouspantiltmove=30,0"), 204);
  EXPECT_TRUE(Eventually("pan", [](double pan) { return pan > -40; }));
  EXPECT_EQ(Command("ptz.cgi?move=stop&speed=0"), 204);
  position = Position();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(Position(), position);
  EXPECT_EQ(Command("ptz.cgi?pan=999"), 400);
}

TEST_F(Ptz, ACameraWithoutPtzHasNoPtzCgi) {
  camsim::CameraConfig config;
  config.hasPtz = false;
  Restart(config);
  EXPECT_EQ(GetPath("/axis-cgi/com/ptz.cgi?query=position").status, 404);
  EXPECT_NE(GetPath("/axis-cgi/param.cgi?action=list&group=Properties.PTZ").body.find("root.Properties.PTZ.PTZ=no"),
            std::string::npos);
}

}  // namespace
}  // namespace camsim_test
