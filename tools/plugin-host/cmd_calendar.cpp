// plugin-host calendar: the month view of the camera's recordings as the
// platform's calendar asks for it (the JSON command "SearchCameraRecordByMonth"
// through TransMethod), printed as a calendar page with the days marked.
//   calendar [--month YYYY-MM]           default: this month
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "HostCommand.h"
#include "HostTime.h"

namespace {

constexpr size_t kResponseBytes = 64 * 1024;

int DaysIn(int year, int month) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : kDays[month - 1];
}

// The string value of "result" in the command's JSON answer; false when absent.
bool ResultText(const std::string& json, std::string& value) {
  const size_t key = json.find("\"result\"");
  if (key == std::string::npos) return false;
  const size_t open = json.find('"', json.find(':', key));
  const size_t close = open == std::string::npos ? open : json.find('"', open + 1);
  if (close == std::string::npos) return false;
  value = json.substr(open + 1, close - open - 1);
  return true;
}

std::string MonthRequest(int year, int month) {
  char text[512];
  std::snprintf(text, sizeof text,
                "{\"method\":\"SearchCameraRecordByMonth\",\"params\":{\"utc\":{"
                "\"start\":{\"year\":%d,\"month\":%d,\"day\":1,\"hour\":0,\"min\":0,\"sec\":0},"
                "\"end\":{\"year\":%d,\"month\":%d,\"day\":%d,\"hour\":23,\"min\":59,\"sec\":59}}}}",
                year, month, year, month, DaysIn(year, month));
  return text;
}

void PrintPage(int year, int month, const std::vector<bool>& marked) {
  static const char* kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                                  "July",    "August",   "September", "October", "November", "December"};
  std::printf("      %s %d\n  Mo  Tu  We  Th  Fr  Sa  Su\n", kMonths[month - 1], year);
  int64_t first = 0;
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02d-01T00:00:00Z", year, month);
  ParseIsoUtc(text, &first);
  const int weekday = static_cast<int>((first / 86400 + 3) % 7);  // 1970-01-01 was a Thursday; Monday is 0
  for (int i = 0; i < weekday; ++i) std::printf("    ");
  int days = 0;
  for (int day = 1; day <= DaysIn(year, month); ++day) {
    std::printf(" %2d%c", day, marked[static_cast<size_t>(day - 1)] ? '*' : ' ');
    if ((weekday + day) % 7 == 0) std::printf("\n");
    days += marked[static_cast<size_t>(day - 1)] ? 1 : 0;
  }
  std::printf("%s* recordings on %d day%s\n", (weekday + DaysIn(year, month)) % 7 == 0 ? "" : "\n", days,
              days == 1 ? "" : "s");
}

int RunCalendar(HostContext& context) {
  const int64_t now = static_cast<int64_t>(std::time(nullptr));
  const PluginTime today = ToPluginTime(now);
  int year = today.year, month = today.month;
  if (context.options.count("month") != 0) {
    const std::string text = context.Option("month", "");
    char extra = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d%c", &year, &month, &extra) != 2 || month < 1 || month > 12 || year < 1970) {
      return context.Fail(64, "calendar: --month YYYY-MM");
    }
  }
  const auto* commands = context.plugin.Query<PluginTransMethodTable>("transmethod");
  if (commands == nullptr) return context.Fail(1, "the plug-in has no \"transmethod\" table");
  DeviceInstance device(context.plugin);
  if (device.Handle() == nullptr) return context.Fail(1, "the plug-in could not create a device object");
  if (!OpenCamera(context, device.Handle())) return 2;

  const std::string request = MonthRequest(year, month);
  std::vector<char> response(kResponseBytes, '\0');
  uint32_t length = 0;
  const int32_t result = commands->TransMethod(device.Handle(), request.c_str(), static_cast<uint32_t>(request.size()),
                                               response.data(), &length);
  context.plugin.Query<PluginCommonTable>("common")->CloseDevice(device.Handle());
  if (result == NETCAM_NOT_SUPPORTED) {
    return context.Fail(3, "the plug-in does not answer SearchCameraRecordByMonth yet (TransMethod returned -2)");
  }
  if (result != 0) return context.Fail(3, "SearchCameraRecordByMonth returned %d; the plug-in's log says why", result);
  std::string marks;
  const std::string answer(response.data(), std::min<size_t>(length, response.size()));
  if (!ResultText(answer, marks)) return context.Fail(3, "the month view has no result: %s", answer.c_str());
  std::vector<bool> marked(31, false);
  for (size_t i = 0, day = 0; i < marks.size() && day < marked.size(); ++i) {
    if (marks[i] == '0' || marks[i] == '1') marked[day++] = marks[i] == '1';
  }
  PrintPage(year, month, marked);
  return 0;
}

const HostCommandRegistration kCalendar({"calendar", "calendar [--month YYYY-MM]",
                                         "the month view: the days of a month with recordings on the camera",
                                         RunCalendar});

}  // namespace
