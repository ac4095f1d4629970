// The recording list answer and the month view, as pure code: answer text in,
// sorted records or day marks out.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "recordings/RecordingList.h"

namespace {

using recordings::ListParse;

// One "recording" element; empty texts stay empty attributes, as the cameras send them.
std::string Recording(const std::string& id, const std::string& start, const std::string& stop,
                      const std::string& startLocal = "", const std::string& stopLocal = "") {
  return "<recording diskid=\"SD_DISK\" recordingid=\"" + id + "\" starttime=\"" + start + "\" starttimelocal=\"" +
         startLocal + "\" stoptime=\"" + stop + "\" stoptimelocal=\"" + stopLocal + "\" recordingstatus=\"" +
         (stop.empty() ? "recording" : "completed") + "\"><video/></recording>";
}

std::string Answer(const std::string& recordings) {
  return "<?xml version=\"1.0\"?><root xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"><recordings "
         "totalnumberofrecordings=\"9\" numberofrecordings=\"9\">" +
         recordings + "</recordings></root>";
}

struct ListCase {
  const char* name;
  std::string answer;
  std::string stopText;
  std::string nowText;
  ListParse result;
  std::vector<std::string> ids;    // in the order the list holds them
  std::vector<std::string> stops;  // stop texts in that order
  std::vector<bool> inProgress;
};

TEST(RecordingList, AnswersBecomeSortedRecords) {
  const std::string a = "2024-06-20T08:00:00.100000Z", b = "2024-06-21T15:17:25.950000Z";
  const std::vector<ListCase> cases = {
      {"camera order does not matter",
       Answer(Recording("B", b, "2024-06-21T16:00:00Z") + Recording("A", a, "2024-06-20T09:00:00Z")),
       "2024-06-30T00:00:00.000Z",
       "2024-06-25T00:00:00Z",
       ListParse::kOk,
       {"A", "B"},
       {"2024-06-20T09:00:00Z", "2024-06-21T16:00:00Z"},
       {false, false}},
      {"in progress, window ended in the past: the requested stop",
       Answer(Recording("R", b, "")),
       "2024-06-21T18:00:00.000Z",
       "2024-06-25T00:00:00Z",
       ListParse::kOk,
       {"R"},
       {"2024-06-21T18:00:00.000Z"},
       {true}},
      {"in progress, window ends in the future: the present",
       Answer(Recording("R", b, "")),
       "2024-06-30T00:00:00.000Z",
       "2024-06-25T00:00:00Z",
       ListParse::kOk,
       {"R"},
       {"2024-06-25T00:00:00Z"},
       {true}},
      {"a stop the camera gave is never clamped",
       Answer(Recording("A", a, "2024-07-01T00:00:00Z")),
       "2024-06-21T00:00:00.000Z",
       "2024-06-25T00:00:00Z",
       ListParse::kOk,
       {"A"},
       {"2024-07-01T00:00:00Z"},
       {false}},
      {"empty recordings", Answer(""), "x", "y", ListParse::kOk, {}, {}, {}},
      {"other elements are skipped",
       Answer("<note/>" + Recording("A", a, "s")),
       "x",
       "y",
       ListParse::kOk,
       {"A"},
       {"s"},
       {false}},
      {"no root", "<rootx><recordings/></rootx>", "x", "y", ListParse::kNoRoot, {}, {}, {}},
      {"no recordings", "<root><disks/></root>", "x", "y", ListParse::kNoRecordings, {}, {}, {}},
      {"error answer",
       "<root><error code=\"1\" description=\"Missing parameter\"/></root>",
       "x",
       "y",
       ListParse::kNoRecordings,
       {},
       {},
       {}},
      {"empty", "", "x", "y", ListParse::kNoRoot, {}, {}, {}},
      {"not XML", "{\"root\": {\"recordings\": []}}", "x", "y", ListParse::kNoRoot, {}, {}, {}},
      {"truncated", Answer(Recording("A", a, "s")).substr(0, 150), "x", "y", ListParse::kNoRoot, {}, {}, {}},
      {"hostile entity",
       "<!DOCTYPE r [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><root><recordings>"
       "<recording recordingid=\"&e;\"/></recordings></root>",
       "x",
       "y",
       ListParse::kOk,
       {"&e;"},
       {"x"},
       {false}},
  };
  for (const ListCase& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<RecordingInfo> list;
    EXPECT_EQ(recordings::ParseRecordingList(c.answer, c.stopText, c.nowText, list), c.result);
    std::vector<std::string> ids, stops;
    std::vector<bool> inProgress;
    for (const RecordingInfo& record : list) {
      ids.push_back(record.recordingId);
      stops.push_back(record.stopTime);
      inProgress.push_back(record.inProgress);
    }
    EXPECT_EQ(ids, c.ids);
    EXPECT_EQ(stops, c.stops);
    EXPECT_EQ(inProgress, c.inProgress);
  }
}

struct TargetCase {
  int start[3];  // year, month, day
  int end[2];    // year, month
  int year, month;
  bool warning;
};

TEST(MonthView, TargetMonthOfACalendarPage) {
  const TargetCase cases[] = {
      {{2024, 2, 1}, {2024, 2}, 2024, 2, false},    // starts on day 1: its own month
      {{2024, 1, 28}, {2024, 3}, 2024, 2, true},    // a page from late January to early March
      {{2024, 1, 29}, {2024, 2}, 2024, 2, false},   // not day 1: the end's month
      {{2023, 12, 28}, {2024, 2}, 2024, 2, false},  // across the year: end month minus start month is negative
  };
  for (const TargetCase& c : cases) {
    const recordings::TargetMonth target =
        recordings::ChooseTargetMonth(c.start[0], c.start[1], c.start[2], c.end[0], c.end[1]);
    EXPECT_EQ(target.year, c.year) << c.start[1] << "/" << c.start[2];
    EXPECT_EQ(target.month, c.month) << c.start[1] << "/" << c.start[2];
    EXPECT_EQ(target.moreThanOneMonth, c.warning) << c.start[1] << "/" << c.start[2];
  }
}

struct MarkCase {
  const char* startLocal;
  const char* stopLocal;
  std::string marks;  // days of February 2024 marked, as the answer writes them
};

std::string MarksOf(std::initializer_list<int> days) {
  recordings::DayMarks marks{};
  for (int day : days) marks[static_cast<size_t>(day - 1)] = 1;
  return recordings::FormatDayMarks(marks);
}

TEST(MonthView, DaysMarkedInFebruary) {
  const MarkCase cases[] = {
      {"2024-02-27 22:00:00", "2024-03-01 01:00:00", MarksOf({27, 28, 29, 30, 31})},  // into the next month
      {"2024-01-31 23:00:00", "2024-02-01 02:00:00", MarksOf({})},                    // began the month before: nothing
      {"2024-02-03 10:00:00", "2024-02-05 11:00:00", MarksOf({3, 4, 5})},
      {"2024-02-10 10:00:00", "2024-02-10 10:05:00", MarksOf({10})},
      {"2024-02-10 10:00:00", "2024-04-01 00:00:00", MarksOf({})},                            // two months on: nothing
      {"2023-02-10 10:00:00", "2023-02-11 10:00:00", MarksOf({})},                            // another year
      {"2024-02-10T10:00:00.000000+02:00", "2024-02-10T11:00:00.000000+02:00", MarksOf({})},  // cameras' own form
      {"2024-02-10 10:00:00", "", MarksOf({})},  // still recording: no local stop
      {"garbage", "2024-02-10 10:00:00", MarksOf({})},
  };
  for (const MarkCase& c : cases) {
    RecordingInfo record;
    record.startTimeLocal = c.startLocal;
    record.stopTimeLocal = c.stopLocal;
    recordings::DayMarks marks{};
    recordings::MarkRecordingDays({record}, recordings::TargetMonth{2024, 2, false}, marks);
    EXPECT_EQ(recordings::FormatDayMarks(marks), c.marks) << c.startLocal << " - " << c.stopLocal;
  }
}

}  // namespace
