#include "inventory/addresses.h"

#include <utility>

#include "platform/console.h"
#include "platform/mutex.h"
#include "platform/text.h"
#include "platform/url.h"

namespace msp {

void collectLocalAddress(GatheredData& report, std::optional<std::string>& activeNetwork,
                         TaskRunner& runner) {
  const auto ask = [&](const std::string& interface) {
    std::string address = runner.runCommand("ipconfig", {"getifaddr", interface});
    if (address.empty()) return false;
    report.ipv4_address = std::move(address);
    activeNetwork = interface;
    return true;
  };
  // After a failure of the active interface both are asked, the one that just failed once more.
  if (activeNetwork && ask(*activeNetwork)) return;
  if (ask("en0")) return;
  ask("en1");
}

struct WanAddress::State {
  static constexpr int kMostLookups = 64;

  Mutex mutex;
  std::string address MSP_GUARDED_BY(mutex);
  int lookups MSP_GUARDED_BY(mutex) = 0;  // under way

  bool beginLookup() {
    const MutexLock lock(mutex);
    if (lookups == kMostLookups) return false;
    ++lookups;
    return true;
  }

  void endLookup(const HttpResult& result) {
    const MutexLock lock(mutex);
    --lookups;
    if (result.answer) address = decodeText(result.answer->body).value_or("Unknown WAN IP");
  }
};

WanAddress::WanAddress(HttpClient& http, std::string service)
    : http_(http), service_(std::move(service)), state_(std::make_shared<State>()) {}

std::string WanAddress::current() const {
  const MutexLock lock(state_->mutex);
  return state_->address;
}

void WanAddress::startLookup() {
  if (!isUrl(service_)) fatalError("Bad URL");
  if (!state_->beginLookup()) return;
  HttpRequest request;
  request.url = service_;
  http_.send(std::move(request), [state = state_](const HttpResult& result) { state->endLookup(result); });
}

bool isWanAddressRecent(const std::optional<std::chrono::system_clock::time_point>& lastUpdate,
                        const std::string& address, std::chrono::system_clock::time_point now) {
  return lastUpdate && !address.empty() && *lastUpdate - now > -std::chrono::hours(1);
}

}  // namespace msp
