// SoakWorkers.h - what the platform does with one camera during the soak, on
// two threads as the platform would: one streams (live sessions with stops
// and restarts, playback with a pause), one works the camera (opens it,
// subscribes to its alarms, searches recordings, writes the schedule, moves
// PTZ, reads the status, takes snapshots).
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <random>
#include <string>

#include "PluginLoader.h"
#include "SoakLedger.h"

// The plug-in's tables the soak calls, found once.
struct SoakTables {
  const ZPLUGIN_Interface* record = nullptr;
  const PluginCommonTable* common = nullptr;
  const PluginStreamTable* stream = nullptr;
  const PluginRecordTable* records = nullptr;
  const PluginPtzTable* ptz = nullptr;
  const PluginControlTable* control = nullptr;
  const PluginStatusTable* status = nullptr;
  bool Find(const PluginLoader& plugin);
};

// A stream's blocks as the platform's callback sees them. A few are kept per
// worker and reused in turn, so that a block delivered after its stream was
// stopped still lands somewhere harmless and is counted.
struct StreamSink {
  std::atomic<int> ends{0};
  std::atomic<uint64_t> data{0};
  std::atomic<int64_t> lastData{0};  // SteadyMilliseconds()
  std::atomic<bool> stopped{true};
  std::atomic<int> afterStop{0};
  static int32_t OnBlock(void* handle, int32_t type, const PluginStreamBlock* block, void* user);
};

class SoakCamera {
 public:
  SoakCamera(const SoakTables& tables, SoakLedger& ledger, SoakGate& gate, int index, std::string address,
             uint32_t seed);
  ~SoakCamera();
  SoakCamera(const SoakCamera&) = delete;
  SoakCamera& operator=(const SoakCamera&) = delete;

  void RunStreams();
  void RunControl();
  // Closes and destroys the device object (after both threads ended).
  void Close();

  // Set by the episode reader: a slow link on this camera's RTSP side until then (ms).
  std::atomic<int64_t> slowRtspUntil{0};
  std::atomic<int> alarms{0};
  // Blocks the plug-in delivered after StopStream or StopPlayBack returned.
  int LateBlocks() const;

 private:
  enum class Watched { Delivering, Ended, Silent, ResumeRefused };
  Watched Watch(StreamSink& sink, double seconds, bool pauseOnce);
  void Live(std::mt19937& random);
  void Playback(std::mt19937& random);
  void Judge(const char* kind, StreamSink& sink, Watched watched, bool severalEndsAllowed);
  StreamSink& NextSink();
  bool Open();
  static int32_t OnAlarm(PluginDeviceHandle, uint32_t, uint32_t, const void*, intptr_t, void* user);

  const SoakTables& m_tables;
  SoakLedger& m_ledger;
  SoakGate& m_gate;
  const int m_index;
  const std::string m_address;
  const uint32_t m_seed;
  PluginDeviceHandle m_device = nullptr;
  std::atomic<bool> m_opened{false};
  std::array<StreamSink, 8> m_sinks;
  size_t m_nextSink = 0;
  std::atomic<int> m_lateBlocks{0};
  std::unique_ptr<char[]> m_picture, m_status;  // never shrunk or grown while the soak runs
};
