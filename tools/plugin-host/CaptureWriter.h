// CaptureWriter.h - the capture folder: what the camera answered, as text a
// developer can read and edit, kept consistent after every exchange so that a
// capture cut short still replays.
//
//   index.json    the camera's identity, when and with what it was captured, how it ended
//   http.jsonl    one HTTP exchange a line, in order
//   http/NNNN-*   each answer's body, as the camera sent it
//   rtsp.jsonl    one RTSP session a line: its handshake and where its media is
//   rtsp/NNNN-*   each session's interleaved media as received
#pragma once

#include <cstdint>
#include <fstream>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "CaptureHttp.h"

// One RTSP session as the relay saw it.
struct CapturedRtspSession {
  std::string url;  // path and query of the DESCRIBE/SETUP, without user information
  std::vector<std::pair<std::string, std::string>> messages;  // ("C" or "S", message) in order, credentials removed
  std::string media;                                          // interleaved frames as received ('$' framing)
  std::string range;                                          // the clock range asked for in PLAY ("" live)
  std::string failure;
};

class CaptureWriter {
 public:
  CaptureWriter() = default;
  CaptureWriter(const CaptureWriter&) = delete;
  CaptureWriter& operator=(const CaptureWriter&) = delete;

  // Prepares `directory`, created when missing. One that holds anything is
  // refused unless `overwrite`, and even then only when it holds a capture,
  // whose entries are removed first.
  bool Open(const std::string& directory, bool overwrite, std::string* error);
  // The camera's address as the capture was started against it, and secrets
  // that must never be written (they are replaced where a client put them).
  void Describe(const std::string& cameraAddress, const std::string& toolVersion, std::vector<std::string> secrets);

  // Thread-safe; each call appends one line (and a body file) and flushes it.
  void Record(CapturedExchange exchange);
  void RecordChallenge(const std::string& kind);
  void RecordRtsp(CapturedRtspSession session);
  void RecordFailure(const std::string& failure);

  // Writes the index (again, marked complete) and returns the folder's files
  // with their sizes, relative to it.
  std::vector<std::pair<std::string, uintmax_t>> Finish();
  size_t Exchanges() const;

 private:
  void WriteIndex(bool complete);  // m_mutex held
  std::string WriteBodyFile(const std::string& stem, const std::string& contentType, const std::string& body);

  mutable std::mutex m_mutex;
  std::string m_directory;
  std::string m_cameraAddress;
  std::string m_toolVersion;
  std::string m_started;  // UTC, ISO 8601
  std::vector<std::string> m_secrets;
  std::ofstream m_http;
  std::ofstream m_rtsp;
  size_t m_exchanges = 0;
  size_t m_sessions = 0;
  size_t m_redactions = 0;
  std::string m_challenge;
  std::string m_deviceInfo;  // the camera's basicdeviceinfo answer, for its identity
  std::vector<std::string> m_failures;
};
