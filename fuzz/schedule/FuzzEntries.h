// FuzzEntries.h - the bodies of the schedule fuzz targets, in a library so that
// the unit tests replay the seed corpora through exactly the same code. Each
// returns 0 and aborts when a result breaks what callers rely on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace schedule_fuzz {

int FuzzActionRules(const uint8_t* data, size_t size);           // GetActionRules answer
int FuzzActionConfigurations(const uint8_t* data, size_t size);  // GetActionConfigurations answer
int FuzzScheduledEvents(const uint8_t* data, size_t size);       // GetScheduledEvents answer
int FuzzCalendar(const uint8_t* data, size_t size);              // one iCalendar text
int FuzzTransMethod(const uint8_t* data, size_t size);           // the platform's command text

// What the command channel fuzzer's camera answers to every request.
extern std::string g_cameraAnswer;

}  // namespace schedule_fuzz
