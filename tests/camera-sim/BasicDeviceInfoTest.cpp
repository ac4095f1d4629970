// basicdeviceinfo.cgi: the identity answer the plug-in reads, and the API's error objects.
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
                                {"/context", "Client defined request ID"},
                                {"/data/propertyList/Brand", "AXIS"},
                                {"/data/propertyList/ProdFullName", "AXIS Q6135-LE PTZ Network Camera"},
                                {"/data/propertyList/SerialNumber", "ACCC8E012345"},
                                {"/data/propertyList/Version", "10.12.240"},
                                {"/data/propertyList/ProdType", "Network Camera"}}) {
    EXPECT_EQ(JsonAt(answer, pointer), value) << pointer;
  }
}

TEST_F(BasicDeviceInfo, BadRequestsGetTheApisErrorObjects) {
  for (auto [body, code] : {std::pair{R"({"apiVersion":"1.3","context":"c","method":"reboot"})", "2004"},
                            {"{not json", "4000"},
                            {R"({"apiVersion":"2.0","method":"getAllProperties"})", "2003"},
                            {R"({"apiVersion":"1.3","method":"getProperties"})", "4002"}}) {
    const std::string answer = PostPath("/axis-cgi/basicdeviceinfo.cgi", body).body;
    EXPECT_EQ(JsonAt(answer, "/error/code") + JsonAt(answer, "/data"), code) << body;
    EXPECT_NE(JsonAt(answer, "/error/message"), "") << body;
  }
}

}  // namespace
}  // namespace camsim_test
