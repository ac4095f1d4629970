/*
 * kor.h - the platform's portable runtime: start/stop, clock, expanded local
 * time, the system's last error, the thread id, and bounded copies.
 */
#ifndef KOR_H
#define KOR_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* printf-style checking of a format argument. On Windows the C++ runtime
 * uses mingw's own C99 printf family (%zu, %lld), not the system's older one,
 * and the check must follow the same rules. */
#if defined(__MINGW32__)
#define KOR_PRINTF_LIKE(formatIndex, firstArgument) \
  __attribute__((format(gnu_printf, formatIndex, firstArgument)))
#elif defined(__GNUC__)
#define KOR_PRINTF_LIKE(formatIndex, firstArgument) __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define KOR_PRINTF_LIKE(formatIndex, firstArgument)
#endif

#define KOR_OK 0
#define KOR_ERR_INVALID_ARG 22 /* EINVAL */
#define KOR_ERR_RANGE 34       /* ERANGE: destination too small */

/* Starts and stops the runtime. KOR_InitEx returns 0 on success. Calls may
 * repeat; each runs fully. */
int32_t KOR_InitEx(void);
int32_t KOR_FiniEx(void);

/* Microseconds since 1970-01-01 UTC. */
int64_t KOR_TimeNow(void);

/* Expanded time: eleven signed 32-bit fields in this order. */
typedef struct KOR_ExpTime {
  int32_t tm_usec;
  int32_t tm_sec;
  int32_t tm_min;
  int32_t tm_hour;
  int32_t tm_mday;
  int32_t tm_mon;    /* 0 to 11 */
  int32_t tm_year;   /* years since 1900 */
  int32_t tm_wday;
  int32_t tm_yday;
  int32_t tm_isdst;
  int32_t tm_gmtoff; /* offset from UTC in seconds */
} KOR_ExpTime;

/* Fills `out` with the local time of `timeUs` (microseconds since 1970).
 * Returns 0, or KOR_ERR_INVALID_ARG for a NULL record. */
int32_t KOR_ExpTimeFromTimeLocal(KOR_ExpTime* out, int64_t timeUs);

/* The calling thread's last system error (errno / GetLastError). */
int32_t KOR_GetSystemLastError(void);

/* Full path of the loaded module named `moduleName` (file name only), as
 * GetModuleHandle/GetModuleFileName give it on Windows. On Linux a name ending
 * in ".dll" means the shared object of the same name ending in ".so", and the
 * module is the one holding the runtime, which is linked into the plug-in; a
 * relative load path is made absolute, symbolic links are kept. Returns 0,
 * KOR_ERR_INVALID_ARG when no loaded module has that name, KOR_ERR_RANGE when
 * `path` is too small. */
int32_t KOR_GetModuleFileName(const char* moduleName, char* path, size_t size);

/* A 32-bit id of the calling thread, stable for its lifetime. */
uint32_t KOR_GetCurrentThreadId(void);

/* Bounded copies. Each returns 0 on success and a non-zero code otherwise;
 * none ever writes past destSize. */
/* Copies count bytes; count > destSize copies nothing and fails. */
int32_t KOR_Memcpy_s(void* dest, size_t destSize, const void* src, size_t count);
/* Copies at most count characters of src (stopping at its NUL) and always
 * terminates; when they do not fit with the terminator, copies
 * destSize - 1 characters, terminates and returns KOR_ERR_RANGE. */
int32_t KOR_Strncpy_s(char* dest, size_t destSize, const char* src, size_t count);
/* snprintf that always terminates; returns the characters written, or -1
 * when the text was cut or the arguments are invalid. */
int32_t KOR_Sprintf_s(char* dest, size_t destSize, const char* format, ...) KOR_PRINTF_LIKE(3, 4);

#ifdef __cplusplus
}

#include <mutex>

namespace kor {

/* A UTC calendar time, computed without the C library's time zone (the
 * proleptic Gregorian calendar, any year): one conversion that Windows and
 * Linux share instead of timegm and gmtime_r, which Windows lacks. */
struct CivilTime {
  int64_t year = 1970;
  int month = 1;   /* 1 to 12 */
  int day = 1;     /* 1 to 31 */
  int hour = 0;
  int minute = 0;
  int second = 0;
  int weekday = 4; /* 0 Sunday; filled by CivilFromUnixSeconds */
  int yearDay = 0; /* 0 to 365; filled by CivilFromUnixSeconds */
};

/* Seconds since 1970 of the fields as UTC. Like timegm, fields past their
 * range carry (day 32 is the next month's first, second 60 the next minute). */
int64_t UnixSecondsFromCivil(const CivilTime& time);
CivilTime CivilFromUnixSeconds(int64_t seconds);

/* The runtime's mutex and its scope guard. */
class CMutex {
 public:
  CMutex() = default;
  CMutex(const CMutex&) = delete;
  CMutex& operator=(const CMutex&) = delete;
  void Lock() { m_mutex.lock(); }
  void Unlock() { m_mutex.unlock(); }
  bool TryLock() { return m_mutex.try_lock(); }
  /* BasicLockable, so std::lock_guard/std::unique_lock work too. */
  void lock() { Lock(); }
  void unlock() { Unlock(); }

 private:
  std::mutex m_mutex;
};

class CGuard {
 public:
  explicit CGuard(CMutex& mutex) : m_mutex(mutex) { m_mutex.Lock(); }
  ~CGuard() { m_mutex.Unlock(); }
  CGuard(const CGuard&) = delete;
  CGuard& operator=(const CGuard&) = delete;

 private:
  CMutex& m_mutex;
};

}  // namespace kor
#endif

#endif /* KOR_H */
