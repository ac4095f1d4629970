#include "events/event_messages.h"

#include <cstdio>
#include <cstring>
#include <sstream>

#include "XmlMarkup.h"

bool IsMotionAlarmUrl(const std::string& url) { return url == kMotionDetectionPath; }

std::string FormatEventReply(EventOutcome outcome) {
  const char* status = outcome == EventOutcome::kDelivered ? "Success" : "Failed";
  const char* message = outcome == EventOutcome::kDelivered      ? "Success"
                        : outcome == EventOutcome::kNoSubscriber ? "No user subscribes"
                                                                 : "Unsupported alarm";
  char reply[128];
  std::snprintf(reply, sizeof reply, "{\n\t\"status\": \"%s\",\n\t\"msg\": \"%s\"\n}", status, message);
  return reply;
}

bool ParseEventPort(const std::string& xml, uint16_t& port) {
  CXmlMarkup markup;
  if (!markup.SetDoc(xml) || !markup.FindElem("Configs") || !markup.IntoElem() || !markup.FindElem("AxisPort") ||
      !markup.IntoElem() || !markup.FindElem("Event")) {
    return false;
  }
  // A stream extraction, as the platform's tools read numbers: leading
  // blanks are skipped, trailing text ignored, no digits give 0.
  std::istringstream text(markup.GetData());
  int32_t value = 0;
  text >> value;
  port = static_cast<uint16_t>(static_cast<uint32_t>(value) & 0xFFFFu);
  return true;
}

void FillAlarmRecord(PluginAlarmRecord& record, const KOR_ExpTime& localTime) {
  std::memset(&record, 0, sizeof record);
  record.alarmKind = PLUGIN_ALARM_KIND_MOTION;
  const int32_t fields[7] = {localTime.tm_usec, localTime.tm_sec, localTime.tm_min, localTime.tm_hour,
                             localTime.tm_mday, localTime.tm_mon, localTime.tm_year};
  std::memcpy(record.localTime, fields, sizeof fields);
  record.localTimeZone[0] = localTime.tm_isdst;
  record.localTimeZone[1] = localTime.tm_gmtoff;
  record.field1072 = 3;
  record.field1076 = 5;
}
