#include <plist/plist.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <utility>

#include "platform/property_list.h"
#include "platform/text.h"

namespace msp {
namespace {

struct FreeNode {
  void operator()(void* node) const { plist_free(node); }
};
struct FreeXml {
  void operator()(char* xml) const { plist_to_xml_free(xml); }
};
struct FreeMemory {
  // This is how libplist wants it.
  void operator()(void* memory) const { std::free(memory); }  // NOLINT(cppcoreguidelines-no-malloc)
};
using Node = std::unique_ptr<void, FreeNode>;
using Memory = std::unique_ptr<void, FreeMemory>;
using Text = std::unique_ptr<char, FreeMemory>;
using Xml = std::unique_ptr<char, FreeXml>;

constexpr int kDeepestNesting = 512;

/// Whether arrays and dictionaries lie so deep in each other that libplist, which frees them by recursion,
/// would use up the stack.
bool nestsTooDeep(std::string_view xml) {
  int depth = 0;
  for (std::size_t at = xml.find('<'); at != std::string_view::npos; at = xml.find('<', at)) {
    const std::string_view rest = xml.substr(at);
    std::string_view end = ">";
    if (rest.starts_with("<!--")) end = "-->";
    if (rest.starts_with("<![CDATA[")) end = "]]>";
    const std::size_t length = rest.find(end);
    if (length == std::string_view::npos) break;
    const bool isContainer = rest.starts_with("<array") || rest.starts_with("<dict");
    const bool isEmptyElement = rest[length - 1] == '/';
    if (isContainer && !isEmptyElement && ++depth > kDeepestNesting) return true;
    if (rest.starts_with("</array") || rest.starts_with("</dict")) --depth;
    at += length;
  }
  return false;
}

Node parse(std::string_view bytes) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max()) return nullptr;
  const auto size = static_cast<std::uint32_t>(bytes.size());
  plist_t node = nullptr;
  if (plist_is_binary(bytes.data(), size) != 0) {
    plist_from_bin(bytes.data(), size, &node);
  } else if (bytes.find('\0') == std::string_view::npos && !nestsTooDeep(bytes)) {
    plist_from_xml(bytes.data(), size, &node);
  }
  return Node(node);
}

std::optional<std::string> textOf(plist_t node) {
  std::uint64_t length = 0;
  const char* const text = plist_get_string_ptr(node, &length);
  return decodeText({text, static_cast<std::size_t>(length)});
}

/// In whole seconds. Nothing for what libplist makes of a text that is no date (the start of 1970) and of a
/// date before 1933 or after 2069 (its lowest number).
std::optional<PropertyListDate> dateOf(plist_t node) {
  constexpr double kSecondsFrom1970To2001 = 978'307'200;
  std::int32_t secondsSince2001 = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &secondsSince2001, &microseconds);
  const double secondsSince1970 = secondsSince2001 + kSecondsFrom1970To2001;
  if (secondsSince1970 == 0 || secondsSince2001 == std::numeric_limits<std::int32_t>::min()) {
    return std::nullopt;
  }
  return PropertyListDate{secondsSince1970};
}

/// The name of a dictionary's value; nothing when it is no text. libplist ends the process when asked for a
/// name that holds a NUL, which only its printed form tells.
std::optional<std::string> keyOf(plist_t value) {
  auto* const key = plist_dict_item_get_key(value);
  char* allocatedXml = nullptr;
  std::uint32_t xmlSize = 0;
  plist_to_xml(key, &allocatedXml, &xmlSize);
  const Xml xml(allocatedXml);
  if (xml == nullptr || std::string_view(xml.get(), xmlSize).find('\0') != std::string_view::npos) {
    return std::nullopt;
  }
  char* allocated = nullptr;
  plist_get_key_val(key, &allocated);
  const Text bytes(allocated);
  if (bytes == nullptr) return std::nullopt;
  return decodeText(bytes.get());
}

std::optional<PropertyListDictionary> dictionaryOf(plist_t node) {
  PropertyListDictionary dictionary;
  plist_dict_iter allocated = nullptr;
  plist_dict_new_iter(node, &allocated);
  const Memory iterator(allocated);
  while (true) {
    plist_t value = nullptr;
    plist_dict_next_item(node, iterator.get(), nullptr, &value);
    if (value == nullptr) return dictionary;

    const auto key = keyOf(value);
    if (!key) return std::nullopt;
    if (plist_get_node_type(value) == PLIST_STRING) {
      auto text = textOf(value);
      if (!text) return std::nullopt;
      dictionary.insert_or_assign(*key, std::move(*text));
    } else if (plist_get_node_type(value) == PLIST_DATE) {
      if (const auto date = dateOf(value)) dictionary.insert_or_assign(*key, *date);
    }
  }
}

}  // namespace

std::optional<std::vector<PropertyListDictionary>> parsePropertyListDictionaries(std::string_view bytes) {
  const Node root = parse(bytes);
  if (root == nullptr || plist_get_node_type(root.get()) != PLIST_ARRAY) return std::nullopt;

  std::vector<PropertyListDictionary> dictionaries;
  plist_array_iter allocated = nullptr;
  plist_array_new_iter(root.get(), &allocated);
  const Memory iterator(allocated);
  while (true) {
    plist_t item = nullptr;
    plist_array_next_item(root.get(), iterator.get(), &item);
    if (item == nullptr) return dictionaries;
    if (plist_get_node_type(item) != PLIST_DICT) return std::nullopt;
    auto dictionary = dictionaryOf(item);
    if (!dictionary) return std::nullopt;
    dictionaries.push_back(std::move(*dictionary));
  }
}

}  // namespace msp
