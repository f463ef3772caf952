#include "platform/property_list.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/text.h"
#include "support/machine_files.h"

namespace msp {
namespace {

using namespace std::string_literals;

using Dictionaries = std::vector<PropertyListDictionary>;

std::string dataFile(const std::string& name) {
  std::ifstream file(std::string(MSP_TEST_DATA) + "/property_list/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string document(const std::string& content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\">" +
         content + "</plist>\n";
}

/// The property list of one dictionary with this one value.
std::string documentWith(const std::string& value) {
  return document("<array><dict><key>key</key>" + value + "</dict></array>");
}

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

TEST(PropertyList, givesTextsAndDatesOfEveryDictionary) {
  const Dictionaries expected = {
      {{"date", PropertyListDate{1717156929}},
       {"displayName", "macOS 14.5"},
       {"displayVersion", ""},
       {"processName", "softwareupdated"}},
      {{"date", PropertyListDate{-446752800}}, {"displayName", "Schl\u00FCssel & \u30AD\u30FC <\U0001F511>"}},
      {},
  };
  EXPECT_EQ(parsePropertyListDictionaries(dataFile("xml.plist")), expected);
  EXPECT_EQ(parsePropertyListDictionaries(dataFile("binary.plist")), expected);
}

TEST(PropertyList, readsTheInstallHistoryOfEveryMachine) {
  for (const char* machine : test::kMachines) {
    const auto entries = parsePropertyListDictionaries(test::machineFile(machine, "InstallHistory.plist"));
    ASSERT_TRUE(entries) << machine;
    EXPECT_FALSE(entries->empty()) << machine;
    for (const PropertyListDictionary& entry : *entries) {
      EXPECT_TRUE(entry.contains("displayName")) << machine;
      ASSERT_TRUE(entry.contains("date")) << machine;
      EXPECT_TRUE(std::holds_alternative<PropertyListDate>(entry.at("date"))) << machine;
    }
  }
}

TEST(PropertyList, readsTextAndDatesAsTheyAreMeant) {
  struct Case {
    std::string name, value;
    Dictionaries expected;
  };
  const Case cases[] = {
      {"an empty text is a text", "<string></string>", {{{"key", ""}}}},
      {"an empty text may be one element", "<string/>", {{{"key", ""}}}},
      {"blanks of a text are kept", "<string> a  b\n</string>", {{{"key", " a  b\n"}}}},
      {"entities are read", "<string>a &amp; &lt;b&gt; &quot;&apos;</string>", {{{"key", "a & <b> \"'"}}}},
      {"numbered characters are read", "<string>&#233;&#x20AC;</string>", {{{"key", "\u00E9\u20AC"}}}},
      {"a date is in UTC", "<date>2001-01-01T00:00:01Z</date>", {{{"key", PropertyListDate{978307201}}}}},
      {"a date may lie before 1970", "<date>1969-12-31T23:59:59Z</date>", {{{"key", PropertyListDate{-1}}}}},
      {"a number is left out", "<integer>1</integer>", {{}}},
      {"a fraction is left out", "<real>1.5</real>", {{}}},
      {"true is left out", "<true/>", {{}}},
      {"data is left out", "<data>AAE=</data>", {{}}},
      {"an array is left out", "<array><string>a</string></array>", {{}}},
      {"a dictionary inside is left out", "<dict><key>key</key><string>a</string></dict>", {{}}},
      {"the values beside one left out stay",
       "<integer>1</integer><key>other</key><string>a</string>",
       {{{"other", "a"}}}},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(parsePropertyListDictionaries(documentWith(row.value)), row.expected) << row.name;
  }
}

TEST(PropertyList, neverMakesADateOfWhatIsNone) {
  for (const std::string text : {"yesterday", "2024-05-31", ""}) {
    const auto parsed = parsePropertyListDictionaries(documentWith("<date>" + text + "</date>"));
    if (parsed) {
      EXPECT_EQ(*parsed, Dictionaries{{}}) << text;
    }
  }
}

TEST(PropertyList, neverMovesADateThatTheReaderCannotExpress) {
  for (const std::string year : {"1600", "2200"}) {
    const auto parsed =
        parsePropertyListDictionaries(documentWith("<date>" + year + "-01-01T00:00:00Z</date>"));
    ASSERT_TRUE(parsed && parsed->size() == 1) << year;
    const auto found = parsed->front().find("key");
    if (found != parsed->front().end()) {
      EXPECT_EQ(std::get<PropertyListDate>(found->second).secondsSince1970,
                year == "1600" ? -11676096000.0 : 7258118400.0);
    }
  }
}

TEST(PropertyList, isNothingWhenItDoesNotParseOrHasAnotherShape) {
  struct Case {
    std::string name, bytes;
  };
  const std::string xml = dataFile("xml.plist");
  const std::string binary = dataFile("binary.plist");
  ASSERT_GT(xml.size(), 100U);
  ASSERT_GT(binary.size(), 100U);
  const Case cases[] = {
      {"no bytes", ""},
      {"a blank", " "},
      {"a NUL", "\0"s},
      {"some text", "hello"},
      {"an HTML page", "<html><body>hello</body></html>"},
      {"XML cut in the heading", xml.substr(0, 60)},
      {"XML cut in the middle", xml.substr(0, xml.size() / 2)},
      {"XML cut before the array ends", xml.substr(0, xml.rfind("</array>"))},
      {"XML with a wrong end tag", document("<array><dict><key>a</key><string>x</dict></array>")},
      {"XML with an unknown entity", documentWith("<string>&bogus;</string>")},
      {"XML with a value without key", document("<array><dict><string>x</string></dict></array>")},
      {"XML with malformed UTF-8 in a text", documentWith("<string>a\xFF</string>")},
      {"XML with malformed UTF-8 in a key",
       document("<array><dict><key>\xC3</key><string>x</string></dict></array>")},
      {"XML with a NUL in a key", document("<array><dict><key>a\0b</key><string>x</string></dict></array>"s)},
      {"an empty document", document("")},
      {"a dictionary", document("<dict><key>a</key><array/></dict>")},
      {"a text", document("<string>a</string>")},
      {"an array of texts", document("<array><string>a</string></array>")},
      {"an array of arrays", document("<array><array/></array>")},
      {"an array of a dictionary and a text", document("<array><dict/><string>a</string></array>")},
      {"a binary heading alone", "bplist00"},
      {"binary cut at its start", binary.substr(0, 20)},
      {"binary cut in the middle", binary.substr(0, binary.size() / 2)},
      {"binary without its last byte", binary.substr(0, binary.size() - 1)},
      {"a binary dictionary", dataFile("binary_dictionary.plist")},
      {"a binary array of texts", dataFile("binary_texts.plist")},
      {"a binary array that holds itself", dataFile("binary_holding_itself.plist")},
      {"arrays in arrays without end", repeated("<array>", 1'000'000)},
      {"arrays in arrays in great number",
       document(repeated("<array>", 1'000'000) + repeated("</array>", 1'000'000))},
      {"dictionaries in dictionaries in great number",
       document(repeated("<dict><key>a</key>", 1'000'000) + repeated("</dict>", 1'000'000))},
      {"the same, with ends in comments that do not count",
       document(repeated("<array><!--</array>-->", 1'000'000) + repeated("</array>", 1'000'000))},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(parsePropertyListDictionaries(row.bytes), std::nullopt) << row.name;
  }
}

TEST(PropertyList, survivesAKeyThatHoldsANul) {
  const auto parsed = parsePropertyListDictionaries(dataFile("binary_key_with_nul.plist"));
  EXPECT_TRUE(!parsed || *parsed == Dictionaries({{{"n\0\u00E9"s, "text"}}}));
}

TEST(PropertyList, mayBeLong) {
  const std::string entry =
      "<dict><key>displayName</key><string>macOS</string><key>packages</key><array/></dict>";
  const auto parsed = parsePropertyListDictionaries(document("<array>" + repeated(entry, 5000) + "</array>"));
  ASSERT_TRUE(parsed);
  EXPECT_EQ(*parsed, Dictionaries(5000, {{"displayName", "macOS"}}));
}

TEST(PropertyList, emptyArraysHaveNoDictionaries) {
  EXPECT_EQ(parsePropertyListDictionaries(document("<array/>")), Dictionaries{});
  EXPECT_EQ(parsePropertyListDictionaries(document("<array></array>")), Dictionaries{});
  EXPECT_EQ(parsePropertyListDictionaries(document("<array><dict/></array>")), Dictionaries{{}});
}

TEST(PropertyList, damagedBytesGiveWellFormedTextOrNothing) {
  std::mt19937 random(20240531);
  const std::string originals[] = {dataFile("xml.plist"), dataFile("binary.plist")};
  int parsedCount = 0;
  for (int round = 0; round < 4000; ++round) {
    std::string bytes = originals[round % 2];
    for (std::size_t damages = 1 + random() % 4; damages > 0; --damages) {
      bytes[random() % bytes.size()] = static_cast<char>(random() % 256);
    }
    const auto parsed = parsePropertyListDictionaries(bytes);
    if (!parsed) continue;
    ++parsedCount;
    for (const PropertyListDictionary& dictionary : *parsed) {
      for (const auto& [key, value] : dictionary) {
        ASSERT_TRUE(decodeText(key));
        const auto* text = std::get_if<std::string>(&value);
        ASSERT_TRUE(text == nullptr || decodeText(*text));
      }
    }
  }
  EXPECT_GT(parsedCount, 0);
}

}  // namespace
}  // namespace msp
