// ProcessStats.h - CPU time and resident memory of processes, from /proc.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace bench {

// User plus system CPU time of a process (0 = this one), in seconds.
inline double ProcessCpuSeconds(pid_t pid = 0) {
  std::ifstream stat("/proc/" + (pid == 0 ? std::string("self") : std::to_string(pid)) + "/stat");
  std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
  const size_t close = text.rfind(')');
  if (close == std::string::npos || close + 2 > text.size()) return 0;
  std::istringstream fields(text.substr(close + 2));
  std::string field;
  unsigned long long utime = 0, stime = 0;
  for (int index = 3; fields >> field; ++index) {
    if (index == 14) utime = std::stoull(field);
    if (index == 15) {
      stime = std::stoull(field);
      break;
    }
  }
  return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Resident memory of this process, in megabytes.
inline double ResidentMegabytes() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

}  // namespace bench
