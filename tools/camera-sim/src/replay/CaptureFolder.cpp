#include "CaptureFolder.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace camsim {

namespace fs = std::filesystem;

namespace {

constexpr size_t kMaxFileBytes = 64 * 1024 * 1024;

bool ReadFile(const fs::path& path, std::string* text) {
  std::error_code ec;
  const auto size = fs::file_size(path, ec);
  if (ec || size > kMaxFileBytes) return false;
  std::ifstream file(path, std::ios::binary);
  std::stringstream bytes;
  bytes << file.rdbuf();
  *text = bytes.str();
  return static_cast<bool>(file);
}

// The line of a byte offset, for a parse error in a multi-line file.
size_t LineOf(const std::string& text, size_t offset) {
  size_t line = 1;
  for (size_t i = 0; i < offset && i < text.size(); ++i) line += text[i] == '\n' ? 1 : 0;
  return line;
}

std::string StringMember(const rapidjson::Value& object, const char* name) {
  const auto member = object.FindMember(name);
  return member != object.MemberEnd() && member->value.IsString() ? member->value.GetString() : "";
}

// A path inside the folder named by a line; never one outside it.
bool InsideFolder(const std::string& relative) {
  const fs::path path(relative);
  if (relative.empty() || path.is_absolute() || path.has_root_name()) return false;
  for (const auto& part : path) {
    if (part == "..") return false;
  }
  return true;
}

// Reads one JSON Lines file; `each` checks one line's object and returns "" or what is wrong.
bool ReadLines(const fs::path& file, const std::string& name, std::string* error,
               const std::function<std::string(const rapidjson::Value&, const std::string& where)>& each) {
  std::string text;
  if (!fs::exists(file)) return true;  // a capture cut short before this side began
  if (!ReadFile(file, &text)) {
    *error = name + ": cannot be read";
    return false;
  }
  std::istringstream lines(text);
  std::string line;
  for (size_t number = 1; std::getline(lines, line); ++number) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    const std::string where = name + ":" + std::to_string(number);
    rapidjson::Document document;
    document.Parse(line.c_str(), line.size());
    if (document.HasParseError()) {
      *error = where + ": not JSON (" + rapidjson::GetParseError_En(document.GetParseError()) + " at column " +
               std::to_string(document.GetErrorOffset() + 1) + ")";
      return false;
    }
    const std::string problem = document.IsObject() ? each(document, where) : "not a JSON object";
    if (!problem.empty()) {
      *error = where + ": " + problem;
      return false;
    }
  }
  return true;
}

}  // namespace

bool LoadCaptureFolder(const std::string& directory, CaptureFolder* folder, std::string* error) {
  const fs::path root(directory);
  std::string text;
  if (!ReadFile(root / "index.json", &text)) {
    *error = (root / "index.json").string() + ": missing or unreadable; is " + directory + " a capture folder?";
    return false;
  }
  rapidjson::Document index;
  index.Parse(text.c_str(), text.size());
  if (index.HasParseError() || !index.IsObject()) {
    *error =
        "index.json:" + std::to_string(LineOf(text, index.GetErrorOffset())) + ": not a JSON object" +
        (index.HasParseError() ? std::string(" (") + rapidjson::GetParseError_En(index.GetParseError()) + ")" : "");
    return false;
  }
  const auto format = index.FindMember("format");
  if (format == index.MemberEnd() || !format->value.IsInt() || format->value.GetInt() != 1) {
    *error = "index.json: \"format\" is not 1; this replay reads captures of format 1";
    return false;
  }
  CapturedIdentity& identity = folder->identity;
  identity.captured = StringMember(index, "captured");
  if (index.HasMember("camera") && index["camera"].IsObject()) {
    const rapidjson::Value& camera = index["camera"];
    identity.address = StringMember(camera, "address");
    identity.brand = StringMember(camera, "brand");
    identity.model = StringMember(camera, "model");
    identity.productNumber = StringMember(camera, "productNumber");
    identity.serial = StringMember(camera, "serial");
    identity.firmware = StringMember(camera, "firmware");
  }
  // Digest realm="AXIS_...", algorithm=MD5, qop="auth"
  const std::string challenge = StringMember(index, "authentication");
  const size_t realm = challenge.find("realm=\"");
  if (realm != std::string::npos) {
    const size_t start = realm + 7;
    identity.realm = challenge.substr(start, challenge.find('"', start) - start);
  }

  const auto readBody = [&](const rapidjson::Value& line, const char* member, std::string* body) -> std::string {
    const std::string name = StringMember(line, member);
    if (!line.HasMember(member)) return {};
    if (!InsideFolder(name)) return std::string("\"") + member + "\" must name a file inside the folder";
    if (!ReadFile(root / name, body)) return name + " (named by \"" + member + "\") is missing or unreadable";
    return {};
  };

  const bool httpRead =
      ReadLines(root / "http.jsonl", "http.jsonl", error, [&](const rapidjson::Value& line, const std::string& where) {
        ReplayExchange exchange;
        exchange.source = where;
        for (const char* required : {"method", "path"}) {
          if (!line.HasMember(required) || !line[required].IsString())
            return std::string("\"") + required + "\" missing";
        }
        if (!line.HasMember("status") || !line["status"].IsInt())
          return std::string("\"status\" missing or not a number");
        exchange.method = line["method"].GetString();
        exchange.path = line["path"].GetString();
        exchange.status = line["status"].GetInt();
        if (exchange.status != 0 && (exchange.status < 100 || exchange.status > 999))
          return std::string("bad \"status\"");
        exchange.query = StringMember(line, "query");
        exchange.requestBody = StringMember(line, "requestBody");
        if (line.HasMember("answer")) {
          if (!line["answer"].IsObject()) return std::string("\"answer\" is not an object of headers");
          for (const auto& header : line["answer"].GetObject()) {
            if (!header.value.IsString())
              return std::string("answer header \"") + header.name.GetString() + "\" not text";
            exchange.answerHeaders[header.name.GetString()] = header.value.GetString();
          }
        }
        std::string problem = readBody(line, "answerFile", &exchange.answerBody);
        if (problem.empty()) problem = readBody(line, "requestFile", &exchange.requestBody);
        if (problem.empty()) folder->exchanges.push_back(std::move(exchange));
        return problem;
      });
  if (!httpRead) return false;

  return ReadLines(
      root / "rtsp.jsonl", "rtsp.jsonl", error, [&](const rapidjson::Value& line, const std::string& where) {
        ReplaySession session;
        session.source = where;
        session.url = StringMember(line, "url");
        session.range = StringMember(line, "range");
        if (line.HasMember("messages")) {
          if (!line["messages"].IsArray()) return std::string("\"messages\" is not a list");
          for (const auto& message : line["messages"].GetArray()) {
            if (!message.IsArray() || message.Size() != 2 || !message[0].IsString() || !message[1].IsString()) {
              return std::string("a message is not [\"C\" or \"S\", text]");
            }
            session.messages.emplace_back(std::string(message[0].GetString()) == "C",
                                          std::string(message[1].GetString(), message[1].GetStringLength()));
          }
        }
        const std::string problem = readBody(line, "mediaFile", &session.media);
        if (problem.empty()) folder->sessions.push_back(std::move(session));
        return problem;
      });
}

}  // namespace camsim
