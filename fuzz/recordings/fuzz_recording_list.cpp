// libFuzzer target: camera recording list answers through the list parsing and the month walk.
#include "FuzzEntries.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return recordings_fuzz::FuzzRecordingList(data, size);
}
