#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>

#include "RapidJsonProto.h"

namespace {

using Tarn::Proto::CRapidJsonProto;
using Tarn::Proto::ProtoNode;

TEST(RapidJsonProto, ReadsPathsWithOneBasedIndexesAndDefaults) {
  CRapidJsonProto proto;
  ASSERT_TRUE(proto.set_str(R"({"data": {
      "propertyList": {"Brand": "AXIS", "Channels": 4},
      "client": {"staticServers": ["10.0.0.1", "10.0.0.2"], "enabled": true, "dhcp": false},
      "ratio": 1.5, "whole": 5.0, "huge": 18446744073709551615, "grid": [[1, 2], [3, 4, 5]], "nothing": null}})"));
  EXPECT_EQ(proto.GetString("/data/propertyList/Brand", "-"), "AXIS");
  EXPECT_EQ(proto.GetString("/data/client/staticServers[1]", "-"), "10.0.0.1");
  EXPECT_EQ(proto.GetString("/data/client/staticServers[2]", "-"), "10.0.0.2");
  EXPECT_EQ(proto.GetString("/data/client/staticServers[3]", "-"), "-");
  EXPECT_EQ(proto.GetInt("/data/grid[2][3]", 0), 5);
  EXPECT_EQ(proto.GetArraySize("/data/grid[2]"), 3u);
  EXPECT_EQ(proto.GetArraySize("/data/propertyList"), 0u);

  // Cameras send flags and numbers where text is expected, and the other way round.
  EXPECT_EQ(proto.GetString("/data/client/enabled", ""), "true");
  EXPECT_EQ(proto.GetString("/data/client/dhcp", ""), "false");
  EXPECT_EQ(proto.GetString("/data/propertyList/Channels", ""), "4");
  EXPECT_EQ(proto.GetString("/data/huge", ""), "18446744073709551615");
  EXPECT_EQ(proto.GetString("/data/ratio", ""), "1.5");
  EXPECT_EQ(proto.GetString("/data/nothing", "d"), "d");
  EXPECT_EQ(proto.GetString("/data/client", "d"), "d");
  EXPECT_EQ(proto.GetInt("/data/propertyList/Brand", -1), -1);
  EXPECT_EQ(proto.GetInt("/data/ratio", -1), -1);
  EXPECT_EQ(proto.GetInt("/data/whole", -1), 5);
  EXPECT_EQ(proto.GetInt("/data/huge", -1), -1) << "does not fit in int64";
  EXPECT_TRUE(proto.GetBool("/data/propertyList/Brand", true));
  EXPECT_FALSE(proto.GetBool("/data/propertyList/Channels", false));
  EXPECT_DOUBLE_EQ(proto.GetDouble("/data/propertyList/Channels", 0), 4.0);

  for (const char* bad :
       {"", "data/propertyList/Brand", "/data/client/staticServers[0]", "/data/client/staticServers[x]",
        "/data/client/staticServers[1", "/data/client/staticServers[]", "/data/client/staticServers[1]x",
        "/data/client/staticServers[99999999999999999999]", "/data//propertyList", "/data/"}) {
    EXPECT_EQ(proto.GetString(bad, "default"), "default") << bad;
    EXPECT_EQ(proto.GetNode(bad), nullptr) << bad;
    EXPECT_FALSE(proto.SetInt(bad, 1)) << bad;
  }
}

TEST(RapidJsonProto, WritesCreateObjectsAndArrays) {
  CRapidJsonProto proto;
  EXPECT_EQ(proto.get_str(), "{}");
  EXPECT_TRUE(proto.SetString("/data/name", "cam \"1\""));
  EXPECT_TRUE(proto.SetInt("/data/List[1]/id", 7));
  EXPECT_TRUE(proto.SetBool("/data/List[1]/on", true));
  EXPECT_TRUE(proto.SetDouble("/data/List[2]/gain", 0.25));
  EXPECT_FALSE(proto.SetInt("/data/List[4]", 1)) << "an index may only append one element";
  EXPECT_FALSE(proto.SetDouble("/data/nan", std::nan(""))) << "JSON cannot carry NaN";
  EXPECT_EQ(proto.get_str(), R"({"data":{"name":"cam \"1\"","List":[{"id":7,"on":true},{"gain":0.25}]}})");
  EXPECT_TRUE(proto.SetInt("/data/name/first", 1)) << "a scalar on the way becomes an object";
  EXPECT_EQ(proto.GetInt("/data/name/first", 0), 1);

  CRapidJsonProto built;
  ProtoNode* list = built.AppendObject(built.GetNode("/"), "List");
  ProtoNode* first = built.AppendObject(list, "Profiles");
  ASSERT_TRUE(built.SetString(first, "name", "main"));
  ASSERT_TRUE(built.SetInt(first, "fps", 30));
  ProtoNode* second = built.AppendObject(list, "Profiles");
  ASSERT_TRUE(built.SetString(second, "name", "sub"));
  EXPECT_EQ(built.get_str(), R"({"List":[{"Profiles":[{"name":"main","fps":30},{"name":"sub"}]}]})");
  EXPECT_FALSE(built.SetString(nullptr, "k", "v"));
  EXPECT_EQ(built.AppendObject(nullptr, "List"), nullptr);
}

TEST(RapidJsonProto, MalformedInputFailsAndEmptiesTheDocument) {
  const std::string bad[] = {"",
                             "{",
                             "{\"a\":1} trailing",
                             "{} {}",
                             "[1,]",
                             "{'a':1}",
                             "{\"a\":NaN}",
                             std::string("{\"a\":1}\0{", 9),
                             "{\"a\":\"unterminated}",
                             "{\"huge\":1e400}",
                             "{\"bad\":01}",
                             "\xff\xfe{"};
  for (const std::string& text : bad) {
    CRapidJsonProto proto;
    ASSERT_TRUE(proto.set_str(R"({"keep":1})"));
    EXPECT_FALSE(proto.set_str(text)) << text;
    EXPECT_EQ(proto.get_str(), "{}") << text;
  }
  CRapidJsonProto proto;
  EXPECT_TRUE(proto.set_str("  [1, \"two\"]\n")) << "any complete value";
  EXPECT_EQ(proto.GetString("/[2]", ""), "two");
}

TEST(RapidJsonProto, HostileInputIsRefusedWithoutCrashing) {
  CRapidJsonProto proto;
  EXPECT_FALSE(proto.set_str(std::string(100000, '[')));
  EXPECT_FALSE(proto.set_str(std::string(100000, '[') + std::string(100000, ']')));
  std::string objects;
  for (int i = 0; i < 50000; ++i) objects += "{\"a\":";
  EXPECT_FALSE(proto.set_str(objects + "1" + std::string(50000, '}')));
  const std::string nested = std::string(100, '[') + std::string(100, ']');
  ASSERT_TRUE(proto.set_str(nested)) << "ordinary nesting is fine";
  EXPECT_EQ(proto.get_str(), nested);
  ASSERT_TRUE(proto.set_str("{\"blob\":\"" + std::string(8 << 20, 'x') + "\"}"));
  EXPECT_EQ(proto.GetString("/blob", "").size(), size_t{8} << 20);
}

}  // namespace
