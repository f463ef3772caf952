#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/temporary_directory.h"

namespace msp::test {

/// Launches harmless tools that the test writes into a directory of its own. At its end no descriptor more
/// than before may be open and no child may be left, be it running or a zombie.
class LaunchTest : public testing::Test {
 protected:
  LaunchTest() : openBefore_(openDescriptors()) {}

  void TearDown() override {
    EXPECT_EQ(openDescriptors(), openBefore_);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
  }

  [[nodiscard]] std::string file(const std::string& name) const { return directory_.file(name); }

  /// Writes an executable shell script; hands back its path. Not while other threads launch: a file that is
  /// still open for writing in a half-launched child cannot be executed.
  std::string tool(const std::string& name, const std::string& body, mode_t mode = 0755) const {
    std::string path = file(name);
    std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
    return path;
  }

  /// Makes a named pipe on which a tool can wait with `read line < path`.
  std::string gate(const std::string& name) const {
    EXPECT_EQ(mkfifo(file(name).c_str(), 0600), 0);
    return file(name);
  }

  /// Waits until somebody waits at the gate, and lets them go on.
  static void open(const std::string& gate) { std::ofstream(gate) << "go" << std::endl; }

  static std::vector<int> openDescriptors() {
    constexpr int kHighest = 1023;
    std::vector<int> numbers;
    for (int number = 0; number <= kHighest; ++number) {
      if (fcntl(number, F_GETFD) >= 0) numbers.push_back(number);
    }
    return numbers;
  }

 private:
  TemporaryDirectory directory_;
  std::vector<int> openBefore_;
};

/// Sets an environment variable for as long as it lives. Not while other threads run.
class EnvironmentValue {
 public:
  EnvironmentValue(std::string name, const std::string& value) : name_(std::move(name)) {
    // NOLINTBEGIN(concurrency-mt-unsafe)
    if (const char* before = getenv(name_.c_str()); before != nullptr) before_ = before;
    setenv(name_.c_str(), value.c_str(), 1);
  }
  ~EnvironmentValue() {
    if (before_) {
      setenv(name_.c_str(), before_->c_str(), 1);
    } else {
      unsetenv(name_.c_str());
    }
    // NOLINTEND(concurrency-mt-unsafe)
  }
  EnvironmentValue(const EnvironmentValue&) = delete;
  EnvironmentValue& operator=(const EnvironmentValue&) = delete;

 private:
  std::string name_;
  std::optional<std::string> before_;
};

/// Lowers the limit on descriptors so that exactly `free` more can be opened, for as long as it lives.
class ScarceDescriptors {
 public:
  explicit ScarceDescriptors(int free) {
    getrlimit(RLIMIT_NOFILE, &before_);
    rlimit scarce = before_;
    scarce.rlim_cur = 0;
    for (int number = 0; free > 0 || fcntl(number, F_GETFD) >= 0; ++number) {
      if (fcntl(number, F_GETFD) < 0) --free;
      ++scarce.rlim_cur;
    }
    setrlimit(RLIMIT_NOFILE, &scarce);
  }
  ~ScarceDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  ScarceDescriptors(const ScarceDescriptors&) = delete;
  ScarceDescriptors& operator=(const ScarceDescriptors&) = delete;

 private:
  rlimit before_{};
};

}  // namespace msp::test
