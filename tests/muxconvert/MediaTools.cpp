#include "MediaTools.h"

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace netcam_test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "muxconvert-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

CommandResult RunCommand(const std::string& command) {
  CommandResult result;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return result;
  std::array<char, 4096> buffer;
  size_t read;
  while ((read = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) result.output.append(buffer.data(), read);
  const int status = pclose(pipe);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

Bytes ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFileBytes(const std::string& path, const Bytes& data) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
}

void OutputCollector::OnUnit(const MUXC_OutputUnit* unit, void* user) {
  auto* self = static_cast<OutputCollector*>(user);
  (unit->type == MUXC_UNIT_HEADER ? self->headerUnits : self->payloadUnits)++;
  self->stream.insert(self->stream.end(), unit->data, unit->data + unit->length);
  if (self->keepUnits) self->units.emplace_back(unit->data, unit->data + unit->length);
}

MUXC_HANDLE StartSession(const std::string& sdp, OutputCollector* collector) {
  MUXC_HANDLE handle = nullptr;
  MUXC_CreateParam param{MUXC_SOURCE_SDP, static_cast<int32_t>(sdp.size()), sdp.c_str(), MUXC_TARGET_PS, 0};
  if (MUXC_CreateEx(&handle, MUXC_MODE_DEFAULT, &param) != 0) return nullptr;
  MUXC_RegisterOutputDataCallBack(handle, &OutputCollector::OnUnit, collector);
  MUXC_Start(handle, 0, 0);
  return handle;
}

ProbeResult Probe(const std::string& file, const char* mediaType) {
  ProbeResult result;
  CommandResult run = RunCommand(std::string("ffprobe -v error -count_frames -select_streams ") + mediaType +
                                 ":0 -show_entries stream=codec_name,nb_read_frames -of csv=p=0 '" + file + "'");
  std::istringstream lines(run.output);
  std::string line;
  if (run.exitCode != 0 || !std::getline(lines, line)) return result;
  const size_t comma = line.find(',');
  if (comma == std::string::npos) return result;
  result.codec = line.substr(0, comma);
  result.frames = std::atoi(line.c_str() + comma + 1);
  return result;
}

std::string DecodeErrors(const std::string& file) {
  CommandResult run = RunCommand("ffmpeg -nostdin -v error -i '" + file + "' -f null -");
  if (run.exitCode != 0 && run.output.empty()) return "ffmpeg exit code " + std::to_string(run.exitCode);
  return run.output;
}

}  // namespace netcam_test

namespace netcam_test {

std::vector<PsPacket> ReadProgramStream(const Bytes& s, bool* ok) {
  std::vector<PsPacket> packets;
  *ok = false;
  size_t i = 0;
  auto ts = [&](size_t at) {
    return (static_cast<uint64_t>(s[at] & 0x0E) << 29) | (static_cast<uint64_t>(s[at + 1]) << 22) |
           (static_cast<uint64_t>(s[at + 2] & 0xFE) << 14) | (static_cast<uint64_t>(s[at + 3]) << 7) | (s[at + 4] >> 1);
  };
  while (i < s.size()) {
    if (i + 6 > s.size() || s[i] != 0 || s[i + 1] != 0 || s[i + 2] != 1) return packets;
    PsPacket packet;
    packet.startCode = s[i + 3];
    size_t end;
    if (packet.startCode == 0xBA) {
      if (i + 14 > s.size() || (s[i + 4] & 0xC0) != 0x40) return packets;
      end = i + 14 + (s[i + 13] & 7);
      if (end > s.size()) return packets;
      packet.body.assign(s.begin() + static_cast<long>(i), s.begin() + static_cast<long>(end));
    } else {
      end = i + 6 + (static_cast<size_t>(s[i + 4]) << 8 | s[i + 5]);
      if (end > s.size()) return packets;
      if (packet.startCode == 0xE0 || packet.startCode == 0xC0) {
        const size_t headerEnd = i + 9 + s[i + 8];
        if (headerEnd > end) return packets;
        packet.hasPts = (s[i + 7] & 0x80) != 0;
        packet.hasDts = (s[i + 7] & 0x40) != 0;
        if (packet.hasPts) packet.pts = ts(i + 9);
        if (packet.hasDts) packet.dts = ts(i + 14);
        packet.body.assign(s.begin() + static_cast<long>(headerEnd), s.begin() + static_cast<long>(end));
      } else {
        packet.body.assign(s.begin() + static_cast<long>(i), s.begin() + static_cast<long>(end));
      }
    }
    packets.push_back(std::move(packet));
    i = end;
  }
  *ok = true;
  return packets;
}

}  // namespace netcam_test
