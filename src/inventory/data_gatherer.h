#pragma once

#include <functional>
#include <memory>
#include <string>

#include "inventory/gathered_data.h"
#include "platform/host.h"
#include "platform/http_client.h"
#include "platform/work_queue.h"

namespace msp {

/// Keeps the check-in report and refreshes it in the background.
///
/// Safe on any thread. Refreshes run one after another on a queue of the gatherer's own; the report is
/// never seen half refreshed. What could not be learnt keeps its last value.
class DataGatherer {
 public:
  using Completion = std::function<void(GatheredData report)>;

  /// `host` and `http` must outlive the gatherer and its refreshes.
  DataGatherer(std::string agentVersion, const Host& host, HttpClient& http);

  /// Refreshes the report and hands a copy of it to the completion, on the background queue, outside
  /// any lock. When the system gives no thread for that, the completion is dropped uncalled and the event
  /// log says so.
  void gather(Completion completion);

  /// A copy of the report as it stands; waits for a refresh that is under way.
  [[nodiscard]] GatheredData report() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
  WorkQueue queue_;
};

}  // namespace msp
