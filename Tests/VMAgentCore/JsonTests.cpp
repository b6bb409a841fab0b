#include <gtest/gtest.h>

#include <array>
#include <string>

#include "Support/Words.h"
#include "VMAgentCore/Json.h"

namespace tervain {
namespace {

using Integer = std::optional<std::int64_t>;

TEST(Json, ReadsMembersByOneSetOfRules) {
  const std::tuple<const char*, Integer, Integer, bool> cases[] = {
      {"12", 12, 12, true},
      {"1.2e1", 12, 12, true},
      {"12.5", Integer(), 12, true},
      {"-3.9", Integer(), -3, true},
      {"0.5", Integer(), 0, true},
      {"-0.0", 0, 0, false},
      {"true", 1, 1, true},
      {"false", 0, 0, false},
      {"9223372036854775807", INT64_MAX, INT64_MAX, true},
      {"-9223372036854775808", INT64_MIN, INT64_MIN, true},
      {R"("12")", Integer(), Integer(), false},
      {"null", Integer(), Integer(), false},
      {"[1]", Integer(), Integer(), false}};
  for (const auto& [text, exact, truncated, truth] : cases) {
    const std::string_view names[] = {"k"};
    const auto object = parseMembers(std::string(R"({"k":7,"k":)") + text + "}", names);
    ASSERT_TRUE(object) << text;
    EXPECT_EQ(integerMember(*object, "k"), exact) << text;
    EXPECT_EQ(intField(*object, "k"), truncated) << text;
    EXPECT_EQ(truthy(*object, "k"), truth) << text;
    EXPECT_EQ(integerMember(*object, "missing"), Integer());
  }
}

TEST(JsonDeathTest, NumbersThatCannotBeTruncatedAreFatal) {
  EXPECT_DEATH(intField(*parseObject(R"({"x":1e300})"), "x"), "fatal error: .*\"x\"");
  EXPECT_DEATH(intField(*parseObject(R"({"x":9223372036854775808})"), "x"), "fatal error");
  EXPECT_EQ(integerMember(*parseObject(R"({"x":9223372036854775808})"), "x"), Integer());
}

TEST(Json, SurvivesWhateverItIsGiven) {
  const auto nested = [](std::size_t depth) {
    return R"({"a":)" + std::string(depth, '[') + std::string(depth, ']') + "}";
  };
  EXPECT_TRUE(parseObject(nested(maxJsonDepth - 1)));
  EXPECT_FALSE(parseObject(nested(maxJsonDepth)));
  EXPECT_FALSE(parseObject(std::string(4'000'000, '[')));
  for (const std::string& text : test::words(
           "{ [1,2] \"ping\" 5 {}x {'a':1} {\"a\":\"\xff\"} {\"a\":\"\xed\xa0\x80\"} "
           "{\"a\":\"\xf4\x90\x80\x80\"} {\"a\":\"\xe0\x9f\xbf\"} "
           R"({"a":"\ud800"} {"a":"\udc00"} {"a":"\u00g0"} {"a":"\x"} {"a":1e309} {"a":01} )"
           R"({"a":1.} {"a":-} {"a":1,} {"a":[1,]} {"a"1} {"a":nul})")) {
    EXPECT_FALSE(parseObject(text)) << text;
    EXPECT_FALSE(parseMembers(text, {})) << text;
  }
  for (const std::string& text :
       {std::string(), std::string("{}\0", 3), std::string("{\"a\":\"\n\"}")}) {
    EXPECT_FALSE(parseObject(text)) << text;
  }
  std::string values = R"({"a":[0)";
  for (int i = 0; i < 1'000'000; ++i) {
    values += ",0";
  }
  EXPECT_FALSE(parseObject(values + "]}"));
  EXPECT_EQ(parseMembers(values + R"(],"b":[1],"c":{"b":2},"b":{"c":3}})",
                         std::array<std::string_view, 2>{"b", "x"}),
            (Json{{"b", Json::object()}}));
}

TEST(Json, WritesCompactTextWithEscapedSlashes) {
  EXPECT_EQ(serialize(Json{{"a/b", "c\\/\"\n\x1f"}, {"n", {1, -2, 0.1, {}}}}),
            "{\"a\\/b\":\"c\\\\\\/\\\"\\n\\u001f\",\"n\":[1,-2,0.1,null]}");
  EXPECT_EQ(serialize(Json{{"a", "\xff"}}), std::nullopt);
}

}  // namespace
}  // namespace tervain
