// libFuzzer target: see FuzzEntries.h.
#include "FuzzEntries.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return control_fuzz::FuzzAbilityRequest(data, size);
}
