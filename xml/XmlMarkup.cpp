// XmlMarkup.cpp - the cursor reader and writer over a pugixml document.
#include "XmlMarkup.h"

#include <algorithm>
#include <cstring>
#include <pugixml.hpp>
#include <sstream>
#include <vector>

namespace {

bool IsNameStart(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':' || c >= 0x80;
}

bool IsNameChar(unsigned char c) { return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; }

// Element and attribute names we are willing to write; anything else would
// produce a document nobody can read back.
bool IsValidName(const std::string& name) {
  if (name.empty() || !IsNameStart(static_cast<unsigned char>(name[0]))) return false;
  for (char c : name) {
    if (!IsNameChar(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

// pugixml does not check that an element's attribute names are unique.
bool AttributesAreUnique(pugi::xml_node root) {
  std::vector<const char*> names;
  const auto less = [](const char* a, const char* b) { return std::strcmp(a, b) < 0; };
  const auto equal = [](const char* a, const char* b) { return std::strcmp(a, b) == 0; };
  // Pre-order walk without recursion: documents may be arbitrarily deep.
  pugi::xml_node node = root;
  while (node) {
    if (node.first_attribute() && node.first_attribute().next_attribute()) {
      names.clear();
      for (pugi::xml_attribute attribute : node.attributes()) names.push_back(attribute.name());
      std::sort(names.begin(), names.end(), less);
      if (std::adjacent_find(names.begin(), names.end(), equal) != names.end()) return false;
    }
    if (node.first_child()) {
      node = node.first_child();
      continue;
    }
    while (node && node != root && !node.next_sibling()) node = node.parent();
    if (!node || node == root) break;
    node = node.next_sibling();
  }
  return true;
}

// Nesting depth of the deepest node, found without recursion.
int MaxDepth(pugi::xml_node root) {
  int depth = 0;
  int deepest = 0;
  pugi::xml_node node = root;
  while (node) {
    if (node.first_child()) {
      node = node.first_child();
      deepest = std::max(deepest, ++depth);
      continue;
    }
    while (node && node != root && !node.next_sibling()) {
      node = node.parent();
      --depth;
    }
    if (!node || node == root) break;
    node = node.next_sibling();
  }
  return deepest;
}

bool HasDocumentElement(const pugi::xml_document& document) {
  return document.find_child([](pugi::xml_node node) { return node.type() == pugi::node_element; });
}

}  // namespace

struct CXmlMarkup::Impl {
  pugi::xml_document document;
  pugi::xml_node level;    // parent of the elements the cursor moves over
  pugi::xml_node current;  // empty when no element is current

  void Reset() {
    level = document;
    current = pugi::xml_node();
  }
};

CXmlMarkup::CXmlMarkup() : m_impl(std::make_unique<Impl>()) { m_impl->Reset(); }
CXmlMarkup::~CXmlMarkup() = default;

bool CXmlMarkup::SetDoc(const std::string& text) {
  // pugixml leaves entities other than the predefined and numeric ones
  // unexpanded and never fetches external ones, and its parser does not
  // recurse, so hostile documents cost only their own size.
  // Parsed as a fragment so that text beside the root stays visible and is refused below.
  const pugi::xml_parse_result result =
      m_impl->document.load_buffer(text.data(), text.size(), pugi::parse_default | pugi::parse_fragment);
  bool wellFormed = static_cast<bool>(result);
  if (wellFormed) {
    // A document has exactly one root element and no text beside it.
    int elements = 0;
    for (pugi::xml_node node : m_impl->document.children()) {
      if (node.type() == pugi::node_element) ++elements;
      if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) wellFormed = false;
    }
    wellFormed = wellFormed && elements == 1 && AttributesAreUnique(m_impl->document);
  }
  if (!wellFormed) m_impl->document.reset();
  m_impl->Reset();
  return wellFormed;
}

std::string CXmlMarkup::GetDoc() const {
  // Indentation grows with depth, so a deeply nested document would print in
  // quadratic size; past any real message's depth it is written unindented.
  constexpr int kMaxIndentedDepth = 64;
  const unsigned format = MaxDepth(m_impl->document) > kMaxIndentedDepth ? pugi::format_raw : pugi::format_default;
  std::ostringstream out;
  m_impl->document.save(out, "\t", format | pugi::format_no_declaration);
  return out.str();
}

bool CXmlMarkup::FindElem(const std::string& name, bool fromStart) {
  pugi::xml_node node = (fromStart || !m_impl->current) ? m_impl->level.first_child() : m_impl->current.next_sibling();
  for (; node; node = node.next_sibling()) {
    // An empty name matches any element, as in the classic cursor classes.
    if (node.type() == pugi::node_element && (name.empty() || name == node.name())) {
      m_impl->current = node;
      return true;
    }
  }
  return false;
}

bool CXmlMarkup::IntoElem() {
  if (!m_impl->current) return false;
  m_impl->level = m_impl->current;
  m_impl->current = pugi::xml_node();
  return true;
}

bool CXmlMarkup::OutOfElem() {
  if (m_impl->level == m_impl->document) return false;
  m_impl->current = m_impl->level;
  m_impl->level = m_impl->level.parent();
  return true;
}

void CXmlMarkup::ResetPos() { m_impl->Reset(); }

std::string CXmlMarkup::GetTagName() const { return m_impl->current ? m_impl->current.name() : std::string(); }

std::string CXmlMarkup::GetData() const {
  std::string data;
  for (pugi::xml_node child : m_impl->current.children()) {
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) data += child.value();
  }
  return data;
}

std::string CXmlMarkup::GetAttrib(const std::string& name) const {
  return m_impl->current.attribute(name.c_str()).value();
}

bool CXmlMarkup::AddElem(const std::string& name, const std::string& text) {
  if (!IsValidName(name)) return false;
  if (m_impl->level == m_impl->document && HasDocumentElement(m_impl->document)) return false;
  pugi::xml_node added = m_impl->current ? m_impl->level.insert_child_after(pugi::node_element, m_impl->current)
                                         : m_impl->level.append_child(pugi::node_element);
  if (!added) return false;
  added.set_name(name.c_str());
  if (!text.empty()) added.text().set(text.c_str());
  m_impl->current = added;
  return true;
}

bool CXmlMarkup::AddElem(const std::string& name, int64_t value) { return AddElem(name, std::to_string(value)); }

bool CXmlMarkup::SetAttrib(const std::string& name, const std::string& value) {
  if (!m_impl->current || !IsValidName(name)) return false;
  pugi::xml_attribute attribute = m_impl->current.attribute(name.c_str());
  if (!attribute) attribute = m_impl->current.append_attribute(name.c_str());
  return attribute.set_value(value.c_str());
}

bool CXmlMarkup::SetAttrib(const std::string& name, int64_t value) { return SetAttrib(name, std::to_string(value)); }
