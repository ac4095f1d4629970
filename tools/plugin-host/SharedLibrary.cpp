#include "SharedLibrary.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include <algorithm>
#include <string>

#ifdef _WIN32

bool SharedLibrary::Open(const std::string& path, std::string* error) {
  Close();
  // LoadLibrary wants backslashes in a path.
  std::string windowsPath = path;
  std::replace(windowsPath.begin(), windowsPath.end(), '/', '\\');
  m_handle = LoadLibraryA(windowsPath.c_str());
  if (m_handle == nullptr) {
    const DWORD code = GetLastError();
    char text[512] = {};
    FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, text, sizeof text,
                   nullptr);
    std::string reason = text;
    while (!reason.empty() && (reason.back() == '\n' || reason.back() == '\r')) reason.pop_back();
    *error = reason.empty() ? "error " + std::to_string(code) : reason;
    return false;
  }
  return true;
}

void SharedLibrary::Close() {
  if (m_handle != nullptr) FreeLibrary(static_cast<HMODULE>(m_handle));
  m_handle = nullptr;
}

void* SharedLibrary::Symbol(const char* name) const {
  if (m_handle == nullptr) return nullptr;
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(m_handle), name));
}

#else

bool SharedLibrary::Open(const std::string& path, std::string* error) {
  Close();
  // Kept mapped after dlclose, as a platform that loads its plug-ins once
  // does: the media client's process-wide objects stay reachable, so that
  // LeakSanitizer reports leaks rather than what an unload orphans.
  m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (m_handle == nullptr) {
    *error = dlerror();
    return false;
  }
  return true;
}

void SharedLibrary::Close() {
  if (m_handle != nullptr) dlclose(m_handle);
  m_handle = nullptr;
}

void* SharedLibrary::Symbol(const char* name) const { return m_handle != nullptr ? dlsym(m_handle, name) : nullptr; }

#endif
