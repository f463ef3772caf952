// Stands in for every tool of the simulated Mac. It is installed as <lab>/bin/<tool> and prints what the
// lab holds for its command line, byte for byte: standard output, standard error, exit status. Where it
// looks, and how the files are named, is in README.md beside this file. What changes the machine is left to
// mac-effects, which this program becomes then.
//
// A check-in launches it a hundred times, so it allocates nothing and is linked for a quick start.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <iterator>
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

int complain(std::string_view complaint) {
  writeAll(STDERR_FILENO, complaint.data(), complaint.size());
  return kNoLab;
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

/// The decimal number in the file, of nine digits at most; 0 when there is no file.
int numberIn(int file) {
  if (file < 0) return 0;
  char digits[9];
  const auto got = readSome(file, digits, sizeof(digits));
  int number = 0;
  for (ssize_t i = 0; i < got && digits[i] >= '0' && digits[i] <= '9'; ++i) {
    number = number * 10 + (digits[i] - '0');
  }
  close(file);
  return number;
}

/// Prints what a folder of the lab holds for the command line and gives the exit status; prints nothing
/// when it holds no such file. Opening a FIFO waits until somebody writes to it.
std::optional<int> answerFrom(std::string_view lab, std::string_view folder, std::string_view commandLine) {
  const int output = openFile(lab, folder, commandLine, "");
  if (output < 0) return std::nullopt;
  copyTo(STDOUT_FILENO, output);
  copyTo(STDERR_FILENO, openFile(lab, folder, commandLine, ".stderr"));
  return numberIn(openFile(lab, folder, commandLine, ".status")) & 0xff;
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

/// A tool that a test has spoilt as a whole. Its folder below tools/ may hold `hold`, a FIFO to wait for,
/// `milliseconds` to wait, and an `answer` to every command line.
std::optional<int> answerOfSpoiltTool(std::string_view lab, std::string_view tool) {
  const int folder = openFile(lab, "/tools/", tool, "");
  if (folder < 0) return std::nullopt;
  close(folder);
  if (const int fifo = openFile(lab, "/tools/", tool, "/hold"); fifo >= 0) {
    char byte = 0;
    while (readSome(fifo, &byte, 1) > 0) continue;
    close(fifo);
  }
  constexpr long kPerSecond = 1000, kNanosecondsEach = 1'000'000;
  const long wait = numberIn(openFile(lab, "/tools/", tool, "/milliseconds"));
  timespec left{wait / kPerSecond, wait % kPerSecond * kNanosecondsEach};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) continue;
  FileName answer;
  answer.append(tool).append("/answer");
  return answerFrom(lab, "/tools/", answer.view());
}

/// A command line that only asks: a tool, and the argument by which it asks. At place 0 any command line
/// does.
struct Question {
  std::string_view tool;
  int place;
  std::string_view word;
};

constexpr Question kQuestions[] = {
    {"dscl", 2, "-read"},
    {"dscl", 2, "-readall"},
    {"id", 0, ""},
    {"launchctl", 1, "list"},
    {"ps", 0, ""},
    {"pwpolicy", 3, "-authentication-allowed"},
    {"sysadminctl", 1, "-secureTokenStatus"},
};

/// The tools whose answers follow what was done to the machine.
constexpr std::string_view kTellingTools[] = {"dscl", "dseditgroup", "id", "kill",     "launchctl",
                                              "ps",   "pwpolicy",    "rm", "shutdown", "sysadminctl"};

bool isTelling(std::string_view tool) {
  return std::find(std::begin(kTellingTools), std::end(kTellingTools), tool) != std::end(kTellingTools);
}

bool isQuestion(std::string_view tool, int argumentCount, char** arguments) {
  return std::any_of(std::begin(kQuestions), std::end(kQuestions), [&](const Question& question) {
    if (question.tool != tool) return false;
    return question.place == 0 ||
           (question.place < argumentCount && question.word == arguments[question.place]);
  });
}

bool hasState(std::string_view lab) {
  const int file = openFile(lab, "/state.json", "", "");
  if (file >= 0) close(file);
  return file >= 0;
}

/// Becomes mac-effects; comes back when the lab has none.
int becomeEffects(const Launch& launch, char** arguments) {
  Path program, tool;
  program.append(launch.lab).append("/effects");
  tool.append(launch.tool);
  arguments[0] =
      const_cast<char*>(tool.terminated());  // NOLINT(cppcoreguidelines-pro-type-const-cast): execv's
  if (program.fits()) execv(program.terminated(), arguments);
  return complain("mac-tool: cannot run <lab>/effects\n");
}

int run(int argumentCount, char** arguments) {
  auto launch = parseLaunch(launchPath());
  if (!launch) launch = parseLinkedLaunch(launchPath());
  if (!launch) return complain("mac-tool: not launched as <lab>/bin/<tool>\n");

  FileName commandLine;
  commandLine.append(launch->tool);
  for (int i = 1; i < argumentCount; ++i) commandLine.append(" ").append(arguments[i]);
  commandLine.replace('/', '_');

  if (commandLine.fits()) {
    if (const auto status = answerFrom(launch->lab, "/answers/", commandLine.view())) return *status;
  }
  if (const auto status = answerOfSpoiltTool(launch->lab, launch->tool)) return *status;
  if (launch->tool == "which") return which(launch->lab, argumentCount - 1, arguments + 1);

  const bool telling = isTelling(launch->tool);
  if (telling && (!isQuestion(launch->tool, argumentCount, arguments) || hasState(launch->lab))) {
    return becomeEffects(*launch, arguments);
  }
  if (commandLine.fits()) {
    if (const auto status = answerFrom(launch->lab, "/machine/", commandLine.view())) return *status;
  }
  return telling ? becomeEffects(*launch, arguments) : kNoAnswer;
}

}  // namespace

int main(int argc, char** argv) { _exit(run(argc, argv)); }
