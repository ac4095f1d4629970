// plugin-host schedule: the camera's weekly recording plan as the platform
// reads it (GetRecordConfig), printed as a 7 x 48 grid of half hours.
//   schedule
//   schedule set [--day DAYS --from HH:MM --to HH:MM]... [--all-day DAYS]...
//                [--pre CODE] [--post MS] [--clear] [--restore]
// DAYS is one token (MO), a range (MO-FR) or a list (SA,SU). `set` writes the
// plan (SetRecordConfig), reads it back and prints it; --restore writes the
// plan the camera had before once the new one was checked.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "HostCommand.h"

namespace {

const char* const kDays[7] = {"SU", "MO", "TU", "WE", "TH", "FR", "SA"};

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t begin = 0;
  while (!text.empty() && begin <= text.size()) {
    const size_t end = text.find('\n', begin);
    lines.push_back(text.substr(begin, end == std::string::npos ? std::string::npos : end - begin));
    if (end == std::string::npos) break;
    begin = end + 1;
  }
  return lines;
}

int DayIndex(const std::string& token) {
  for (int day = 0; day < 7; ++day) {
    if (strcasecmp(token.c_str(), kDays[day]) == 0) return day;
  }
  return -1;
}

// "MO", "MO-FR" (wrapping: "FR-MO" is FR, SA, SU, MO), "SA,SU"; false on a bad token.
bool ParseDays(const std::string& text, std::vector<int>& days) {
  size_t begin = 0;
  while (begin <= text.size()) {
    size_t end = text.find(',', begin);
    if (end == std::string::npos) end = text.size();
    const std::string item = text.substr(begin, end - begin);
    const size_t dash = item.find('-');
    const int first = DayIndex(item.substr(0, dash));
    const int last = dash == std::string::npos ? first : DayIndex(item.substr(dash + 1));
    if (first < 0 || last < 0) return false;
    for (int day = first;; day = (day + 1) % 7) {
      days.push_back(day);
      if (day == last) break;
    }
    begin = end + 1;
  }
  return true;
}

// "HH:MM" on a half hour, 00:00 to 24:00, as a slot number 0..48.
bool ParseSlot(const std::string& text, int& slot) {
  int hour = 0, minute = 0;
  char extra = 0;
  if (std::sscanf(text.c_str(), "%d:%d%c", &hour, &minute, &extra) != 2) return false;
  if (hour < 0 || hour > 24 || (minute != 0 && minute != 30) || (hour == 24 && minute != 0)) return false;
  slot = hour * 2 + minute / 30;
  return true;
}

int PreSeconds(uint32_t code) { return code == 0xFFFFFFFFu ? 30 : static_cast<int>(code) * 5; }

void PrintPlan(const RecordConfigInfo& plan) {
  std::printf("      0     3     6     9     12    15    18    21    24\n");
  for (int day = 0; day < 7; ++day) {
    std::printf("  %s  ", kDays[day]);
    for (int slot = 0; slot < 48; ++slot) std::putchar(plan.halfHours[day][slot] == '1' ? '#' : '.');
    std::printf("\n");
  }
  std::printf("  (# records, one column per half hour)  pre-record code %u (%d s), post-record %u ms, %s\n",
              plan.preRecordCode, PreSeconds(plan.preRecordCode), plan.postRecordTime,
              plan.enabled ? "recording planned" : "nothing planned");
}

bool SameMarks(const RecordConfigInfo& a, const RecordConfigInfo& b) {
  return std::memcmp(a.halfHours, b.halfHours, sizeof a.halfHours) == 0;
}

// The plan from the options; the reason in `problem` when they do not make one.
bool BuildPlan(const HostContext& context, RecordConfigInfo& plan, std::string& problem) {
  std::memset(&plan, 0, sizeof plan);
  std::memset(plan.halfHours, '0', sizeof plan.halfHours);
  const std::vector<std::string> days = Lines(context.Option("day", ""));
  const std::vector<std::string> from = Lines(context.Option("from", ""));
  const std::vector<std::string> to = Lines(context.Option("to", ""));
  if (days.size() != from.size() || days.size() != to.size()) {
    problem = "each --day needs its own --from and --to";
    return false;
  }
  for (size_t i = 0; i < days.size(); ++i) {
    std::vector<int> list;
    int start = 0, end = 0;
    if (!ParseDays(days[i], list)) {
      problem = "--day " + days[i] + ": days are SU MO TU WE TH FR SA, as MO, MO-FR or SA,SU";
      return false;
    }
    if (!ParseSlot(from[i], start) || !ParseSlot(to[i], end) || start == end || start == 48) {
      problem = "--from " + from[i] + " --to " + to[i] + ": times are HH:MM on the half hour, 00:00 to 24:00";
      return false;
    }
    for (int day : list) {
      // A span across midnight goes on into the next day.
      for (int slot = start; slot != end; slot = (slot + 1) % 48) {
        const int onDay = slot >= start || start < end ? day : (day + 1) % 7;
        plan.halfHours[onDay][slot] = '1';
        if (end == 48 && slot == 47) break;
      }
    }
  }
  for (const std::string& text : Lines(context.Option("all-day", ""))) {
    std::vector<int> list;
    if (!ParseDays(text, list)) {
      problem = "--all-day " + text + ": days are SU MO TU WE TH FR SA";
      return false;
    }
    for (int day : list) {
      plan.days[day].allDay = 1;
      plan.days[day].allDayType = '1';
    }
  }
  const bool any = !days.empty() || context.options.count("all-day") != 0;
  if (!any && context.options.count("clear") == 0) {
    problem = "schedule set: give --day/--from/--to, --all-day or --clear";
    return false;
  }
  char* stop = nullptr;
  const std::string pre = context.Option("pre", "0");
  plan.preRecordCode = static_cast<uint32_t>(std::strtoul(pre.c_str(), &stop, 10));
  if (*stop != '\0' || plan.preRecordCode > 7) {
    problem = "--pre is a pre-record code 0..7 (5 s steps)";
    return false;
  }
  const std::string post = context.Option("post", "0");
  plan.postRecordTime = static_cast<uint32_t>(std::strtoul(post.c_str(), &stop, 10));
  if (*stop != '\0') {
    problem = "--post is milliseconds";
    return false;
  }
  return true;
}

// The marks the camera should show for `plan`: all-day switches as full days.
RecordConfigInfo Expected(const RecordConfigInfo& plan) {
  RecordConfigInfo expected = plan;
  for (int day = 0; day < 7; ++day) {
    if (plan.days[day].allDay == 1) std::memset(expected.halfHours[day], '1', 48);
  }
  return expected;
}

int RunSchedule(HostContext& context, bool write) {
  RecordConfigInfo plan{};
  std::string problem;
  if (write && !BuildPlan(context, plan, problem)) return context.Fail(64, "%s", problem.c_str());
  const auto* record = context.plugin.Query<PluginRecordTable>("record");
  if (record == nullptr) return context.Fail(1, "the plug-in has no \"record\" table");
  DeviceInstance device(context.plugin);
  if (device.Handle() == nullptr) return context.Fail(1, "the plug-in could not create a device object");
  if (!OpenCamera(context, device.Handle())) return 2;
  struct Closer {
    HostContext& context;
    PluginDeviceHandle handle;
    ~Closer() { context.plugin.Query<PluginCommonTable>("common")->CloseDevice(handle); }
  } closer{context, device.Handle()};

  RecordConfigInfo before{};
  int32_t result = record->GetRecordConfig(device.Handle(), &before);
  if (result != 0) return context.Fail(3, "GetRecordConfig returned %d; the plug-in's log says why", result);
  if (!write) {
    PrintPlan(before);
    return 0;
  }
  std::printf("writing the plan\n");
  result = record->SetRecordConfig(device.Handle(), &plan);
  if (result != 0) return context.Fail(3, "SetRecordConfig returned %d; the plug-in's log says why", result);
  RecordConfigInfo after{};
  result = record->GetRecordConfig(device.Handle(), &after);
  if (result != 0) return context.Fail(3, "GetRecordConfig after writing returned %d", result);
  std::printf("read back:\n");
  PrintPlan(after);
  // The camera shows other tools' recording schedules too, so marks may be added but none lost.
  const RecordConfigInfo expected = Expected(plan);
  for (int day = 0; day < 7; ++day) {
    for (int slot = 0; slot < 48; ++slot) {
      if (expected.halfHours[day][slot] == '1' && after.halfHours[day][slot] != '1') {
        return context.Fail(4, "the plan read back lacks %s %02d:%02d", kDays[day], slot / 2, slot % 2 ? 30 : 0);
      }
    }
  }
  if (context.options.count("restore") != 0) {
    std::printf("restoring the plan the camera had\n");
    result = record->SetRecordConfig(device.Handle(), &before);
    RecordConfigInfo restored{};
    if (result != 0 || record->GetRecordConfig(device.Handle(), &restored) != 0 || !SameMarks(before, restored)) {
      return context.Fail(4, "the earlier plan could not be restored (SetRecordConfig returned %d)", result);
    }
    std::printf("restored\n");
  }
  return 0;
}

const HostCommandRegistration kSchedule({"schedule", "schedule", "the weekly recording plan as a 7 x 48 grid",
                                         [](HostContext& context) { return RunSchedule(context, false); }});
const HostCommandRegistration kScheduleSet(
    {"schedule set",
     "schedule set [--day MO-FR --from 08:00 --to 18:00]... [--all-day SA] [--pre CODE] [--post MS] [--clear] "
     "[--restore]",
     "writes a weekly recording plan, reads it back and prints it",
     [](HostContext& context) { return RunSchedule(context, true); }});

}  // namespace
