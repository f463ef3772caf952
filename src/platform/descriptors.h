#pragma once

#include <unistd.h>

#include <utility>

namespace msp {

/// Owns one file descriptor and closes it at the end of its life. Not for two threads at once.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    other.close();
    return *this;
  }
  ~Descriptor() { close(); }

  /// The number for system calls; -1, which poll(2) skips, when there is none.
  [[nodiscard]] int number() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }

  /// The number, which the caller is to close from now on.
  [[nodiscard]] int release() { return std::exchange(number_, -1); }

  void close() {
    if (number_ >= 0) ::close(std::exchange(number_, -1));
  }

 private:
  int number_ = -1;
};

struct Pipe {
  Descriptor readingEnd;
  Descriptor writingEnd;
};

/// Opens a pipe whose ends no launched program inherits. 0, or the errno(3) value when the system gives none.
[[nodiscard]] int openPipe(Pipe& pipe);

}  // namespace msp
