#include "PluginLoader.h"

PluginLoader::~PluginLoader() {
  if (m_initialised) m_record->Fini();
}

bool PluginLoader::Load(const std::string& path, std::string* error) {
  m_path = path;
  if (!m_module.Open(path, error)) {
    *error = "cannot load plug-in " + path + ": " + *error;
    return false;
  }
  using GetInterface = const ZPLUGIN_Interface* (*)();
  auto getInterface = m_module.Get<GetInterface>("ZPLUGIN_GetPluginInterface");
  if (getInterface == nullptr) {
    *error = path + " is not a plug-in: ZPLUGIN_GetPluginInterface is missing";
    return false;
  }
  m_record = getInterface();
  if (m_record == nullptr || m_record->Init == nullptr || m_record->QueryInterface == nullptr) {
    *error = path + " returned an incomplete discovery record";
    return false;
  }
  if (m_record->Init() != 0) {
    *error = "the plug-in's Init failed";
    return false;
  }
  m_initialised = true;
  return true;
}

DeviceInstance::DeviceInstance(const PluginLoader& plugin) : m_plugin(plugin) {
  if (m_plugin.Record().CreateInstance(&m_handle) != 0) m_handle = nullptr;
}

DeviceInstance::~DeviceInstance() {
  if (m_handle != nullptr) m_plugin.Record().DestroyInstance(m_handle);
}
