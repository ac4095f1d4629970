#include "evlog.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "evlog_function.h"
#include "kor.h"

namespace {

const char* LevelName(int level) {
  switch (level) {
    case EVLOG_TRACE:
      return "TRACE";
    case EVLOG_INFO:
      return "INFO";
    case EVLOG_WARN:
      return "WARN";
    case EVLOG_ERROR:
      return "ERROR";
    default:
      return "LOG";
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

// Longest line text kept; the rest of a longer line is only counted.
constexpr size_t kMaxLine = 16 * 1024;
// Room for "...(N more bytes)" after a cut line.
constexpr size_t kCutMarkBytes = 48;

void WriteLine(int level, const char* module, const char* text) {
  LogState* statePointer = State();
  if (statePointer == nullptr) return;
  LogState& state = *statePointer;
  std::lock_guard<std::mutex> lock(state.mutex);
  if (state.sink != nullptr) {
    state.sink(level, module != nullptr ? module : "", text, state.sinkUser);
    return;
  }
  KOR_ExpTime local{};
  KOR_ExpTimeFromTimeLocal(&local, KOR_TimeNow());
  FILE* out = state.Output();
  std::fprintf(out, "%04d-%02d-%02d %02d:%02d:%02d.%03d %-5s [%s] ", local.tm_year + 1900, local.tm_mon + 1,
               local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, local.tm_usec / 1000, LevelName(level),
               module != nullptr ? module : "");
  // A quoted camera answer may hold line breaks and binary bytes: one event
  // stays one line of text, control bytes written as \xHH.
  auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
  for (const char* run = text; *run != '\0';) {
    const char* end = run;
    while (*end != '\0' && !isControl(*end)) ++end;
    std::fwrite(run, 1, static_cast<size_t>(end - run), out);
    if (*end != '\0') std::fprintf(out, "\\x%02X", static_cast<unsigned char>(*end++));
    run = end;
  }
  std::fputc('\n', out);
  std::fflush(out);
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
  // A C function: a line that cannot be written is dropped, nothing is thrown.
  try {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    char stackBuffer[1024];
    const int needed = std::vsnprintf(stackBuffer, sizeof stackBuffer, format, args);
    va_end(args);
    const char* text = stackBuffer;
    // A camera answer quoted in a line may be tens of megabytes: the line is
    // formatted into at most kMaxLine bytes, never in full, and says how much
    // was left out.
    std::unique_ptr<char[]> heapBuffer;
    if (needed >= 0 && static_cast<size_t>(needed) >= sizeof stackBuffer) {
      const size_t kept = std::min(static_cast<size_t>(needed), kMaxLine);
      heapBuffer.reset(new (std::nothrow) char[kept + kCutMarkBytes + 1]);
      if (heapBuffer != nullptr) {
        std::vsnprintf(heapBuffer.get(), kept + 1, format, copy);
        if (static_cast<size_t>(needed) > kept) {
          std::snprintf(heapBuffer.get() + kept, kCutMarkBytes + 1, "...(%zu more bytes)",
                        static_cast<size_t>(needed) - kept);
        }
        text = heapBuffer.get();
      }
    }
    va_end(copy);
    if (needed >= 0) WriteLine(level, module, text);
  } catch (...) {
  }
}

}  // extern "C"

namespace evlog {

std::string QualifiedFunctionName(std::string_view signature) {
  // Cut the parameter list: the last '(' at template/paren depth zero that
  // follows the name. Walk backwards from the end to skip qualifiers and the
  // bracketed "[with T = ...]" GCC appends.
  std::string_view text = signature;
  if (size_t with = text.rfind(" [with "); with != std::string_view::npos) text = text.substr(0, with);
  // A line logged inside a lambda belongs to the function the lambda is
  // written in: "Fn(int)::<lambda()>" (GCC), "auto Fn(int)::(lambda at ...)::operator()() const" (clang).
  for (std::string_view lambda : {"::<lambda", "::(lambda", "::(anonymous class)"}) {
    if (size_t at = text.find(lambda); at != std::string_view::npos) text = text.substr(0, at);
  }
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
    if (c == '>')
      ++depth;
    else if (c == '<')
      --depth;
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
