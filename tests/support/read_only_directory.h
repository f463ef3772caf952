#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace msp::test {

/// For as long as it lives, this process can create nothing in the directory, while the files named stay
/// writable. Root, whom no mode stops, becomes somebody else meanwhile. One at a time, and no other thread.
class ReadOnlyDirectory {
 public:
  ReadOnlyDirectory(std::string path, const std::vector<std::string>& writable) : path_(std::move(path)) {
    constexpr uid_t kNobody = 65534;
    constexpr mode_t kReadOnly = 0555;
    for (const std::string& name : writable) {
      if (isRoot_ && chown((path_ + "/" + name).c_str(), kNobody, kNobody) != 0) std::abort();
    }
    if (chmod(path_.c_str(), kReadOnly) != 0) std::abort();
    if (isRoot_ && seteuid(kNobody) != 0) std::abort();
  }
  ~ReadOnlyDirectory() {
    constexpr mode_t kOwnersOnly = 0700;
    if (isRoot_ && seteuid(0) != 0) std::abort();
    if (chmod(path_.c_str(), kOwnersOnly) != 0) std::abort();
  }
  ReadOnlyDirectory(const ReadOnlyDirectory&) = delete;
  ReadOnlyDirectory& operator=(const ReadOnlyDirectory&) = delete;

 private:
  std::string path_;
  bool isRoot_ = geteuid() == 0;
};

}  // namespace msp::test
