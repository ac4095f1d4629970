// com/ptz.cgi and com/ptzconfig.cgi: the position text the plug-in parses, moves over time, presets.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <thread>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

class Ptz : public CameraTest {
 protected:
  // Parsed the way the plug-in does it: lines become "key=value" pieces.
  std::map<std::string, std::string> Position() {
    Reply reply = GetPath("/axis-cgi/com/ptz.cgi?query=position");
    EXPECT_EQ(reply.status, 200);
    std::map<std::string, std::string> values;
    size_t start = 0;
    while (start < reply.body.size()) {
      size_t end = reply.body.find("\r\n", start);
      if (end == std::string::npos) end = reply.body.size();
      const std::string line = reply.body.substr(start, end - start);
      const size_t eq = line.find('=');
      if (eq != std::string::npos) values[line.substr(0, eq)] = line.substr(eq + 1);
      start = end + 2;
    }
    return values;
  }
  double Pan() { return std::stod(Position()["pan"]); }
  int Command(const std::string& query) { return static_cast<int>(GetPath("/axis-cgi/com/" + query).status); }

  // Polls until `condition` holds; the bound only guards against a hang.
  template <typename F>
  bool Eventually(F condition) {
    for (int i = 0; i < 1000; ++i) {
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
};

TEST_F(Ptz, PositionAnswersPanTiltZoomAndTheOtherLines) {
  auto position = Position();
  for (const char* key : {"pan", "tilt", "zoom", "iris", "focus", "autofocus"}) {
    EXPECT_EQ(position.count(key), 1u) << key;
  }
  EXPECT_EQ(position["zoom"], "1");
  EXPECT_EQ(Command("ptz.cgi?pan=-45.5&tilt=-10&zoom=2500"), 204);
  position = Position();
  EXPECT_DOUBLE_EQ(std::stod(position["pan"]), -45.5);
  EXPECT_DOUBLE_EQ(std::stod(position["tilt"]), -10);
  EXPECT_EQ(position["zoom"], "2500");
}

TEST_F(Ptz, ContinuousMovesChangeThePositionUntilStopped) {
  EXPECT_EQ(Command("ptz.cgi?continuouspantiltmove=30,0"), 204);
  EXPECT_TRUE(Eventually([&] { return Pan() > 1.0; }));
  EXPECT_EQ(Command("ptz.cgi?continuouspantiltmove=0,0"), 204);
  const double stopped = Pan();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_DOUBLE_EQ(Pan(), stopped);

  // The plug-in's zoom step: an absolute zoom with a zoom speed, then a stop with move=stop.
  EXPECT_EQ(Command("ptz.cgi?zoom=100&continuouszoommove=4"), 204);
  EXPECT_TRUE(Eventually([&] { return std::stoi(Position()["zoom"]) > 100; }));
  EXPECT_EQ(Command("ptz.cgi?move=stop&speed=0"), 204);
  const std::string zoom = Position()["zoom"];
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(Position()["zoom"], zoom);

  EXPECT_EQ(Command("ptz.cgi?continuouspantiltmove=0,-100"), 204);  // tilt stops at its limit
  EXPECT_TRUE(Eventually([&] { return Position()["tilt"] == "-90.0000"; }));
}

TEST_F(Ptz, ServerPresetsStoreAndRecallPositions) {
  EXPECT_EQ(Command("ptz.cgi?pan=10&tilt=5&zoom=300"), 204);
  EXPECT_EQ(Command("ptzconfig.cgi?setserverpresetno=3&setserverpresetname=Gate"), 204);
  EXPECT_EQ(Command("ptz.cgi?pan=-100&tilt=0&zoom=1"), 204);
  EXPECT_EQ(Command("ptz.cgi?gotoserverpresetno=3"), 204);
  auto position = Position();
  EXPECT_DOUBLE_EQ(std::stod(position["pan"]), 10);
  EXPECT_EQ(position["zoom"], "300");
  EXPECT_NE(GetPath("/axis-cgi/com/ptz.cgi?query=presetposall").body.find("presetposno3=Gate"), std::string::npos);

  EXPECT_EQ(Command("ptzconfig.cgi?removeserverpresetno=3"), 204);
  EXPECT_EQ(Command("ptz.cgi?gotoserverpresetno=3"), 400);
  EXPECT_EQ(Command("ptzconfig.cgi?removeserverpresetno=3"), 400);
}

TEST_F(Ptz, BadCommandsAreRefusedAndMoveNothing) {
  EXPECT_EQ(Command("ptz.cgi?pan=20"), 204);
  for (const char* query :
       {"ptz.cgi", "ptz.cgi?continuouspantiltmove=abc", "ptz.cgi?continuouspantiltmove=5",
        "ptz.cgi?continuouspantiltmove=101,0", "ptz.cgi?pan=999", "ptz.cgi?pan=5&tilt=nan", "ptz.cgi?zoom=0",
        "ptz.cgi?pan=5&teleport=1", "ptz.cgi?move=sideways", "ptz.cgi?gotoserverpresetno=-1", "ptz.cgi?camera=7&pan=5",
        "ptz.cgi?query=weather", "ptzconfig.cgi", "ptzconfig.cgi?setserverpresetno=x"}) {
    EXPECT_EQ(Command(query), 400) << query;
  }
  EXPECT_DOUBLE_EQ(Pan(), 20);
}

TEST_F(Ptz, ACameraWithoutPtzHasNoPtzCgi) {
  camsim::CameraConfig config;
  config.hasPtz = false;
  Restart(config);
  EXPECT_EQ(GetPath("/axis-cgi/com/ptz.cgi?query=position").status, 404);
  EXPECT_EQ(GetPath("/axis-cgi/com/ptzconfig.cgi?setserverpresetno=1").status, 404);
  EXPECT_NE(GetPath("/axis-cgi/param.cgi?action=list&group=Properties.PTZ").body.find("root.Properties.PTZ.PTZ=no"),
            std::string::npos);
}

}  // namespace
}  // namespace camsim_test
