// param.cgi, jpg/image.cgi and streamprofile.cgi: what the plug-in reads to take snapshots and pick streams.
#include <gtest/gtest.h>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

// "WIDTHxHEIGHT" from the JPEG's start-of-frame marker; "" when there is none.
std::string JpegSize(const std::string& data) {
  auto byte = [&](size_t at) { return static_cast<unsigned char>(data[at]); };
  for (size_t pos = 2; data.rfind("\xFF\xD8", 0) == 0 && pos + 9 < data.size() && byte(pos) == 0xFF;) {
    if (byte(pos + 1) >= 0xC0 && byte(pos + 1) <= 0xC2) {
      return std::to_string(byte(pos + 7) * 256 + byte(pos + 8)) + "x" +
             std::to_string(byte(pos + 5) * 256 + byte(pos + 6));
    }
    pos += 2 + byte(pos + 2) * 256u + byte(pos + 3);
  }
  return "";
}

using MediaEndpoints = CameraTest;

TEST_F(MediaEndpoints, EveryListedResolutionGivesARealJpegOfThatSize) {
  Reply list = GetPath("/axis-cgi/param.cgi?action=list&group=Properties.Image.Resolution");
  const std::string prefix = "root.Properties.Image.Resolution=";
  ASSERT_EQ(list.body.rfind(prefix, 0), 0u) << list.body;
  std::string resolutions = list.body.substr(prefix.size(), list.body.find('\n') - prefix.size()) + ",";
  for (size_t start = 0, end; (end = resolutions.find(',', start)) != std::string::npos; start = end + 1) {
    const std::string resolution = resolutions.substr(start, end - start);
    Reply picture = GetPath("/axis-cgi/jpg/image.cgi?resolution=" + resolution + "&compression=25&camera=1");
    EXPECT_EQ(picture.contentType, "image/jpeg");
    EXPECT_EQ(JpegSize(picture.body), resolution);
  }
  Reply refused = GetPath("/axis-cgi/jpg/image.cgi?resolution=1000x1000");
  EXPECT_EQ(refused.status, 400);
  EXPECT_EQ(refused.body.rfind("Error:", 0), 0u) << refused.body;
}

TEST_F(MediaEndpoints, ParamListAnswersGroupsAndRefusesUnknownOnes) {
  Reply brand = GetPath("/axis-cgi/param.cgi?action=list&group=root.Brand");
  EXPECT_NE(brand.body.find("root.Brand.Brand=AXIS\n"), std::string::npos) << brand.body;
  EXPECT_NE(brand.body.find("root.Brand.ProdNbr=P1465-LE\n"), std::string::npos);
  EXPECT_EQ(brand.body.find("Properties"), std::string::npos);
  EXPECT_EQ(GetPath("/axis-cgi/param.cgi?action=list&group=Properties.Nothing").body.rfind("# Error:", 0), 0u);
}

TEST_F(MediaEndpoints, StreamProfilesAreListedCreatedAndRemoved) {
  auto call = [&](const std::string& method, const std::string& params) {
    return PostPath("/axis-cgi/streamprofile.cgi",
                    R"({"apiVersion":"1.0","method":")" + method + R"(","params":)" + params + "}")
        .body;
  };
  const std::string all = R"({"streamProfileName":[]})";
  EXPECT_NE(JsonAt(call("list", all), "/data/streamProfile/3/parameters").find("videocodec="), std::string::npos);
  const std::string rec265 =
      R"({"streamProfile":[{"name":"rec265","description":"r","parameters":"videocodec=h265"}]})";
  EXPECT_EQ(JsonAt(call("create", rec265), "/error/code"), "");
  EXPECT_EQ(JsonAt(call("create", rec265), "/error/code"), "4002");  // exists
  EXPECT_EQ(JsonAt(call("list", all), "/data/streamProfile/4/parameters"), "videocodec=h265");
  // Without profiles the key is absent, as on a camera that has none.
  call("remove", R"({"streamProfileName":[{"name":"rec265"},{"name":"Quality"},{"name":"Balanced"},
      {"name":"Bandwidth"},{"name":"Mobile"}]})");
  EXPECT_EQ(JsonAt(call("list", all), "/data/streamProfile"), "");
}

}  // namespace
}  // namespace camsim_test
