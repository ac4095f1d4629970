// basicdeviceinfo.cgi: the identity answer the plug-in reads, and the API's error objects.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

class BasicDeviceInfo : public CameraTest {
 protected:
  rapidjson::Document Call(const std::string& body, long expectedStatus = 200) {
    Reply reply = PostPath("/axis-cgi/basicdeviceinfo.cgi", body);
    EXPECT_EQ(reply.status, expectedStatus) << reply.body;
    rapidjson::Document doc;
    doc.Parse(reply.body.c_str());
    EXPECT_FALSE(doc.HasParseError()) << reply.body;
    return doc;
  }
  static std::string Text(const rapidjson::Document& doc, const char* pointer) {
    const rapidjson::Value* value = rapidjson::Pointer(pointer).Get(doc);
    return value != nullptr && value->IsString() ? value->GetString() : "<absent>";
  }
  static int Code(const rapidjson::Document& doc) {
    const rapidjson::Value* value = rapidjson::Pointer("/error/code").Get(doc);
    return value != nullptr && value->IsInt() ? value->GetInt() : -1;
  }
};

TEST_F(BasicDeviceInfo, AllPropertiesCarryTheConfiguredIdentity) {
  camsim::CameraConfig config;
  config.model = "AXIS Q6135-LE PTZ Network Camera";
  config.productNumber = "Q6135-LE";
  config.serial = "ACCC8E012345";
  config.firmware = "10.12.240";
  Restart(config);
  // The plug-in's request as it sends it: blanks included, no content type.
  auto doc = Call(
      "{              \"apiVersion\": \"1.3\",              \"context\": \"Client defined request ID\",              "
      "\"method\": \"getAllProperties\"               }");
  EXPECT_EQ(Text(doc, "/apiVersion"), "1.3");
  EXPECT_EQ(Text(doc, "/context"), "Client defined request ID");
  EXPECT_EQ(Text(doc, "/data/propertyList/Brand"), "AXIS");
  EXPECT_EQ(Text(doc, "/data/propertyList/ProdFullName"), "AXIS Q6135-LE PTZ Network Camera");
  EXPECT_EQ(Text(doc, "/data/propertyList/ProdNbr"), "Q6135-LE");
  EXPECT_EQ(Text(doc, "/data/propertyList/SerialNumber"), "ACCC8E012345");
  EXPECT_EQ(Text(doc, "/data/propertyList/Version"), "10.12.240");
  EXPECT_EQ(Text(doc, "/data/propertyList/ProdType"), "Network Camera");
  EXPECT_EQ(Text(doc, "/data/propertyList/ProdVariant"), "");
  EXPECT_NE(Text(doc, "/data/propertyList/BuildDate"), "<absent>");
  EXPECT_FALSE(doc.HasMember("error"));
}

TEST_F(BasicDeviceInfo, BrandIsAbsentOrAsConfigured) {
  camsim::CameraConfig config;
  config.brand = "";
  Restart(config);
  auto doc = Call(R"({"apiVersion":"1.3","method":"getAllProperties"})");
  EXPECT_EQ(Text(doc, "/data/propertyList/Brand"), "<absent>");
  EXPECT_FALSE(doc.HasMember("context"));  // nothing to echo

  config.brand = "Axis";
  Restart(config);
  EXPECT_EQ(Text(Call(R"({"apiVersion":"1.3","method":"getAllProperties"})"), "/data/propertyList/Brand"), "Axis");
}

TEST_F(BasicDeviceInfo, GetPropertiesAnswersOnlyTheNamedOnes) {
  auto doc = Call(
      R"({"apiVersion":"1.3","context":7,"method":"getProperties","params":{"propertyList":["Version","NoSuch"]}})");
  EXPECT_EQ(Text(doc, "/data/propertyList/Version"), "11.11.73");
  EXPECT_EQ(doc["data"]["propertyList"].MemberCount(), 1u);
  EXPECT_EQ(doc["context"].GetInt(), 7);

  EXPECT_EQ(Code(Call(R"({"apiVersion":"1.3","method":"getProperties"})")), 4002);
  EXPECT_EQ(Code(Call(R"({"apiVersion":"1.3","method":"getProperties","params":{"propertyList":[1]}})")), 4002);
}

TEST_F(BasicDeviceInfo, SupportedVersions) {
  auto doc = Call(R"({"apiVersion":"1.0","method":"getSupportedVersions"})");
  ASSERT_TRUE(doc["data"]["apiVersions"].IsArray());
  EXPECT_EQ(doc["data"]["apiVersions"].Size(), 4u);
  EXPECT_EQ(Text(doc, "/apiVersion"), "1.0");
}

TEST_F(BasicDeviceInfo, BadRequestsGetTheApisErrorObjects) {
  struct Case {
    const char* body;
    int code;
  };
  for (const Case& c :
       {Case{R"({"apiVersion":"1.3","context":"c","method":"reboot"})", 2004}, Case{"{not json", 4000}, Case{"", 4000},
        Case{"[1,2]", 4000}, Case{R"({"apiVersion":"2.0","method":"getAllProperties"})", 2003},
        Case{R"({"apiVersion":"one","method":"getAllProperties"})", 2003},
        Case{R"({"method":"getAllProperties"})", 4002}, Case{R"({"apiVersion":"1.3"})", 4002},
        Case{R"({"apiVersion":"1.3","method":"getAllProperties","params":3})", 4002}}) {
    auto doc = Call(c.body);
    EXPECT_EQ(Code(doc), c.code) << c.body;
    EXPECT_TRUE(rapidjson::Pointer("/error/message").Get(doc) != nullptr) << c.body;
    EXPECT_FALSE(doc.HasMember("data")) << c.body;
  }
  EXPECT_EQ(Text(Call(R"({"apiVersion":"1.3","context":"c","method":"reboot"})"), "/context"), "c");

  Reply get = GetPath("/axis-cgi/basicdeviceinfo.cgi");
  EXPECT_NE(get.body.find("2002"), std::string::npos) << get.body;
}

}  // namespace
}  // namespace camsim_test
