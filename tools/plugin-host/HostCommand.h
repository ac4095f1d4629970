// HostCommand.h - what every plugin-host command gets, and how a command
// registers itself (one source file per command).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "PluginLoader.h"
#include "kor.h"

// Has the camera post one motion alarm to the event URL; true when the
// receiver answered it.
using AlarmTrigger = std::function<bool(const std::string& eventUrl)>;

struct CameraTarget {
  std::string host;
  uint16_t httpPort = 80;
  std::string user;
  std::string password;
  // Set when the embedded simulator serves the camera; a separately started
  // simulator is found by the events command itself.
  AlarmTrigger postAlarm;
};

struct HostContext {
  PluginLoader& plugin;
  CameraTarget camera;
  std::map<std::string, std::string> options;  // command options: --seconds 5 -> {"seconds","5"}
  std::vector<std::string> arguments;          // words after the command: "ptz left" -> {"left"}

  std::string Option(const std::string& name, const std::string& fallback) const {
    auto found = options.find(name);
    return found == options.end() ? fallback : found->second;
  }
  DeviceLoginParam LoginParam() const;

  // Why the command failed, in a few words, for the tour's summary table; the
  // first reason given wins.
  std::string failure;
  // Prints "plugin-host: <reason>" to standard error, keeps the reason and
  // returns exitCode, so a failure path reads `return context.Fail(3, ...)`.
  int Fail(int exitCode, const char* format, ...) KOR_PRINTF_LIKE(3, 4);
};

// A command returns the process exit code (0 success).
using HostCommandFunction = std::function<int(HostContext&)>;

struct HostCommandInfo {
  std::string name;
  std::string usage;
  std::string help;
  HostCommandFunction run;
};

std::map<std::string, HostCommandInfo>& HostCommands();

struct HostCommandRegistration {
  explicit HostCommandRegistration(HostCommandInfo info);
};

// Opens the camera through the plug-in's "common" table; prints the outcome and
// gives the reason to context.Fail when it did not open.
bool OpenCamera(HostContext& context, PluginDeviceHandle handle);
