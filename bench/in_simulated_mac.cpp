// in-simulated-mac <machine> <agent executable> -- program arguments...
//
// Runs a program on a simulated Mac of its own that is gone afterwards: a sandbox in which the tools, the
// folders and /opt/msp-agent are that Mac's, on a private network where the public-address service answers
// over TLS. The program starts the agent itself. Its exit status is handed on; 77 when the system does not
// allow this, 125 when something else is wrong, both with one line on standard error.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "mac/sandbox.h"
#include "mac/simulated_mac.h"
#include "server/public_address_server.h"

namespace {

namespace fs = std::filesystem;
using namespace msp::lab;

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (fs::temp_directory_path() / "msp-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

int runToItsEnd(std::vector<std::string> command) {
  std::vector<char*> texts;
  texts.reserve(command.size() + 1);
  for (std::string& text : command) texts.push_back(text.data());
  texts.push_back(nullptr);
  pid_t child = 0;
  const int problem = posix_spawn(&child, texts.front(), nullptr, nullptr, texts.data(), environ);
  if (problem != 0) throw std::system_error(problem, std::generic_category(), command.front());
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int run(const char* machine, const char* agent, char** program) {
  std::string whyNot;
  if (!enterPrivateNetwork(whyNot)) {
    std::fprintf(stderr, "in-simulated-mac: %s\n", whyNot.c_str());
    return kSandboxNotAllowed;
  }
  const TemporaryFolder folder;
  const SimulatedMac mac(folder.path() / "mac", machine);
  mac.installAgent(agent, "");
  PublicAddressServer publicAddress;
  if (!publicAddress.start() || !publicAddress.writeTrustFiles(mac.folder())) {
    throw std::runtime_error("the public-address service does not start");
  }
  std::vector<std::string> command = {SimulatedMac::sandboxExecutable(), mac.folder(), "--"};
  for (; *program != nullptr; ++program) command.emplace_back(*program);
  return runToItsEnd(std::move(command));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5 || std::strcmp(argv[3], "--") != 0) {
    std::fputs("usage: in-simulated-mac <machine> <agent executable> -- program arguments...\n", stderr);
    return kSandboxFailed;
  }
  try {
    return run(argv[1], argv[2], argv + 4);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "in-simulated-mac: %s\n", problem.what());
    return kSandboxFailed;
  }
}
