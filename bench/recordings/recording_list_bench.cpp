// The recording list parsing on an answer of 10,000 recordings, against
// pugixml's bare parse of the same text measured in the same run.
//   recording_list_bench [--recordings N] [--rounds R]
// Target: at most 2x the bare parse.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "recordings/RecordingList.h"

namespace {

// An answer in the cameras' format, recordings every ten minutes from 2024-06-01.
std::string CameraAnswer(int count) {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
      "xsi:noNamespaceSchemaLocation=\"http://www.axis.com/vapix/http_cgi/recording/list1.xsd\">\n  <recordings "
      "totalnumberofrecordings=\"" +
      std::to_string(count) + "\" numberofrecordings=\"" + std::to_string(count) + "\">\n";
  char line[1024];
  for (int i = 0; i < count; ++i) {
    const int minutes = i * 10, day = 1 + minutes / 1440, hour = minutes / 60 % 24, minute = minutes % 60;
    const bool last = i == count - 1;
    std::snprintf(
        line, sizeof line,
        "    <recording diskid=\"SD_DISK\" recordingid=\"202406%02d_%02d%02d00_%04X_B8A44F9D7D55\" "
        "starttime=\"2024-06-%02dT%02d:%02d:00.%06dZ\" starttimelocal=\"2024-06-%02dT%02d:%02d:00.%06d+02:00\" "
        "stoptime=\"%s\" stoptimelocal=\"%s\" recordingtype=\"continuous\" eventid=\"continuous\" "
        "eventtrigger=\"continuous\" recordingstatus=\"%s\" source=\"1\" locked=\"No\">\n"
        "      <video mimetype=\"video/x-h264\" source=\"1\" width=\"1920\" height=\"1080\" "
        "framerate=\"25:1\" resolution=\"1920x1080\" />\n    </recording>\n",
        day % 100, hour, minute, i & 0xffff, day % 100, hour, minute, i * 37 % 1000000, day % 100, hour, minute,
        i * 37 % 1000000, last ? "" : "2024-06-30T00:00:00.000000Z", last ? "" : "2024-06-30T02:00:00.000000+02:00",
        last ? "recording" : "completed");
    text += line;
  }
  return text + "  </recordings>\n</root>\n";
}

template <typename Work>
double Seconds(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  int count = 10000, rounds = 21;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--recordings") == 0) count = std::atoi(argv[i + 1]);
    if (std::strcmp(argv[i], "--rounds") == 0) rounds = std::atoi(argv[i + 1]);
  }
  if (count <= 0 || rounds <= 0) {
    std::fprintf(stderr, "usage: recording_list_bench [--recordings N] [--rounds R]\n");
    return 2;
  }
  const std::string answer = CameraAnswer(count);
  // Interleaved rounds, so that a busy machine slows both the same way.
  size_t parsed = 0;
  std::vector<double> bareTimes, ourTimes;
  for (int round = 0; round < rounds; ++round) {
    bareTimes.push_back(Seconds([&] {
      pugi::xml_document document;
      if (!document.load_buffer(answer.data(), answer.size())) std::abort();
    }));
    // The list is what the parsing produces; it is released outside the timing.
    std::vector<RecordingInfo> list;
    ourTimes.push_back(Seconds([&] {
      if (recordings::ParseRecordingList(answer, "2024-06-30T00:00:00.000Z", "2024-06-25T00:00:00Z", list) !=
          recordings::ListParse::kOk) {
        std::abort();
      }
    }));
    parsed = list.size();
  }
  const double bare = Median(bareTimes), ours = Median(ourTimes);
  std::printf("answer: %d recordings, %.1f MB; %zu records parsed\n", count, answer.size() / 1e6, parsed);
  std::printf("pugixml bare parse: %8.2f ms (median of %d)\n", bare * 1e3, rounds);
  std::printf("recording list:     %8.2f ms\n", ours * 1e3);
  const double ratio = ours / bare;
  std::printf("ratio: %.2fx the bare parse (target: at most 2x) %s\n", ratio, ratio <= 2.0 ? "ok" : "MISSED");
  return 0;
}
