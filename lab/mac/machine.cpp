#include "mac/machine.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <system_error>
#include <utility>

namespace msp::lab {

namespace {

constexpr const char* kStateFile = "state.json";

void waitForLock(const Descriptor& file) {
  while (flock(file.number(), LOCK_EX) != 0) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "cannot lock the state");
  }
}

}  // namespace

// Opened for reading, so that another user, inside a sandbox, can lock it too.
Machine::Machine(std::filesystem::path lab)
    : lab_(std::move(lab)), lock_(lab_ / "state.lock", O_RDONLY | O_CREAT) {
  waitForLock(lock_);
  if (const auto text = readFile(lab_ / kStateFile)) state = parseState(*text);
  before_ = state;
}

std::optional<Answer> Machine::filed(std::string_view commandLine) const {
  std::string name(commandLine);
  std::replace(name.begin(), name.end(), '/', '_');
  const auto file = lab_ / "machine" / name;
  auto output = readFile(file);
  if (!output) return std::nullopt;
  Answer answer{.output = *std::move(output), .error = readFile(file.string() + ".stderr").value_or("")};
  const auto status = readFile(file.string() + ".status").value_or("");
  std::from_chars(status.data(), status.data() + status.size(), answer.status);
  return answer;
}

void Machine::save() const {
  if (state == before_) return;
  const auto draft = lab_ / "state.json.draft";
  writeFile(draft, printState(state));
  std::filesystem::rename(draft, lab_ / kStateFile);
}

}  // namespace msp::lab
