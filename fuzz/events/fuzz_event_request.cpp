#include "FuzzEntries.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return events_fuzz::FuzzEventRequest(data, size);
}
