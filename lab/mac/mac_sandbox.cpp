// mac-sandbox <lab folder> -- program arguments...
//
// Runs a program as if the simulated Mac of the lab folder were this machine: see sandbox.h. The program's
// process is this one, so its exit status is the program's; 77 when the system does not allow a sandbox and
// 125 when something else is wrong, both with one line on standard error.

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

#include "mac/sandbox.h"

namespace {

int run(const char* lab, char** program) {
  const auto home = std::filesystem::canonical(lab) / "home";
  std::string whyNot;
  if (!msp::lab::enterSandbox(lab, whyNot)) {
    std::fprintf(stderr, "mac-sandbox: %s\n", whyNot.c_str());
    return msp::lab::kSandboxNotAllowed;
  }
  setenv("HOME", home.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): there is one thread
  execv(program[0], program);
  const auto reason = std::generic_category().message(errno);
  std::fprintf(stderr, "mac-sandbox: cannot run %s: %s\n", program[0], reason.c_str());
  return msp::lab::kSandboxFailed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4 || std::strcmp(argv[2], "--") != 0) {
    std::fputs("usage: mac-sandbox <lab folder> -- program arguments...\n", stderr);
    return msp::lab::kSandboxFailed;
  }
  try {
    return run(argv[1], argv + 3);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "mac-sandbox: %s\n", problem.what());
    return msp::lab::kSandboxFailed;
  }
}
