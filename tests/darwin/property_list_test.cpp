#include "platform/property_list.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "support/darwin/every_failure.h"

// How files are read is in the tests for every system; this is about what the reader may hand over.

namespace msp::test {
namespace {

using Dictionaries = std::vector<PropertyListDictionary>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(PropertyListOfAMac, keepsTextsAndDates) {
  struct Case {
    const char* name;
    MacValue given;
    std::optional<Dictionaries> expected;
  };
  const MacValue key = text(u"key");
  const Case cases[] = {
      {"a text", array({dictionary({{key, text(u"a")}})}), Dictionaries{{{"key", "a"}}}},
      {"a text with half a pair", array({dictionary({{key, text(u"a\xD800")}})}),
       Dictionaries{{{"key", "a?"}}}},
      {"a key with half a pair", array({dictionary({{text(u"\xDC00"), text(u"a")}})}),
       Dictionaries{{{"?", "a"}}}},
      {"a text with a NUL", array({dictionary({{key, text(std::u16string(u"a\0b", 3))}})}),
       Dictionaries{{{"key", std::string("a\0b", 3)}}}},
      {"a date", array({dictionary({{key, date(0)}})}), Dictionaries{{{"key", PropertyListDate{978307200}}}}},
      {"a date with a fraction", array({dictionary({{key, date(0.5)}})}),
       Dictionaries{{{"key", PropertyListDate{978307200.5}}}}},
      {"the start of 1970", array({dictionary({{key, date(-978307200)}})}),
       Dictionaries{{{"key", PropertyListDate{0}}}}},
      {"a date before 1970", array({dictionary({{key, date(-978307201)}})}),
       Dictionaries{{{"key", PropertyListDate{-1}}}}},
      {"a date long ago", array({dictionary({{key, date(-63113904000)}})}),
       Dictionaries{{{"key", PropertyListDate{-62135596800}}}}},
      {"a date at the end of all numbers", array({dictionary({{key, date(1e300)}})}),
       Dictionaries{{{"key", PropertyListDate{1e300}}}}},
      {"a date that is no number", array({dictionary({{key, date(std::nan(""))}})}), Dictionaries{{}}},
      {"an endless date", array({dictionary({{key, date(kInfinity)}})}), Dictionaries{{}}},
      {"a date without beginning", array({dictionary({{key, date(-kInfinity)}})}), Dictionaries{{}}},
      {"values of other types",
       array({dictionary({{text(u"a"), integer(1)},
                          {text(u"b"), fraction(1.5)},
                          {text(u"c"), truth()},
                          {text(u"d"), data()},
                          {text(u"e"), array({text(u"x")})},
                          {text(u"f"), dictionary({{key, text(u"x")}})},
                          {text(u"g"), nothing()},
                          {text(u"h"), text(u"kept")}})}),
       Dictionaries{{{"h", "kept"}}}},
      {"keys that are no texts",
       array({dictionary({{integer(1), text(u"x")}, {date(0), text(u"y")}, {key, text(u"kept")}})}),
       Dictionaries{{{"key", "kept"}}}},
      {"an array", array({}), Dictionaries{}},
      {"a dictionary at the top", dictionary({{key, text(u"a")}}), std::nullopt},
      {"a text at the top", text(u"a"), std::nullopt},
      {"a number at the top", integer(1), std::nullopt},
      {"an array of texts", array({text(u"a")}), std::nullopt},
      {"an array with one text", array({dictionary({}), text(u"a")}), std::nullopt},
      {"an array of arrays", array({array({})}), std::nullopt},
  };
  for (const Case& row : cases) {
    SimulatedMac::current().propertyList = row.given;
    EXPECT_EQ(parsePropertyListDictionaries("any"), row.expected) << row.name;
  }
}

TEST(PropertyListOfAMac, isNothingWhenTheSystemFails) {
  withEveryFailure(
      [](SimulatedMac& mac) {
        mac.propertyList = array({dictionary({{text(u"key"), text(u"a")}})});
      },
      [](int failing) {
        EXPECT_EQ(parsePropertyListDictionaries("any"),
                  failing == 0 ? std::optional(Dictionaries{{{"key", "a"}}}) : std::nullopt);
      });
}

TEST(PropertyListOfAMac, mayBeOfNoBytesAtAll) { EXPECT_EQ(parsePropertyListDictionaries({}), std::nullopt); }

}  // namespace
}  // namespace msp::test
