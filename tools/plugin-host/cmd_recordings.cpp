// plugin-host recordings: the recordings on the camera's own storage in a span,
// one line each, like a directory listing of the camera's card.
//   recordings [--from T] [--to T]        T: ISO 8601 UTC, default the last 7 days
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "HostCommand.h"
#include "HostRecordings.h"
#include "HostTime.h"

namespace {

constexpr int64_t kDefaultSpan = 7 * 86400;
// The cursor has no in-progress flag: a recording still being written ends at
// the search window's end or at the present.
constexpr int64_t kStillRecordingSlack = 5;

int RunRecordings(HostContext& context) {
  const int64_t now = static_cast<int64_t>(std::time(nullptr));
  int64_t from = now - kDefaultSpan, to = now;
  if ((context.options.count("from") != 0 && !ParseIsoUtc(context.Option("from", ""), &from)) ||
      (context.options.count("to") != 0 && !ParseIsoUtc(context.Option("to", ""), &to)) || to < from) {
    return context.Fail(64, "recordings: --from and --to are ISO 8601 UTC times (2024-06-21T15:17:00Z), from <= to");
  }
  DeviceInstance device(context.plugin);
  if (device.Handle() == nullptr) return context.Fail(1, "the plug-in could not create a device object");
  if (!OpenCamera(context, device.Handle())) return 2;
  std::vector<FoundRecording> found;
  const bool ok = FindRecordings(context, device.Handle(), from, to, found);
  context.plugin.Query<PluginCommonTable>("common")->CloseDevice(device.Handle());
  if (!ok) return 3;

  std::printf("recordings from %s to %s UTC: %zu\n", FormatUtc(from).c_str(), FormatUtc(to).c_str(), found.size());
  if (!found.empty()) {
    std::printf("%-36s  %-19s  %-19s  %9s  %s\n", "ID", "START (UTC)", "END (UTC)", "DURATION", "STATE");
  }
  for (const FoundRecording& recording : found) {
    const bool recordingNow = recording.end == to || recording.end >= now - kStillRecordingSlack;
    std::printf("%-36s  %-19s  %-19s  %9s  %s\n", recording.id.c_str(), FormatUtc(recording.start).c_str(),
                FormatUtc(recording.end).c_str(), FormatDuration(recording.end - recording.start).c_str(),
                recordingNow ? "recording" : "completed");
  }
  return 0;
}

const HostCommandRegistration kRecordings({"recordings", "recordings [--from T] [--to T]",
                                           "list the recordings on the camera's storage (default: the last 7 days)",
                                           RunRecordings});

}  // namespace

bool FindRecordings(HostContext& context, PluginDeviceHandle device, int64_t from, int64_t to,
                    std::vector<FoundRecording>& found) {
  const auto* record = context.plugin.Query<PluginRecordTable>("record");
  if (record == nullptr) {
    context.Fail(1, "the plug-in has no \"record\" table");
    return false;
  }
  RecordSearchCondition condition{};
  condition.start = ToPluginTime(from);
  condition.end = ToPluginTime(to);
  const int32_t result = record->FindRecordFiles(device, &condition);
  if (result != 0) {
    record->CloseFindRecord(device);
    context.Fail(3, "FindRecordFiles returned %d; the plug-in's log says why", result);
    return false;
  }
  int32_t next = 0;
  RecordFileInfo file{};
  while ((next = record->FindNextRecordFile(device, &file)) == NETCAM_FIND_FILE_WRITTEN) {
    found.push_back({std::string(file.fileName, strnlen(file.fileName, sizeof file.fileName)),
                     FromPluginTime(file.start), FromPluginTime(file.end)});
    file = RecordFileInfo{};
  }
  record->CloseFindRecord(device);
  if (next != NETCAM_FIND_NO_MORE_FILES) {
    context.Fail(3, "FindNextRecordFile returned %d", next);
    return false;
  }
  return true;
}
