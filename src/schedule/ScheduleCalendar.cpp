#include "schedule/ScheduleCalendar.h"

#include <algorithm>
#include <cstdio>

#include "session/TimeConversions.h"

namespace schedule {

const char* const kDayTokens[7] = {"SU", "MO", "TU", "WE", "TH", "FR", "SA"};

namespace {

int DayOfToken(const std::string& token) {
  for (int day = 0; day < 7; ++day) {
    if (token == kDayTokens[day]) return day;
  }
  return -1;
}

// Calendars without BYDAY name their weekday as a day of January 1970: 5..11
// and again 12..18 stand for index 0..6.
int DayOfJanuary1970(int dayOfMonth) {
  if (dayOfMonth >= 5 && dayOfMonth <= 18) return (dayOfMonth - 5) % 7;
  return -1;
}

ScheduleSegment Segment(int startHour, int startMinute, int endHour, int endMinute) {
  return ScheduleSegment{static_cast<uint8_t>(startHour), static_cast<uint8_t>(startMinute),
                         static_cast<uint8_t>(endHour), static_cast<uint8_t>(endMinute)};
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t begin = 0;
  for (;;) {
    const size_t end = text.find(separator, begin);
    parts.push_back(text.substr(begin, end == std::string::npos ? std::string::npos : end - begin));
    if (end == std::string::npos) return parts;
    begin = end + 1;
  }
}

// The text after `marker` up to the next line feed, searched from `from`;
// `from` moves past that line feed. False when either is missing.
bool Line(const std::string& text, const char* marker, size_t& from, std::string& value) {
  const size_t at = text.find(marker, from);
  if (at == std::string::npos) return false;
  const size_t begin = at + std::char_traits<char>::length(marker);
  const size_t end = text.find('\n', begin);
  if (end == std::string::npos) return false;
  value = text.substr(begin, end - begin);
  from = end + 1;
  return true;
}

}  // namespace

std::vector<std::string> BuildCalendars(const WeeklySchedule& schedule) {
  std::vector<std::string> calendars;
  for (const auto& [day, segments] : schedule) {
    if (day < 0 || day > 6) continue;
    for (const ScheduleSegment& s : segments) {
      // Until midnight is written as 00:00 of the next day.
      const bool midnight = s.endHour == 23 && s.endMinute == 59;
      char text[128];
      std::snprintf(text, sizeof text,
                    "DTSTART:19700101T%02d%02d00\nDTEND:197001%02dT%02d%02d00\nRRULE:FREQ=WEEKLY;BYDAY=%s", s.startHour,
                    s.startMinute, midnight ? 2 : 1, midnight ? 0 : s.endHour, midnight ? 0 : s.endMinute,
                    kDayTokens[day]);
      calendars.emplace_back(text);
    }
  }
  return calendars;
}

void ReadCalendar(const std::string& calendar, WeeklySchedule& schedule) {
  size_t from = 0;
  std::string startText, endText;
  if (!Line(calendar, "DTSTART:", from, startText) || !Line(calendar, "DTEND:", from, endText)) return;
  const size_t rrule = calendar.find("RRULE:", from);
  if (rrule == std::string::npos) return;
  int startDay = 0, startHour = 0, startMinute = 0, endDay = 0, endHour = 0, endMinute = 0;
  if (!ParseTime(startText, startDay, startHour, startMinute) || !ParseTime(endText, endDay, endHour, endMinute)) {
    return;
  }
  bool recurring = false;
  bool byDay = false;
  // BYDAY names a set of weekdays: a day named again adds nothing, so a hostile
  // answer repeating one day thousands of times still yields at most two
  // segments per weekday.
  unsigned namedDays = 0;
  for (const std::string& pair : Split(calendar.substr(rrule + 6), ';')) {
    const size_t equals = pair.find('=');
    const std::string key = pair.substr(0, equals);
    if (key == "FREQ") recurring = true;
    if (key != "BYDAY" || equals == std::string::npos) continue;
    byDay = true;
    for (const std::string& token : Split(pair.substr(equals + 1), ',')) {
      const int day = DayOfToken(token);
      if (day < 0 || (namedDays & (1u << day)) != 0) continue;  // not a weekday, or one already added
      namedDays |= 1u << day;
      auto& segments = schedule[day];
      if (startDay >= endDay) {
        segments.push_back(Segment(startHour, startMinute, endHour, endMinute));
      } else {
        // Across midnight: both halves stay on the starting weekday.
        segments.push_back(Segment(startHour, startMinute, 23, 59));
        if (endHour != 0 || endMinute != 0) segments.push_back(Segment(0, 0, endHour, endMinute));
      }
    }
  }
  if (byDay || !recurring) return;
  auto add = [&](int dayOfMonth, ScheduleSegment segment) {
    const int day = DayOfJanuary1970(dayOfMonth);
    if (day >= 0) schedule[day].push_back(segment);
  };
  if (startDay >= endDay) {
    add(startDay, Segment(startHour, startMinute, endHour, endMinute));
    return;
  }
  add(startDay, Segment(startHour, startMinute, 23, 59));
  for (int day = std::max(startDay + 1, 5); day < endDay && day <= 18; ++day) add(day, Segment(0, 0, 23, 59));
  if (endHour != 0 || endMinute != 0) add(endDay, Segment(0, 0, endHour, endMinute));
}

PlanScan ScanRecordPlan(const RecordConfigInfo& plan, WeeklySchedule& schedule) {
  PlanScan scan;
  for (int day = 0; day < 7; ++day) {
    const RecordDayEntry& entry = plan.days[day];
    if (entry.allDay == 1) {
      if (entry.allDayType != '1') {
        return PlanScan{false, true, static_cast<unsigned char>(entry.allDayType), day, 0};
      }
      schedule[day].push_back(Segment(0, 0, 23, 59));
      continue;
    }
    int runStart = -1;
    for (int slot = 0; slot <= 48; ++slot) {
      const char mark = slot < 48 ? plan.halfHours[day][slot] : '0';
      if (mark != '0' && mark != '1') return PlanScan{false, false, static_cast<unsigned char>(mark), day, slot};
      if (mark == '1' && runStart < 0) runStart = slot;
      if (mark == '0' && runStart >= 0) {
        schedule[day].push_back(slot == 48 ? Segment(runStart / 2, runStart % 2 ? 30 : 0, 23, 59)
                                           : Segment(runStart / 2, runStart % 2 ? 30 : 0, slot / 2, slot % 2 ? 30 : 0));
        runStart = -1;
      }
    }
  }
  return scan;
}

void MarkSchedule(const WeeklySchedule& schedule, std::vector<std::vector<bool>>& marks) {
  for (const auto& [day, segments] : schedule) {
    if (day < 0 || day >= static_cast<int>(marks.size())) continue;
    std::vector<bool>& dayMarks = marks[static_cast<size_t>(day)];
    for (const ScheduleSegment& s : segments) {
      const int start = s.startHour * 2 + s.startMinute / 30;
      const int end = s.endHour * 2 + s.endMinute / 30 + (s.endMinute == 59 ? 1 : 0);
      for (int slot = start; slot < end && slot < static_cast<int>(dayMarks.size()); ++slot) {
        dayMarks[static_cast<size_t>(slot)] = true;
      }
    }
  }
}

int32_t PreCodeToMilliseconds(uint32_t code) {
  if (code == 0xFFFFFFFFu) return 30000;
  return static_cast<int32_t>(code * 5u * 1000u);
}

// Coarser than the codes written: 25..29 s read back as 7 and 35 s as 0.
uint32_t MillisecondsToPreCode(int32_t milliseconds) {
  const int32_t seconds = milliseconds / 1000;
  if (seconds == 0) return 0;
  if (seconds <= 5) return 1;
  if (seconds <= 10) return 2;
  if (seconds <= 15) return 3;
  if (seconds <= 20) return 4;
  if (seconds <= 24) return 5;
  if (seconds <= 29) return 7;
  return 0;
}

}  // namespace schedule
