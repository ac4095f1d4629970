// event_messages.h - the event centre's texts and records, pure: the
// configuration's event port, which request is an alarm, the reply text and
// the alarm record handed to the platform.
#pragma once

#include <cstdint>
#include <string>

#include "kor.h"
#include "netcam_plugin.h"

// Where a camera posts its motion-detection notifications.
inline constexpr char kMotionDetectionPath[] = "/axis/uploadalarm/motiondetection";

// What became of one notification; decides the reply.
enum class EventOutcome { kDelivered, kNoSubscriber, kUnsupported };

// True when the request target is the motion-detection path, exactly (a
// query string or a trailing slash makes it something else).
bool IsMotionAlarmUrl(const std::string& url);

// The JSON status reply for an outcome.
std::string FormatEventReply(EventOutcome outcome);

// Reads Configs/AxisPort/Event of a Setup.xml text. False when an element is
// missing; a non-numeric text gives port 0, a larger number its low 16 bits.
bool ParseEventPort(const std::string& xml, uint16_t& port);

// The 1080-byte alarm record for a reception at `localTime`.
void FillAlarmRecord(PluginAlarmRecord& record, const KOR_ExpTime& localTime);
