#pragma once

#include <atomic>
#include <memory>

namespace msp {

/// Lets only so many things be under way at once. Safe on any thread.
class InFlightLimit {
 public:
  explicit InFlightLimit(int most) : most_(most) {}

  /// Held for as long as one more thing is under way; nothing when there are too many. May outlive the limit.
  [[nodiscard]] std::shared_ptr<const void> tryStart();

 private:
  const int most_;
  std::shared_ptr<std::atomic<int>> underWay_ = std::make_shared<std::atomic<int>>(0);
};

}  // namespace msp
