#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "inventory/gathered_data.h"
#include "platform/http_client.h"
#include "platform/mutex.h"
#include "platform/task_runner.h"

namespace msp {

/// The address of the active interface, through `ipconfig getifaddr`. `activeNetwork` is the interface that
/// answered last; it is asked first and never cleared.
void collectLocalAddress(GatheredData& report, std::optional<std::string>& activeNetwork, TaskRunner& runner);

/// The Mac's public address as last answered by a service on the internet. Safe on any thread: look-ups end
/// on the HTTP client's thread.
class WanAddress {
 public:
  explicit WanAddress(HttpClient& http);

  /// The address last answered, "" before the first; kept as it came.
  [[nodiscard]] std::string current() const;

  /// Starts one look-up and returns at once. A failed look-up changes nothing; a body that is not UTF-8
  /// becomes "Unknown WAN IP". At most 64 look-ups are under way at once, another one is not started.
  void startLookup();

 private:
  struct State;
  HttpClient& http_;
  std::shared_ptr<State> state_;
};

/// Whether an address found at `lastUpdate` still counts: less than an hour old and not empty.
bool isWanAddressRecent(const std::optional<std::chrono::system_clock::time_point>& lastUpdate,
                        const std::string& address, std::chrono::system_clock::time_point now);

}  // namespace msp
