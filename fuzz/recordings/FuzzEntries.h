// FuzzEntries.h - the body of the recording list fuzz target, in a library so
// that the unit tests replay the seed corpus through exactly the same code.
#pragma once

#include <cstddef>
#include <cstdint>

namespace recordings_fuzz {

// A camera's record/list.cgi answer through the list parsing and the month
// walk; aborts when a result breaks what callers rely on.
int FuzzRecordingList(const uint8_t* data, size_t size);

}  // namespace recordings_fuzz
