#include "support/darwin/simulated_mac.h"

#include <utility>

#include "platform/unicode.h"

namespace msp::test {
namespace {

std::unique_ptr<SimulatedMac>& currentMac() {
  static auto mac = std::make_unique<SimulatedMac>();
  return mac;
}

const char* nameOfPort(SimulatedMac::PortKind kind) {
  switch (kind) {
    case SimulatedMac::PortKind::iterator:
      return "an iterator";
    case SimulatedMac::PortKind::service:
      return "a service";
    default:
      return "a connection";
  }
}

}  // namespace

const char* nameOf(MacValue::Kind kind) {
  switch (kind) {
    case MacValue::Kind::nothing:
      return "nothing";
    case MacValue::Kind::text:
      return "a text";
    case MacValue::Kind::integer:
    case MacValue::Kind::fraction:
      return "a number";
    case MacValue::Kind::truth:
      return "a truth value";
    case MacValue::Kind::date:
      return "a date";
    case MacValue::Kind::data:
      return "data";
    case MacValue::Kind::array:
      return "an array";
    case MacValue::Kind::dictionary:
      return "a dictionary";
    case MacValue::Kind::interface:
      return "an interface";
    default:
      return "a character set";
  }
}

std::optional<std::u16string> codeUnitsOf(std::string_view bytes) {
  constexpr char32_t kFirstBeyondOneUnit = 0x10000;
  std::u16string units;
  while (!bytes.empty()) {
    const DecodedCharacter next = firstCharacter(bytes);
    if (!next.wellFormed) return std::nullopt;
    if (next.character < kFirstBeyondOneUnit) {
      units += static_cast<char16_t>(next.character);
    } else {
      const char32_t rest = next.character - kFirstBeyondOneUnit;
      units += static_cast<char16_t>(0xD800U + (rest >> 10U));
      units += static_cast<char16_t>(0xDC00U + (rest & 0x3FFU));
    }
    bytes.remove_prefix(next.length);
  }
  return units;
}

SimulatedMac::SimulatedMac() = default;

SimulatedMac& SimulatedMac::current() { return *currentMac(); }
void SimulatedMac::renew() { currentMac() = std::make_unique<SimulatedMac>(); }

std::vector<std::string> SimulatedMac::takeFaults() {
  const std::scoped_lock lock(mutex);
  for (const auto& [address, object] : objects_) {
    if (object->owned > 0) fault(std::string(nameOf(object->kind)) + " was never released");
  }
  for (const auto& [number, kind] : ports_) fault(std::string(nameOfPort(kind)) + " was never released");
  objects_.clear();
  constants_.clear();
  ports_.clear();
  return std::exchange(faults_, {});
}

bool SimulatedMac::fails() {
  const std::scoped_lock lock(mutex);
  return ++fallibleCalls_ == failingCall_;
}

void SimulatedMac::fault(const std::string& text) {
  const std::scoped_lock lock(mutex);
  faults_.push_back(text);
}

MacObject* SimulatedMac::build(const MacValue& value) {
  if (value.kind == MacValue::Kind::nothing) return nullptr;
  auto made = std::make_unique<MacObject>();
  MacObject* const object = made.get();
  object->kind = value.kind;
  object->value = {value.kind, value.text, value.integer, value.fraction, {}, value.bytes};
  for (const MacValue& part : value.parts) {
    MacObject* const child = build(part);
    if (child != nullptr) ++child->held;
    object->parts.push_back(child);
  }
  objects_.emplace(object, std::move(made));
  return object;
}

MacObject* SimulatedMac::create(const MacValue& value) {
  const std::scoped_lock lock(mutex);
  MacObject* const object = build(value);
  if (object != nullptr) ++object->owned;
  return object;
}

MacObject* SimulatedMac::constant(MacValue::Kind kind, std::int64_t number) {
  const std::scoped_lock lock(mutex);
  MacObject*& object = constants_[{kind, number}];
  if (object == nullptr) {
    object = build({kind, {}, number});
    ++object->held;
  }
  return object;
}

MacObject* SimulatedMac::object(const void* reference, const std::string& call) {
  const std::scoped_lock lock(mutex);
  if (reference == nullptr) {
    fault(call + " was given a null pointer");
    return nullptr;
  }
  const auto found = objects_.find(reference);
  if (found == objects_.end()) {
    fault(call + " was given what is no object");
    return nullptr;
  }
  MacObject* const object = found->second.get();
  if (object->owned + object->held > 0) return object;
  fault(call + " was given " + nameOf(object->kind) + " that is gone");
  return nullptr;
}

MacObject* SimulatedMac::object(const void* reference, MacValue::Kind kind, const std::string& call) {
  MacObject* const found = object(reference, call);
  if (found == nullptr || found->kind == kind) return found;
  fault(call + " was given " + nameOf(found->kind));
  return nullptr;
}

void SimulatedMac::release(const void* reference, const std::string& call) {
  const std::scoped_lock lock(mutex);
  MacObject* const found = object(reference, call);
  if (found == nullptr) return;
  if (found->owned == 0) {
    fault(call + " was given " + nameOf(found->kind) + " that the caller does not own");
    return;
  }
  --found->owned;
  dropUnreferenced(*found);
}

void SimulatedMac::dropUnreferenced(MacObject& object) {
  if (object.owned + object.held > 0) return;
  for (MacObject* const part : object.parts) {
    if (part == nullptr) continue;
    --part->held;
    dropUnreferenced(*part);
  }
}

std::uint32_t SimulatedMac::openPort(PortKind kind) {
  const std::scoped_lock lock(mutex);
  ports_.emplace(++lastPort_, kind);
  return lastPort_;
}

bool SimulatedMac::isPort(std::uint32_t number, PortKind kind, const std::string& call) {
  const std::scoped_lock lock(mutex);
  const auto found = ports_.find(number);
  if (found != ports_.end() && found->second == kind) return true;
  fault(call + " was given what is not " + nameOfPort(kind));
  return false;
}

void SimulatedMac::closePort(std::uint32_t number) {
  const std::scoped_lock lock(mutex);
  if (ports_.erase(number) == 0) fault("a port that is not open was released");
}

void SimulatedMac::setHandsOverNamedOnly(const void* attributes, bool namedOnly) {
  const std::scoped_lock lock(mutex);
  if (namedOnly) {
    namedOnly_.insert(attributes);
  } else {
    namedOnly_.erase(attributes);
  }
}

bool SimulatedMac::handsOverNamedOnly(const void* attributes) {
  const std::scoped_lock lock(mutex);
  return namedOnly_.contains(attributes);
}

}  // namespace msp::test
