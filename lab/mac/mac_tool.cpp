// Stands in for every tool of the simulated Mac. It is installed as <lab>/bin/<tool> and prints what the
// lab holds for its command line, byte for byte: standard output, standard error, exit status. Where it
// looks, and how the files are named, is in README.md beside this file.
//
// A check-in launches it a hundred times, so it allocates nothing and is linked for a quick start.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string_view>

#include "mac/launch_path.h"

namespace {

constexpr int kNoAnswer = 1;
constexpr int kNoLab = 2;

/// Text in a buffer of its own. What does not fit makes the whole of it unusable.
template <std::size_t Limit>
class FixedText {
 public:
  FixedText& append(std::string_view text) {
    fits_ = fits_ && text.size() <= Limit - size_;
    if (fits_) {
      std::memcpy(characters_ + size_, text.data(), text.size());
      size_ += text.size();
      characters_[size_] = '\0';
    }
    return *this;
  }
  void replace(char from, char to) {
    for (std::size_t i = 0; i < size_; ++i) {
      if (characters_[i] == from) characters_[i] = to;
    }
  }
  [[nodiscard]] bool fits() const { return fits_; }
  [[nodiscard]] const char* terminated() const { return characters_; }
  [[nodiscard]] std::string_view view() const { return {characters_, size_}; }

 private:
  char characters_[Limit + 1] = {};
  std::size_t size_ = 0;
  bool fits_ = true;
};

using Path = FixedText<PATH_MAX - 1>;
using FileName = FixedText<NAME_MAX>;

struct Launch {
  std::string_view lab;   // <lab>
  std::string_view tool;  // the name below <lab>/bin
};

std::optional<Launch> parseLaunch(std::string_view path) {
  constexpr std::string_view kBin = "/bin";
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const auto folder = path.substr(0, slash);
  if (folder.size() <= kBin.size() || folder.substr(folder.size() - kBin.size()) != kBin) return std::nullopt;
  return Launch{folder.substr(0, folder.size() - kBin.size()), path.substr(slash + 1)};
}

/// The wireless tool is run by an absolute path, where a symbolic link leads to <lab>/bin/airport.
std::optional<Launch> parseLinkedLaunch(const char* path) {
  static char target[PATH_MAX];
  const auto size = readlink(path, target, sizeof(target));
  if (size <= 0) return std::nullopt;
  return parseLaunch({target, static_cast<std::size_t>(size)});
}

bool writeAll(int descriptor, const char* bytes, std::size_t size) {
  while (size > 0) {
    const auto written = write(descriptor, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

ssize_t readSome(int descriptor, char* buffer, std::size_t size) {
  ssize_t got = 0;
  do {
    got = read(descriptor, buffer, size);
  } while (got < 0 && errno == EINTR);
  return got;
}

int openFile(std::string_view lab, std::string_view folder, std::string_view name, std::string_view suffix) {
  Path path;
  path.append(lab).append(folder).append(name).append(suffix);
  if (!path.fits()) return -1;
  int descriptor = -1;
  do {
    descriptor = open(path.terminated(), O_RDONLY | O_CLOEXEC);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

/// Copies a whole file to one of this program's streams. An absent file (no descriptor) is nothing to copy.
void copyTo(int stream, int file) {
  static char buffer[65536];
  if (file < 0) return;
  ssize_t got = 0;
  while ((got = readSome(file, buffer, sizeof(buffer))) > 0) {
    if (!writeAll(stream, buffer, static_cast<std::size_t>(got))) break;
  }
  close(file);
}

/// The decimal number in the file; 0 when there is no file.
int statusIn(int file) {
  if (file < 0) return 0;
  char digits[16];
  const auto got = readSome(file, digits, sizeof(digits));
  int status = 0;
  for (ssize_t i = 0; i < got && digits[i] >= '0' && digits[i] <= '9'; ++i) {
    status = (status * 10 + (digits[i] - '0')) & 0xff;
  }
  close(file);
  return status;
}

/// Prints what a folder of the lab holds for the command line and gives the exit status; prints nothing
/// when it holds no such file. Opening a FIFO waits until somebody writes to it.
std::optional<int> answerFrom(std::string_view lab, std::string_view folder, std::string_view commandLine) {
  const int output = openFile(lab, folder, commandLine, "");
  if (output < 0) return std::nullopt;
  copyTo(STDOUT_FILENO, output);
  copyTo(STDERR_FILENO, openFile(lab, folder, commandLine, ".stderr"));
  return statusIn(openFile(lab, folder, commandLine, ".status"));
}

/// which(1), but it knows the simulated Mac's tools only: a tool that is missing there must never be
/// answered with one of the machine that the lab runs on.
int which(std::string_view lab, int count, char** names) {
  int status = 0;
  for (int i = 0; i < count; ++i) {
    const std::string_view name = names[i];
    Path path;
    path.append(lab).append("/bin/").append(name);
    struct stat facts {};
    if (name.find('/') == std::string_view::npos && path.fits() && stat(path.terminated(), &facts) == 0 &&
        S_ISREG(facts.st_mode) && access(path.terminated(), X_OK) == 0) {
      writeAll(STDOUT_FILENO, path.terminated(), path.view().size());
      writeAll(STDOUT_FILENO, "\n", 1);
    } else {
      status = 1;
    }
  }
  return status;
}

int run(int argumentCount, char** arguments) {
  auto launch = parseLaunch(launchPath());
  if (!launch) launch = parseLinkedLaunch(launchPath());
  if (!launch) {
    constexpr std::string_view kComplaint = "mac-tool: not launched as <lab>/bin/<tool>\n";
    writeAll(STDERR_FILENO, kComplaint.data(), kComplaint.size());
    return kNoLab;
  }

  FileName commandLine;
  commandLine.append(launch->tool);
  for (int i = 1; i < argumentCount; ++i) commandLine.append(" ").append(arguments[i]);
  commandLine.replace('/', '_');

  if (commandLine.fits()) {
    if (const auto status = answerFrom(launch->lab, "/answers/", commandLine.view())) return *status;
  }
  if (launch->tool == "which") return which(launch->lab, argumentCount - 1, arguments + 1);
  if (commandLine.fits()) {
    if (const auto status = answerFrom(launch->lab, "/machine/", commandLine.view())) return *status;
  }
  return kNoAnswer;
}

}  // namespace

int main(int argc, char** argv) { _exit(run(argc, argv)); }
