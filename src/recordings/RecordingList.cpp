// The recording list answer and the month view's day marks, as pure code.
#include "recordings/RecordingList.h"

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <sstream>

#include "XmlMarkup.h"

namespace recordings {

namespace {

// Year, month and day of a local text in the month view's pattern; false when
// the text does not read (the cameras' ISO form with a "T" does not).
bool ReadLocalDate(const std::string& text, int& year, int& month, int& day) {
  std::tm fields{};
  std::istringstream in(text);
  in >> std::get_time(&fields, "%Y-%m-%d %H:%M:%S");
  if (in.fail()) return false;
  year = fields.tm_year + 1900;
  month = fields.tm_mon + 1;
  day = fields.tm_mday;
  return true;
}

}  // namespace

ListParse ParseRecordingList(const std::string& answer, const std::string& stopText, const std::string& nowText,
                             std::vector<RecordingInfo>& list) {
  CXmlMarkup xml;
  xml.SetDoc(answer);  // a document that does not load has no root either
  if (!xml.FindElem("root")) return ListParse::kNoRoot;
  xml.IntoElem();
  if (!xml.FindElem("recordings")) return ListParse::kNoRecordings;
  xml.IntoElem();
  // A recording still being written ends now, but never after the window asked for.
  const std::string& openEnd = nowText > stopText ? stopText : nowText;
  while (xml.FindElem("recording")) {
    RecordingInfo record;
    record.recordingId = xml.GetAttrib("recordingid");
    record.startTime = xml.GetAttrib("starttime");
    record.stopTime = xml.GetAttrib("stoptime");
    record.startTimeLocal = xml.GetAttrib("starttimelocal");
    record.stopTimeLocal = xml.GetAttrib("stoptimelocal");
    record.inProgress = xml.GetAttrib("recordingstatus") == "recording";
    if (record.stopTime.empty()) record.stopTime = openEnd;
    list.push_back(std::move(record));
  }
  const auto byStart = [](const RecordingInfo& a, const RecordingInfo& b) { return a.startTime < b.startTime; };
  // Cameras usually answer in order already; checking is cheaper than sorting.
  if (!std::is_sorted(list.begin(), list.end(), byStart)) std::stable_sort(list.begin(), list.end(), byStart);
  return ListParse::kOk;
}

TargetMonth ChooseTargetMonth(int startYear, int startMonth, int startDay, int endYear, int endMonth) {
  TargetMonth target;
  if (startDay == 1) {
    target.year = startYear;
    target.month = startMonth;
  } else {
    target.year = endYear;
    target.month = endMonth;
  }
  // A calendar page shows the last days of the month before and the first of
  // the month after: the month in between is the one asked for.
  if (endMonth - startMonth > 1) {
    target.month = startMonth + 1;
    target.moreThanOneMonth = true;
  }
  return target;
}

void MarkRecordingDays(const std::vector<RecordingInfo>& list, const TargetMonth& target, DayMarks& marks) {
  for (const RecordingInfo& record : list) {
    int startYear = 0, startMonth = 0, startDay = 0, stopYear = 0, stopMonth = 0, stopDay = 0;
    if (!ReadLocalDate(record.startTimeLocal, startYear, startMonth, startDay)) continue;
    if (!ReadLocalDate(record.stopTimeLocal, stopYear, stopMonth, stopDay)) continue;
    if (startYear != target.year || startMonth != target.month) continue;
    int lastDay = 0;
    if (stopYear == target.year && stopMonth == target.month) {
      lastDay = stopDay;
    } else if (stopYear == target.year && stopMonth - 1 == target.month) {
      lastDay = 31;
    } else {
      continue;
    }
    for (int day = std::max(startDay, 1); day <= std::min(lastDay, 31); ++day) marks[static_cast<size_t>(day - 1)] = 1;
  }
}

std::string FormatDayMarks(const DayMarks& marks) {
  std::string text;
  text.reserve(marks.size() * 2);
  for (size_t i = 0; i < marks.size(); ++i) {
    if (i != 0) text += ',';
    text += marks[i] != 0 ? '1' : '0';
  }
  return text;
}

}  // namespace recordings
