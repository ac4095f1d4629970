// DeviceObjectError.h - the process-wide last-error store: one code and one
// message per calling thread. Operations report failure by their results, so
// the store answers "nothing recorded" unless RecordError is used.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "kor.h"

// Created on first use (double-checked), destroyed at process exit.
template <typename T>
class singleton {
 public:
  static T* Instance() {
    T* instance = s_instance.load(std::memory_order_acquire);
    if (instance == nullptr) {
      std::lock_guard<std::mutex> lock(s_mutex);
      instance = s_instance.load(std::memory_order_relaxed);
      if (instance == nullptr) {
        s_owner.reset(new T());
        instance = s_owner.get();
        s_instance.store(instance, std::memory_order_release);
      }
    }
    return instance;
  }

 protected:
  singleton() = default;
  virtual ~singleton() = default;

 private:
  static inline std::atomic<T*> s_instance{nullptr};
  static inline std::mutex s_mutex;
  static inline std::unique_ptr<T> s_owner;
};

class CDeviceObjectError : public singleton<CDeviceObjectError> {
 public:
  CDeviceObjectError() = default;
  ~CDeviceObjectError() override = default;

  // The calling thread's code, then 0 is stored (read-and-clear); 0 without an entry.
  uint32_t TakeLastError();
  // Formats the thread's error as the platform's JSON into `buffer` (at most
  // size - 1 characters); returns the code. The entry is kept.
  int32_t GetLastErrorJson(char* buffer, size_t size);
  // Records an error for the calling thread in both maps.
  void RecordError(int32_t code, const std::string& message);

 private:
  struct ErrorDetail {
    int32_t code = 0;
    std::string message;
  };
  kor::CMutex m_codeMutex;
  std::map<uint32_t, uint32_t> m_spareCodes;  // kept empty
  std::map<uint32_t, uint32_t> m_codes;
  std::map<uint32_t, ErrorDetail> m_details;
  kor::CMutex m_detailMutex;
};
