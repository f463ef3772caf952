#include "api/json_utilities.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>
#include <unordered_map>
#include <utility>

#include "platform/console.h"
#include "platform/text.h"

namespace msp {
namespace {

constexpr std::size_t kDeepestNesting = 512;

/// The library's message without its own error code: "[json.exception.parse_error.101] parse error ...". It
/// quotes what was read last, which may be megabytes of anything: cut, and repaired where it was cut.
std::string reason(const std::exception& error) {
  constexpr std::size_t kLongestReason = 300;  // bytes
  const std::string_view text = error.what();
  const auto end = text.find("] ");
  const bool hasCode = text.starts_with("[json.exception.") && end != std::string_view::npos;
  return repairText(text.substr(hasCode ? end + 2 : 0, kLongestReason));
}

/// Builds a value while the parser reads. The ordered type's own insertion searches every key before it and
/// copies all values at every growth, which a hostile answer could turn into hours: here an object's pieces
/// are collected first, an index finds the duplicates, and every value is moved once a level.
class OrderedBuilder : public nlohmann::json_sax<Json> {
 public:
  Json root;
  std::string problem;

  bool null() override { return add(nullptr); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(number_integer_t value) override { return add(value); }
  bool number_unsigned(number_unsigned_t value) override { return add(value); }
  bool number_float(number_float_t value, const string_t& /*text*/) override { return add(value); }
  bool string(string_t& value) override { return add(std::move(value)); }
  bool binary(binary_t& value) override { return add(std::move(value)); }
  bool start_object(std::size_t /*size*/) override { return open(); }
  bool start_array(std::size_t /*size*/) override { return open(); }

  bool key(string_t& value) override {
    levels_.back().keys.push_back(std::move(value));
    return true;
  }

  bool end_object() override {
    Level level = std::move(levels_.back());
    levels_.pop_back();
    return add(objectOf(std::move(level)));
  }

  bool end_array() override {
    Json::array_t elements = std::move(levels_.back().values);
    levels_.pop_back();
    return add(std::move(elements));
  }

  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& error) override {
    problem = reason(error);
    return false;
  }

 private:
  struct Level {
    std::vector<std::string> keys;
    std::vector<Json> values;
  };

  /// The object of these keys and values. Of duplicate keys the last one wins, in the first one's place.
  static Json objectOf(Level level) {
    std::unordered_map<std::string_view, std::size_t> places;
    places.reserve(level.keys.size());
    std::vector<std::size_t> order;  // the pieces that stay
    order.reserve(level.keys.size());
    for (std::size_t i = 0; i < level.keys.size(); ++i) {
      const auto [place, isNew] = places.try_emplace(level.keys[i], i);
      if (isNew) {
        order.push_back(i);
      } else {
        level.values[place->second] = std::move(level.values[i]);
      }
    }
    Json::object_t object;
    object.reserve(order.size());
    for (const std::size_t i : order) {
      object.emplace_back(std::move(level.keys[i]), std::move(level.values[i]));
    }
    return object;
  }

  template <typename Value>
  bool add(Value&& value) {
    if (levels_.empty()) {
      root = std::forward<Value>(value);
    } else {
      levels_.back().values.emplace_back(std::forward<Value>(value));
    }
    return true;
  }

  bool open() {
    if (levels_.size() == kDeepestNesting) {
      problem = "nested deeper than " + std::to_string(kDeepestNesting) + " levels";
      return false;
    }
    levels_.emplace_back();
    return true;
  }

  std::vector<Level> levels_;
};

const Json* valueUnder(const Json& dictionary, std::string_view key) {
  if (!dictionary.is_object()) return nullptr;
  const auto found = dictionary.find(std::string(key));
  return found == dictionary.end() ? nullptr : &*found;
}

std::optional<std::int64_t> asInteger(const Json& value) {
  if (value.is_number_unsigned()) {
    const auto number = value.get<std::uint64_t>();
    if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return std::nullopt;
    return static_cast<std::int64_t>(number);
  }
  if (value.is_number_integer()) return value.get<std::int64_t>();
  if (!value.is_number_float()) return std::nullopt;
  const auto number = value.get<double>();
  constexpr double kLimit = 9223372036854775808.0;  // 2^63, the first number beyond the range
  if (number != std::trunc(number) || number < -kLimit || number >= kLimit) return std::nullopt;
  return static_cast<std::int64_t>(number);
}

/// A control character below U+00A0, escaped.
void printControl(std::string& out, unsigned character) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  out += "\\u{";
  out += kDigits[character >> 4U];
  out += kDigits[character & 0xFU];
  out += '}';
}

void printText(std::string& out, const std::string& text) {
  out += '"';
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
    switch (byte) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\0':
        out += "\\0";
        break;
      default:
        if (byte < 0x20 || byte == 0x7F) {
          printControl(out, byte);
        } else if (byte == 0xC2 && next < 0xA0) {  // U+0080 to U+009F
          printControl(out, next);
          ++i;
        } else {
          out += text[i];
        }
    }
  }
  out += '"';
}

void printValue(std::string& out, const Json& value) {
  const char* separator = "";
  if (value.is_object()) {
    if (value.empty()) {
      out += "[:]";
      return;
    }
    out += '[';
    for (const auto& [key, element] : value.get_ref<const Json::object_t&>()) {
      out += std::exchange(separator, ", ");
      printText(out, key);
      out += ": ";
      printValue(out, element);
    }
    out += ']';
  } else if (value.is_array()) {
    out += '[';
    for (const Json& element : value) {
      out += std::exchange(separator, ", ");
      printValue(out, element);
    }
    out += ']';
  } else if (value.is_string()) {
    printText(out, value.get_ref<const std::string&>());
  } else if (value.is_null()) {
    out += "<null>";
  } else {
    out += value.dump();
  }
}

}  // namespace

std::optional<Json> parseJson(std::string_view data, std::string& problem) {
  OrderedBuilder builder;
  if (!Json::sax_parse(data, &builder)) {
    problem = builder.problem;
    return std::nullopt;
  }
  if (!builder.root.is_structured()) {
    problem = "the top level is neither an array nor an object";
    return std::nullopt;
  }
  return std::move(builder.root);
}

std::optional<Json> JSONUtilities::parseDictionary(std::string_view data) {
  std::string problem;
  auto value = parseJson(data, problem);
  if (!value) {
    printLine("Error parsing JSON: " + problem);
    return std::nullopt;
  }
  if (!value->is_object()) {
    printLine("Error converting JSON to dictionary");
    return std::nullopt;
  }
  return value;
}

Json JSONUtilities::jsonToDictionary(std::string_view data) {
  return parseDictionary(data).value_or(Json::object());
}

std::optional<std::string> compactText(const Json& value, std::string& problem) {
  try {
    return value.dump();
  } catch (const Json::exception& error) {
    problem = reason(error);
    return std::nullopt;
  }
}

std::string prettyText(const Json& value) {
  constexpr int kIndent = 2;
  try {
    return value.dump(kIndent);
  } catch (const Json::exception&) {
    return "";
  }
}

std::optional<std::int64_t> integerValue(const Json& dictionary, std::string_view key) {
  const Json* const value = valueUnder(dictionary, key);
  return value == nullptr ? std::nullopt : asInteger(*value);
}

std::optional<double> doubleValue(const Json& dictionary, std::string_view key) {
  const Json* const value = valueUnder(dictionary, key);
  if (value == nullptr || !value->is_number()) return std::nullopt;
  return value->get<double>();
}

std::optional<std::string> stringValue(const Json& dictionary, std::string_view key) {
  const Json* const value = valueUnder(dictionary, key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

std::optional<std::vector<Json>> takeObjectList(Json& dictionary, std::string_view key) {
  const Json* const value = valueUnder(dictionary, key);
  if (value == nullptr || !value->is_array()) return std::nullopt;
  for (const Json& element : *value) {
    if (!element.is_object()) return std::nullopt;
  }
  return std::move(dictionary[std::string(key)].get_ref<Json::array_t&>());
}

std::string printedForm(const Json& value) {
  std::string out;
  printValue(out, value);
  return out;
}

}  // namespace msp
