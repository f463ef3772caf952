#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace msp::test {

/// Another local time zone for as long as it lives. Make it before other threads look at the environment.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* const before = std::getenv("TZ")) before_ = before;
    setenv("TZ", zone, 1);
  }
  ~TimeZone() {
    if (before_) {
      setenv("TZ", before_->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  std::optional<std::string> before_;
};

}  // namespace msp::test
