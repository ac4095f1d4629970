// libFuzzer targets of the schedule area; SCHEDULE_FUZZ_ENTRY names which one.
#include "FuzzEntries.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return schedule_fuzz::SCHEDULE_FUZZ_ENTRY(data, size);
}
