// PluginLog.h - the plug-in's log call: every line starts with the qualified
// function name ("[%s]") and ends with the source file and line ("[%s(%d)]"),
// as the formats themselves spell out.
#pragma once

#include "evlog.h"
#include "evlog_function.h"

#define NETCAM_LOG_MODULE "netcamplugin"

#define PLG_LOG(level, format, ...)                                                                   \
  do {                                                                                                \
    if (evlog_enabled(level))                                                                         \
      evlog_write((level), NETCAM_LOG_MODULE, format, EVLOG_FUNCTION_NAME() __VA_OPT__(, ) __VA_ARGS__, \
                  __FILE__, __LINE__);                                                                \
  } while (0)

#define PLG_TRACE(format, ...) PLG_LOG(EVLOG_TRACE, format __VA_OPT__(, ) __VA_ARGS__)
#define PLG_INFO(format, ...) PLG_LOG(EVLOG_INFO, format __VA_OPT__(, ) __VA_ARGS__)
#define PLG_WARN(format, ...) PLG_LOG(EVLOG_WARN, format __VA_OPT__(, ) __VA_ARGS__)
#define PLG_ERROR(format, ...) PLG_LOG(EVLOG_ERROR, format __VA_OPT__(, ) __VA_ARGS__)
