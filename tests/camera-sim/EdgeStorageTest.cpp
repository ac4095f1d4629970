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
  pugi::xml_document List(const std::string& query, long expectedStatus = 200) {
    Reply reply = GetPath("/axis-cgi/record/list.cgi?" + query);
    EXPECT_EQ(reply.status, expectedStatus) << reply.body;
    pugi::xml_document doc;
    EXPECT_TRUE(doc.load_string(reply.body.c_str())) << reply.body;
    return doc;
  }
  static std::vector<std::string> Ids(const pugi::xml_document& doc) {
    std::vector<std::string> ids;
    for (auto node : doc.select_nodes("/root/recordings/recording")) {
      ids.push_back(node.node().attribute("recordingid").value());
    }
    return ids;
  }
};

TEST_F(EdgeStorage, DefaultCatalogueHasThreeRecordingsOneStillRecording) {
  auto doc = List("recordingid=all");
  pugi::xml_node root = doc.child("root");
  EXPECT_EQ(std::string(root.attribute("xsi:noNamespaceSchemaLocation").value()),
            "http://www.axis.com/vapix/http_cgi/recording/list1.xsd");
  pugi::xml_node recordings = root.child("recordings");
  EXPECT_EQ(recordings.attribute("totalnumberofrecordings").as_int(), 3);
  EXPECT_EQ(recordings.attribute("numberofrecordings").as_int(), 3);

  const std::regex id("\\d{8}_\\d{6}_[0-9A-F]{4}_B8A44F9D7D55");
  const std::regex utc("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{6}Z");
  const std::regex local("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{6}[+-]\\d\\d:\\d\\d");
  int inProgress = 0;
  for (pugi::xml_node r : recordings.children("recording")) {
    EXPECT_TRUE(std::regex_match(r.attribute("recordingid").value(), id)) << r.attribute("recordingid").value();
    EXPECT_STREQ(r.attribute("diskid").value(), "SD_DISK");
    EXPECT_TRUE(std::regex_match(r.attribute("starttime").value(), utc));
    EXPECT_TRUE(std::regex_match(r.attribute("starttimelocal").value(), local));
    EXPECT_TRUE(r.child("video")) << "every recording has a video track";
    const std::string status = r.attribute("recordingstatus").value();
    if (status == "recording") {
      ++inProgress;
      EXPECT_STREQ(r.attribute("stoptime").value(), "");
      EXPECT_STREQ(r.attribute("stoptimelocal").value(), "");
    } else {
      EXPECT_EQ(status, "completed");
      EXPECT_TRUE(std::regex_match(r.attribute("stoptime").value(), utc));
    }
  }
  EXPECT_EQ(inProgress, 1);
  // The same catalogue is what the RTSP side plays from.
  EXPECT_EQ(camera_->Recordings().size(), 3u);
}

TEST_F(EdgeStorage, WindowSelectsOverlappingRecordingsAndLocalTimeHasTheOffset) {
  // 2024-06-21 15:17:25 UTC and friends.
  camera_->SetRecordings({{"20240621_151725_95E7_B8A44F9D7D55", 1718983045, 1718986645, "h264"},
                          {"20240622_080000_0001_B8A44F9D7D55", 1719043200, 1719046800, "h265"},
                          {"20240623_120000_0002_B8A44F9D7D55", 1719144000, 0, "h264"}});
  auto all = List("recordingid=all");
  pugi::xml_node first = all.select_node("/root/recordings/recording").node();
  EXPECT_EQ(std::string(first.attribute("starttime").value()).substr(0, 19), "2024-06-21T15:17:25");
  EXPECT_EQ(std::string(first.attribute("starttimelocal").value()).substr(0, 19), "2024-06-21T17:17:25");
  EXPECT_EQ(std::string(first.attribute("starttimelocal").value()).substr(26), "+02:00");
  EXPECT_STREQ(all.select_node("/root/recordings/recording[2]/video").node().attribute("mimetype").value(),
               "video/x-h265");

  // The plug-in's query form; the first recording ends before the window, the last one is still going.
  auto window = List("recordingid=all&starttime=2024-06-22T00:00:00.000Z&stoptime=2024-06-30T00:00:00.000Z");
  EXPECT_EQ(Ids(window),
            (std::vector<std::string>{"20240622_080000_0001_B8A44F9D7D55", "20240623_120000_0002_B8A44F9D7D55"}));
  // A window that ends before a recording starts leaves it out.
  EXPECT_EQ(Ids(List("recordingid=all&starttime=2024-06-21T00:00:00Z&stoptime=2024-06-21T15:00:00Z")).size(), 0u);
  EXPECT_EQ(Ids(List("recordingid=20240622_080000_0001_B8A44F9D7D55")).size(), 1u);
}

TEST_F(EdgeStorage, PagingCountsTheTotalAndReturnsASlice) {
  auto doc = List("recordingid=all&maxnumberofresults=1&startatresultnumber=1&sortorder=descending");
  pugi::xml_node recordings = doc.child("root").child("recordings");
  EXPECT_EQ(recordings.attribute("totalnumberofrecordings").as_int(), 3);
  EXPECT_EQ(recordings.attribute("numberofrecordings").as_int(), 1);
  EXPECT_EQ(Ids(doc).size(), 1u);
}

TEST_F(EdgeStorage, EmptyCatalogueGivesAnEmptyList) {
  camera_->SetRecordings({});
  auto doc = List("recordingid=all");
  EXPECT_TRUE(doc.select_node("/root/recordings"));
  EXPECT_EQ(Ids(doc).size(), 0u);
}

TEST_F(EdgeStorage, BadListParametersAreRefused) {
  for (const char* query : {"", "starttime=2024-06-21T00:00:00Z", "recordingid=all&starttime=yesterday",
                            "recordingid=all&stoptime=2024-13-01T00:00:00Z", "recordingid=all&maxnumberofresults=-1",
                            "recordingid=all&sortorder=sideways"}) {
    auto doc = List(query, 400);
    EXPECT_TRUE(doc.select_node("/root/error/@description")) << query;
  }
}

TEST_F(EdgeStorage, DiskListNamesTheSdCardAndTheNetworkShare) {
  Reply reply = GetPath("/axis-cgi/disks/list.cgi?diskid=all");
  ASSERT_EQ(reply.status, 200);
  pugi::xml_document doc;
  ASSERT_TRUE(doc.load_string(reply.body.c_str()));
  EXPECT_EQ(doc.select_node("/root/disks").node().attribute("numberofdisks").as_int(), 2);
  pugi::xml_node sd = doc.select_node("/root/disks/disk[@diskid='SD_DISK']").node();
  EXPECT_GT(sd.attribute("totalsize").as_llong(), 0);
  EXPECT_LE(sd.attribute("freesize").as_llong(), sd.attribute("totalsize").as_llong());
  EXPECT_STREQ(sd.attribute("status").value(), "OK");
  EXPECT_STREQ(doc.select_node("/root/disks/disk[@diskid='NetworkShare']").node().attribute("status").value(),
               "disconnected");

  EXPECT_EQ(GetPath("/axis-cgi/disks/list.cgi?diskid=SD_DISK").body.find("NetworkShare"), std::string::npos);
  EXPECT_EQ(GetPath("/axis-cgi/disks/list.cgi").status, 400);
  EXPECT_EQ(GetPath("/axis-cgi/disks/list.cgi?diskid=USB").status, 400);
}

}  // namespace
}  // namespace camsim_test
