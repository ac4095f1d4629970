// HostSystem.h - what plugin-host asks of the operating system itself: where
// it runs from, the terminal, the environment and its own resource use. One
// half for Linux and one for Windows, so the commands stay portable.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

// The directory of the running executable, or "" when it cannot be told.
std::string ExecutableDirectory();

// Sets an environment variable unless it is set already.
void SetEnvironmentDefault(const char* name, const char* value);

bool StandardOutputIsTerminal();

// True when this process may bind ports below 1024 (root on Linux).
bool MayBindPrivilegedPorts();

// The process's CPU time (user and system) and resident memory.
struct ProcessUsage {
  double cpuSeconds = 0;
  uint64_t residentBytes = 0;
};
ProcessUsage CurrentProcessUsage();

// Single key presses without Enter while it lives, when standard input is a
// terminal (a console on Windows); the terminal is restored after.
class KeyboardInput {
 public:
  KeyboardInput();
  ~KeyboardInput();
  KeyboardInput(const KeyboardInput&) = delete;
  KeyboardInput& operator=(const KeyboardInput&) = delete;
  bool Active() const { return m_active; }
  // A key pressed within `ms`, or 0 (it waits `ms` either way when inactive).
  char Key(int ms) const;

 private:
  struct SavedTerminal;
  std::unique_ptr<SavedTerminal> m_saved;  // the terminal's settings before, to restore
  bool m_active = false;
};
