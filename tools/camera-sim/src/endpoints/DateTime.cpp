// admin/date.cgi: reads and sets the camera's clock (the host clock plus an offset).
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "TimeText.h"
#include "endpoints/Endpoint.h"

namespace camsim {

namespace {

HttpResponse DateError(const std::string& message) { return TextAnswer(400, "Request failed: " + message + "\r\n"); }

}  // namespace

HttpResponse HandleDate(const HttpRequest& request, EndpointContext& context) {
  const auto params = ParseQuery(request.query);
  auto get = [&](const char* name) { return params.count(name) != 0 ? params.at(name) : std::string(); };
  const std::string action = get("action");
  if (action == "get") {
    static const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const int offset = context.state.Read([](const StateData& s) { return s.utcOffsetMinutes; });
    const CivilTime t = CivilFromUnix(context.state.CameraNowUtc() + offset * 60);
    char text[64];
    std::snprintf(text, sizeof(text), "%s %02d, %04d %02d:%02d:%02d\r\n", kMonths[t.month - 1], t.day, t.year, t.hour,
                  t.minute, t.second);
    return TextAnswer(200, text);
  }
  if (action != "set") return DateError("action must be get or set");

  // The six fields are the camera's local time.
  CivilTime t;
  struct Field {
    const char* name;
    int* target;
  };
  for (const Field& field : {Field{"year", &t.year}, Field{"month", &t.month}, Field{"day", &t.day},
                             Field{"hour", &t.hour}, Field{"minute", &t.minute}, Field{"second", &t.second}}) {
    const std::string text = get(field.name);
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < 0 || value > 9999) {
      return DateError(std::string("invalid or missing ") + field.name);
    }
    *field.target = static_cast<int>(value);
  }
  const auto local = UnixFromCivil(t);
  if (!local) return DateError("no such date or time");
  const int64_t host =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
  context.state.Modify([&](StateData& s) { s.clockOffsetSeconds = *local - s.utcOffsetMinutes * 60 - host; });
  return TextAnswer(200, "OK\r\n");
}

}  // namespace camsim
