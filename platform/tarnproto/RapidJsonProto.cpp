// RapidJsonProto.cpp - slash-path access to a RapidJSON document.
#include "RapidJsonProto.h"

#include <rapidjson/document.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <system_error>
#include <vector>

namespace Tarn::Proto {

// ProtoNode is never defined: a ProtoNode* is a rapidjson::Value* in disguise.
namespace {

using Value = rapidjson::Value;
using Document = rapidjson::Document;

// Camera documents nest a handful of levels. The limit keeps hostile input from
// building a tree whose (recursive) serialisation would exhaust the stack.
constexpr int kMaxDepth = 256;
constexpr size_t kMaxPathSegments = 64;
// Indexes past this are certainly bogus and would overflow the arithmetic.
constexpr size_t kMaxIndex = 100000000;

ProtoNode* ToNode(Value* value) { return reinterpret_cast<ProtoNode*>(value); }
Value* FromNode(ProtoNode* node) { return reinterpret_cast<Value*>(node); }

// One step of a path: a member name, or a 0-based array index.
struct Step {
  bool isIndex = false;
  std::string name;
  size_t index = 0;
};

// "/a/b[1][2]/c" -> a, b, [0], [1], c. "/" is the root itself.
bool ParsePath(const std::string& path, std::vector<Step>* steps) {
  if (path.empty() || path[0] != '/') return false;
  if (path.size() == 1) return true;
  size_t pos = 1;
  size_t segments = 0;
  while (pos <= path.size()) {
    if (++segments > kMaxPathSegments) return false;
    const size_t end = std::min(path.find('/', pos), path.size());
    const std::string segment = path.substr(pos, end - pos);
    const size_t bracket = segment.find('[');
    const std::string name = segment.substr(0, bracket);
    if (name.find(']') != std::string::npos) return false;
    if (!name.empty()) steps->push_back(Step{false, name, 0});
    if (bracket == std::string::npos) {
      if (name.empty()) return false;  // "//" or a trailing '/'
    } else {
      size_t at = bracket;
      while (at < segment.size()) {
        if (segment[at] != '[') return false;
        const size_t close = segment.find(']', at);
        if (close == std::string::npos || close == at + 1) return false;
        size_t oneBased = 0;
        for (size_t i = at + 1; i < close; ++i) {
          const char c = segment[i];
          if (c < '0' || c > '9') return false;
          oneBased = oneBased * 10 + static_cast<size_t>(c - '0');
          if (oneBased > kMaxIndex) return false;
        }
        if (oneBased == 0) return false;
        steps->push_back(Step{true, std::string(), oneBased - 1});
        at = close + 1;
      }
    }
    pos = end + 1;
  }
  return true;
}

rapidjson::GenericStringRef<char> NameRef(const std::string& name) {
  return rapidjson::StringRef(name.data(), static_cast<rapidjson::SizeType>(name.size()));
}

// Whether FindMember found something. RapidJSON's iterator comparisons are
// ambiguous under C++20, so compare positions instead.
bool IsMember(const Value& object, Value::ConstMemberIterator member) {
  return member - object.MemberBegin() < static_cast<std::ptrdiff_t>(object.MemberCount());
}

const Value* Find(const Value& root, const std::string& path) {
  std::vector<Step> steps;
  if (!ParsePath(path, &steps)) return nullptr;
  const Value* current = &root;
  for (const Step& step : steps) {
    if (step.isIndex) {
      if (!current->IsArray() || step.index >= current->Size()) return nullptr;
      current = &(*current)[static_cast<rapidjson::SizeType>(step.index)];
    } else {
      if (!current->IsObject()) return nullptr;
      auto member = current->FindMember(Value(NameRef(step.name)));
      if (!IsMember(*current, member)) return nullptr;
      current = &member->value;
    }
  }
  return current;
}

// A member of `object` (made an object if it is not one), added as null when missing.
Value& MemberOf(Value& object, const std::string& name, Document::AllocatorType& allocator) {
  if (!object.IsObject()) object.SetObject();
  auto member = object.FindMember(Value(NameRef(name)));
  if (IsMember(object, member)) return member->value;
  object.AddMember(Value(name.data(), static_cast<rapidjson::SizeType>(name.size()), allocator), Value(), allocator);
  return object.MemberEnd()[-1].value;
}

// Walks `path`, creating objects and arrays on the way. An index may name an
// existing element or the one just past the end (which is appended).
Value* FindOrCreate(Document& document, const std::string& path) {
  std::vector<Step> steps;
  if (!ParsePath(path, &steps)) return nullptr;
  auto& allocator = document.GetAllocator();
  Value* current = &document;
  for (const Step& step : steps) {
    if (step.isIndex) {
      if (!current->IsArray()) current->SetArray();
      if (step.index > current->Size()) return nullptr;
      if (step.index == current->Size()) current->PushBack(Value(), allocator);
      current = &(*current)[static_cast<rapidjson::SizeType>(step.index)];
    } else {
      current = &MemberOf(*current, step.name, allocator);
    }
  }
  return current;
}

// Whether a valid JSON number that does not fit a double is too large (rather
// than too small): the decimal exponent of its leading significant digit.
bool IsTooLarge(std::string_view text) {
  size_t at = text[0] == '-' ? 1 : 0;
  long leading = 0;  // digits before the point, or minus the zeros after it
  bool significant = false;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    if (text[at] != '0' || significant) {
      significant = true;
      ++leading;
    }
  }
  if (at < text.size() && text[at] == '.') {
    for (++at; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
      if (!significant && text[at] == '0') --leading;
      if (text[at] != '0') significant = true;
    }
  }
  long exponent = 0;
  if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
    ++at;
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
    for (; at < text.size(); ++at) exponent = std::min(exponent * 10 + (text[at] - '0'), 1000000L);
    if (negative) exponent = -exponent;
  }
  return leading + exponent > 0;
}

// Forwards SAX events to the document and fails the parse past kMaxDepth.
// Numbers arrive as text and are converted here: RapidJSON 1.1's own
// full-precision conversion has undefined behaviour on some zero values, and
// its fast one does not round-trip.
class DepthLimitedHandler {
 public:
  explicit DepthLimitedHandler(Document& document) : m_document(document) {}
  bool Null() { return m_document.Null(); }
  bool Bool(bool b) { return m_document.Bool(b); }
  bool Int(int i) { return m_document.Int(i); }
  bool Uint(unsigned u) { return m_document.Uint(u); }
  bool Int64(int64_t i) { return m_document.Int64(i); }
  bool Uint64(uint64_t u) { return m_document.Uint64(u); }
  bool Double(double d) { return m_document.Double(d); }
  bool RawNumber(const char* text, rapidjson::SizeType length, bool /*copy*/) {
    const std::string_view number(text, length);
    const char* end = text + length;
    // Integers keep their exact value when they fit in 64 bits.
    if (number.find_first_of(".eE") == std::string_view::npos) {
      if (number[0] == '-') {
        int64_t value = 0;
        const auto [stop, error] = std::from_chars(text, end, value);
        if (error == std::errc() && stop == end) return m_document.Int64(value);
      } else {
        uint64_t value = 0;
        const auto [stop, error] = std::from_chars(text, end, value);
        if (error == std::errc() && stop == end) return m_document.Uint64(value);
      }
    }
    double value = 0;
    const auto [stop, error] = std::from_chars(text, end, value);
    if (error == std::errc() && stop == end) return m_document.Double(value);
    // Out of range: too large fails the parse, too small is zero.
    if (error != std::errc::result_out_of_range || IsTooLarge(number)) return false;
    return m_document.Double(number[0] == '-' ? -0.0 : 0.0);
  }
  bool String(const char* text, rapidjson::SizeType length, bool copy) { return m_document.String(text, length, copy); }
  bool Key(const char* text, rapidjson::SizeType length, bool copy) { return m_document.Key(text, length, copy); }
  bool StartObject() { return ++m_depth <= kMaxDepth && m_document.StartObject(); }
  bool EndObject(rapidjson::SizeType count) {
    --m_depth;
    return m_document.EndObject(count);
  }
  bool StartArray() { return ++m_depth <= kMaxDepth && m_document.StartArray(); }
  bool EndArray(rapidjson::SizeType count) {
    --m_depth;
    return m_document.EndArray(count);
  }

 private:
  Document& m_document;
  int m_depth = 0;
};

std::string RenderNumber(const Value& number) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  number.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace

struct CRapidJsonProto::Impl {
  Impl() { document.SetObject(); }
  Document document;
};

CRapidJsonProto::CRapidJsonProto() : m_impl(std::make_unique<Impl>()) {}
CRapidJsonProto::~CRapidJsonProto() = default;

bool CRapidJsonProto::set_str(const std::string& text) {
  Document parsed;
  bool ok = false;
  // A NUL byte is never valid JSON, and the reader would take it for the end.
  if (text.find('\0') == std::string::npos) {
    auto generator = [&text, &ok](Document& target) {
      DepthLimitedHandler handler(target);
      rapidjson::Reader reader;
      rapidjson::StringStream stream(text.c_str());
      // Iterative: nesting costs heap, not stack.
      constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;
      ok = !reader.Parse<kFlags>(stream, handler).IsError();
      return ok;
    };
    parsed.Populate(generator);
  }
  if (!ok) parsed.SetObject();
  m_impl->document.Swap(parsed);
  return ok;
}

std::string CRapidJsonProto::get_str() const {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  m_impl->document.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

std::string CRapidJsonProto::GetString(const std::string& path, const std::string& defaultValue) const {
  const Value* value = Find(m_impl->document, path);
  if (value == nullptr) return defaultValue;
  if (value->IsString()) return std::string(value->GetString(), value->GetStringLength());
  if (value->IsBool()) return value->GetBool() ? "true" : "false";
  if (value->IsNumber()) return RenderNumber(*value);
  return defaultValue;
}

int64_t CRapidJsonProto::GetInt(const std::string& path, int64_t defaultValue) const {
  const Value* value = Find(m_impl->document, path);
  if (value == nullptr) return defaultValue;
  if (value->IsInt64()) return value->GetInt64();
  // Some firmwares write whole numbers as 5.0.
  if (value->IsDouble()) {
    const double number = value->GetDouble();
    if (std::isfinite(number) && number == std::trunc(number) && number >= -9.2e18 && number <= 9.2e18) {
      return static_cast<int64_t>(number);
    }
  }
  return defaultValue;
}

bool CRapidJsonProto::GetBool(const std::string& path, bool defaultValue) const {
  const Value* value = Find(m_impl->document, path);
  return value != nullptr && value->IsBool() ? value->GetBool() : defaultValue;
}

double CRapidJsonProto::GetDouble(const std::string& path, double defaultValue) const {
  const Value* value = Find(m_impl->document, path);
  return value != nullptr && value->IsNumber() ? value->GetDouble() : defaultValue;
}

size_t CRapidJsonProto::GetArraySize(const std::string& path) const {
  const Value* value = Find(m_impl->document, path);
  return value != nullptr && value->IsArray() ? value->Size() : 0;
}

bool CRapidJsonProto::SetString(const std::string& path, const std::string& value) {
  Value* target = FindOrCreate(m_impl->document, path);
  if (target == nullptr) return false;
  target->SetString(value.data(), static_cast<rapidjson::SizeType>(value.size()), m_impl->document.GetAllocator());
  return true;
}

bool CRapidJsonProto::SetInt(const std::string& path, int64_t value) {
  Value* target = FindOrCreate(m_impl->document, path);
  if (target == nullptr) return false;
  target->SetInt64(value);
  return true;
}

bool CRapidJsonProto::SetBool(const std::string& path, bool value) {
  Value* target = FindOrCreate(m_impl->document, path);
  if (target == nullptr) return false;
  target->SetBool(value);
  return true;
}

bool CRapidJsonProto::SetDouble(const std::string& path, double value) {
  // JSON has no NaN or infinity; the writer would refuse the whole document.
  if (!std::isfinite(value)) return false;
  Value* target = FindOrCreate(m_impl->document, path);
  if (target == nullptr) return false;
  target->SetDouble(value);
  return true;
}

ProtoNode* CRapidJsonProto::GetNode(const std::string& path) {
  return ToNode(const_cast<Value*>(Find(m_impl->document, path)));
}

bool CRapidJsonProto::SetString(ProtoNode* node, const std::string& key, const std::string& value) {
  if (node == nullptr) return false;
  auto& allocator = m_impl->document.GetAllocator();
  MemberOf(*FromNode(node), key, allocator)
      .SetString(value.data(), static_cast<rapidjson::SizeType>(value.size()), allocator);
  return true;
}

bool CRapidJsonProto::SetInt(ProtoNode* node, const std::string& key, int64_t value) {
  if (node == nullptr) return false;
  MemberOf(*FromNode(node), key, m_impl->document.GetAllocator()).SetInt64(value);
  return true;
}

ProtoNode* CRapidJsonProto::AppendObject(ProtoNode* node, const std::string& arrayName) {
  if (node == nullptr) return nullptr;
  auto& allocator = m_impl->document.GetAllocator();
  Value& array = MemberOf(*FromNode(node), arrayName, allocator);
  if (!array.IsArray()) array.SetArray();
  array.PushBack(Value(rapidjson::kObjectType), allocator);
  return ToNode(&array[array.Size() - 1]);
}

}  // namespace Tarn::Proto
