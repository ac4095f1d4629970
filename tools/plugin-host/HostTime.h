// HostTime.h - the times plugin-host reads and prints: ISO 8601 UTC texts
// ("2024-06-21T15:17:00Z"), seconds since 1970 and the plug-in's time records.
#pragma once

#include <cstdint>
#include <string>

#include "netcam_plugin.h"

// "2024-06-21T15:17:00Z" (the "Z" and a fraction may be left out) to seconds
// since 1970; false when the text is not such a time.
bool ParseIsoUtc(const std::string& text, int64_t* seconds);
// "2024-06-21 15:17:00", UTC.
std::string FormatUtc(int64_t seconds);
// "1:02:03" or "2:03".
std::string FormatDuration(int64_t seconds);

PluginTime ToPluginTime(int64_t seconds);
int64_t FromPluginTime(const PluginTime& time);
// The same instant as the platform's zoned time in UTC (zone offset 0).
PluginZonedTime ToZonedTime(int64_t seconds);
