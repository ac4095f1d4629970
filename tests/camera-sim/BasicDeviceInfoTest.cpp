// basicdeviceinfo.cgi: the identity answer the plug-in reads, and the API's error objects.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

class BasicDeviceInfo : public CameraTest {
 protected:
  rapidjson::Document Call(const std::string& body) {
    Reply reply = PostPath("/axis-cgi/basicdeviceinfo.cgi", body);
    EXPECT_EQ(reply.status, 200) << reply.body;
    rapidjson::Document doc;
    EXPECT_FALSE(doc.Parse(reply.body.c_str()).HasParseError()) << reply.body;
    return doc;
  }
  static std::string Text(const rapidjson::Document& doc, const char* pointer) {
    const rapidjson::Value* value = rapidjson::Pointer(pointer).Get(doc);
    return value == nullptr ? "<absent>" : value->IsString() ? value->GetString() : std::to_string(value->GetInt());
  }
};

TEST_F(BasicDeviceInfo, AllPropertiesCarryTheConfiguredIdentity) {
  camsim::CameraConfig config;
  config.model = "AXIS Q6135-LE PTZ Network Camera";
  config.serial = "ACCC8E012345";
  config.firmware = "10.12.240";
  Restart(config);
  // The plug-in's request as it sends it: blanks included, no content type.
  auto doc = Call(
      "{              \"apiVersion\": \"1.3\",              \"context\": \"Client defined request ID\",              "
      "\"method\": \"getAllProperties\"               }");
  for (auto [pointer, value] : {std::pair{"/apiVersion", "1.3"},
                                {"/context", "Client defined request ID"},
                                {"/data/propertyList/Brand", "AXIS"},
                                {"/data/propertyList/ProdFullName", "AXIS Q6135-LE PTZ Network Camera"},
                                {"/data/propertyList/SerialNumber", "ACCC8E012345"},
                                {"/data/propertyList/Version", "10.12.240"},
                                {"/data/propertyList/ProdType", "Network Camera"}}) {
    EXPECT_EQ(Text(doc, pointer), value) << pointer;
  }
}

TEST_F(BasicDeviceInfo, BadRequestsGetTheApisErrorObjects) {
  for (auto [body, code] : {std::pair{R"({"apiVersion":"1.3","context":"c","method":"reboot"})", "2004"},
                            {"{not json", "4000"},
                            {R"({"apiVersion":"2.0","method":"getAllProperties"})", "2003"},
                            {R"({"apiVersion":"1.3","method":"getProperties"})", "4002"}}) {
    auto doc = Call(body);
    EXPECT_EQ(Text(doc, "/error/code"), code) << body;
    EXPECT_NE(Text(doc, "/error/message"), "<absent>") << body;
    EXPECT_FALSE(doc.HasMember("data")) << body;
  }
}

}  // namespace
}  // namespace camsim_test
