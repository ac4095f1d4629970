// kor_posix.cpp - the portable runtime's operating-system half on Linux.
#include <dlfcn.h>
#include <errno.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "kor.h"
#include "kor_os.h"

namespace kor::detail {

bool LocalFields(int64_t seconds, KOR_ExpTime* out) {
  const time_t asTimeT = static_cast<time_t>(seconds);
  tm local{};
  if (localtime_r(&asTimeT, &local) == nullptr) return false;
  CopyCalendarFields(local, out);
  out->tm_isdst = local.tm_isdst;
  out->tm_gmtoff = static_cast<int32_t>(local.tm_gmtoff);
  return true;
}

}  // namespace kor::detail

extern "C" {

int32_t KOR_GetSystemLastError(void) { return errno; }

int32_t KOR_GetModuleFileName(const char* moduleName, char* path, size_t size) {
  if (moduleName == nullptr || path == nullptr || size == 0) return KOR_ERR_INVALID_ARG;
  // The platform names its modules as Windows does; here the same module is
  // the shared object of that name.
  std::string wanted = moduleName;
  if (wanted.size() > 4 && wanted.compare(wanted.size() - 4, 4, ".dll") == 0)
    wanted.replace(wanted.size() - 4, 4, ".so");
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&KOR_GetModuleFileName), &info) == 0 || info.dli_fname == nullptr)
    return KOR_ERR_INVALID_ARG;
  std::string file = info.dli_fname;
  const size_t slash = file.rfind('/');
  if (file.compare(slash == std::string::npos ? 0 : slash + 1, std::string::npos, wanted) != 0)
    return KOR_ERR_INVALID_ARG;
  if (file.front() != '/') {
    char cwd[4096] = {};
    if (getcwd(cwd, sizeof cwd) == nullptr) return KOR_ERR_RANGE;
    file = std::string(cwd) + "/" + file;
  }
  if (file.size() >= size) return KOR_ERR_RANGE;
  std::memcpy(path, file.c_str(), file.size() + 1);
  return KOR_OK;
}

uint32_t KOR_GetCurrentThreadId(void) {
  // Kernel thread ids are unique among live threads and fit in 32 bits.
  static thread_local const uint32_t threadId = static_cast<uint32_t>(syscall(SYS_gettid));
  return threadId;
}

}  // extern "C"
