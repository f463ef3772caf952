#include "mac/sandbox.h"

namespace msp::lab {

bool enterSandbox(const std::filesystem::path& /*lab*/, std::string& whyNot) {
  whyNot = "not allowed: macOS has no mount namespaces";
  return false;
}

bool enterPrivateNetwork(std::string& whyNot) {
  whyNot = "not allowed: macOS has no network namespaces";
  return false;
}

}  // namespace msp::lab
