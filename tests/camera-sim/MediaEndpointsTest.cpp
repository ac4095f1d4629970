// param.cgi, jpg/image.cgi and streamprofile.cgi: what the plug-in reads to take snapshots and pick streams.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

// Width and height from the JPEG's start-of-frame marker; {0,0} when there is none.
std::pair<int, int> JpegSize(const std::string& data) {
  if (data.size() < 4 || static_cast<unsigned char>(data[0]) != 0xFF || static_cast<unsigned char>(data[1]) != 0xD8) {
    return {0, 0};
  }
  size_t pos = 2;
  while (pos + 9 < data.size()) {
    if (static_cast<unsigned char>(data[pos]) != 0xFF) return {0, 0};
    const unsigned marker = static_cast<unsigned char>(data[pos + 1]);
    const size_t length = static_cast<unsigned char>(data[pos + 2]) * 256u + static_cast<unsigned char>(data[pos + 3]);
    if (marker >= 0xC0 && marker <= 0xC2) {
      const int height = static_cast<unsigned char>(data[pos + 5]) * 256 + static_cast<unsigned char>(data[pos + 6]);
      const int width = static_cast<unsigned char>(data[pos + 7]) * 256 + static_cast<unsigned char>(data[pos + 8]);
      return {width, height};
    }
    pos += 2 + length;
  }
  return {0, 0};
}

using MediaEndpoints = CameraTest;

TEST_F(MediaEndpoints, EveryListedResolutionGivesARealJpegOfThatSize) {
  Reply list = GetPath("/axis-cgi/param.cgi?action=list&group=Properties.Image.Resolution");
  ASSERT_EQ(list.status, 200);
  const std::string prefix = "root.Properties.Image.Resolution=";
  ASSERT_EQ(list.body.rfind(prefix, 0), 0u) << list.body;
  std::string rest = list.body.substr(prefix.size());
  rest = rest.substr(0, rest.find('\n'));
  int checked = 0;
  for (size_t start = 0; start < rest.size();) {
    size_t end = rest.find(',', start);
    if (end == std::string::npos) end = rest.size();
    const std::string resolution = rest.substr(start, end - start);
    start = end + 1;
    Reply picture = GetPath("/axis-cgi/jpg/image.cgi?resolution=" + resolution + "&compression=25&camera=1");
    ASSERT_EQ(picture.status, 200) << resolution;
    EXPECT_EQ(picture.contentType, "image/jpeg");
    const auto [width, height] = JpegSize(picture.body);
    EXPECT_EQ(std::to_string(width) + "x" + std::to_string(height), resolution);
    ++checked;
  }
  EXPECT_GE(checked, 3);
}

TEST_F(MediaEndpoints, SnapshotRefusesWhatTheCameraCannotDo) {
  for (const char* query :
       {"resolution=1000x1000", "resolution=big", "resolution=640x360x2", "resolution=640x360&compression=101",
        "resolution=640x360&compression=x", "resolution=640x360&camera=2"}) {
    Reply reply = GetPath(std::string("/axis-cgi/jpg/image.cgi?") + query);
    EXPECT_EQ(reply.status, 400) << query;
    EXPECT_EQ(reply.body.rfind("Error:", 0), 0u) << reply.body;
  }
  EXPECT_EQ(GetPath("/axis-cgi/jpg/image.cgi").status, 200);  // the defaults are fine
}

TEST_F(MediaEndpoints, ParamListAnswersGroupsAndRefusesUnknownOnes) {
  Reply brand = GetPath("/axis-cgi/param.cgi?action=list&group=root.Brand");
  EXPECT_NE(brand.body.find("root.Brand.Brand=AXIS\n"), std::string::npos) << brand.body;
  EXPECT_NE(brand.body.find("root.Brand.ProdNbr=P1465-LE\n"), std::string::npos);
  EXPECT_EQ(brand.body.find("Properties"), std::string::npos);
  Reply unknown = GetPath("/axis-cgi/param.cgi?action=list&group=Properties.Nothing");
  EXPECT_EQ(unknown.body.rfind("# Error:", 0), 0u) << unknown.body;
  EXPECT_EQ(GetPath("/axis-cgi/param.cgi?action=update&Brand.Brand=X").body.rfind("# Error:", 0), 0u);
}

class StreamProfiles : public CameraTest {
 protected:
  rapidjson::Document Call(const std::string& body) {
    Reply reply = PostPath("/axis-cgi/streamprofile.cgi", body);
    EXPECT_EQ(reply.status, 200);
    rapidjson::Document doc;
    doc.Parse(reply.body.c_str());
    EXPECT_FALSE(doc.HasParseError()) << reply.body;
    return doc;
  }
  static int Code(const rapidjson::Document& doc) { return doc.HasMember("error") ? doc["error"]["code"].GetInt() : 0; }
  rapidjson::Document List() {
    return Call(R"({"apiVersion": "1.0", "method": "list", "params": {"streamProfileName": []}})");
  }
};

TEST_F(StreamProfiles, ListCreateAndRemove) {
  auto list = List();
  ASSERT_TRUE(list["data"]["streamProfile"].IsArray());
  const auto& first = list["data"]["streamProfile"][0];
  EXPECT_TRUE(first["name"].IsString());
  EXPECT_TRUE(first["description"].IsString());
  EXPECT_NE(std::string(first["parameters"].GetString()).find("videocodec="), std::string::npos);
  const rapidjson::SizeType defaults = list["data"]["streamProfile"].Size();

  EXPECT_EQ(Code(Call(R"({"apiVersion":"1.0","method":"create","params":{"streamProfile":[{"name":"rec265",
      "description":"recording","parameters":"resolution=1920x1080&fps=25&videocodec=h265"}]}})")),
            0);
  auto named = Call(R"({"apiVersion":"1.0","method":"list","params":{"streamProfileName":[{"name":"rec265"}]}})");
  ASSERT_EQ(named["data"]["streamProfile"].Size(), 1u);
  EXPECT_STREQ(named["data"]["streamProfile"][0]["parameters"].GetString(),
               "resolution=1920x1080&fps=25&videocodec=h265");
  EXPECT_EQ(List()["data"]["streamProfile"].Size(), defaults + 1);

  // Without profiles the key is absent, as on a camera that has none.
  EXPECT_EQ(Code(Call(R"({"apiVersion":"1.0","method":"remove","params":{"streamProfileName":
      [{"name":"rec265"},{"name":"Quality"},{"name":"Balanced"},{"name":"Bandwidth"},{"name":"Mobile"}]}})")),
            0);
  auto empty = List();
  EXPECT_FALSE(empty["data"].HasMember("streamProfile"));
  EXPECT_TRUE(empty["data"].HasMember("maxProfiles"));
}

TEST_F(StreamProfiles, BadRequestsGetErrorCodes) {
  EXPECT_EQ(Code(Call(R"({"apiVersion":"1.0","method":"create","params":{"streamProfile":[{"name":"Quality",
      "parameters":"fps=1"}]}})")),
            4002);  // exists
  EXPECT_EQ(Code(Call(R"({"apiVersion":"1.0","method":"create","params":{"streamProfile":[{"parameters":"x"}]}})")),
            4002);
  EXPECT_EQ(Code(Call(R"({"apiVersion":"1.0","method":"create"})")), 4002);
  EXPECT_EQ(Code(Call(R"({"apiVersion":"1.0","method":"remove","params":{"streamProfileName":["nope"]}})")), 4002);
  EXPECT_EQ(Code(Call(R"({"apiVersion":"1.0","method":"list","params":{"streamProfileName":"Quality"}})")), 4002);
  EXPECT_EQ(Code(Call(R"({"apiVersion":"1.0","method":"rename"})")), 2004);
  EXPECT_EQ(Code(Call(R"({"apiVersion":"2.0","method":"list"})")), 2003);
  EXPECT_EQ(List()["data"]["streamProfile"].Size(), 4u);  // nothing changed
}

}  // namespace
}  // namespace camsim_test
