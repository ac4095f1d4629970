#include "ReplayMatcher.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <cctype>
#include <pugixml.hpp>

#include "HttpMessage.h"
#include "endpoints/SoapMessage.h"

namespace camsim {

namespace {

bool HasDigit(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

// The call a body names: a JSON "method" or a SOAP operation; "" for neither.
std::string BodyOperation(const std::string& body) {
  const size_t first = body.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return {};
  if (body[first] == '{') {
    rapidjson::Document json;
    json.Parse(body.c_str(), body.size());
    if (!json.HasParseError() && json.IsObject() && json.HasMember("method") && json["method"].IsString()) {
      return json["method"].GetString();
    }
    return {};
  }
  if (body[first] != '<') return {};
  pugi::xml_document document;
  std::string problem;
  const pugi::xml_node operation = soap::FindOperation(document, body, problem);
  return operation ? std::string(soap::LocalName(operation)) : std::string();
}

}  // namespace

OperationKey OperationOf(const std::string& method, const std::string& path, const std::string& query,
                         const std::string& body) {
  std::vector<std::string> words, names;
  for (const auto& [name, value] : ParseQuery(query)) {
    names.push_back(name);
    words.push_back(HasDigit(value) ? name : name + "=" + value);
  }
  std::sort(words.begin(), words.end());
  std::sort(names.begin(), names.end());
  const std::string base = method + " " + path + " " + BodyOperation(body) + " ?";
  OperationKey key{base, base};
  for (const std::string& word : words) key.strict += "&" + word;
  for (const std::string& name : names) key.loose += "&" + name;
  return key;
}

ReplayMatcher::ReplayMatcher(const std::vector<ReplayExchange>& exchanges) {
  for (const ReplayExchange& exchange : exchanges) {
    const OperationKey key = OperationOf(exchange.method, exchange.path, exchange.query, exchange.requestBody);
    m_strict[key.strict].answers.push_back(&exchange);
    m_loose[key.loose].answers.push_back(&exchange);
  }
}

const ReplayExchange* ReplayMatcher::Take(Queue& queue) {
  const ReplayExchange* answer = queue.answers[std::min(queue.next, queue.answers.size() - 1)];
  if (queue.next < queue.answers.size()) ++queue.next;
  return answer;
}

const ReplayExchange* ReplayMatcher::Match(const std::string& method, const std::string& path, const std::string& query,
                                           const std::string& body, bool* firstMiss) {
  const OperationKey key = OperationOf(method, path, query, body);
  std::lock_guard<std::mutex> lock(m_mutex);
  *firstMiss = false;
  if (auto strict = m_strict.find(key.strict); strict != m_strict.end()) return Take(strict->second);
  // The same call with other word values (a different group, a different codec): the nearest there is.
  if (auto loose = m_loose.find(key.loose); loose != m_loose.end()) return Take(loose->second);
  *firstMiss = m_missed.insert(key.strict).second;
  return nullptr;
}

}  // namespace camsim
