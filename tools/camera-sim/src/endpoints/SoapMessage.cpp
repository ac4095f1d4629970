#include "endpoints/SoapMessage.h"

namespace camsim::soap {

namespace {

std::string_view PrefixOf(const char* name) {
  std::string_view text(name);
  const size_t colon = text.find(':');
  return colon == std::string_view::npos ? std::string_view() : text.substr(0, colon);
}

}  // namespace

std::string_view LocalName(const pugi::xml_node& node) {
  std::string_view text(node.name());
  const size_t colon = text.find(':');
  return colon == std::string_view::npos ? text : text.substr(colon + 1);
}

std::string NamespaceOf(const pugi::xml_node& node) {
  const std::string_view prefix = PrefixOf(node.name());
  const std::string attribute = prefix.empty() ? std::string("xmlns") : "xmlns:" + std::string(prefix);
  for (pugi::xml_node n = node; n && n.type() == pugi::node_element; n = n.parent()) {
    if (pugi::xml_attribute declared = n.attribute(attribute.c_str())) return declared.value();
  }
  return std::string();
}

pugi::xml_node Child(const pugi::xml_node& parent, std::string_view localName) {
  for (pugi::xml_node child = parent.first_child(); child; child = child.next_sibling()) {
    if (child.type() == pugi::node_element && LocalName(child) == localName) return child;
  }
  return pugi::xml_node();
}

std::string ChildText(const pugi::xml_node& parent, std::string_view localName) {
  return Child(parent, localName).text().get();
}

pugi::xml_node FindOperation(pugi::xml_document& doc, const std::string& text, std::string& problem) {
  const pugi::xml_parse_result parsed = doc.load_buffer(text.data(), text.size());
  if (!parsed) {
    problem = std::string("the request is not well-formed XML: ") + parsed.description();
    return pugi::xml_node();
  }
  pugi::xml_node envelope = doc.document_element();
  const std::string envelopeNs = NamespaceOf(envelope);
  if (LocalName(envelope) != "Envelope" || (envelopeNs != kEnvelope12 && envelopeNs != kEnvelope11)) {
    problem = "the request is not a SOAP envelope";
    return pugi::xml_node();
  }
  pugi::xml_node body = Child(envelope, "Body");
  if (!body) {
    problem = "the SOAP envelope has no Body";
    return pugi::xml_node();
  }
  for (pugi::xml_node child = body.first_child(); child; child = child.next_sibling()) {
    if (child.type() == pugi::node_element) return child;
  }
  problem = "the SOAP Body is empty";
  return pugi::xml_node();
}

pugi::xml_node StartAnswer(pugi::xml_document& doc) {
  pugi::xml_node declaration = doc.append_child(pugi::node_declaration);
  declaration.append_attribute("version") = "1.0";
  declaration.append_attribute("encoding") = "UTF-8";
  pugi::xml_node envelope = doc.append_child("SOAP-ENV:Envelope");
  envelope.append_attribute("xmlns:SOAP-ENV") = kEnvelope12;
  envelope.append_attribute("xmlns:SOAP-ENC") = "http://www.w3.org/2003/05/soap-encoding";
  envelope.append_attribute("xmlns:xsi") = "http://www.w3.org/2001/XMLSchema-instance";
  envelope.append_attribute("xmlns:xsd") = "http://www.w3.org/2001/XMLSchema";
  envelope.append_attribute("xmlns:wsnt") = "http://docs.oasis-open.org/wsn/b-2";
  envelope.append_attribute("xmlns:tns1") = "http://www.onvif.org/ver10/topics";
  envelope.append_attribute("xmlns:tnsaxis") = "http://www.axis.com/2009/event/topics";
  envelope.append_attribute("xmlns:aa") = kActionService;
  envelope.append_attribute("xmlns:aev") = kEventService;
  return envelope.append_child("SOAP-ENV:Body");
}

HttpResponse FinishAnswer(const pugi::xml_document& doc, int status) {
  struct Collect : pugi::xml_writer {
    std::string text;
    void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
  } out;
  doc.save(out, "", pugi::format_raw, pugi::encoding_utf8);
  return TextAnswer(status, std::move(out.text), "application/soap+xml; charset=utf-8");
}

HttpResponse Fault(bool sender, const std::string& subcode, const std::string& reason) {
  pugi::xml_document doc;
  pugi::xml_node fault = StartAnswer(doc).append_child("SOAP-ENV:Fault");
  pugi::xml_node code = fault.append_child("SOAP-ENV:Code");
  code.append_child("SOAP-ENV:Value").text() = sender ? "SOAP-ENV:Sender" : "SOAP-ENV:Receiver";
  if (!subcode.empty()) code.append_child("SOAP-ENV:Subcode").append_child("SOAP-ENV:Value").text() = subcode.c_str();
  pugi::xml_node text = fault.append_child("SOAP-ENV:Reason").append_child("SOAP-ENV:Text");
  text.append_attribute("xml:lang") = "en";
  text.text() = reason.c_str();
  return FinishAnswer(doc, sender ? 400 : 500);
}

}  // namespace camsim::soap
