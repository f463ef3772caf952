#include "platform/console.h"

#include <cstdio>
#include <cstdlib>

namespace msp {

void printLine(std::string_view line) {
  std::string text(line);
  text += '\n';
  // One call under the stream's own lock, so that lines of two threads do not mix.
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stdout));
  static_cast<void>(std::fflush(stdout));
}

void fatalError(std::string_view message) {
  std::string text(message);
  text += '\n';
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));
  static_cast<void>(std::fflush(stderr));
  std::abort();
}

}  // namespace msp
