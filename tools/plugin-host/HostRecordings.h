// HostRecordings.h - the camera's recordings in a span, found the way the
// platform finds them: FindRecordFiles, FindNextRecordFile until 1003, CloseFindRecord.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "HostCommand.h"

struct FoundRecording {
  std::string id;
  int64_t start = 0;  // UTC seconds since 1970
  int64_t end = 0;
};

// False (with the reason given to context.Fail) when the search failed.
bool FindRecordings(HostContext& context, PluginDeviceHandle device, int64_t from, int64_t to,
                    std::vector<FoundRecording>& found);
