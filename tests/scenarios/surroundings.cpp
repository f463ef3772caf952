#include "scenarios/surroundings.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "lab/running_program.h"
#include "mac/sandbox.h"
#include "mac/simulated_mac.h"
#include "support/temporary_directory.h"

namespace msp::test {
namespace {

bool entered = false;
std::string networkProblem = "the private network was not entered";

constexpr std::string_view kDevice = "lab0";

bool giveAddress(int socket, ifreq& request) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  inet_pton(AF_INET, "192.0.2.1", &address.sin_addr);  // kept for documentation, nobody's
  std::memcpy(&request.ifr_addr, &address, sizeof address);
  if (ioctl(socket, SIOCSIFADDR, &request) != 0) return false;
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  return ioctl(socket, SIOCSIFFLAGS, &request) == 0;
}

}  // namespace

void enterSurroundings() { entered = lab::enterPrivateNetwork(networkProblem); }

std::string whyNoScenario() {
  if (!entered) return networkProblem;
  const TemporaryDirectory place;
  const lab::SimulatedMac mac(place.file("lab"), "m2-sonoma");
  const auto probe =
      runProgram({lab::SimulatedMac::sandboxExecutable(), mac.folder(), "--", "/bin/sh", "-c", "exit 0"});
  return probe.status == lab::kSandboxNotAllowed ? probe.error : "";
}

UsableNetwork::UsableNetwork() {
  ifreq request{};
  std::memcpy(&request.ifr_name, kDevice.data(), kDevice.size());
  device_ = open("/dev/net/tun", O_RDWR | O_CLOEXEC);
  request.ifr_flags = IFF_TUN | IFF_NO_PI;
  const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (device_ < 0 || ioctl(device_, TUNSETIFF, &request) != 0 || !giveAddress(control, request)) {
    whyNot_ = "cannot make a network device: " + std::generic_category().message(errno);
  }
  close(control);
}

UsableNetwork::~UsableNetwork() {
  if (device_ >= 0) close(device_);
}

}  // namespace msp::test
