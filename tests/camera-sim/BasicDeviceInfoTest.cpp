// basicdeviceinfo.cgi: the identity answer the plug-in reads.
#include <gtest/gtest.h>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

using BasicDeviceInfo = CameraTest;

TEST_F(BasicDeviceInfo, AllPropertiesCarryTheConfiguredIdentity) {
  camsim::CameraConfig config;
  config.model = "AXIS Q6135-LE PTZ Network Camera";
  config.serial = "ACCC8E012345";
  config.firmware = "10.12.240";
  Restart(config);
  // The plug-in's request as it sends it: blanks included, no content type.
  const std::string answer =
      PostPath("/axis-cgi/basicdeviceinfo.cgi",
               "{              \"apiVersion\": \"1.3\",              \"context\": \"Client defined request ID\",  "
               "            \"method\": \"getAllProperties\"               }")
          .body;
  for (auto [pointer, value] : {std::pair{"/apiVersion", "1.3"},
                                {"/data/propertyList/Brand", "AXIS"},
                                {"/data/propertyList/ProdFullName", "AXIS Q6135-LE PTZ Network Camera"},
                                {"/data/propertyList/SerialNumber", "ACCC8E012345"},
                                {"/data/propertyList/Version", "10.12.240"}}) {
    EXPECT_EQ(JsonAt(answer, pointer), value) << pointer;
  }
}

}  // namespace
}  // namespace camsim_test
