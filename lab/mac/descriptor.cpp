#include "mac/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <system_error>

namespace msp::lab {

namespace {

[[noreturn]] void fail(const char* attempt, const std::string& name) {
  throw std::system_error(errno, std::generic_category(), std::string("cannot ") + attempt + " " + name);
}

}  // namespace

Descriptor::Descriptor(const std::filesystem::path& file, int flags, unsigned mode) : name_(file.string()) {
  do {
    number_ = open(file.c_str(), flags | O_CLOEXEC, mode);
  } while (number_ < 0 && errno == EINTR);
  if (number_ < 0) fail("open", name_);
}

Descriptor::Descriptor(const Descriptor& folder, const std::string& name, int flags)
    : name_(folder.name_ + "/" + name) {
  do {
    number_ = openat(folder.number(), name.c_str(), flags | O_CLOEXEC);
  } while (number_ < 0 && errno == EINTR);
  if (number_ < 0) fail("open", name_);
}

Descriptor::~Descriptor() { close(number_); }

void Descriptor::writeAll(std::string_view content) const {
  while (!content.empty()) {
    const auto written = write(number_, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) fail("write", name_);
    content.remove_prefix(static_cast<std::size_t>(written));
  }
}

void writeFile(const std::filesystem::path& file, std::string_view content) {
  Descriptor(file, O_WRONLY | O_CREAT | O_TRUNC).writeAll(content);
}

std::optional<std::string> readFile(const std::filesystem::path& file) {
  int number = -1;
  do {
    number = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  } while (number < 0 && errno == EINTR);
  if (number < 0) return std::nullopt;
  std::string content;
  char buffer[4096];
  ssize_t got = 0;
  while ((got = read(number, buffer, sizeof(buffer))) > 0 || (got < 0 && errno == EINTR)) {
    if (got > 0) content.append(buffer, static_cast<std::size_t>(got));
  }
  close(number);
  return content;
}

}  // namespace msp::lab
