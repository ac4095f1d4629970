// The recording list answer and the month view's day marks, as pure code.
#include "recordings/RecordingList.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <iterator>
#include <pugixml.hpp>
#include <sstream>

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

// One pass over the attributes, matched on their first characters before the
// names are compared (a recording carries a dozen attributes and thousands
// of recordings are common). Of a name given twice the first counts, as a
// lookup by name would find it.
void ReadRecording(const pugi::xml_node& node, RecordingInfo& record) {
  struct Field {
    const char* name;
    std::string RecordingInfo::*text;  // null: the status
  };
  static constexpr Field kFields[] = {
      {"recordingid", &RecordingInfo::recordingId},     {"starttime", &RecordingInfo::startTime},
      {"stoptime", &RecordingInfo::stopTime},           {"starttimelocal", &RecordingInfo::startTimeLocal},
      {"stoptimelocal", &RecordingInfo::stopTimeLocal}, {"recordingstatus", nullptr}};
  unsigned seen = 0;
  for (pugi::xml_attribute attribute = node.first_attribute(); attribute; attribute = attribute.next_attribute()) {
    const char* name = attribute.name();
    for (unsigned i = 0; i < std::size(kFields); ++i) {
      const Field& field = kFields[i];
      // The field names are longer than three characters; a shorter name stops at its NUL.
      if (name[0] != field.name[0] || name[1] != field.name[1] || name[2] != field.name[2] ||
          name[3] != field.name[3] || (seen & (1u << i)) != 0 || std::strcmp(name + 4, field.name + 4) != 0) {
        continue;
      }
      if (field.text != nullptr) {
        record.*field.text = attribute.value();
      } else {
        record.inProgress = std::strcmp(attribute.value(), "recording") == 0;
      }
      seen |= 1u << i;
      break;
    }
  }
}

}  // namespace

ListParse ParseRecordingList(const std::string& answer, const std::string& stopText, const std::string& nowText,
                             std::vector<RecordingInfo>& list) {
  // Read straight from pugixml's tree rather than through the XML cursor: a
  // full card lists thousands of recordings, and the cursor's whole-document
  // checks would cost more than the parse itself. Same walk: the first "root",
  // its first "recordings", every "recording" in order.
  // Only attribute values are read: entities are expanded, but no line-end or
  // attribute whitespace normalisation is needed.
  pugi::xml_document document;
  if (!document.load_buffer(answer.data(), answer.size(), pugi::parse_minimal | pugi::parse_escapes)) {
    return ListParse::kNoRoot;
  }
  const pugi::xml_node root = document.child("root");
  if (!root) return ListParse::kNoRoot;
  const pugi::xml_node recordingsNode = root.child("recordings");
  if (!recordingsNode) return ListParse::kNoRecordings;
  // A recording still being written ends now, but never after the window asked for.
  const std::string& openEnd = nowText > stopText ? stopText : nowText;
  size_t children = 0;  // room for every child, most of them recordings
  for (pugi::xml_node node = recordingsNode.first_child(); node; node = node.next_sibling()) ++children;
  list.reserve(list.size() + children);
  for (pugi::xml_node node = recordingsNode.child("recording"); node; node = node.next_sibling("recording")) {
    RecordingInfo& record = list.emplace_back();
    ReadRecording(node, record);
    if (record.stopTime.empty()) record.stopTime = openEnd;
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
