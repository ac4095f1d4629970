// MediaTools.h - test helpers: collecting a repackager session's output and
// reading a program stream back packet by packet.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "MuxConvert.h"
#include "RtpTestPacketizer.h"

namespace netcam_test {

// Header unit then payload units, as the platform stores them.
struct OutputCollector {
  Bytes stream;
  int headerUnits = 0;
  int payloadUnits = 0;
  std::vector<Bytes> units;
  bool keepUnits = false;
  std::function<void()> onPayload;  // called after each payload unit is collected
  static void OnUnit(const MUXC_OutputUnit* unit, void* user);
};

// Session that writes into `collector`: created from `sdp`, callbacks registered, started.
MUXC_HANDLE StartSession(const std::string& sdp, OutputCollector* collector);

// One packet of a program stream as a reader sees it.
struct PsPacket {
  uint8_t startCode = 0;  // 0xBA pack, 0xBB system header, 0xBC map, 0xC0/0xE0 PES
  bool hasPts = false;
  bool hasDts = false;
  uint64_t pts = 0;
  uint64_t dts = 0;
  Bytes body;  // PES payload, or the whole packet for the others
};
// Splits a program stream; stops (returning what it has, and ok=false) at anything malformed.
std::vector<PsPacket> ReadProgramStream(const Bytes& stream, bool* ok);

}  // namespace netcam_test
