#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "inventory/gathered_data.h"
#include "platform/http_client.h"
#include "platform/task_runner.h"

namespace msp {

/// The address of the active interface, through `ipconfig getifaddr`, ipconfig(8); without an answer the
/// report keeps the last one. `activeNetwork` is the interface that answered last; it is asked first and
/// never cleared.
void collectLocalAddress(GatheredData& report, std::optional<std::string>& activeNetwork, TaskRunner& runner);

/// Answers a GET with the caller's public IPv4 address as plain text.
inline constexpr const char* kPublicAddressService = "https://api.ipify.org";

/// The Mac's public address as last answered by a service on the internet. Safe on any thread: look-ups end
/// on the HTTP client's thread, also after this object is gone.
class WanAddress {
 public:
  /// `http` must outlive this object.
  explicit WanAddress(HttpClient& http, std::string service = kPublicAddressService);

  /// The address last answered, "" before the first; kept as it came.
  [[nodiscard]] std::string current() const;

  /// Starts one look-up and returns at once. A failed look-up changes nothing; a body that is not UTF-8
  /// becomes "Unknown WAN IP"; the status is not looked at. At most 64 look-ups are under way at once,
  /// another one is not started. A service that is no URL is fatal.
  void startLookup();

 private:
  struct State;
  HttpClient& http_;
  std::string service_;
  std::shared_ptr<State> state_;
};

/// Whether an address found at `lastUpdate` still counts: less than an hour old and not empty.
bool isWanAddressRecent(const std::optional<std::chrono::system_clock::time_point>& lastUpdate,
                        const std::string& address, std::chrono::system_clock::time_point now);

}  // namespace msp
