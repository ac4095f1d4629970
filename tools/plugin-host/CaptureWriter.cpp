#include "CaptureWriter.h"

#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "HostTime.h"

namespace fs = std::filesystem;

namespace {

constexpr int kFormatVersion = 1;
constexpr size_t kListedFailures = 10;
constexpr const char* kEntries[] = {"index.json", "http.jsonl", "http", "rtsp.jsonl", "rtsp"};

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

bool IsText(const std::string& bytes) {
  // Valid UTF-8 without control characters other than tab and line ends.
  for (size_t i = 0; i < bytes.size();) {
    const auto c = static_cast<unsigned char>(bytes[i]);
    if (c < 0x80) {
      if (c < 0x20 && c != '\t' && c != '\r' && c != '\n') return false;
      ++i;
      continue;
    }
    const size_t extra = (c & 0xE0) == 0xC0 ? 1 : (c & 0xF0) == 0xE0 ? 2 : (c & 0xF8) == 0xF0 ? 3 : 0;
    if (extra == 0) return false;
    for (size_t k = 1; k <= extra; ++k) {
      if (i + k >= bytes.size() || (static_cast<unsigned char>(bytes[i + k]) & 0xC0) != 0x80) return false;
    }
    i += extra + 1;
  }
  return true;
}

std::string Extension(const std::string& contentType) {
  const auto has = [&](const char* word) { return contentType.find(word) != std::string::npos; };
  if (has("json")) return ".json";
  if (has("xml")) return ".xml";
  if (has("html")) return ".html";
  if (has("jpeg")) return ".jpg";
  if (has("text/")) return ".txt";
  return ".bin";
}

// "0007-basicdeviceinfo" from a path, safe as a file name everywhere.
std::string Stem(size_t number, const std::string& path) {
  std::string name = path.substr(path.find_last_of('/') + 1);
  name = name.substr(0, name.find('.'));
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') c = '_';
  }
  char prefix[16];
  std::snprintf(prefix, sizeof prefix, "%04zu", number);
  return name.empty() ? prefix : std::string(prefix) + "-" + name.substr(0, 40);
}

void WriteHeaders(JsonWriter& json, const HttpHeaders& headers) {
  json.StartObject();
  for (const auto& [name, value] : headers) {
    json.Key(name.c_str());
    json.String(value.c_str(), static_cast<rapidjson::SizeType>(value.size()));
  }
  json.EndObject();
}

void WriteString(JsonWriter& json, const char* key, const std::string& value) {
  json.Key(key);
  json.String(value.c_str(), static_cast<rapidjson::SizeType>(value.size()));
}

std::string HeaderValue(const HttpHeaders& headers, const char* name) {
  for (const auto& [key, value] : headers) {
    if (key.size() == std::char_traits<char>::length(name) &&
        std::equal(key.begin(), key.end(), name, [](char a, char b) { return std::tolower(a) == std::tolower(b); }))
      return value;
  }
  return {};
}

std::string NowUtc() {
  const int64_t now =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
  std::string text = FormatUtc(now);  // "2024-06-21 15:17:00"
  text[10] = 'T';
  return text + "Z";
}

}  // namespace

bool CaptureWriter::Open(const std::string& directory, bool overwrite, std::string* error) {
  std::error_code ec;
  fs::create_directories(directory, ec);
  if (ec || !fs::is_directory(directory, ec)) {
    *error = "cannot create the folder " + directory + (ec ? ": " + ec.message() : "");
    return false;
  }
  if (!fs::is_empty(directory, ec)) {
    if (!overwrite) {
      *error = directory + " is not empty; give --overwrite to replace a capture there";
      return false;
    }
    // Only a capture's own entries go, and only from a folder that holds a capture.
    if (!fs::exists(fs::path(directory) / "index.json")) {
      *error = directory + " holds files but no capture (index.json); not overwritten";
      return false;
    }
    for (const char* entry : kEntries) fs::remove_all(fs::path(directory) / entry, ec);
    if (!fs::is_empty(directory, ec)) {
      *error = directory + " holds files that are not a capture's; not overwritten";
      return false;
    }
  }
  fs::create_directories(fs::path(directory) / "http", ec);
  fs::create_directories(fs::path(directory) / "rtsp", ec);
  m_http.open(fs::path(directory) / "http.jsonl", std::ios::binary);
  m_rtsp.open(fs::path(directory) / "rtsp.jsonl", std::ios::binary);
  if (ec || !m_http || !m_rtsp) {
    *error = "cannot write in " + directory;
    return false;
  }
  m_directory = directory;
  m_started = NowUtc();
  std::lock_guard<std::mutex> lock(m_mutex);
  WriteIndex(false);
  return true;
}

void CaptureWriter::Describe(const std::string& cameraAddress, const std::string& toolVersion,
                             std::vector<std::string> secrets) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_cameraAddress = cameraAddress;
  m_toolVersion = toolVersion;
  m_secrets = std::move(secrets);
  WriteIndex(false);
}

std::string CaptureWriter::WriteBodyFile(const std::string& stem, const std::string& contentType,
                                         const std::string& body) {
  const std::string name = stem + Extension(contentType);
  std::ofstream file(fs::path(m_directory) / name, std::ios::binary);
  file.write(body.data(), static_cast<std::streamsize>(body.size()));
  return name;
}

void CaptureWriter::Record(CapturedExchange exchange) {
  std::lock_guard<std::mutex> lock(m_mutex);
  const size_t number = ++m_exchanges;
  for (const std::string& secret : m_secrets) {
    m_redactions += Redact(exchange.query, secret) + Redact(exchange.requestBody, secret);
  }
  if (exchange.path == "/axis-cgi/basicdeviceinfo.cgi" && exchange.status == 200) m_deviceInfo = exchange.answerBody;

  rapidjson::StringBuffer line;
  JsonWriter json(line);
  json.StartObject();
  json.Key("n");
  json.Uint64(number);
  WriteString(json, "method", exchange.method);
  WriteString(json, "path", exchange.path);
  WriteString(json, "query", exchange.query);
  if (!exchange.requestHeaders.empty()) {
    json.Key("request");
    WriteHeaders(json, exchange.requestHeaders);
  }
  if (!exchange.requestBody.empty()) {
    if (IsText(exchange.requestBody)) {
      WriteString(json, "requestBody", exchange.requestBody);
    } else {
      WriteString(json, "requestFile",
                  WriteBodyFile("http/" + Stem(number, exchange.path) + "-request",
                                HeaderValue(exchange.requestHeaders, "Content-Type"), exchange.requestBody));
    }
  }
  json.Key("status");
  json.Int(exchange.status);
  if (!exchange.answerHeaders.empty()) {
    json.Key("answer");
    WriteHeaders(json, exchange.answerHeaders);
  }
  if (!exchange.answerBody.empty()) {
    WriteString(json, "answerFile",
                WriteBodyFile("http/" + Stem(number, exchange.path),
                              HeaderValue(exchange.answerHeaders, "Content-Type"), exchange.answerBody));
  }
  if (!exchange.failure.empty()) WriteString(json, "failure", exchange.failure);
  json.Key("ms");
  json.Int64(exchange.milliseconds);
  json.EndObject();
  m_http << line.GetString() << '\n';
  m_http.flush();
  if (!exchange.failure.empty()) m_failures.push_back(exchange.method + " " + exchange.path + ": " + exchange.failure);
  WriteIndex(false);
}

void CaptureWriter::RecordChallenge(const std::string& kind) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_challenge == kind) return;
  m_challenge = kind;
  WriteIndex(false);
}

void CaptureWriter::RecordRtsp(CapturedRtspSession session) {
  std::lock_guard<std::mutex> lock(m_mutex);
  const size_t number = ++m_sessions;
  rapidjson::StringBuffer line;
  JsonWriter json(line);
  json.StartObject();
  json.Key("n");
  json.Uint64(number);
  WriteString(json, "url", session.url);
  if (!session.range.empty()) WriteString(json, "range", session.range);
  json.Key("messages");
  json.StartArray();
  for (auto& [from, message] : session.messages) {
    for (const std::string& secret : m_secrets) m_redactions += Redact(message, secret);
    json.StartArray();
    json.String(from.c_str());
    json.String(message.c_str(), static_cast<rapidjson::SizeType>(message.size()));
    json.EndArray();
  }
  json.EndArray();
  if (!session.media.empty()) {
    WriteString(json, "mediaFile", WriteBodyFile("rtsp/" + Stem(number, "") + "-media", "", session.media));
  }
  if (!session.failure.empty()) WriteString(json, "failure", session.failure);
  json.EndObject();
  m_rtsp << line.GetString() << '\n';
  m_rtsp.flush();
  if (!session.failure.empty()) m_failures.push_back("RTSP " + session.url + ": " + session.failure);
  WriteIndex(false);
}

void CaptureWriter::RecordFailure(const std::string& failure) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_failures.push_back(failure);
  WriteIndex(false);
}

size_t CaptureWriter::Exchanges() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_exchanges;
}

void CaptureWriter::WriteIndex(bool complete) {
  if (m_directory.empty()) return;
  // The camera's identity as its basicdeviceinfo answer gave it.
  rapidjson::Document info;
  info.Parse(m_deviceInfo.c_str(), m_deviceInfo.size());
  const rapidjson::Value* properties = nullptr;
  if (!info.HasParseError() && info.IsObject() && info.HasMember("data") && info["data"].IsObject() &&
      info["data"].HasMember("propertyList") && info["data"]["propertyList"].IsObject()) {
    properties = &info["data"]["propertyList"];
  }
  const auto property = [&](const char* name) -> std::string {
    if (properties == nullptr || !properties->HasMember(name) || !(*properties)[name].IsString()) return {};
    return (*properties)[name].GetString();
  };

  rapidjson::StringBuffer text;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> json(text);
  json.SetIndent(' ', 2);
  json.StartObject();
  json.Key("format");
  json.Int(kFormatVersion);
  json.Key("tool");
  json.String(m_toolVersion.c_str());
  json.Key("captured");
  json.String(m_started.c_str());
  json.Key("camera");
  json.StartObject();
  json.Key("address");
  json.String(m_cameraAddress.c_str());
  for (const auto& [key, name] : {std::pair<const char*, const char*>{"brand", "Brand"},
                                  {"model", "ProdFullName"},
                                  {"productNumber", "ProdNbr"},
                                  {"serial", "SerialNumber"},
                                  {"firmware", "Version"}}) {
    json.Key(key);
    json.String(property(name).c_str());
  }
  json.EndObject();
  json.Key("authentication");
  json.String(m_challenge.c_str());
  json.Key("http");
  json.Uint64(m_exchanges);
  json.Key("rtsp");
  json.Uint64(m_sessions);
  json.Key("redacted");
  json.Uint64(m_redactions);
  json.Key("complete");
  json.Bool(complete);
  // A camera gone for good fails every request after; the first ones tell the story.
  json.Key("failures");
  json.StartArray();
  for (size_t i = 0; i < m_failures.size() && i < kListedFailures; ++i) json.String(m_failures[i].c_str());
  if (m_failures.size() > kListedFailures) {
    json.String(("and " + std::to_string(m_failures.size() - kListedFailures) + " more").c_str());
  }
  json.EndArray();
  json.EndObject();
  // Written beside and renamed over, so that a reader never sees half an index.
  const fs::path final = fs::path(m_directory) / "index.json";
  const fs::path partial = fs::path(m_directory) / "index.json.new";
  {
    std::ofstream file(partial, std::ios::binary);
    file << text.GetString() << '\n';
  }
  std::error_code ec;
  fs::rename(partial, final, ec);
}

std::vector<std::pair<std::string, uintmax_t>> CaptureWriter::Finish() {
  std::lock_guard<std::mutex> lock(m_mutex);
  WriteIndex(true);
  m_http.close();
  m_rtsp.close();
  std::vector<std::pair<std::string, uintmax_t>> files;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(m_directory, ec); !ec && it != fs::recursive_directory_iterator();
       it.increment(ec)) {
    if (!it->is_regular_file(ec)) continue;
    files.emplace_back(fs::relative(it->path(), m_directory, ec).generic_string(), it->file_size(ec));
  }
  std::sort(files.begin(), files.end());
  return files;
}
