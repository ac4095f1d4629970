#include "camera_sim/Fault.h"

#include <iterator>

namespace camsim {
namespace {

struct KindInfo {
  Fault::Kind kind;
  const char* name;
  bool rtsp;  // has an RTSP form
};

constexpr KindInfo kKinds[] = {
    {Fault::Kind::Status, "status", true},   {Fault::Kind::EmptyBody, "empty", false},
    {Fault::Kind::Delay, "delay", true},     {Fault::Kind::Redirect, "redirect", false},
    {Fault::Kind::Garbage, "garbage", true}, {Fault::Kind::Huge, "huge", false},
    {Fault::Kind::Drop, "drop", false},      {Fault::Kind::Freeze, "freeze", true},
    {Fault::Kind::Reset, "reset", true},     {Fault::Kind::Cut, "cut", true},
    {Fault::Kind::Slow, "slow", true},
};

const KindInfo* Info(Fault::Kind kind) {
  for (const KindInfo& info : kKinds) {
    if (info.kind == kind) return &info;
  }
  return nullptr;
}

}  // namespace

const char* KindName(Fault::Kind kind) {
  const KindInfo* info = Info(kind);
  return info != nullptr ? info->name : "?";
}

bool KindByName(const std::string& name, Fault::Kind* kind) {
  for (const KindInfo& info : kKinds) {
    if (name == info.name) {
      *kind = info.kind;
      return true;
    }
  }
  return false;
}

const char* SideName(FaultSide side) {
  switch (side) {
    case FaultSide::Http:
      return "http";
    case FaultSide::Rtsp:
      return "rtsp";
    case FaultSide::Both:
      return "both";
  }
  return "?";
}

bool KindServes(Fault::Kind kind, FaultSide side) {
  const KindInfo* info = Info(kind);
  return info != nullptr && (side == FaultSide::Http || info->rtsp);
}

std::string FaultEpisode::Describe() const {
  std::string text = std::string(KindName(fault.kind)) + " " + SideName(fault.side);
  if (fault.kind == Fault::Kind::Status) text += " " + std::to_string(fault.status);
  if (fault.kind == Fault::Kind::Delay) text += " " + std::to_string(fault.delay.count()) + " ms";
  if (fault.kind == Fault::Kind::Slow) text += " " + std::to_string(fault.bytesPerSecond) + " B/s";
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(length).count();
  return text + " for " + std::to_string(seconds) + " s";
}

}  // namespace camsim
