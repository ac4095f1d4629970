// XmlMarkup.h - a small cursor-style XML reader and writer on pugixml.
//
// The cursor stands at one level of the tree (initially the document's top
// level) and optionally on one element of that level (the current element).
//   FindElem(name)        next sibling named `name` after the current element
//                         (from the first one when there is no current element
//                         or `fromStart` is set); it becomes current.
//   IntoElem()/OutOfElem() step into the current element (its children become
//                         the level, with no current element) and back out
//                         (the element stepped out of is current again).
//   GetData()/GetAttrib() text and attributes of the current element.
// Names are compared as written, prefixes included ("SOAP-ENV:Body").
//
// Writing: AddElem adds a new element after the current one (at the end of the
// level when there is none) and makes it current; SetAttrib sets an attribute
// on the current element; GetDoc serialises the document without declaration.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

class CXmlMarkup {
 public:
  CXmlMarkup();
  ~CXmlMarkup();
  CXmlMarkup(const CXmlMarkup&) = delete;
  CXmlMarkup& operator=(const CXmlMarkup&) = delete;

  // Loads a document; false (and an empty document) when it is not
  // well-formed XML. Resets the cursor to the top level.
  bool SetDoc(const std::string& text);
  std::string GetDoc() const;

  bool FindElem(const std::string& name, bool fromStart = false);
  bool IntoElem();
  bool OutOfElem();
  // Back to the top level with no current element.
  void ResetPos();

  std::string GetTagName() const;
  std::string GetData() const;
  std::string GetAttrib(const std::string& name) const;

  bool AddElem(const std::string& name, const std::string& text = std::string());
  bool AddElem(const std::string& name, int64_t value);
  bool SetAttrib(const std::string& name, const std::string& value);
  bool SetAttrib(const std::string& name, int64_t value);

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};
