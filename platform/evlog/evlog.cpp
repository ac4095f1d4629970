#include "evlog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <sys/time.h>

#include "evlog_function.h"

namespace {

const char* LevelName(int level) {
  switch (level) {
    case EVLOG_TRACE: return "TRACE";
    case EVLOG_INFO: return "INFO";
    case EVLOG_WARN: return "WARN";
    case EVLOG_ERROR: return "ERROR";
    default: return "LOG";
  }
}

int LevelFromEnvironment() {
  const char* text = std::getenv("NETCAM_LOG_LEVEL");
  if (text == nullptr || *text == '\0') return EVLOG_INFO;
  return std::atoi(text);
}

struct LogState {
  std::mutex mutex;  // orders whole lines and guards the file and sink
  std::atomic<int> minLevel{LevelFromEnvironment()};
  FILE* file = nullptr;
  bool fileOpened = false;
  evlog_sink sink = nullptr;
  void* sinkUser = nullptr;

  ~LogState() {
    if (file != nullptr && file != stderr) std::fclose(file);
  }

  // Lazily opens NETCAM_LOG_FILE; without it lines go to stderr.
  FILE* Output() {
    if (!fileOpened) {
      fileOpened = true;
      const char* path = std::getenv("NETCAM_LOG_FILE");
      if (path != nullptr && *path != '\0') file = std::fopen(path, "a");
      if (file == nullptr) file = stderr;
    }
    return file;
  }
};

// Set once the state is gone at exit or unload; lines written later are dropped.
std::atomic<bool> g_stateDestroyed{false};

struct LogStateHolder {
  LogState state;
  ~LogStateHolder() { g_stateDestroyed = true; }
};

LogState* State() {
  static LogStateHolder holder;
  return g_stateDestroyed ? nullptr : &holder.state;
}

}  // namespace

extern "C" {

int evlog_enabled(int level) {
  LogState* state = State();
  return state != nullptr && level >= state->minLevel.load(std::memory_order_relaxed) ? 1 : 0;
}

void evlog_set_level(int level) {
  if (LogState* state = State()) state->minLevel.store(level, std::memory_order_relaxed);
}

void evlog_set_sink(evlog_sink sink, void* user) {
  LogState* state = State();
  if (state == nullptr) return;
  std::lock_guard<std::mutex> lock(state->mutex);
  state->sink = sink;
  state->sinkUser = user;
}

void evlog_write(int level, const char* module, const char* format, ...) {
  if (!evlog_enabled(level) || format == nullptr) return;
  char stackBuffer[1024];
  std::string heapBuffer;
  const char* text = stackBuffer;

  va_list args;
  va_start(args, format);
  va_list copy;
  va_copy(copy, args);
  int needed = std::vsnprintf(stackBuffer, sizeof stackBuffer, format, args);
  va_end(args);
  if (needed < 0) {
    va_end(copy);
    return;
  }
  if (static_cast<size_t>(needed) >= sizeof stackBuffer) {
    heapBuffer.resize(static_cast<size_t>(needed) + 1);
    std::vsnprintf(heapBuffer.data(), heapBuffer.size(), format, copy);
    heapBuffer.resize(static_cast<size_t>(needed));
    text = heapBuffer.c_str();
  }
  va_end(copy);
  // A camera answer quoted in a line may be huge; keep lines readable and bounded.
  constexpr size_t kMaxLine = 16 * 1024;
  if (static_cast<size_t>(needed) > kMaxLine) {
    if (heapBuffer.empty()) heapBuffer.assign(stackBuffer);
    heapBuffer.resize(kMaxLine);
    heapBuffer += "...(" + std::to_string(static_cast<size_t>(needed) - kMaxLine) + " more bytes)";
    text = heapBuffer.c_str();
  }

  LogState* statePointer = State();
  if (statePointer == nullptr) return;
  LogState& state = *statePointer;
  std::lock_guard<std::mutex> lock(state.mutex);
  if (state.sink != nullptr) {
    state.sink(level, module != nullptr ? module : "", text, state.sinkUser);
    return;
  }
  timeval now{};
  gettimeofday(&now, nullptr);
  tm local{};
  time_t seconds = now.tv_sec;
  localtime_r(&seconds, &local);
  FILE* out = state.Output();
  std::fprintf(out, "%04d-%02d-%02d %02d:%02d:%02d.%03d %-5s [%s] %s\n", local.tm_year + 1900, local.tm_mon + 1,
               local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(now.tv_usec / 1000),
               LevelName(level), module != nullptr ? module : "", text);
  std::fflush(out);
}

}  // extern "C"

namespace evlog {

std::string QualifiedFunctionName(std::string_view signature) {
  // Cut the parameter list: the last '(' at template/paren depth zero that
  // follows the name. Walk backwards from the end to skip qualifiers and the
  // bracketed "[with T = ...]" GCC appends.
  std::string_view text = signature;
  if (size_t with = text.rfind(" [with "); with != std::string_view::npos) text = text.substr(0, with);
  size_t open = std::string_view::npos;
  int depth = 0;
  for (size_t i = text.size(); i-- > 0;) {
    char c = text[i];
    if (c == ')') {
      ++depth;
    } else if (c == '(') {
      if (--depth == 0) {
        open = i;
        // "operator()" and lambdas' "<lambda()>" keep their parentheses: skip.
        if (i >= 8 && text.substr(i - 8, 8) == "operator") continue;
        break;
      }
    }
  }
  std::string_view head = open == std::string_view::npos ? text : text.substr(0, open);
  // The name starts after the last blank at template depth zero (the return type).
  size_t start = 0;
  depth = 0;
  for (size_t i = head.size(); i-- > 0;) {
    char c = head[i];
    if (c == '>') ++depth;
    else if (c == '<') --depth;
    else if (c == ' ' && depth == 0) {
      // GCC prints "{anonymous}" without blanks, so a blank here ends the name.
      start = i + 1;
      break;
    }
  }
  std::string name(head.substr(start));
  while (!name.empty() && (name.front() == '*' || name.front() == '&')) name.erase(0, 1);
  static const std::string kGccAnonymous = "{anonymous}";
  static const std::string kPlatformAnonymous = "`anonymous-namespace'";
  for (size_t pos = name.find(kGccAnonymous); pos != std::string::npos; pos = name.find(kGccAnonymous, pos)) {
    name.replace(pos, kGccAnonymous.size(), kPlatformAnonymous);
    pos += kPlatformAnonymous.size();
  }
  return name;
}

}  // namespace evlog
