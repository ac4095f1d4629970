#include "FaultOption.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>

namespace camsim {

const char* const kFaultOptionHelp =
    "  --fault KIND[:SIDE][,key=value...]   a fault; the option may be repeated.\n"
    "      KIND  freeze   stop answering: requests hang, media stops, connections stay open\n"
    "            reset    close connections with a TCP reset\n"
    "            delay    hold each answer (delay=MS)\n"
    "            status   answer an error status (status=N, default 500)\n"
    "            cut      HTTP: half the body, then close; RTSP: part of a frame, then close\n"
    "            garbage  HTTP: a body of random bytes; RTSP: random bytes between frames\n"
    "            slow     a slow link (bps=BYTES-PER-SECOND)\n"
    "            empty, redirect (location=URL), huge (size=BYTES), drop   HTTP only\n"
    "            random   episodes of the above at random (seed=N, rate=PER-MINUTE,\n"
    "                     longest=SECONDS, kinds=freeze+reset+...)\n"
    "      SIDE  http, rtsp or both (the default where the kind has an RTSP form)\n"
    "      keys  path=PREFIX  only requests whose path starts so; times=N, after=N: that many\n"
    "            events, after letting N through; at=SECONDS, for=SECONDS: switched on after,\n"
    "            and off again after, e.g. --fault freeze:rtsp,at=30,for=20 (the camera thaws)\n";

namespace {

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t end = text.find(separator); end != std::string::npos; end = text.find(separator, start)) {
    parts.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  parts.push_back(text.substr(start));
  return parts;
}

bool ParseNumber(const std::string& text, long long low, long long high, long long* value) {
  char* end = nullptr;
  errno = 0;
  *value = std::strtoll(text.c_str(), &end, 10);
  return errno == 0 && end != text.c_str() && *end == '\0' && *value >= low && *value <= high;
}

bool ParseSide(const std::string& text, FaultSide* side) {
  for (FaultSide candidate : {FaultSide::Http, FaultSide::Rtsp, FaultSide::Both}) {
    if (text == SideName(candidate)) {
      *side = candidate;
      return true;
    }
  }
  return false;
}

// One key=value of a fault or a random plan; false with `error` set.
bool ParseKey(const std::string& key, const std::string& value, FaultOption* option, std::string* error) {
  using std::chrono::milliseconds;
  using std::chrono::seconds;
  Fault& fault = option->fault;
  long long number = 0;
  auto numberIn = [&](long long low, long long high) {
    if (ParseNumber(value, low, high, &number)) return true;
    *error = key + "=" + value + ": not a number from " + std::to_string(low) + " to " + std::to_string(high);
    return false;
  };
  if (option->random) {
    if (key == "seed" && numberIn(0, UINT32_MAX))
      option->plan.seed = static_cast<uint32_t>(number);
    else if (key == "rate" && numberIn(1, 600))
      option->plan.perMinute = static_cast<double>(number);
    else if (key == "longest" && numberIn(1, 3600))
      option->plan.longest = seconds(number);
    else if (key == "kinds") {
      for (const std::string& name : Split(value, '+')) {
        Fault::Kind kind{};
        if (!KindByName(name, &kind)) {
          *error = "kinds: '" + name + "' is not a fault";
          return false;
        }
        option->plan.kinds.push_back(kind);
      }
    } else if (error->empty()) {
      *error = "'" + key + "' is not a key of random (seed, rate, longest, kinds)";
    }
    return error->empty();
  }
  if (key == "path")
    option->path = value;
  else if (key == "status" && numberIn(100, 599))
    fault.status = static_cast<int>(number);
  else if (key == "body")
    fault.body = value;
  else if (key == "delay" && numberIn(0, 3600000))
    fault.delay = milliseconds(number);
  else if (key == "location")
    fault.location = value;
  else if (key == "size" && numberIn(1, 1LL << 32))
    fault.size = static_cast<size_t>(number);
  else if (key == "bps" && numberIn(1, 1LL << 32))
    fault.bytesPerSecond = static_cast<size_t>(number);
  else if (key == "times" && numberIn(-1, INT32_MAX))
    fault.times = static_cast<int>(number);
  else if (key == "after" && numberIn(0, INT32_MAX))
    fault.after = static_cast<int>(number);
  else if (key == "at" && numberIn(0, 86400 * 365))
    option->at = seconds(number);
  else if (key == "for" && numberIn(1, 86400 * 365))
    option->length = seconds(number);
  else if (error->empty())
    *error = "'" + key + "' is not a key of a fault";
  return error->empty();
}

}  // namespace

bool ParseFaultOption(const std::string& text, FaultOption* option, std::string* error) {
  *option = FaultOption{};
  error->clear();
  const std::vector<std::string> parts = Split(text, ',');
  const std::vector<std::string> head = Split(parts[0], ':');
  if (head.size() > 2) {
    *error = "'" + parts[0] + "' is not KIND[:SIDE]";
    return false;
  }
  option->random = head[0] == "random";
  Fault::Kind kind = Fault::Kind::Status;
  if (!option->random && !KindByName(head[0], &kind)) {
    *error = "'" + head[0] + "' is not a fault (see --help for the kinds)";
    return false;
  }
  option->fault.kind = kind;
  FaultSide side = KindServes(kind, FaultSide::Rtsp) ? FaultSide::Both : FaultSide::Http;
  if (head.size() == 2 && !ParseSide(head[1], &side)) {
    *error = "'" + head[1] + "' is not a side (http, rtsp, both)";
    return false;
  }
  if (!option->random && !KindServes(kind, side)) {
    *error = head[0] + " has no RTSP form (it is HTTP only)";
    return false;
  }
  option->fault.side = side;
  option->plan.side = side;
  for (size_t i = 1; i < parts.size(); ++i) {
    const size_t equals = parts[i].find('=');
    if (equals == std::string::npos) {
      *error = "'" + parts[i] + "' is not key=value";
      return false;
    }
    if (!ParseKey(parts[i].substr(0, equals), parts[i].substr(equals + 1), option, error)) return false;
  }
  if (kind == Fault::Kind::Slow && !option->random && option->fault.bytesPerSecond == 0) {
    *error = "slow needs bps=BYTES-PER-SECOND";
  } else if (kind == Fault::Kind::Huge && option->fault.size == 0) {
    *error = "huge needs size=BYTES";
  } else if (kind == Fault::Kind::Redirect && option->fault.location.empty()) {
    *error = "redirect needs location=URL";
  }
  return error->empty();
}

void ApplyFaultOption(Camera& camera, const FaultOption& option) {
  if (option.random) {
    camera.StartRandomFaults(option.plan);
  } else if (option.at.count() > 0 || option.length.count() > 0) {
    camera.ScheduleFault(option.path, option.fault, option.at, option.length);
  } else {
    camera.InjectFault(option.path, option.fault);
  }
}

}  // namespace camsim
