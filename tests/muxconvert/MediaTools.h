// MediaTools.h - test helpers: a private temp directory, running ffmpeg and
// ffprobe, and collecting a repackager session's output into a file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "MuxConvert.h"
#include "RtpTestPacketizer.h"

namespace netcam_test {

// A fresh directory, removed with everything in it on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

struct CommandResult {
  int exitCode = -1;
  std::string output;  // stdout and stderr
};
CommandResult RunCommand(const std::string& command);

Bytes ReadFileBytes(const std::string& path);
void WriteFileBytes(const std::string& path, const Bytes& data);

// Header unit then payload units, as the platform stores them.
struct OutputCollector {
  Bytes stream;
  int headerUnits = 0;
  int payloadUnits = 0;
  std::vector<Bytes> units;
  bool keepUnits = false;
  static void OnUnit(const MUXC_OutputUnit* unit, void* user);
};

// Session that writes into `collector`: created from `sdp`, callbacks registered, started.
MUXC_HANDLE StartSession(const std::string& sdp, OutputCollector* collector);

struct ProbeResult {
  std::string codec;
  int frames = -1;
};
// First stream's codec and decoded frame count of `file` of media type "v" or "a" (ffprobe -count_frames).
ProbeResult Probe(const std::string& file, const char* mediaType);

// ffmpeg's error log while decoding `file` completely (empty when clean).
std::string DecodeErrors(const std::string& file);

}  // namespace netcam_test

namespace netcam_test {

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
