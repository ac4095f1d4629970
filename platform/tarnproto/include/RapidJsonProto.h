// RapidJsonProto.h - TarnProto JSON accessor on RapidJSON.
//
// Paths are slash paths ("/data/propertyList/Brand"); a bracketed index
// counts from 1 ("/data/client/staticServers[1]" is the first element).
// Readers never throw: absent members, wrong types and bad paths give the
// default. Writers create the objects (and arrays, for bracketed indexes)
// along the path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace Tarn::Proto {

// Opaque node of a document; valid until the document changes shape above it
// or is destroyed.
struct ProtoNode;

class IProto {
 public:
  virtual ~IProto() = default;

  // Parses `text`, replacing the document. False (document emptied) when the
  // text is not one complete JSON value.
  virtual bool set_str(const std::string& text) = 0;
  // Serialises the document; an untouched document serialises as "{}".
  virtual std::string get_str() const = 0;

  // Scalar reads. GetString also renders booleans as "true"/"false" and
  // numbers in decimal, since cameras send flags as either.
  virtual std::string GetString(const std::string& path, const std::string& defaultValue) const = 0;
  virtual int64_t GetInt(const std::string& path, int64_t defaultValue) const = 0;
  virtual bool GetBool(const std::string& path, bool defaultValue) const = 0;
  virtual double GetDouble(const std::string& path, double defaultValue) const = 0;
  // Number of elements of the array at `path`, 0 when it is not an array.
  virtual size_t GetArraySize(const std::string& path) const = 0;

  // Writes at a path, creating what is missing. False for an invalid path.
  virtual bool SetString(const std::string& path, const std::string& value) = 0;
  virtual bool SetInt(const std::string& path, int64_t value) = 0;
  virtual bool SetBool(const std::string& path, bool value) = 0;
  virtual bool SetDouble(const std::string& path, double value) = 0;

  // Node access: the node at a path (nullptr when absent), member writes on a
  // node (turned into an object when it is not one), and appending a new empty
  // object to the array member `arrayName` of a node (created when missing).
  virtual ProtoNode* GetNode(const std::string& path) = 0;
  virtual bool SetString(ProtoNode* node, const std::string& key, const std::string& value) = 0;
  virtual bool SetInt(ProtoNode* node, const std::string& key, int64_t value) = 0;
  virtual ProtoNode* AppendObject(ProtoNode* node, const std::string& arrayName) = 0;
};

class CRapidJsonProto : public IProto {
 public:
  CRapidJsonProto();
  ~CRapidJsonProto() override;
  CRapidJsonProto(const CRapidJsonProto&) = delete;
  CRapidJsonProto& operator=(const CRapidJsonProto&) = delete;

  bool set_str(const std::string& text) override;
  std::string get_str() const override;
  std::string GetString(const std::string& path, const std::string& defaultValue) const override;
  int64_t GetInt(const std::string& path, int64_t defaultValue) const override;
  bool GetBool(const std::string& path, bool defaultValue) const override;
  double GetDouble(const std::string& path, double defaultValue) const override;
  size_t GetArraySize(const std::string& path) const override;
  bool SetString(const std::string& path, const std::string& value) override;
  bool SetInt(const std::string& path, int64_t value) override;
  bool SetBool(const std::string& path, bool value) override;
  bool SetDouble(const std::string& path, double value) override;
  ProtoNode* GetNode(const std::string& path) override;
  bool SetString(ProtoNode* node, const std::string& key, const std::string& value) override;
  bool SetInt(ProtoNode* node, const std::string& key, int64_t value) override;
  ProtoNode* AppendObject(ProtoNode* node, const std::string& arrayName) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace Tarn::Proto
