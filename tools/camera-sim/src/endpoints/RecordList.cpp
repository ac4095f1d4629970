// record/list.cgi: the recordings on the camera's disks, XML, filtered by a time window.
#include <algorithm>
#include <cstdlib>
#include <optional>

#include "TimeText.h"
#include "endpoints/Endpoint.h"
#include "endpoints/Xml.h"

namespace camsim {

namespace {

constexpr const char* kSchema = "http://www.axis.com/vapix/http_cgi/recording/list1.xsd";

// Recordings carry microseconds; derive stable ones from the id.
int MicrosOf(const std::string& id, unsigned salt) {
  uint32_t hash = 2166136261u ^ salt;
  for (unsigned char c : id) hash = (hash ^ c) * 16777619u;
  return static_cast<int>(hash % 1000000u);
}

std::optional<long> ParseCount(const std::string& text) {
  if (text.empty()) return std::nullopt;
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (*end != '\0' || value < 0) return std::nullopt;
  return value;
}

}  // namespace

HttpResponse HandleRecordList(const HttpRequest& request, EndpointContext& context) {
  const auto params = ParseQuery(request.query);
  auto param = [&](const char* name) -> std::optional<std::string> {
    auto it = params.find(name);
    return it == params.end() ? std::nullopt : std::optional<std::string>(it->second);
  };
  const auto recordingId = param("recordingid");
  if (!recordingId || recordingId->empty()) {
    return XmlErrorAnswer(kSchema, 1, "Missing parameter: recordingid");
  }
  std::optional<int64_t> windowStart, windowStop;
  if (auto text = param("starttime")) {
    windowStart = ParseIsoTime(*text);
    if (!windowStart) return XmlErrorAnswer(kSchema, 2, "Invalid value for parameter starttime: " + *text);
  }
  if (auto text = param("stoptime")) {
    windowStop = ParseIsoTime(*text);
    if (!windowStop) return XmlErrorAnswer(kSchema, 2, "Invalid value for parameter stoptime: " + *text);
  }
  std::optional<long> maxResults, firstResult;
  if (auto text = param("maxnumberofresults")) {
    maxResults = ParseCount(*text);
    if (!maxResults) return XmlErrorAnswer(kSchema, 2, "Invalid value for parameter maxnumberofresults");
  }
  if (auto text = param("startatresultnumber")) {
    firstResult = ParseCount(*text);
    if (!firstResult) return XmlErrorAnswer(kSchema, 2, "Invalid value for parameter startatresultnumber");
  }
  const std::string sortOrder = param("sortorder").value_or("ascending");
  if (sortOrder != "ascending" && sortOrder != "descending") {
    return XmlErrorAnswer(kSchema, 2, "Invalid value for parameter sortorder: " + sortOrder);
  }

  const int64_t now = context.state.CameraNowUtc();
  auto [clips, utcOffset] =
      context.state.Read([](const StateData& s) { return std::make_pair(s.recordings, s.utcOffsetMinutes); });
  std::vector<RecordingClip> matching;
  for (const auto& clip : clips) {
    if (*recordingId != "all" && clip.id != *recordingId) continue;
    const int64_t stop = clip.stopUtc == 0 ? now : clip.stopUtc;  // a recording in progress reaches the present
    if (windowStop && clip.startUtc > *windowStop) continue;
    if (windowStart && stop < *windowStart) continue;
    matching.push_back(clip);
  }
  std::stable_sort(matching.begin(), matching.end(), [&](const RecordingClip& a, const RecordingClip& b) {
    return sortOrder == "ascending" ? a.startUtc < b.startUtc : a.startUtc > b.startUtc;
  });
  const size_t total = matching.size();
  const size_t first = std::min(total, static_cast<size_t>(firstResult.value_or(0)));
  const size_t count = std::min(total - first, maxResults ? static_cast<size_t>(*maxResults) : total);

  pugi::xml_document doc;
  pugi::xml_node recordings = AddSchemaRoot(doc, kSchema).append_child("recordings");
  recordings.append_attribute("totalnumberofrecordings") = static_cast<unsigned long long>(total);
  recordings.append_attribute("numberofrecordings") = static_cast<unsigned long long>(count);
  for (size_t i = first; i < first + count; ++i) {
    const RecordingClip& clip = matching[i];
    const bool inProgress = clip.stopUtc == 0;
    const int startMicros = MicrosOf(clip.id, 1), stopMicros = MicrosOf(clip.id, 2);
    pugi::xml_node node = recordings.append_child("recording");
    node.append_attribute("diskid") = "SD_DISK";
    node.append_attribute("recordingid") = clip.id.c_str();
    node.append_attribute("starttime") = FormatUtc(clip.startUtc, startMicros).c_str();
    node.append_attribute("starttimelocal") = FormatLocal(clip.startUtc, startMicros, utcOffset).c_str();
    node.append_attribute("stoptime") = inProgress ? "" : FormatUtc(clip.stopUtc, stopMicros).c_str();
    node.append_attribute("stoptimelocal") = inProgress ? "" : FormatLocal(clip.stopUtc, stopMicros, utcOffset).c_str();
    node.append_attribute("recordingtype") = "continuous";
    node.append_attribute("eventid") = "continuous";
    node.append_attribute("eventtrigger") = "continuous";
    node.append_attribute("recordingstatus") = inProgress ? "recording" : "completed";
    node.append_attribute("source") = "1";
    node.append_attribute("locked") = "No";
    pugi::xml_node video = node.append_child("video");
    video.append_attribute("mimetype") = clip.codec == "h265" ? "video/x-h265" : "video/x-h264";
    video.append_attribute("source") = "1";
    video.append_attribute("width") = "1920";
    video.append_attribute("height") = "1080";
    video.append_attribute("framerate") = "25:1";
    video.append_attribute("resolution") = "1920x1080";
  }
  return XmlAnswer(doc);
}

}  // namespace camsim
