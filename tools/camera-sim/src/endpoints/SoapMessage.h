// SoapMessage.h - reading SOAP 1.2 requests without caring which prefixes the
// client chose (namespaces are resolved), and writing answers the way the
// cameras do: SOAP-ENV:, aa:, aev:, wsnt: prefixes declared on the envelope.
#pragma once

#include <pugixml.hpp>
#include <string>
#include <string_view>

#include "HttpMessage.h"

namespace camsim::soap {

constexpr const char* kEnvelope12 = "http://www.w3.org/2003/05/soap-envelope";
constexpr const char* kEnvelope11 = "http://schemas.xmlsoap.org/soap/envelope/";
constexpr const char* kActionService = "http://www.axis.com/vapix/ws/action1";
constexpr const char* kEventService = "http://www.axis.com/vapix/ws/event1";
constexpr const char* kIcalDialect = "http://www.axis.com/vapix/ws/ical1";

std::string_view LocalName(const pugi::xml_node& node);
// The namespace URI of the element's prefix (or of the default namespace), looked up through its ancestors.
std::string NamespaceOf(const pugi::xml_node& node);
// The first child element with this local name, whatever its prefix.
pugi::xml_node Child(const pugi::xml_node& parent, std::string_view localName);
std::string ChildText(const pugi::xml_node& parent, std::string_view localName);

// Finds the operation element (the first element in the Body). Empty node with
// `problem` set when the text is not a SOAP envelope.
pugi::xml_node FindOperation(pugi::xml_document& doc, const std::string& text, std::string& problem);

// An answer envelope; returns its SOAP-ENV:Body to fill.
pugi::xml_node StartAnswer(pugi::xml_document& doc);
HttpResponse FinishAnswer(const pugi::xml_document& doc, int status = 200);

// A SOAP 1.2 fault. `sender` faults (the request is wrong) are answered 400, receiver faults 500.
HttpResponse Fault(bool sender, const std::string& subcode, const std::string& reason);

}  // namespace camsim::soap
