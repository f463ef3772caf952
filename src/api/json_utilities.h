#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// JSON as the server and the agent exchange it. Everything here is safe on any thread.
namespace msp {

/// A JSON value; objects keep the order in which their keys arrived.
using Json = nlohmann::ordered_json;

/// Bytes or JSON text to a dictionary. Problems are printed on standard output, not logged.
class JSONUtilities {
 public:
  /// The object in `data`; an empty object when it does not parse or is none.
  static Json jsonToDictionary(std::string_view data);

  /// The same, but telling a failure (nothing) from an empty object.
  static std::optional<Json> parseDictionary(std::string_view data);
};

/// The array or object in `data`; nothing, with `problem` filled, when it does not parse, holds anything else
/// or is nested deeper than 512 levels. Prints nothing.
std::optional<Json> parseJson(std::string_view data, std::string& problem);

/// Compact JSON text; nothing, with `problem` filled, when a text in it is not well-formed UTF-8.
std::optional<std::string> compactText(const Json& value, std::string& problem);

/// Pretty-printed JSON text; "" when a text in it is not well-formed UTF-8.
std::string prettyText(const Json& value);

// Reading a value by its key, leniently: a missing key, a value of another type and a `dictionary` that is
// none all count as missing.

/// An integral number within 64 bits; 1.0 is 1, true is none, "1" is none.
std::optional<std::int64_t> integerValue(const Json& dictionary, std::string_view key);
/// Any number.
std::optional<double> doubleValue(const Json& dictionary, std::string_view key);
std::optional<std::string> stringValue(const Json& dictionary, std::string_view key);
/// A list in which every element is an object; moved out, as it may be large.
std::optional<std::vector<Json>> takeObjectList(Json& dictionary, std::string_view key);

/// A dictionary as the event log shows it: ["command": "ls -l", "n": 5], keys in their order of arrival;
/// the empty one is [:].
std::string printedForm(const Json& value);

}  // namespace msp
