#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace msp {

/// A date of a property list, in seconds since 1970, UTC; always finite, at any distance.
struct PropertyListDate {
  double secondsSince1970 = 0;
  bool operator==(const PropertyListDate&) const = default;
};

/// One dictionary of a property list: its texts and dates. Values of other types are left out, and so
/// are dates that the system's reader cannot express. Text is well-formed UTF-8.
using PropertyListDictionary = std::map<std::string, std::variant<std::string, PropertyListDate>>;

/// Reads a property list, XML or binary, whose top level is an array of dictionaries (a Mac reads the old
/// text format as well). Nothing when it does not parse or has another shape. Safe on any thread.
std::optional<std::vector<PropertyListDictionary>> parsePropertyListDictionaries(std::string_view bytes);

}  // namespace msp
