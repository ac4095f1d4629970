// record/list.cgi and disks/list.cgi: the XML the plug-in walks, the time
// window filter, and the errors for bad parameters.
#include <gtest/gtest.h>

#include <pugixml.hpp>
#include <regex>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

class EdgeStorage : public CameraTest {
 protected:
  pugi::xml_document List(const std::string& path) {
    Reply reply = GetPath(path);
    EXPECT_EQ(reply.status, 200) << reply.body;
    pugi::xml_document doc;
    EXPECT_TRUE(doc.load_string(reply.body.c_str())) << reply.body;
    return doc;
  }
  std::vector<std::string> Ids(const std::string& query) {
    std::vector<std::string> ids;
    const pugi::xml_document doc = List("/axis-cgi/record/list.cgi?" + query);  // owns the nodes read below
    for (auto node : doc.select_nodes("/root/recordings/recording/@recordingid")) {
      ids.push_back(node.attribute().value());
    }
    return ids;
  }
};

TEST_F(EdgeStorage, DefaultCatalogueHasThreeRecordingsOneStillRecordingOnTheSdCard) {
  auto doc = List("/axis-cgi/record/list.cgi?recordingid=all");
  const std::regex utc("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{6}Z");
  int inProgress = 0;
  for (pugi::xml_node r : doc.child("root").child("recordings").children("recording")) {
    EXPECT_TRUE(std::regex_match(r.attribute("starttime").value(), utc));
    const bool recording = std::string(r.attribute("recordingstatus").value()) == "recording";
    inProgress += recording;
    EXPECT_EQ(std::regex_match(r.attribute("stoptime").value(), utc), !recording);  // empty while recording
  }
  EXPECT_EQ(inProgress, 1);
  EXPECT_EQ(camera_->Recordings().size(), 3u);  // the same catalogue is what the RTSP side plays from
  auto disks = List("/axis-cgi/disks/list.cgi?diskid=all");
  EXPECT_STREQ(disks.select_node("/root/disks/disk[@diskid='SD_DISK']/@status").attribute().value(), "OK");
  EXPECT_STREQ(disks.select_node("/root/disks/disk[@diskid='NetworkShare']/@status").attribute().value(),
               "disconnected");
}

TEST_F(EdgeStorage, WindowSelectsOverlappingRecordingsAndLocalTimeHasTheOffset) {
  camera_->SetRecordings({{"20240621_151725_95E7_B8A44F9D7D55", 1718983045, 1718986645, "h264"},
                          {"20240622_080000_0001_B8A44F9D7D55", 1719043200, 1719046800, "h265"},
                          {"20240623_120000_0002_B8A44F9D7D55", 1719144000, 0, "h264"}});
  auto all = List("/axis-cgi/record/list.cgi?recordingid=all");
  pugi::xml_node first = all.select_node("/root/recordings/recording").node();
  const std::string start = first.attribute("starttime").value(), local = first.attribute("starttimelocal").value();
  EXPECT_EQ(start.substr(0, 19) + local.substr(0, 19) + local.substr(26),
            "2024-06-21T15:17:252024-06-21T17:17:25+02:00");
  // The plug-in's query form; the first recording ends before the window, the last one is still going.
  EXPECT_EQ(Ids("recordingid=all&starttime=2024-06-22T00:00:00.000Z&stoptime=2024-06-30T00:00:00.000Z"),
            (std::vector<std::string>{"20240622_080000_0001_B8A44F9D7D55", "20240623_120000_0002_B8A44F9D7D55"}));
  EXPECT_EQ(Ids("recordingid=all&starttime=2024-06-21T00:00:00Z&stoptime=2024-06-21T15:00:00Z").size(), 0u);
  camera_->SetRecordings({});
  EXPECT_TRUE(List("/axis-cgi/record/list.cgi?recordingid=all").select_node("/root/recordings"));
}

}  // namespace
}  // namespace camsim_test
