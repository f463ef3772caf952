#include "api/json_utilities.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>
#include <unordered_map>
#include <utility>

#include "platform/console.h"

namespace msp {
namespace {

constexpr std::size_t kDeepestNesting = 512;

/// The library's message without its own error code: "[json.exception.parse_error.101] parse error ...".
std::string reason(const std::exception& error) {
  const std::string text = error.what();
  const auto end = text.find("] ");
  return text.starts_with("[json.exception.") && end != std::string::npos ? text.substr(end + 2) : text;
}

/// Builds a value while the parser reads. The ordered type's own insertion searches every key before it,
/// which a hostile answer with a million keys would turn into hours; here an index takes over early.
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
  bool start_object(std::size_t /*size*/) override { return open(Json::object()); }
  bool start_array(std::size_t /*size*/) override { return open(Json::array()); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }

  bool key(string_t& value) override {
    Level& level = levels_.back();
    auto& object = level.value->get_ref<Json::object_t&>();
    level.slot = find(level, object, value);
    if (level.slot == nullptr) {
      if (!level.index.empty()) level.index.emplace(value, object.size());
      object.emplace_back(std::move(value), nullptr);
      level.slot = &object.back().second;
    }
    return true;
  }

  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& error) override {
    problem = reason(error);
    return false;
  }

 private:
  struct Level {
    Json* value;
    Json* slot = nullptr;  // where an object's next value goes
    std::unordered_map<std::string, std::size_t> index = {};
  };

  /// The value that stands under the key already: the last of duplicate keys wins.
  static Json* find(Level& level, Json::object_t& object, const std::string& key) {
    constexpr std::size_t kSmallObject = 32;
    if (object.size() < kSmallObject) {
      for (auto& [name, value] : object) {
        if (name == key) return &value;
      }
      return nullptr;
    }
    if (level.index.empty()) {
      for (const auto& entry : object) level.index.emplace(entry.first, level.index.size());
    }
    const auto found = level.index.find(key);
    if (found == level.index.end()) return nullptr;
    return &(object.begin() + static_cast<Json::difference_type>(found->second))->second;
  }

  Json* place(Json&& value) {
    if (levels_.empty()) {
      root = std::move(value);
      return &root;
    }
    Level& level = levels_.back();
    if (level.value->is_object()) {
      *level.slot = std::move(value);
      return level.slot;
    }
    level.value->get_ref<Json::array_t&>().push_back(std::move(value));
    return &level.value->back();
  }

  template <typename Value>
  bool add(Value&& value) {
    place(Json(std::forward<Value>(value)));
    return true;
  }

  bool open(Json&& empty) {
    if (levels_.size() == kDeepestNesting) {
      problem = "nested deeper than " + std::to_string(kDeepestNesting) + " levels";
      return false;
    }
    Json* const value = place(std::move(empty));
    levels_.push_back({value});
    return true;
  }

  bool close() {
    levels_.pop_back();
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

void printText(std::string& out, const std::string& text) {
  out += '"';
  for (const char c : text) {
    switch (c) {
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
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
          constexpr char kDigits[] = "0123456789ABCDEF";
          out += "\\u{";
          out += kDigits[static_cast<unsigned char>(c) >> 4U];
          out += kDigits[static_cast<unsigned char>(c) & 0xFU];
          out += '}';
        } else {
          out += c;
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

std::optional<std::vector<Json>> objectListValue(const Json& dictionary, std::string_view key) {
  const Json* const value = valueUnder(dictionary, key);
  if (value == nullptr || !value->is_array()) return std::nullopt;
  for (const Json& element : *value) {
    if (!element.is_object()) return std::nullopt;
  }
  return std::vector<Json>(value->begin(), value->end());
}

std::string printedForm(const Json& value) {
  std::string out;
  printValue(out, value);
  return out;
}

}  // namespace msp
