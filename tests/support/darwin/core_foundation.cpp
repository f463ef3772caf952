#include <CoreFoundation/CoreFoundation.h>
#include <plist/plist.h>
#include <utf8proc.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

#include "support/darwin/simulated_mac.h"

// CoreFoundation, as far as the agent uses it.

using msp::test::codeUnitsOf;
using msp::test::MacObject;
using msp::test::MacValue;
using msp::test::SimulatedMac;
using Kind = msp::test::MacValue::Kind;

namespace {

SimulatedMac& mac() { return SimulatedMac::current(); }

CFTypeID typeOf(Kind kind) {
  // Both are numbers.
  return static_cast<CFTypeID>(kind == Kind::fraction ? Kind::integer : kind);
}

bool isLeading(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isTrailing(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

/// The character that begins with that unit, or nothing if that is half a pair; and how many units it has.
std::pair<std::optional<utf8proc_int32_t>, CFIndex> characterAt(std::u16string_view units) {
  const char16_t first = units[0];
  if (isLeading(first) && units.size() > 1 && isTrailing(units[1]))
    return {0x10000 + ((first - 0xD800) << 10) + (units[1] - 0xDC00), 2};
  if (isLeading(first) || isTrailing(first)) return {std::nullopt, 1};
  return {first, 1};
}

std::string bytesOf(utf8proc_int32_t character) {
  std::string bytes(4, '\0');
  const auto length = utf8proc_encode_char(character, reinterpret_cast<utf8proc_uint8_t*>(bytes.data()));
  bytes.resize(static_cast<std::size_t>(length));
  return bytes;
}

MacObject* textObject(const void* reference, const char* call) {
  return mac().object(reference, Kind::text, call);
}

void expectAllocator(CFAllocatorRef allocator, const char* call) {
  if (allocator != kCFAllocatorDefault) mac().fault(std::string(call) + " was given an allocator");
}

void expectUtf8(CFStringEncoding encoding, const char* call) {
  if (encoding != kCFStringEncodingUTF8) mac().fault(std::string(call) + " was given another encoding");
}

CFStringRef createText(const std::optional<std::u16string>& units) {
  if (!units || mac().fails()) return nullptr;
  return reinterpret_cast<CFStringRef>(mac().create(msp::test::text(*units)));
}

// The reader of property lists.

struct FreeNode {
  void operator()(void* node) const { plist_free(node); }
};
struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }  // NOLINT(cppcoreguidelines-no-malloc)
};
using Node = std::unique_ptr<void, FreeNode>;
using Memory = std::unique_ptr<void, FreeMemory>;

/// Far more than any test's list has in good faith; libplist frees by recursion.
bool hasTooMany(std::string_view xml, std::string_view element) {
  constexpr int kMost = 10'000;
  int count = 0;
  for (std::size_t at = xml.find(element); at != std::string_view::npos; at = xml.find(element, at + 1)) {
    if (++count > kMost) return true;
  }
  return false;
}

std::optional<MacValue> valueOf(plist_t node);

/// libplist ends the process when asked for a key that holds a NUL, which only its printed form tells.
std::optional<MacValue> keyOf(plist_t value) {
  auto* const key = plist_dict_item_get_key(value);
  char* xml = nullptr;
  std::uint32_t size = 0;
  plist_to_xml(key, &xml, &size);
  const Memory xmlOwner(xml);
  if (xml == nullptr || std::memchr(xml, 0, size) != nullptr) return std::nullopt;
  char* bytes = nullptr;
  plist_get_key_val(key, &bytes);
  const Memory bytesOwner(bytes);
  if (bytes == nullptr) return std::nullopt;
  auto units = codeUnitsOf(bytes);
  if (!units) return std::nullopt;
  return msp::test::text(*std::move(units));
}

std::optional<MacValue> arrayOf(plist_t node) {
  MacValue list{Kind::array};
  for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i) {
    auto element = valueOf(plist_array_get_item(node, i));
    if (!element) return std::nullopt;
    list.parts.push_back(*std::move(element));
  }
  return list;
}

std::optional<MacValue> dictionaryOf(plist_t node) {
  MacValue entries{Kind::dictionary};
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  const Memory owner(iterator);
  while (true) {
    plist_t item = nullptr;
    plist_dict_next_item(node, iterator, nullptr, &item);
    if (item == nullptr) return entries;
    auto key = keyOf(item);
    auto value = valueOf(item);
    if (!key || !value) return std::nullopt;
    entries.parts.push_back(*std::move(key));
    entries.parts.push_back(*std::move(value));
  }
}

/// Nothing for what libplist makes of a text that is no date, the start of 1970. A date before 1933 or after
/// 2069, which it cannot express, is its lowest number; data stands in for that.
std::optional<MacValue> dateOf(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  if (seconds == -kCFAbsoluteTimeIntervalSince1970) return std::nullopt;
  if (seconds == std::numeric_limits<std::int32_t>::min()) return msp::test::data();
  return msp::test::date(seconds);
}

std::optional<MacValue> valueOf(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
      std::uint64_t length = 0;
      const char* const bytes = plist_get_string_ptr(node, &length);
      auto units = codeUnitsOf({bytes, length});
      if (!units) return std::nullopt;
      return msp::test::text(*std::move(units));
    }
    case PLIST_DATE:
      return dateOf(node);
    case PLIST_ARRAY:
      return arrayOf(node);
    case PLIST_DICT:
      return dictionaryOf(node);
    case PLIST_BOOLEAN:
      return msp::test::truth();
    case PLIST_UINT:
      return msp::test::integer(1);
    case PLIST_REAL:
      return msp::test::fraction(1.5);
    default:
      return msp::test::data();
  }
}

std::optional<MacValue> parsePropertyList(const std::string& bytes) {
  if (bytes.empty()) return std::nullopt;
  const auto size = static_cast<std::uint32_t>(bytes.size());
  plist_t node = nullptr;
  if (plist_is_binary(bytes.data(), size) != 0) {
    plist_from_bin(bytes.data(), size, &node);
  } else if (bytes.find('\0') == std::string::npos && !hasTooMany(bytes, "<array") &&
             !hasTooMany(bytes, "<dict")) {
    plist_from_xml(bytes.data(), size, &node);
  }
  const Node owner(node);
  if (node == nullptr) return std::nullopt;
  return valueOf(node);
}

}  // namespace

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFTimeInterval kCFAbsoluteTimeIntervalSince1970 = 978'307'200;

void CFRelease(CFTypeRef object) { mac().release(object, __func__); }

CFTypeID CFGetTypeID(CFTypeRef object) {
  const MacObject* const found = mac().object(object, __func__);
  return found == nullptr ? 0 : typeOf(found->kind);
}

CFTypeID CFArrayGetTypeID() { return typeOf(Kind::array); }
CFTypeID CFDictionaryGetTypeID() { return typeOf(Kind::dictionary); }
CFTypeID CFStringGetTypeID() { return typeOf(Kind::text); }
CFTypeID CFDateGetTypeID() { return typeOf(Kind::date); }
CFTypeID CFNumberGetTypeID() { return typeOf(Kind::integer); }

CFIndex CFArrayGetCount(CFArrayRef array) {
  const MacObject* const list = mac().object(array, Kind::array, __func__);
  return list == nullptr ? 0 : static_cast<CFIndex>(list->parts.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  const MacObject* const list = mac().object(array, Kind::array, __func__);
  if (list == nullptr) return nullptr;
  if (index < 0 || index >= static_cast<CFIndex>(list->parts.size())) {
    mac().fault("CFArrayGetValueAtIndex was given an index beyond the array");
    return nullptr;
  }
  return list->parts[static_cast<std::size_t>(index)];
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
  const MacObject* const entries = mac().object(dictionary, Kind::dictionary, __func__);
  return entries == nullptr ? 0 : static_cast<CFIndex>(entries->parts.size() / 2);
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
  const MacObject* const entries = mac().object(dictionary, Kind::dictionary, __func__);
  const MacObject* const wanted = textObject(key, __func__);
  if (entries == nullptr || wanted == nullptr) return nullptr;
  for (std::size_t i = 0; i < entries->parts.size(); i += 2) {
    const MacObject* const candidate = entries->parts[i];
    if (candidate != nullptr && candidate->kind == Kind::text && candidate->value.text == wanted->value.text)
      return entries->parts[i + 1];
  }
  return nullptr;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values) {
  const MacObject* const entries = mac().object(dictionary, Kind::dictionary, __func__);
  if (entries == nullptr) return;
  for (std::size_t i = 0; i < entries->parts.size() / 2; ++i) {
    keys[i] = entries->parts[2 * i];
    values[i] = entries->parts[2 * i + 1];
  }
}

CFIndex CFStringGetLength(CFStringRef text) {
  const MacObject* const found = textObject(text, __func__);
  return found == nullptr ? 0 : static_cast<CFIndex>(found->value.text.size());
}

CFIndex CFStringGetBytes(CFStringRef text, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean isExternalRepresentation, UInt8* buffer, CFIndex bufferSize,
                         CFIndex* usedSize) {
  if (usedSize != nullptr) *usedSize = 0;
  const MacObject* const found = textObject(text, __func__);
  if (found == nullptr) return 0;
  expectUtf8(encoding, __func__);
  if (isExternalRepresentation != 0) mac().fault("CFStringGetBytes was asked for a byte order mark");
  const auto length = static_cast<CFIndex>(found->value.text.size());
  if (range.location < 0 || range.length < 0 || range.location > length ||
      range.length > length - range.location) {
    mac().fault("CFStringGetBytes was given a range beyond the text");
    return 0;
  }
  const std::u16string_view units =
      std::u16string_view(found->value.text)
          .substr(static_cast<std::size_t>(range.location), static_cast<std::size_t>(range.length));
  CFIndex converted = 0;
  CFIndex used = 0;
  while (converted < range.length) {
    const auto [character, count] = characterAt(units.substr(static_cast<std::size_t>(converted)));
    if (!character && lossByte == 0) break;
    const std::string bytes = character ? bytesOf(*character) : std::string(1, static_cast<char>(lossByte));
    const auto size = static_cast<CFIndex>(bytes.size());
    // Without a buffer everything is counted.
    if (buffer != nullptr) {
      if (size > bufferSize - used) break;
      std::memcpy(buffer + used, bytes.data(), bytes.size());
    }
    used += size;
    converted += count;
  }
  if (usedSize != nullptr) *usedSize = used;
  return converted;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding) {
  expectAllocator(allocator, __func__);
  expectUtf8(encoding, __func__);
  return createText(codeUnitsOf(text));
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                    CFStringEncoding encoding, Boolean /*isExternalRepresentation*/) {
  expectAllocator(allocator, __func__);
  expectUtf8(encoding, __func__);
  return createText(codeUnitsOf({reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length)}));
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef allocator, CFIndex maximumLength,
                                             CFStringRef text) {
  expectAllocator(allocator, __func__);
  const MacObject* const original = textObject(text, __func__);
  if (original == nullptr) return nullptr;
  if (maximumLength != 0) mac().fault("CFStringCreateMutableCopy was given a limit");
  if (mac().fails()) return nullptr;
  MacObject* const copy = mac().create(original->value);
  copy->isMutable = true;
  return reinterpret_cast<CFMutableStringRef>(copy);
}

void CFStringNormalize(CFMutableStringRef text, CFStringNormalizationForm form) {
  MacObject* const found = textObject(text, __func__);
  if (found == nullptr) return;
  if (!found->isMutable) mac().fault("CFStringNormalize was given a text that cannot change");
  if (form != kCFStringNormalizationFormC) mac().fault("CFStringNormalize was given another form");
  std::string bytes;
  for (std::u16string_view rest = found->value.text; !rest.empty();) {
    const auto [character, count] = characterAt(rest);
    if (!character) return;  // the agent makes no such text
    bytes += bytesOf(*character);
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
  utf8proc_uint8_t* composed = nullptr;
  const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(bytes.data()),
                                   static_cast<utf8proc_ssize_t>(bytes.size()), &composed,
                                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
  const Memory owner(composed);
  if (length < 0) return;
  found->value.text =
      codeUnitsOf({reinterpret_cast<const char*>(composed), static_cast<std::size_t>(length)}).value();
}

CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length) {
  expectAllocator(allocator, __func__);
  if (mac().fails()) return nullptr;
  MacValue content = msp::test::data();
  content.bytes.assign(bytes, bytes + length);
  return reinterpret_cast<CFDataRef>(mac().create(content));
}

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) {
  const MacObject* const found = mac().object(date, Kind::date, __func__);
  return found == nullptr ? 0 : found->value.fraction;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
  const MacObject* const found = mac().object(number, __func__);
  if (found == nullptr) return 0;
  if (typeOf(found->kind) != CFNumberGetTypeID()) {
    mac().fault(std::string(__func__) + " was given " + msp::test::nameOf(found->kind));
    return 0;
  }
  if (type != kCFNumberSInt64Type) mac().fault("CFNumberGetValue was asked for another type");
  const bool isWhole =
      found->kind == Kind::integer || found->value.fraction == std::trunc(found->value.fraction);
  const std::int64_t whole =
      found->kind == Kind::integer ? found->value.integer : static_cast<std::int64_t>(found->value.fraction);
  std::memcpy(value, &whole, sizeof whole);
  return isWhole ? 1 : 0;
}

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                               CFOptionFlags options, CFPropertyListFormat* /*format*/,
                                               CFErrorRef* error) {
  expectAllocator(allocator, __func__);
  const MacObject* const found = mac().object(data, Kind::data, __func__);
  if (options != kCFPropertyListImmutable) mac().fault("CFPropertyListCreateWithData was given options");
  if (error != nullptr) mac().fault("CFPropertyListCreateWithData was asked for an error");
  if (found == nullptr || mac().fails()) return nullptr;
  const auto value = mac().propertyList ? mac().propertyList : parsePropertyList(found->value.bytes);
  return value ? mac().create(*value) : nullptr;
}

CFCharacterSetRef CFCharacterSetGetPredefined(CFCharacterSetPredefinedSet set) {
  return reinterpret_cast<CFCharacterSetRef>(mac().constant(Kind::characterSet, set));
}

Boolean CFCharacterSetIsLongCharacterMember(CFCharacterSetRef set, UTF32Char character) {
  const MacObject* const found = mac().object(set, Kind::characterSet, __func__);
  if (found == nullptr) return 0;
  const auto category = utf8proc_category(static_cast<utf8proc_int32_t>(character));
  const bool isMember = found->value.integer == kCFCharacterSetAlphaNumeric
                            ? category >= UTF8PROC_CATEGORY_LU && category <= UTF8PROC_CATEGORY_NO
                            : category >= UTF8PROC_CATEGORY_PC && category <= UTF8PROC_CATEGORY_PO;
  return isMember ? 1 : 0;
}
