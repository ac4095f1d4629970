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
}

TEST_F(MediaEndpoints, StreamProfilesAreListedAndCreated) {
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
}

}  // namespace
}  // namespace camsim_test
