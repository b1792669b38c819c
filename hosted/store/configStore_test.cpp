#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

#include "hosted/host/hostTree.h"
#include "hosted/store/flatJson.h"
#include "hosted/testSupport.h"
#include "platform/configStore.h"

namespace hosted {
namespace {

class ConfigStoreTest : public HostTreeTest {
 protected:
  void SetUp() override { ASSERT_EQ(ConfigStore::GetStore(0, &store_), 0); }
  void TearDown() override { ConfigStore::DestroyStore(store_); }

  int Commit(const FlatJson &values) {
    ConfigStore::Object *object = nullptr;
    int error = ConfigStore::CreateObject("key", "group", "amb", "", "{}", &object);
    for (const auto &[name, value] : values) {
      if (error == 0) error = ConfigStore::SetValueStr(object, name.c_str(), value.c_str());
    }
    if (error == 0) error = ConfigStore::SetCachedData(store_, object);
    ConfigStore::DestroyConfigStoreObject(object);
    return error;
  }

  /// A committed value; "(status)" when it can't be had.
  std::string Value(const char *name) {
    ConfigStore::Object *object = nullptr;
    int error = ConfigStore::Get(store_, "key", "group", "amb", "", &object);
    char *text = nullptr;
    if (error == 0) error = ConfigStore::GetValueStr(object, name, &text);
    const std::string value = error == 0 ? text : "(" + std::to_string(error) + ")";
    free(text);
    ConfigStore::DestroyConfigStoreObject(object);
    return value;
  }

  const std::string path_ = HostTreePath("configstore/amb/group/key.json");
  ConfigStore::Store *store_ = nullptr;
};

TEST_F(ConfigStoreTest, KeepsWhatIsCommittedAndNothingElse) {
  EXPECT_EQ(Value("a"), "(2)");
  EXPECT_EQ(Commit({{"a", "one"}, {"b", ""}, {"a", "two"}}), 0);
  EXPECT_EQ(testing_support::ReadFile(path_), "{\"a\": \"two\", \"b\": \"\"}\n");
  EXPECT_EQ(Value("a"), "two");
  EXPECT_EQ(Value("b"), "");
  EXPECT_EQ(Value("c"), "(2)");
  testing_support::WriteFile(HostTreePath("configstore/REFUSE"), "b\n");
  EXPECT_EQ(Commit({{"a", "three"}, {"b", "x"}}), EPERM);
  EXPECT_EQ(Value("a"), "two");
  // The whole object is replaced.
  EXPECT_EQ(Commit({{"c", "only"}}), 0);
  EXPECT_EQ(Value("a"), "(2)");
  // The longest text that an observation carries, of bytes that take six each.
  const std::string longest(131'071, '\x01');
  EXPECT_EQ(Commit({{"a", longest}}), 0);
  EXPECT_TRUE(Value("a") == longest);
}

TEST_F(ConfigStoreTest, RefusesBadAddressesAndBadFiles) {
  ConfigStore::Object *object = nullptr;
  ConfigStore::Store *store = nullptr;
  EXPECT_EQ(ConfigStore::GetStore(1, &store), EINVAL);
  EXPECT_EQ(ConfigStore::CreateObject("k", "g", "c", "someone", "{}", &object), EINVAL);
  EXPECT_EQ(ConfigStore::CreateObject("k", "g", "c", "", "{", &object), EINVAL);
  EXPECT_EQ(ConfigStore::CreateObject("k", nullptr, "c", "", "{}", &object), EINVAL);
  EXPECT_EQ(Commit({{"a", "one"}}), 0);
  for (const char *text : {"", "{\"a\": 1}", "{\"a\": \"x\"", "[]", "{\"a\": \"\xff\"}", "{\"a\": \"x\"}\n{}"}) {
    testing_support::WriteFile(path_, text);
    EXPECT_EQ(Value("a"), "(22)") << text;
    EXPECT_NE(log_.NextMessage().find(path_), std::string::npos) << text;
  }
  EXPECT_EQ(ConfigStore::SetValueStr(nullptr, "a", "b"), EINVAL);
  EXPECT_EQ(ConfigStore::SetCachedData(store_, nullptr), EINVAL);
}

TEST(FlatJson, ReadsBackWhatItWrites) {
  std::string all;
  for (int c = 1; c < 128; ++c) all += static_cast<char>(c);
  const FlatJson members = {{"", "x"}, {"all", all}, {"\"\\\n", "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"}};
  FlatJson read;
  ASSERT_TRUE(ParseFlatJson(FormatFlatJson(members), &read));
  EXPECT_EQ(read, members);
  EXPECT_EQ(FormatFlatJson({{"a", "x\xff\xc3(\xed\xa0\x80"}}),
            "{\"a\": \"x\xef\xbf\xbd\xef\xbf\xbd(\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\"}");
}

TEST(FlatJson, ReadsWhatOthersWriteAndRefusesTheRest) {
  FlatJson read;
  ASSERT_TRUE(ParseFlatJson(" {\n \"a\" : \"\\u00e9\\ud83d\\ude00\\/\\b\\f\\n\\r\\t\\\"\\\\\" ,\"b\":\"\"} \n", &read));
  EXPECT_EQ(read, (FlatJson{{"a", "\xc3\xa9\xf0\x9f\x98\x80/\b\f\n\r\t\"\\"}, {"b", ""}}));
  for (const char *text : {"", "{", "}", "{,}", "{a:\"b\"}"}) EXPECT_FALSE(ParseFlatJson(text, &read)) << text;
  EXPECT_FALSE(ParseFlatJson("{\"a\"}", &read));
  for (const char *rest : {"}", "null}", "{}}", "\"b\",}", "\"b\"}x", "\"b\" \"c\":\"d\"}", "\"\\u0000\"}",
                           "\"\\ud83d\"}", "\"\\ud83d\\u0041\"}", "\"\\udc00\"}", "\"\\x\"}", "\"\\", "\"\\u12\"}",
                           "\"\n\"}", "\"\xc0\x80\"}", "\"\xf5\x80\x80\x80\"}", "\"\xe2\x82\"}"}) {
    const std::string text = std::string("{\"a\":") + rest;
    EXPECT_FALSE(ParseFlatJson(text, &read)) << text;
  }
  EXPECT_EQ(read.size(), 2u);
}

}  // namespace
}  // namespace hosted
