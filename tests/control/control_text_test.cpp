// The texts of device control alone: the PTZ command table with its counters,
// position answers, the platform's NTP document, disk lists and resolutions.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "FuzzEntries.h"
#include "control/ControlText.h"

namespace {

TEST(ControlText, PtzTableMapsEveryRowAndStepsItsCounter) {
  const struct {
    uint32_t command;
    int32_t action, speed;
    const char* url;  // after "http://a/axis-cgi/com/ptz.cgi?"
    control::PtzCounters after;
  } rows[] = {
      {2, 0, 0, "backlight=on", {500, 50, 9950}},
      {13, 0, 0, "focus=150", {500, 150, 9950}},
      {13, 1, 0, "", {500, 150, 9950}},  // a focus stop goes out empty
      {14, 0, 0, "focus=50", {500, 50, 9950}},
      {14, 0, 0, "focus=-50", {500, -50, 9950}},  // no clamp below zero
      {15, 0, 2, "iris=10050&continuousirismove=20", {500, -50, 10050}},
      {15, 3, 2, "iris=10050&continuousirismove=0", {500, -50, 10050}},
      {16, 0, 2, "iris=9950&continuousirismove=-20", {500, -50, 9950}},
      {29, 0, 2, "continuouspantiltmove=20,0", {500, -50, 9950}},
      {29, 1, 2, "continuouspantiltmove=0,0", {500, -50, 9950}},
      {12, 0, 7, "zoom=400&continuouszoommove=-4", {400, -50, 9950}},
  };
  control::PtzCounters counters{500, 50, 9950};
  for (const auto& row : rows) {
    const control::PtzRequest request = control::BuildPtzRequest("a", row.command, row.action, row.speed, 0, counters);
    EXPECT_EQ(request.url, row.url[0] == 0 ? "" : std::string("http://a/axis-cgi/com/ptz.cgi?") + row.url);
    EXPECT_EQ(std::make_tuple(counters.zoom, counters.focus, counters.iris),
              std::make_tuple(row.after.zoom, row.after.focus, row.after.iris))
        << row.command;
  }
  EXPECT_FALSE(control::BuildPtzRequest("a", 40, 0, 1, 0, counters).mapped);
  std::vector<uint32_t> accepted;
  for (uint32_t command = 0; command < 64; ++command)
    if (control::IsAcceptedPtzCommand(command)) accepted.push_back(command);
  EXPECT_EQ(accepted, (std::vector<uint32_t>{8, 9, 11, 12, 21, 22, 23, 24, 25, 26, 27, 28, 39}));
}

TEST(ControlText, PositionPiecesThatAreNotKeyEqualsValueAreSkipped) {
  float pan = 7, tilt = 7;
  int32_t zoom = 7;
  std::vector<std::string> invalid;
  control::ParsePtzPosition("Pan=1\r\ntilt=2.5deg,a=b=c,,zoom=abc\r\nfocus=3", pan, tilt, zoom, &invalid);
  EXPECT_EQ(std::make_tuple(pan, tilt, zoom), std::make_tuple(7.0f, 2.5f, 0));
  EXPECT_EQ(invalid, (std::vector<std::string>{"a=b=c", ""}));
  invalid.clear();
  control::ParsePtzPosition(std::string(1 << 20, ','), pan, tilt, zoom, &invalid);
  EXPECT_EQ(invalid.size(), 8u);  // enough for the log, never one line per piece
}

TEST(ControlText, NtpDocumentNarrowsIntoThePlatformsRecord) {
  control::NtpParams params;
  const std::string server(80, 's');
  ASSERT_TRUE(control::ParseNtpParams(
      "<Params><NtpPort>70000</NtpPort><res1/><TimeDifferenceM>-30</TimeDifferenceM><TimeDifferenceH>300"
      "</TimeDifferenceH><EnableNTP>257</EnableNTP><Interval>x</Interval><NTPServer>" +
          server + "</NTPServer></Params>",
      params));
  EXPECT_EQ(std::string(params.server), server.substr(0, 63));
  EXPECT_EQ(
      std::make_tuple(params.interval, params.enable, params.timeDifferenceH, params.timeDifferenceM, params.port),
      std::make_tuple(uint16_t{0}, uint8_t{1}, int8_t{44}, int8_t{-30}, uint16_t{4464}));
  for (const char* bad : {"", "<Params>", "<Other/>", "<Params><NTPServer/></Params>"})
    EXPECT_FALSE(control::ParseNtpParams(bad, params)) << bad;
  DeviceNtpConfig config{};
  std::memset(config.server, ' ', sizeof config.server);  // blank and unterminated
  EXPECT_EQ(control::TrimmedNtpServer(config), "");
}

TEST(ControlText, DiskListsAndResolutionListsAsCamerasWriteThem) {
  std::vector<DiskEntry> disks;
  int skipped = 0;
  const std::pair<const char*, control::DiskListResult> lists[] = {
      {"", control::DiskListResult::kInvalid},
      {"<root><other/></root>", control::DiskListResult::kNoDisks},
      {"<root><disks/></root>", control::DiskListResult::kOk},
      {"<root><disks><disk totalsize=\"\"/><disk totalsize=\"12abc\" freesize=\"z\"/></disks></root>",
       control::DiskListResult::kOk}};
  for (const auto& [answer, result] : lists)
    EXPECT_EQ(control::ParseDiskList(answer, disks, skipped), result) << answer;
  ASSERT_EQ(disks.size(), 1u);
  EXPECT_EQ(std::make_tuple(disks[0].index, disks[0].totalSize, disks[0].freeSize, disks[0].status, skipped),
            std::make_tuple(1u, 12, 0, 2, 1));

  std::vector<std::string> resolutions;
  EXPECT_TRUE(control::ParseResolutions("root.Properties.Image.Resolution=,640x480,,320x240\r\nx=1", resolutions));
  EXPECT_EQ(resolutions, (std::vector<std::string>{"640x480", "320x240\r\nx=1"}));
  EXPECT_FALSE(control::ParseResolutions("Properties.Image.Resolutions", resolutions));
  EXPECT_EQ(resolutions, std::vector<std::string>{"320x240"});
}

// Every seed of the fuzz corpora, so that what the fuzzers once found stays fixed.
TEST(ControlText, FuzzCorporaReplay) {
  const std::pair<const char*, int (*)(const uint8_t*, size_t)> targets[] = {
      {"ptz_position", control_fuzz::FuzzPtzPosition},
      {"ntp_params", control_fuzz::FuzzNtpParams},
      {"ability", control_fuzz::FuzzAbilityRequest}};
  for (const auto& [dir, entry] : targets) {
    for (const auto& file : std::filesystem::directory_iterator(std::string(CONTROL_CORPUS_DIR) + "/" + dir)) {
      std::ifstream in(file.path(), std::ios::binary);
      const std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      EXPECT_EQ(entry(reinterpret_cast<const uint8_t*>(data.data()), data.size()), 0) << file.path();
    }
  }
}

}  // namespace
