// PluginLoader.h - loads a plug-in the way the platform does: the module, the
// discovery record, Init, and the function tables by key.
#pragma once

#include <string>

#include "SharedLibrary.h"
#include "netcam_plugin.h"

class PluginLoader {
 public:
  PluginLoader() = default;
  ~PluginLoader();  // Fini, then the module is unloaded
  PluginLoader(const PluginLoader&) = delete;
  PluginLoader& operator=(const PluginLoader&) = delete;

  // Loads the module, reads the record and runs Init. False with `error` set.
  bool Load(const std::string& path, std::string* error);

  const ZPLUGIN_Interface& Record() const { return *m_record; }
  // The path the module was loaded from.
  const std::string& Path() const { return m_path; }
  // The table for `key`, or nullptr when the plug-in does not answer it.
  template <typename Table>
  const Table* Query(const char* key) const {
    const void* table = nullptr;
    if (m_record->QueryInterface(nullptr, key, &table) != 0) return nullptr;
    return static_cast<const Table*>(table);
  }

 private:
  SharedLibrary m_module;
  std::string m_path;
  const ZPLUGIN_Interface* m_record = nullptr;
  bool m_initialised = false;
};

// Owns one device object of a loaded plug-in.
class DeviceInstance {
 public:
  explicit DeviceInstance(const PluginLoader& plugin);
  ~DeviceInstance();
  DeviceInstance(const DeviceInstance&) = delete;
  DeviceInstance& operator=(const DeviceInstance&) = delete;

  PluginDeviceHandle Handle() const { return m_handle; }

 private:
  const PluginLoader& m_plugin;
  PluginDeviceHandle m_handle = nullptr;
};
