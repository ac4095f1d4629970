#include "HostSystem.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#ifdef _WIN32
#include <windows.h>

#include <conio.h>
#include <io.h>
#include <psapi.h>
#else
#include <poll.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include <fstream>
#endif

#ifdef _WIN32

std::string ExecutableDirectory() {
  char path[MAX_PATH * 4] = {};
  const DWORD length = GetModuleFileNameA(nullptr, path, sizeof path);
  if (length == 0 || length >= sizeof path) return {};
  std::string directory(path, length);
  const size_t separator = directory.find_last_of("\\/");
  return separator == std::string::npos ? std::string() : directory.substr(0, separator);
}

void SetEnvironmentDefault(const char* name, const char* value) {
  if (std::getenv(name) == nullptr) _putenv_s(name, value);
}

bool StandardOutputIsTerminal() { return _isatty(_fileno(stdout)) != 0; }

bool MayBindPrivilegedPorts() { return true; }

ProcessUsage CurrentProcessUsage() {
  ProcessUsage usage;
  FILETIME created, exited, kernel, user;
  if (GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user)) {
    const auto seconds = [](const FILETIME& time) {
      return static_cast<double>((static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime) / 1e7;
    };
    usage.cpuSeconds = seconds(kernel) + seconds(user);
  }
  PROCESS_MEMORY_COUNTERS counters{};
  if (GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters))
    usage.residentBytes = counters.WorkingSetSize;
  return usage;
}

// A console hands keys over one at a time already: nothing to change or restore.
struct KeyboardInput::SavedTerminal {};

KeyboardInput::KeyboardInput() {
  DWORD mode = 0;
  m_active = GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) != 0;
}

KeyboardInput::~KeyboardInput() = default;

char KeyboardInput::Key(int ms) const {
  // The console gives keys one at a time already; poll it in small steps.
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  do {
    if (m_active && _kbhit()) return static_cast<char>(_getch());
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  } while (std::chrono::steady_clock::now() < until);
  return 0;
}

#else

std::string ExecutableDirectory() {
  char self[4096] = {};
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  if (length <= 0) return {};
  std::string directory(self, static_cast<size_t>(length));
  return directory.substr(0, directory.rfind('/'));
}

void SetEnvironmentDefault(const char* name, const char* value) { setenv(name, value, 0); }

bool StandardOutputIsTerminal() { return isatty(STDOUT_FILENO) != 0; }

bool MayBindPrivilegedPorts() { return geteuid() == 0; }

ProcessUsage CurrentProcessUsage() {
  ProcessUsage usage;
  rusage self{};
  if (getrusage(RUSAGE_SELF, &self) == 0) {
    usage.cpuSeconds = static_cast<double>(self.ru_utime.tv_sec + self.ru_stime.tv_sec) +
                       static_cast<double>(self.ru_utime.tv_usec + self.ru_stime.tv_usec) / 1e6;
  }
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) usage.residentBytes = std::strtoull(line.c_str() + 6, nullptr, 10) * 1024;
  }
  return usage;
}

struct KeyboardInput::SavedTerminal {
  termios settings{};
};

KeyboardInput::KeyboardInput() {
  auto saved = std::make_unique<SavedTerminal>();
  if (isatty(STDIN_FILENO) == 0 || tcgetattr(STDIN_FILENO, &saved->settings) != 0) return;
  termios raw = saved->settings;
  raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
  m_active = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
  if (m_active) m_saved = std::move(saved);
}

KeyboardInput::~KeyboardInput() {
  if (m_saved) tcsetattr(STDIN_FILENO, TCSANOW, &m_saved->settings);
}

char KeyboardInput::Key(int ms) const {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  char key = 0;
  if (m_active && poll(&input, 1, ms) == 1 && read(STDIN_FILENO, &key, 1) == 1) return key;
  if (!m_active) std::this_thread::sleep_for(std::chrono::milliseconds(ms));
  return 0;
}

#endif
