// Feeds arbitrary bytes to CXmlMarkup and CRapidJsonProto. Besides not
// crashing, whatever either accepts must survive a write/read round trip.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "RapidJsonProto.h"
#include "XmlMarkup.h"

namespace {

// Visits every element through the cursor, depth first, with a step budget.
void WalkAll(CXmlMarkup& xml) {
  int depth = 0;
  for (int steps = 0; steps < 20000; ++steps) {
    if (xml.FindElem("")) {
      (void)xml.GetData();
      (void)xml.GetAttrib("token");
      if (xml.IntoElem()) ++depth;
    } else if (depth > 0 && xml.OutOfElem()) {
      --depth;
    } else {
      return;
    }
  }
}

void FuzzXml(const std::string& text) {
  CXmlMarkup xml;
  if (!xml.SetDoc(text)) return;
  WalkAll(xml);
  const std::string printed = xml.GetDoc();
  CXmlMarkup reread;
  if (!reread.SetDoc(printed)) std::abort();
  // Writing into a parsed document keeps it printable and readable.
  xml.ResetPos();
  if (xml.FindElem("") && xml.IntoElem() && xml.AddElem("fz:Added", "<&>") && xml.SetAttrib("k", "\"'")) {
    if (!reread.SetDoc(xml.GetDoc())) std::abort();
  }
}

void FuzzJson(const std::string& text) {
  Tarn::Proto::CRapidJsonProto proto;
  // The first line doubles as a path to read and write.
  const std::string path = text.substr(0, text.find('\n'));
  if (proto.set_str(text)) {
    const std::string printed = proto.get_str();
    Tarn::Proto::CRapidJsonProto reread;
    if (!reread.set_str(printed) || reread.get_str() != printed) std::abort();
  }
  (void)proto.GetString(path, "");
  (void)proto.GetInt(path, 0);
  (void)proto.GetArraySize(path);
  if (proto.SetString(path, "v")) {
    Tarn::Proto::CRapidJsonProto reread;
    if (!reread.set_str(proto.get_str()) || reread.GetString(path, "") != "v") std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  FuzzXml(text);
  FuzzJson(text);
  return 0;
}
