#pragma once

#include <string>

namespace msp::test {

/// Cuts this process off from every network but a loopback interface of its own, so that the stand-in for
/// the public-address service can have its port and nothing leaves the machine. Once, with a single thread.
void enterSurroundings();

/// Why no scenario can be played on this machine; "" when it can.
[[nodiscard]] std::string whyNoScenario();

/// For as long as it lives this process, and the agents it started, see a network that looks usable; what is
/// sent there is never read.
class UsableNetwork {
 public:
  UsableNetwork();
  ~UsableNetwork();
  UsableNetwork(const UsableNetwork&) = delete;
  UsableNetwork& operator=(const UsableNetwork&) = delete;

  /// Why there is none; "" when there is one.
  [[nodiscard]] const std::string& whyNot() const { return whyNot_; }

 private:
  int device_ = -1;
  std::string whyNot_;
};

}  // namespace msp::test
