#include "api/json_utilities.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <random>
#include <string>

namespace msp {
namespace {

std::string nested(std::size_t levels) {
  // An object at the top, arrays inside it.
  return "{\"a\":" + std::string(levels - 1, '[') + std::string(levels - 1, ']') + "}";
}

struct ParseCase {
  const char* name;
  std::string text;
  bool parses;
};

TEST(ParseJson, takesObjectsAndArraysAndNothingElse) {
  const ParseCase cases[] = {
      {"an object", R"({"a":1})", true},
      {"an array", "[1,2]", true},
      {"an empty object", "{}", true},
      {"white space around it", " \n{}\t", true},
      {"a byte order mark before it", "\xEF\xBB\xBF{}", true},
      {"nothing at all", "", false},
      {"a text alone", R"("text")", false},
      {"a number alone", "5", false},
      {"null alone", "null", false},
      {"half an object", R"({"a":)", false},
      {"something after it", "{} x", false},
      {"a lone high surrogate", R"({"a":"\ud83d"})", false},
      {"a lone low surrogate", R"({"a":"\ude00"})", false},
      {"a surrogate pair", R"({"a":"\ud83d\ude00"})", true},
      {"an escaped NUL character", R"({"a":"\u0000"})", true},
      {"a bare NUL character", std::string("{\"a\":\"\0\"}", 9), false},
      {"malformed UTF-8", "{\"a\":\"\xFF\"}", false},
      {"an HTML page", "<html></html>", false},
      {"a number beyond every range", R"({"a":1e999})", false},
      {"512 levels", nested(512), true},
      {"513 levels", nested(513), false},
      {"a million levels", nested(1'000'000), false},
      {"a million levels that never close", std::string(1'000'000, '['), false},
  };
  for (const ParseCase& c : cases) {
    std::string problem;
    EXPECT_EQ(parseJson(c.text, problem).has_value(), c.parses) << c.name;
    EXPECT_EQ(problem.empty(), c.parses) << c.name << ": " << problem;
  }
}

TEST(ParseJson, saysWhyWithoutTheLibrarysErrorCode) {
  std::string problem;
  EXPECT_FALSE(parseJson("", problem));
  EXPECT_EQ(
      problem,
      "parse error at line 1, column 1: syntax error while parsing value - unexpected end of input; expected "
      "'[', '{', or a literal");
  EXPECT_FALSE(parseJson("7", problem));
  EXPECT_EQ(problem, "the top level is neither an array nor an object");
  EXPECT_FALSE(parseJson(nested(513), problem));
  EXPECT_EQ(problem, "nested deeper than 512 levels");
}

TEST(ParseJson, keepsKeysInTheirOrderAndTheLastOfDuplicates) {
  std::string problem;
  const auto few = parseJson(R"({"b":1,"a":2,"b":[3],"c":{"x":1,"x":null}})", problem);
  ASSERT_TRUE(few);
  EXPECT_EQ(few->dump(), R"({"b":[3],"a":2,"c":{"x":null}})");

  std::string text = "{";
  for (int round = 0; round < 2; ++round) {
    for (int key = 0; key < 100; ++key) {
      text += "\"k" + std::to_string(key) + "\":" + std::to_string(round * 1000 + key) + ",";
    }
  }
  text.back() = '}';
  const auto many = parseJson(text, problem);
  ASSERT_TRUE(many);
  ASSERT_EQ(many->size(), 100U);
  int expected = 0;
  for (const auto& [key, value] : many->items()) {
    EXPECT_EQ(key, "k" + std::to_string(expected));
    EXPECT_EQ(value.get<int>(), 1000 + expected);
    ++expected;
  }
}

TEST(ParseJson, readsVeryManyKeysInReasonableTime) {
  // Comparing every key with all before it would take minutes: the test's own time limit notices.
  std::string text = "{";
  for (int key = 0; key < 300'000; ++key) text += "\"k" + std::to_string(key) + "\":0,";
  text.back() = '}';
  std::string problem;
  const auto value = parseJson(text, problem);
  ASSERT_TRUE(value);
  EXPECT_EQ(value->size(), 300'000U);
}

TEST(ParseJson, movesWhatAHostileNestingWouldCopyOverAndOver) {
  // Objects of two keys around a big list: a copy of the inner one at every level would take very long.
  std::string text = "[";
  for (int i = 0; i < 300'000; ++i) text += "[],";
  text.back() = ']';
  for (int level = 0; level < 500; ++level) text = R"({"a":)" + text + R"(,"b":0})";
  std::string problem;
  EXPECT_TRUE(parseJson(text, problem)) << problem;
}

TEST(ParseJson, quotesNoMoreThanALittleOfWhatItCouldNotRead) {
  std::string problem;
  EXPECT_FALSE(parseJson("{\"a\":\"" + std::string(1'000'000, 'x'), problem));
  EXPECT_EQ(problem.size(), 300U);
  EXPECT_TRUE(problem.starts_with("parse error at line 1, column")) << problem;
  EXPECT_FALSE(parseJson("{\"a\":\"" + std::string(1000, '\xE2'), problem));
  EXPECT_TRUE(compactText(Json(problem), problem)) << "the description is not well-formed UTF-8";
}

TEST(ParseJson, survivesRandomBytes) {
  std::mt19937 random(20240531);
  const std::string alphabet = R"({}[]":,0123456789.eE+-truefalsn\u"d8 )";
  for (int round = 0; round < 20'000; ++round) {
    std::string text = "{";
    for (auto length = random() % 40; length > 0; --length) text += alphabet[random() % alphabet.size()];
    std::string problem;
    const auto value = parseJson(text, problem);
    EXPECT_EQ(value.has_value(), problem.empty()) << text;
    EXPECT_EQ(value && prettyText(*value).empty(), false) << text;
  }
}

TEST(JsonToDictionary, printsWhyItReturnsAnEmptyDictionary) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(JSONUtilities::jsonToDictionary("5"), Json::object());
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Error parsing JSON: the top level is neither an array nor an object\n");

  testing::internal::CaptureStdout();
  EXPECT_EQ(JSONUtilities::jsonToDictionary("[{}]"), Json::object());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error converting JSON to dictionary\n");

  testing::internal::CaptureStdout();
  EXPECT_EQ(JSONUtilities::jsonToDictionary(R"({"a":1})"), Json({{"a", 1}}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(JsonToDictionary, tellsAFailureFromAnEmptyObjectWhereThatMatters) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(JSONUtilities::parseDictionary("{}"), Json::object());
  EXPECT_EQ(JSONUtilities::parseDictionary("{"), std::nullopt);
  EXPECT_EQ(JSONUtilities::parseDictionary("[]"), std::nullopt);
  testing::internal::GetCapturedStdout();
}

struct ValueCase {
  const char* name;
  const char* value;
  std::optional<std::int64_t> integer;
  std::optional<double> number;
  std::optional<std::string> text;
};

TEST(Values, areReadLeniently) {
  const ValueCase cases[] = {
      {"an integer", "7", 7, 7.0, std::nullopt},
      {"a negative integer", "-7", -7, -7.0, std::nullopt},
      {"an integral fraction", "1.0", 1, 1.0, std::nullopt},
      {"an exponent that is integral", "1e3", 1000, 1000.0, std::nullopt},
      {"a fraction", "120.5", std::nullopt, 120.5, std::nullopt},
      {"true is no number", "true", std::nullopt, std::nullopt, std::nullopt},
      {"a text is no number", "\"1\"", std::nullopt, std::nullopt, "1"},
      {"null", "null", std::nullopt, std::nullopt, std::nullopt},
      {"an object", "{}", std::nullopt, std::nullopt, std::nullopt},
      {"a list", "[1]", std::nullopt, std::nullopt, std::nullopt},
      {"the largest integer", "9223372036854775807", 9223372036854775807, 9223372036854775807.0,
       std::nullopt},
      {"one beyond it", "9223372036854775808", std::nullopt, 9223372036854775808.0, std::nullopt},
      {"far beyond it", "1e300", std::nullopt, 1e300, std::nullopt},
      {"the smallest integer", "-9223372036854775808", std::numeric_limits<std::int64_t>::min(),
       -9223372036854775808.0, std::nullopt},
      {"a text with a NUL character", R"("a\u0000b")", std::nullopt, std::nullopt, std::string("a\0b", 3)},
  };
  for (const ValueCase& c : cases) {
    const Json dictionary = JSONUtilities::jsonToDictionary(std::string(R"({"key":)") + c.value + "}");
    EXPECT_EQ(integerValue(dictionary, "key"), c.integer) << c.name;
    EXPECT_EQ(doubleValue(dictionary, "key"), c.number) << c.name;
    EXPECT_EQ(stringValue(dictionary, "key"), c.text) << c.name;
    EXPECT_EQ(integerValue(dictionary, "other"), std::nullopt) << c.name;
  }
}

TEST(Values, ofSomethingThatIsNoDictionaryAreMissing) {
  for (const Json& value : {Json(5), Json(nullptr), Json::array({1}), Json("text")}) {
    EXPECT_EQ(integerValue(value, "key"), std::nullopt);
    EXPECT_EQ(doubleValue(value, "key"), std::nullopt);
    EXPECT_EQ(stringValue(value, "key"), std::nullopt);
    Json taken = value;
    EXPECT_EQ(takeObjectList(taken, "key"), std::nullopt);
    EXPECT_EQ(taken, value);
  }
}

TEST(Values, aListCountsOnlyWhenAllItsElementsAreObjects) {
  struct Case {
    const char* list;
    std::optional<std::size_t> size;
  };
  const Case cases[] = {
      {"[]", 0U},
      {"[{}]", 1U},
      {R"([{"a":1},{"b":2}])", 2U},
      {"[{},5]", std::nullopt},
      {"[null]", std::nullopt},
      {"[[]]", std::nullopt},
      {"{}", std::nullopt},
      {"\"[]\"", std::nullopt},
  };
  for (const Case& c : cases) {
    Json dictionary = JSONUtilities::jsonToDictionary(std::string(R"({"key":)") + c.list + "}");
    const auto list = takeObjectList(dictionary, "key");
    EXPECT_EQ(list ? std::optional(list->size()) : std::nullopt, c.size) << c.list;
  }
}

TEST(PrintedForm, isTheDictionaryInSquareBrackets) {
  struct Case {
    const char* json;
    std::string printed;
  };
  const Case cases[] = {
      {"{}", "[:]"},
      {R"({"command":"ls -l","n":5})", R"(["command": "ls -l", "n": 5])"},
      {R"({"z":1,"a":2})", R"(["z": 1, "a": 2])"},
      {R"({"t":true,"f":false,"n":null})", R"(["t": true, "f": false, "n": <null>])"},
      {R"({"list":[1,"two",[3]],"none":[]})", R"(["list": [1, "two", [3]], "none": []])"},
      {R"({"in":{"a":{"b":{}}}})", R"(["in": ["a": ["b": [:]]]])"},
      {R"({"q":"say \"hi\" \\ bye"})", R"(["q": "say \"hi\" \\ bye"])"},
      {R"({"c":"\n\r\t\u0000\u0007\u001f\u007f"})", R"(["c": "\n\r\t\0\u{07}\u{1F}\u{7F}"])"},
      {R"({"c":"\u0080\u0085\u009f\u00a0"})", "[\"c\": \"\\u{80}\\u{85}\\u{9F}\u00a0\"]"},
      {R"({"u":"José 😀"})", R"(["u": "José 😀"])"},
      {R"({"a b":1.5})", R"(["a b": 1.5])"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(printedForm(JSONUtilities::jsonToDictionary(c.json)), c.printed) << c.json;
}

TEST(JsonText, isCompactOrPrettyAndRefusesMalformedText) {
  const Json value = {{"a", 1}, {"b", Json::array({"x"})}};
  std::string problem;
  EXPECT_EQ(compactText(value, problem), R"({"a":1,"b":["x"]})");
  EXPECT_EQ(prettyText(value), "{\n  \"a\": 1,\n  \"b\": [\n    \"x\"\n  ]\n}");

  const Json malformed = {{"a", "\xFF"}};
  EXPECT_EQ(compactText(malformed, problem), std::nullopt);
  EXPECT_EQ(problem, "invalid UTF-8 byte at index 0: 0xFF");
  EXPECT_EQ(prettyText(malformed), "");
}

}  // namespace
}  // namespace msp
