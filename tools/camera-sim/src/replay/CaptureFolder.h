// CaptureFolder.h - a capture folder read back (written by `plugin-host
// capture`): the camera's identity, its HTTP exchanges in order and its RTSP
// sessions. Hand-edited folders are welcome; what cannot be read is refused
// with the file and line that are wrong.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace camsim {

struct CapturedIdentity {
  std::string address;  // where the camera was captured
  std::string brand, model, productNumber, serial, firmware;
  std::string realm;  // of the camera's Digest challenge ("" when it never sent one)
  std::string captured;
};

struct ReplayExchange {
  std::string method;
  std::string path;
  std::string query;
  std::string requestBody;
  int status = 0;  // 0: the camera gave no answer; the replay drops the connection
  std::map<std::string, std::string> answerHeaders;
  std::string answerBody;
  std::string source;  // "http.jsonl:12", for log lines
};

struct ReplaySession {
  std::string url;    // path and query ("/axis-media/media.amp?videocodec=h264&camera=1")
  std::string range;  // the PLAY Range ("clock=...-..."), "" for live
  std::vector<std::pair<bool, std::string>> messages;  // (from the client, message) in order
  std::string media;                                   // interleaved frames ('$' framing)
  std::string source;
};

struct CaptureFolder {
  CapturedIdentity identity;
  std::vector<ReplayExchange> exchanges;
  std::vector<ReplaySession> sessions;
};

// False with `error` naming the file (and line) at fault.
bool LoadCaptureFolder(const std::string& directory, CaptureFolder* folder, std::string* error);

}  // namespace camsim
