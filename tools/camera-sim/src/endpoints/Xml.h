// Xml.h - XML answers of the edge-storage CGIs (record/list.cgi, disks/list.cgi).
#pragma once

#include <pugixml.hpp>
#include <string>

#include "HttpMessage.h"

namespace camsim {

// <root> with the schema location of the CGI's list1.xsd, as the cameras send it.
inline pugi::xml_node AddSchemaRoot(pugi::xml_document& doc, const std::string& schemaLocation) {
  pugi::xml_node declaration = doc.append_child(pugi::node_declaration);
  declaration.append_attribute("version") = "1.0";
  declaration.append_attribute("encoding") = "UTF-8";
  pugi::xml_node root = doc.append_child("root");
  root.append_attribute("xmlns:xsi") = "http://www.w3.org/2001/XMLSchema-instance";
  root.append_attribute("xsi:noNamespaceSchemaLocation") = schemaLocation.c_str();
  return root;
}

inline HttpResponse XmlAnswer(const pugi::xml_document& doc, int status = 200) {
  struct Collect : pugi::xml_writer {
    std::string text;
    void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
  } out;
  doc.save(out, "  ", pugi::format_indent, pugi::encoding_utf8);
  return TextAnswer(status, std::move(out.text), "text/xml");
}

// A refused request: 400 with <root><error code=".." description=".."/></root>.
inline HttpResponse XmlErrorAnswer(const std::string& schemaLocation, int code, const std::string& description) {
  pugi::xml_document doc;
  pugi::xml_node error = AddSchemaRoot(doc, schemaLocation).append_child("error");
  error.append_attribute("code") = code;
  error.append_attribute("description") = description.c_str();
  return XmlAnswer(doc, 400);
}

}  // namespace camsim
