#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "XmlMarkup.h"

namespace {

constexpr const char* kProfilesResponse = R"(<?xml version="1.0" encoding="UTF-8"?>
<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://www.w3.org/2003/05/soap-envelope" xmlns:tt="urn:tt" xmlns:trt="urn:trt">
  <SOAP-ENV:Header><tt:Name>not this one</tt:Name></SOAP-ENV:Header>
  <SOAP-ENV:Body>
    <trt:GetProfilesResponse>
      <trt:Profiles token="profile_1" fixed="true"><tt:Name>main</tt:Name></trt:Profiles>
      <trt:Profiles token="profile_2"><tt:Name>sub &amp; more</tt:Name></trt:Profiles>
      <!-- a comment between siblings -->
      <trt:Other/>
      <trt:Profiles token="profile_3"><tt:Name><![CDATA[third <raw>]]></tt:Name>tail</trt:Profiles>
    </trt:GetProfilesResponse>
  </SOAP-ENV:Body>
</SOAP-ENV:Envelope>
)";

TEST(XmlMarkup, CursorWalksASoapAnswer) {
  CXmlMarkup xml;
  ASSERT_TRUE(xml.SetDoc(kProfilesResponse));
  EXPECT_FALSE(xml.FindElem("SOAP-ENV:Body")) << "only the current level is searched";
  EXPECT_FALSE(xml.IntoElem()) << "no current element yet";
  ASSERT_TRUE(xml.FindElem("SOAP-ENV:Envelope") && xml.IntoElem());
  ASSERT_TRUE(xml.FindElem("SOAP-ENV:Body") && xml.IntoElem());
  ASSERT_TRUE(xml.FindElem("trt:GetProfilesResponse") && xml.IntoElem());

  std::vector<std::string> tokens;
  while (xml.FindElem("trt:Profiles")) tokens.push_back(xml.GetAttrib("token"));
  EXPECT_EQ(tokens, (std::vector<std::string>{"profile_1", "profile_2", "profile_3"}));
  EXPECT_EQ(xml.GetAttrib("token"), "profile_3") << "a failed find keeps the current element";
  EXPECT_EQ(xml.GetData(), "tail") << "only the element's own text";
  EXPECT_FALSE(xml.FindElem("trt:Other")) << "search goes forward only";
  EXPECT_FALSE(xml.FindElem("Profiles", true)) << "the prefix is part of the name";

  ASSERT_TRUE(xml.FindElem("trt:Profiles", true));
  EXPECT_EQ(xml.GetAttrib("fixed"), "true");
  EXPECT_EQ(xml.GetAttrib("absent"), "");
  ASSERT_TRUE(xml.FindElem("trt:Profiles"));
  ASSERT_TRUE(xml.IntoElem());
  EXPECT_EQ(xml.GetTagName(), "");
  ASSERT_TRUE(xml.FindElem("tt:Name"));
  EXPECT_EQ(xml.GetData(), "sub & more");
  ASSERT_TRUE(xml.OutOfElem());
  EXPECT_EQ(xml.GetAttrib("token"), "profile_2") << "the element stepped out of is current";
  ASSERT_TRUE(xml.FindElem("trt:Profiles") && xml.IntoElem() && xml.FindElem("tt:Name"));
  EXPECT_EQ(xml.GetData(), "third <raw>");

  for (int i = 0; i < 4; ++i) ASSERT_TRUE(xml.OutOfElem());
  EXPECT_EQ(xml.GetTagName(), "SOAP-ENV:Envelope");
  EXPECT_FALSE(xml.OutOfElem()) << "already at the top level";
  xml.ResetPos();
  EXPECT_EQ(xml.GetTagName(), "");
}

TEST(XmlMarkup, WriterOutputReadsBack) {
  CXmlMarkup writer;
  EXPECT_FALSE(writer.SetAttrib("a", "b")) << "no current element";
  ASSERT_TRUE(writer.AddElem("s:Envelope"));
  ASSERT_TRUE(writer.SetAttrib("xmlns:s", "urn:s"));
  EXPECT_FALSE(writer.AddElem("Second")) << "one root only";
  ASSERT_TRUE(writer.IntoElem() && writer.AddElem("s:Body") && writer.IntoElem());
  ASSERT_TRUE(writer.AddElem("Text", "1 < 2 & \"quoted\""));
  ASSERT_TRUE(writer.AddElem("Count", int64_t{-5}));
  ASSERT_TRUE(writer.SetAttrib("unit", int64_t{1000}));
  ASSERT_TRUE(writer.SetAttrib("label", "first"));
  ASSERT_TRUE(writer.SetAttrib("label", "a\"b<c & 'd'"));
  ASSERT_TRUE(writer.FindElem("Text", true));
  ASSERT_TRUE(writer.AddElem("Middle")) << "inserted after the current element";
  for (const char* name : {"", "1abc", "a b", "a<b", "a&b", "a/b"}) EXPECT_FALSE(writer.AddElem(name)) << name;
  EXPECT_FALSE(writer.SetAttrib("bad name", "x"));

  const std::string text = writer.GetDoc();
  EXPECT_EQ(text.find("<?xml"), std::string::npos);
  CXmlMarkup reader;
  ASSERT_TRUE(reader.SetDoc(text)) << text;
  ASSERT_TRUE(reader.FindElem("s:Envelope"));
  EXPECT_EQ(reader.GetAttrib("xmlns:s"), "urn:s");
  ASSERT_TRUE(reader.IntoElem() && reader.FindElem("s:Body") && reader.IntoElem());
  std::vector<std::string> names;
  while (reader.FindElem("")) names.push_back(reader.GetTagName());  // "" matches any element
  EXPECT_EQ(names, (std::vector<std::string>{"Text", "Middle", "Count"}));
  ASSERT_TRUE(reader.FindElem("Text", true));
  EXPECT_EQ(reader.GetData(), "1 < 2 & \"quoted\"");
  ASSERT_TRUE(reader.FindElem("Count"));
  EXPECT_EQ(reader.GetData(), "-5");
  EXPECT_EQ(reader.GetAttrib("unit"), "1000");
  EXPECT_EQ(reader.GetAttrib("label"), "a\"b<c & 'd'");
}

TEST(XmlMarkup, MalformedDocumentsAreRefused) {
  const std::string bad[] = {"",         "plain text", "<a>",      "<a></b>",          "<a/><b/>",
                             "text<a/>", "<a/>tail",   "<a x=1/>", "<a x='1' x='2'/>", std::string("<a>\0</a>", 8)};
  for (const std::string& text : bad) {
    CXmlMarkup xml;
    ASSERT_TRUE(xml.SetDoc("<keep/>"));
    EXPECT_FALSE(xml.SetDoc(text)) << text;
    EXPECT_EQ(xml.GetDoc(), "") << text;
    EXPECT_FALSE(xml.FindElem("")) << text;
  }
  // Only the prefixes that hold the closing root tag are documents.
  const std::string full = kProfilesResponse;
  CXmlMarkup xml;
  for (size_t length = 0; length < full.size(); ++length) {
    const std::string prefix = full.substr(0, length);
    EXPECT_EQ(xml.SetDoc(prefix), prefix.find("</SOAP-ENV:Envelope>") != std::string::npos) << length;
  }
}

TEST(XmlMarkup, HostileDocumentsStayCheap) {
  CXmlMarkup xml;
  ASSERT_TRUE(
      xml.SetDoc("<!DOCTYPE lolz [<!ENTITY lol \"lol\"><!ENTITY lol1 \"&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;\">"
                 "<!ENTITY lol2 \"&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;\">]><lolz>&lol2;</lolz>"));
  ASSERT_TRUE(xml.FindElem("lolz"));
  EXPECT_EQ(xml.GetData(), "&lol2;") << "entities are never expanded";
  ASSERT_TRUE(xml.SetDoc("<!DOCTYPE r [<!ENTITY secret SYSTEM \"file:///etc/passwd\">]><r>&secret;&#65;&lt;</r>"));
  ASSERT_TRUE(xml.FindElem("r"));
  EXPECT_EQ(xml.GetData(), "&secret;A<") << "no external entity is fetched";

  constexpr int kDepth = 200000;
  std::string deep;
  for (int i = 0; i < kDepth; ++i) deep += "<a>";
  EXPECT_FALSE(xml.SetDoc(deep)) << "unclosed";
  for (int i = 0; i < kDepth; ++i) deep += "</a>";
  ASSERT_TRUE(xml.SetDoc(deep));
  int levels = 0;
  while (xml.FindElem("a") && xml.IntoElem()) ++levels;
  EXPECT_EQ(levels, kDepth);
  // Indenting each level would print a quadratic amount of text.
  EXPECT_LE(xml.GetDoc().size(), deep.size());

  ASSERT_TRUE(xml.SetDoc("<blob>" + std::string(16 << 20, 'x') + "</blob>"));
  ASSERT_TRUE(xml.FindElem("blob"));
  EXPECT_EQ(xml.GetData().size(), size_t{16} << 20);
}

}  // namespace
