#include "FuzzEntries.h"
#include "evlog.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  evlog_set_level(EVLOG_ERROR + 1);  // failure lines would dominate the run time
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return muxc_fuzz::FuzzRepackager(data, size);
}
