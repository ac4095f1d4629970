#include "FuzzEntries.h"

#include <cstdlib>
#include <string>

#include "recordings/RecordingList.h"

namespace recordings_fuzz {

int FuzzRecordingList(const uint8_t* data, size_t size) {
  const std::string answer(reinterpret_cast<const char*>(data), size);
  // Both sides of the in-progress completion: a window in the past and one in the future.
  for (const char* now : {"2024-06-25T00:00:00Z", "2024-07-05T00:00:00Z"}) {
    std::vector<RecordingInfo> list;
    const recordings::ListParse result = recordings::ParseRecordingList(answer, "2024-06-30T00:00:00.000Z", now, list);
    bool broken = result != recordings::ListParse::kOk && !list.empty();
    for (size_t i = 0; i < list.size(); ++i) {
      broken |= list[i].stopTime.empty() || (i > 0 && list[i].startTime < list[i - 1].startTime);
    }
    // The month walk over whatever the answer held, for a few calendar pages.
    const int month = size > 0 ? data[0] % 14 : 2;
    for (const recordings::TargetMonth& target :
         {recordings::ChooseTargetMonth(2024, month, 1, 2024, month),
          recordings::ChooseTargetMonth(2024, 1, 28, 2024, 3), recordings::ChooseTargetMonth(-1, -1, -1, -1, -1)}) {
      recordings::DayMarks marks{};
      recordings::MarkRecordingDays(list, target, marks);
      broken |= recordings::FormatDayMarks(marks).size() != 61;
    }
    if (broken) std::abort();
  }
  return 0;
}

}  // namespace recordings_fuzz
