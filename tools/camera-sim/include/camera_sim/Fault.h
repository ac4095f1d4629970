// Fault.h - what a simulated camera can be made to do wrong, on its HTTP side,
// its RTSP side or both: the misbehaviour real cameras and networks show
// (a frozen camera, a pulled cable, a reset, a slow link, a broken answer).
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace camsim {

enum class FaultSide : unsigned { Http = 1, Rtsp = 2, Both = 3 };

inline bool Covers(FaultSide faultSide, FaultSide side) {
  return (static_cast<unsigned>(faultSide) & static_cast<unsigned>(side)) != 0;
}

// `times` and `after` count the events a fault acts on: requests (HTTP, and
// RTSP Status and Delay), connections (Reset), interleaved frames (RTSP Cut
// and Garbage). Freeze and Slow are conditions: they hold while switched on.
struct Fault {
  enum class Kind {
    Status,     // answer `status` with `body`; RTSP: every request answered `status` by the camera
    EmptyBody,  // HTTP: 200 with no body
    Delay,      // wait `delay`, then answer normally; RTSP: each request reaches the server `delay` late
    Redirect,   // HTTP: 302 to `location` (a path on this camera or a full URL)
    Garbage,    // HTTP: 200 with `body` (or random bytes); RTSP: `body` (or `size`/512 random bytes that are
                // neither a frame nor a message) between two interleaved frames, at most once a second
    Huge,       // HTTP: 200 with `size` bytes of filler
    Drop,       // HTTP: close the connection without an answer
    Freeze,     // stop answering: HTTP requests hang unanswered, RTSP sends and answers nothing; connections
                // stay open. Lasts until the fault is removed (the camera thaws)
    Reset,      // close connections with a TCP reset (RST), new ones as soon as they are accepted
    Cut,        // HTTP: the answer's head and half its body, then close; RTSP: part of the next interleaved
                // frame, then close
    Slow,       // `bytesPerSecond` for HTTP bodies and RTSP media
  };
  Kind kind = Kind::Status;
  int status = 500;
  std::string body;
  std::chrono::milliseconds delay{0};
  std::string location;
  size_t size = 0;
  int times = -1;  // how many events it applies to (-1: all)
  int after = 0;   // events let through before it starts (the k-th of a sequence fails)
  size_t bytesPerSecond = 0;
  FaultSide side = FaultSide::Http;
};

// "freeze", "status", ...; KindByName gives false for an unknown name.
const char* KindName(Fault::Kind kind);
bool KindByName(const std::string& name, Fault::Kind* kind);
const char* SideName(FaultSide side);
// True when the kind has a meaning on that side (Freeze on RTSP, not Huge).
bool KindServes(Fault::Kind kind, FaultSide side);

// One fault switched on for a while by the random schedule.
struct FaultEpisode {
  Fault fault;
  std::chrono::milliseconds length{0};
  // "freeze rtsp 14 s", "delay http 35000 ms 6 s", "slow both 8000 B/s 3 s"
  std::string Describe() const;
};

// Episodes at random for a soak: on average `perMinute` a minute, one at a
// time, each of a kind from `kinds` on `side` (Both: each picks HTTP, RTSP or
// both), lasting 1 s to `longest`. The same seed gives the same sequence.
struct RandomFaults {
  uint32_t seed = 1;
  double perMinute = 2;
  std::vector<Fault::Kind> kinds;  // empty: freeze, reset, delay, status, cut, garbage, slow
  FaultSide side = FaultSide::Both;
  std::chrono::seconds longest{30};
  // Called on the scheduler's thread when an episode starts (ended false) and ends (true).
  std::function<void(const FaultEpisode&, bool ended)> onEpisode;
};

}  // namespace camsim
