// ControlText.h - the texts of device control and status, free of I/O: camera
// answers and platform documents in, records out; records in, URLs, request
// bodies and documents out. The device object's operations around them send
// the requests and log.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "netcam_plugin.h"
#include "session/axis_device_object_implement.h"

namespace control {

// ---- PTZ -------------------------------------------------------------------

// The software counters a command steps before its URL is built.
struct PtzCounters {
  int32_t zoom = 0;
  int32_t focus = 0;
  int32_t iris = 0;
};

struct PtzRequest {
  bool mapped = false;  // the command has a row in the command table
  bool moving = false;  // a moving command: action and speed were read
  int32_t action = -1;  // -1 where the command does not read them
  int32_t speed = -1;
  int32_t axisSpeed = -1;
  std::string url;  // empty for a focus stop, which the camera gets as it is
};

// The commands the platform may steer, in the order they are tested.
bool IsAcceptedPtzCommand(uint32_t command);
// The command table: steps `counters` as the command does and builds its URL on `address`.
PtzRequest BuildPtzRequest(const std::string& address, uint32_t command, int32_t action, int32_t speed,
                           int32_t presetNo, PtzCounters& counters);

// The camera's answer to query=position. Keys that never occur leave their
// output alone; pieces that are not "key=value" are collected for the log.
void ParsePtzPosition(const std::string& body, float& pan, float& tilt, int32_t& zoom,
                      std::vector<std::string>* invalidPieces);

// ---- Time and NTP ----------------------------------------------------------

// The platform's NTP parameter document, narrowed as the platform's record holds it.
struct NtpParams {
  char server[64];
  uint16_t interval;
  uint8_t enable;
  int8_t timeDifferenceH;
  int8_t timeDifferenceM;
  uint16_t port;
  uint8_t reserved[8];
};
static_assert(sizeof(NtpParams) == 80, "the platform's NTP parameter record is 80 bytes");

// False when the document does not load or lacks one of the seven elements.
bool ParseNtpParams(const std::string& document, NtpParams& out);
std::string DateSetUrl(const std::string& address, const NET_DEV_TIME& time);
std::string SetDevTimeNtpBody(const std::string& server, bool enabled);
std::string SetNtpCfgBody(const std::string& server, bool enabled);
// Copies and trims the record's server text (never past its 32 bytes).
std::string TrimmedNtpServer(const DeviceNtpConfig& config);
// getNTPInfo's answer into the record; false when it is not JSON.
bool ApplyNtpInfo(const std::string& answer, DeviceNtpConfig& config);
// "/error/code" of a JSON answer (0 when absent); false when it is not JSON.
bool NtpErrorCode(const std::string& answer, int64_t& code);

// ---- Documents -------------------------------------------------------------

// The text of Params/Command; false when the document or either element is missing.
bool ParseAbilityCommand(const std::string& document, std::string& command);
std::string AbilityDocument();

enum class DiskListResult { kInvalid, kNoDisks, kOk };
// Disks with a total size are numbered from 1; `skipped` counts those without.
DiskListResult ParseDiskList(const std::string& answer, std::vector<DiskEntry>& disks, int& skipped);

struct WorkStatusInput {
  std::string serialNumber;
  std::string firmwareVersion;
  std::vector<DiskEntry> disks;
  bool recording = false;
  bool ok = false;
};
std::string WorkStatusDocument(const WorkStatusInput& input);

// ---- Snapshot --------------------------------------------------------------

// The resolutions listed after "Properties.Image.Resolution="; false (and the
// single entry "320x240") when the answer has no such line.
bool ParseResolutions(const std::string& answer, std::vector<std::string>& resolutions);

}  // namespace control
