// mac-lab <machine> <folder> <agent executable> <server URL>
//
// Builds a simulated Mac in a folder that must not exist yet, with an agent newly installed on it: see
// simulated_mac.h. The folder is left behind.

#include <cstdio>
#include <exception>

#include "mac/simulated_mac.h"

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fputs("usage: mac-lab <machine> <folder> <agent executable> <server URL>\n", stderr);
    return 2;
  }
  try {
    msp::lab::SimulatedMac mac(argv[2], argv[1]);
    mac.installAgent(argv[3], argv[4]);
    return 0;
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "mac-lab: %s\n", problem.what());
    return 1;
  }
}
