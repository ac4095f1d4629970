// SharedLibrary.h - a module loaded by path as the platform loads the plug-in:
// LoadLibrary and GetProcAddress on Windows, dlopen and dlsym elsewhere.
#pragma once

#include <string>

class SharedLibrary {
 public:
  SharedLibrary() = default;
  ~SharedLibrary() { Close(); }
  SharedLibrary(const SharedLibrary&) = delete;
  SharedLibrary& operator=(const SharedLibrary&) = delete;

  // False with `error` saying why, in the system's own words.
  bool Open(const std::string& path, std::string* error);
  void Close();
  bool IsOpen() const { return m_handle != nullptr; }

  // The exported function `name`, or nullptr.
  void* Symbol(const char* name) const;
  template <typename Function>
  Function Get(const char* name) const {
    return reinterpret_cast<Function>(Symbol(name));
  }

 private:
  void* m_handle = nullptr;
};
