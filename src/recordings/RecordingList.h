// RecordingList.h - the camera's recording list answer (record/list.cgi) read
// into records, and the month view's day marks computed from it. Pure: answer
// text and times in, records and marks out; no clock, no socket, no log.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "session/axis_device_object_implement.h"

namespace recordings {

enum class ListParse {
  kOk,
  kNoRoot,        // no "root" element at the top level (also: not XML at all)
  kNoRecordings,  // "root" without a "recordings" element
};

// Appends one record per "recording" element and sorts the whole list by start
// text. An empty stop time (still recording) becomes `nowText`, or `stopText`
// when the present lies beyond the requested window; a stop time the camera
// gave stays as it is.
ListParse ParseRecordingList(const std::string& answer, const std::string& stopText, const std::string& nowText,
                             std::vector<RecordingInfo>& list);

// The month a calendar request is about: the start's month when it begins on
// day 1, else the end's; a span over more than one month boundary falls back
// to the month after the start (`moreThanOneMonth` set).
struct TargetMonth {
  int year = 0;
  int month = 0;
  bool moreThanOneMonth = false;
};
TargetMonth ChooseTargetMonth(int startYear, int startMonth, int startDay, int endYear, int endMonth);

using DayMarks = std::array<int, 31>;

// Marks the days of the target month on which a recording starts, reading the
// local texts as "%Y-%m-%d %H:%M:%S". A recording that began in an earlier
// month marks nothing; one running into the next month marks up to day 31.
void MarkRecordingDays(const std::vector<RecordingInfo>& list, const TargetMonth& target, DayMarks& marks);

// "1,0,0,...": 31 marks, comma separated.
std::string FormatDayMarks(const DayMarks& marks);

}  // namespace recordings
