// StreamRecorder.h - a platform stand-in for the stream data callback: keeps
// the block types in order and the Program Stream bytes, and notices blocks
// that arrive after the test declared the stream stopped.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "netcam_plugin.h"

class StreamRecorder {
 public:
  static int32_t Callback(void* handle, int32_t type, const PluginStreamBlock* block, void* user) {
    auto* self = static_cast<StreamRecorder*>(user);
    if (handle != nullptr) self->m_badHandle = true;
    if (self->m_stopped) ++self->m_afterStop;
    std::lock_guard<std::mutex> lock(self->m_mutex);
    self->m_types.push_back(type);
    if (block != nullptr && (type == PLUGIN_STREAM_HEAD || type == PLUGIN_STREAM_DATA) && block->data != nullptr)
      self->m_stream.append(reinterpret_cast<const char*>(block->data), block->length);
    if (type == PLUGIN_STREAM_INFO && block != nullptr && block->length == sizeof(PluginStreamInfo))
      std::memcpy(&self->m_info, block->data, sizeof self->m_info);
    if (block == nullptr || block->format != 96 || block->field1 != 1 || block->field2 != 0) self->m_badBlock = true;
    self->m_changed.notify_all();
    return 0;
  }

  // Waits until `count` blocks of `type` arrived; false on timeout.
  bool WaitFor(int32_t type, size_t count, std::chrono::seconds timeout = std::chrono::seconds(30)) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [&] { return CountLocked(type) >= count; });
  }
  size_t Count(int32_t type) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return CountLocked(type);
  }
  std::vector<int32_t> Types() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_types;
  }
  std::string Stream() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_stream;
  }
  PluginStreamInfo Info() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_info;
  }
  void Reset() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_types.clear();
    m_stream.clear();
    m_stopped = false;
  }
  void MarkStopped() { m_stopped = true; }
  int AfterStop() const { return m_afterStop; }
  bool BadBlock() const { return m_badBlock; }
  bool BadHandle() const { return m_badHandle; }

 private:
  size_t CountLocked(int32_t type) const {
    size_t count = 0;
    for (int32_t t : m_types) count += t == type ? 1 : 0;
    return count;
  }

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<int32_t> m_types;
  std::string m_stream;
  PluginStreamInfo m_info{};
  std::atomic<bool> m_stopped{false};
  std::atomic<int> m_afterStop{0};
  std::atomic<bool> m_badBlock{false};
  std::atomic<bool> m_badHandle{false};
};
