#pragma once

#include <functional>
#include <string>

namespace msp {

/// Starts a detached background thread of utility quality of service, named after `label` as far as the
/// system keeps thread names. False when the system refuses another thread.
[[nodiscard]] bool startBackgroundThread(const std::string& label, std::function<void()> body);

/// Gives the calling thread the utility quality of service and the name; does nothing where there is no such
/// thing.
void becomeBackgroundThread(const std::string& label);

}  // namespace msp
