#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/darwin/mac_value.h"
#include "support/simulated_controller.h"

namespace msp::test {

/// One object of a framework. It stays in memory to the end of its test, so that a use after its release is
/// told instead of being one.
struct MacObject {
  MacValue::Kind kind = MacValue::Kind::nothing;
  bool isMutable = false;
  long owned = 0;  // references that the code under test has to release
  long held = 0;   // references of other objects and of the system itself
  MacValue value;  // without its parts
  std::vector<MacObject*> parts;
};

/// The frameworks and system calls that the `_darwin.cpp` files use, made of a few values.
///
/// There is one at a time, and every test gets a new one. It follows each reference; what the code under test
/// does wrong with them (also: a null pointer or an object of another type where there must be none, an
/// argument that a Mac refuses) is a fault. Set it up before other threads use it.
class SimulatedMac {
 public:
  SimulatedMac();

  /// The one of the running test.
  static SimulatedMac& current();
  /// Another one in its place.
  static void renew();

  // What the Mac has to say; without a value the call fails.
  std::optional<MacValue> computerName;
  std::optional<MacValue> interfaces;
  std::optional<MacValue> proxies;
  std::optional<MacValue> propertyList;  // instead of what the bytes say
  std::optional<std::string> version;
  std::string executablePath;
  std::string userDirectory;  // "" when there is none
  std::uint64_t uptimeNanoseconds = 0;
  bool hasController = true;
  bool hasServiceIterator = true;
  std::int32_t closeCode = 0;
  bool knowsFullFlush = true;
  SimulatedController controller;

  // What the code under test did.
  int fullFlushes = 0;
  std::optional<unsigned> threadQuality;
  std::string threadName;

  /// Has that call fail of those that can, counted from 1.
  void failCall(int number) { failingCall_ = number; }
  /// How many calls that can fail there were.
  [[nodiscard]] int fallibleCalls() const { return fallibleCalls_; }

  /// What was done wrong until now, and what has not been released; and forgets it.
  std::vector<std::string> takeFaults();

  // From here on: for the simulated calls.

  std::recursive_mutex mutex;

  /// Whether this call, which can fail, is to.
  bool fails();
  void fault(const std::string& text);

  /// A new object with one reference, the caller's.
  MacObject* create(const MacValue& value);
  /// One that the system itself keeps.
  MacObject* constant(MacValue::Kind kind, std::int64_t number);
  /// The object, if it is one that is still alive; a fault and nullptr otherwise.
  MacObject* object(const void* reference, const std::string& call);
  /// The same, of one type.
  MacObject* object(const void* reference, MacValue::Kind kind, const std::string& call);
  void release(const void* reference, const std::string& call);

  enum class PortKind : std::uint8_t { iterator, service, connection };
  std::uint32_t openPort(PortKind kind);
  bool isPort(std::uint32_t number, PortKind kind, const std::string& call);
  void closePort(std::uint32_t number);

  /// Whether a launch with these attributes, known by their address, hands over no descriptor but those
  /// named.
  void setHandsOverNamedOnly(const void* attributes, bool namedOnly);
  bool handsOverNamedOnly(const void* attributes);

 private:
  MacObject* build(const MacValue& value);
  void dropUnreferenced(MacObject& object);

  int failingCall_ = 0;
  int fallibleCalls_ = 0;
  std::map<const void*, std::unique_ptr<MacObject>> objects_;
  std::map<std::pair<MacValue::Kind, std::int64_t>, MacObject*> constants_;
  std::map<std::uint32_t, PortKind> ports_;
  std::uint32_t lastPort_ = 0x1000;
  std::set<const void*> namedOnly_;
  std::vector<std::string> faults_;
};

/// The code units of well-formed UTF-8; nothing of other bytes.
std::optional<std::u16string> codeUnitsOf(std::string_view bytes);

const char* nameOf(MacValue::Kind kind);

}  // namespace msp::test
