// LogCapture.h - collects every log line (all levels, all modules) for the
// lifetime of the object.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "evlog.h"

class LogCapture {
 public:
  struct Line {
    int level;
    std::string text;
  };

  LogCapture() {
    evlog_set_level(0);
    evlog_set_sink(&LogCapture::Sink, this);
  }
  ~LogCapture() {
    evlog_set_sink(nullptr, nullptr);
    evlog_set_level(EVLOG_INFO);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<Line> Lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
  }
  void Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
  }
  // Lines containing `fragment`, at `level` or above.
  std::vector<Line> Matching(const std::string& fragment, int level = 0) const {
    std::vector<Line> found;
    for (const Line& line : Lines())
      if (line.level >= level && line.text.find(fragment) != std::string::npos) found.push_back(line);
    return found;
  }
  bool Contains(const std::string& fragment) const { return !Matching(fragment).empty(); }
  std::string All() const {
    std::string all;
    for (const Line& line : Lines()) all += line.text + "\n";
    return all;
  }

 private:
  static void Sink(int level, const char* /*module*/, const char* text, void* user) {
    auto* self = static_cast<LogCapture*>(user);
    std::lock_guard<std::mutex> lock(self->m_mutex);
    self->m_lines.push_back({level, text});
  }

  mutable std::mutex m_mutex;
  std::vector<Line> m_lines;
};
