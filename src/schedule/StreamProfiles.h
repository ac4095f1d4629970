// StreamProfiles.h - the camera's stream profile list read, and the platform's
// "ProfileList" answer written. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Tarn::Proto {
class IProto;
}

struct StreamProfileEntry {
  std::string name;
  std::string codec;
  int32_t frameRate = -1;
  int32_t firstSize = -1;   // picture width
  int32_t secondSize = -1;  // picture height
};

namespace schedule {

// The profiles of a streamprofile.cgi "list" answer, then the fixed H264
// entry with no name; false when the answer is not JSON.
bool ParseStreamProfiles(const std::string& answer, std::vector<StreamProfileEntry>& entries);
// "/List[1]" of the answer: one object per entry, the one named
// `recordProfile` with RecordEnable 1.
void WriteProfileList(const std::vector<StreamProfileEntry>& entries, const std::string& recordProfile,
                      Tarn::Proto::IProto& response);

}  // namespace schedule
