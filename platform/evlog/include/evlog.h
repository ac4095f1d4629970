/*
 * evlog.h - the platform's log call. Every line carries a level and a module
 * tag; output file and minimum level come from the host's environment
 * (NETCAM_LOG_FILE, NETCAM_LOG_LEVEL). Tests can take the lines instead.
 */
#ifndef EVLOG_H
#define EVLOG_H

#include "kor.h"

#ifdef __cplusplus
extern "C" {
#endif

#define EVLOG_TRACE 2
#define EVLOG_INFO 3
#define EVLOG_WARN 4
#define EVLOG_ERROR 5

/* Formats and writes one line when `level` passes the minimum level. */
void evlog_write(int level, const char* module, const char* format, ...) KOR_PRINTF_LIKE(3, 4);

/* True when a line of this level would be written. */
int evlog_enabled(int level);

/* Minimum level; lines below it are dropped. Default: NETCAM_LOG_LEVEL or 3. */
void evlog_set_level(int level);

/* While a sink is set, lines go to it instead of the file (one call a line,
 * text without the trailing newline). NULL restores the file. */
typedef void (*evlog_sink)(int level, const char* module, const char* text, void* user);
void evlog_set_sink(evlog_sink sink, void* user);

#ifdef __cplusplus
}
#endif

#endif /* EVLOG_H */
