// com/ptz.cgi: moves and presets are checked through the plug-in (tests/control);
// here only the camera made without PTZ, which the plug-in cannot tell apart.
#include <gtest/gtest.h>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

using Ptz = CameraTest;

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
