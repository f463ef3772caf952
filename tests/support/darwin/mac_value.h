#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace msp::test {

/// What a test has the simulated Mac hand out, before there is an object of it.
struct MacValue {
  enum class Kind : std::uint8_t {
    nothing,  // the null pointer
    text,
    integer,
    fraction,
    truth,
    date,
    data,
    array,
    dictionary,
    interface,
    characterSet,
  };
  Kind kind = Kind::nothing;
  std::u16string text = {};  // any code units
  std::int64_t integer = 0;  // also a character set's number
  double fraction = 0;       // of a date: seconds since 2001
  /// Of an array its elements, of a dictionary keys and values in turn, of an interface its name, hardware
  /// address and display name.
  std::vector<MacValue> parts = {};
  std::string bytes = {};  // of data
};

inline MacValue nothing() { return {}; }
inline MacValue text(std::u16string units) { return {MacValue::Kind::text, std::move(units)}; }
inline MacValue integer(std::int64_t value) { return {MacValue::Kind::integer, {}, value}; }
inline MacValue fraction(double value) { return {MacValue::Kind::fraction, {}, 0, value}; }
inline MacValue truth() { return {MacValue::Kind::truth}; }
inline MacValue date(double secondsSince2001) { return {MacValue::Kind::date, {}, 0, secondsSince2001}; }
inline MacValue data() { return {MacValue::Kind::data}; }
inline MacValue array(std::vector<MacValue> elements) {
  return {MacValue::Kind::array, {}, 0, 0, std::move(elements)};
}
/// Keys that are no texts are possible, so all of them are values.
inline MacValue dictionary(std::vector<std::pair<MacValue, MacValue>> entries) {
  MacValue value{MacValue::Kind::dictionary};
  for (auto& [key, entry] : entries) {
    value.parts.push_back(std::move(key));
    value.parts.push_back(std::move(entry));
  }
  return value;
}
inline MacValue interface(std::optional<std::u16string> name, std::optional<std::u16string> address,
                          std::optional<std::u16string> displayName) {
  const auto optionalText = [](std::optional<std::u16string> units) {
    return units ? text(*std::move(units)) : nothing();
  };
  return {MacValue::Kind::interface,
          {},
          0,
          0,
          {optionalText(std::move(name)), optionalText(std::move(address)),
           optionalText(std::move(displayName))}};
}

}  // namespace msp::test
