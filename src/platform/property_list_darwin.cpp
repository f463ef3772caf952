#include <cmath>
#include <cstddef>
#include <utility>

#include "platform/core_foundation.h"
#include "platform/property_list.h"

namespace msp {
namespace {

bool isText(CFTypeRef object) { return isOfType(object, CFStringGetTypeID()); }

PropertyListDictionary dictionaryOf(CFDictionaryRef source) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(source));
  std::vector<const void*> keys(count);
  std::vector<const void*> values(count);
  CFDictionaryGetKeysAndValues(source, keys.data(), values.data());

  PropertyListDictionary dictionary;
  for (std::size_t i = 0; i < count; ++i) {
    if (!isText(keys[i])) continue;
    std::string key = textOf(static_cast<CFStringRef>(keys[i]));
    if (isText(values[i])) {
      dictionary.insert_or_assign(std::move(key), textOf(static_cast<CFStringRef>(values[i])));
    } else if (isOfType(values[i], CFDateGetTypeID())) {
      const PropertyListDate date{CFDateGetAbsoluteTime(static_cast<CFDateRef>(values[i])) +
                                  kCFAbsoluteTimeIntervalSince1970};
      if (std::isfinite(date.secondsSince1970)) dictionary.insert_or_assign(std::move(key), date);
    }
  }
  return dictionary;
}

}  // namespace

std::optional<std::vector<PropertyListDictionary>> parsePropertyListDictionaries(std::string_view bytes) {
  const CFOwned<CFDataRef> data(CFDataCreate(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
  if (data == nullptr) return std::nullopt;
  const CFOwned<CFPropertyListRef> root(CFPropertyListCreateWithData(
      kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, nullptr, nullptr));
  if (!isOfType(root.get(), CFArrayGetTypeID())) return std::nullopt;

  const auto* const array = static_cast<CFArrayRef>(root.get());
  std::vector<PropertyListDictionary> dictionaries;
  for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
    const CFTypeRef item = CFArrayGetValueAtIndex(array, i);
    if (!isOfType(item, CFDictionaryGetTypeID())) return std::nullopt;
    dictionaries.push_back(dictionaryOf(static_cast<CFDictionaryRef>(item)));
  }
  return dictionaries;
}

}  // namespace msp
