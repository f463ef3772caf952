#pragma once

#include <vector>

#include "inventory/data_gatherer.h"
#include "support/bare_launch.h"

namespace msp::bench {

/// Refreshes the report of the machine this process runs on, as the agent does, but without the network:
/// nobody ever answers what the public address is.
class Refresh {
 public:
  explicit Refresh(const Host& host);

  /// Refreshes and waits for the report.
  GatheredData run();

 private:
  DataGatherer gatherer_;
};

/// The tools that refreshes launch on this machine, in their order.
struct RefreshLaunches {
  std::vector<Launch> first;  // the login shell's look-ups included
  std::vector<Launch> warm;   // every further refresh
};

/// Recorded from two refreshes.
RefreshLaunches recordRefreshLaunches();

}  // namespace msp::bench
