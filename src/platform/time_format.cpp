#include "platform/time_format.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <optional>

namespace msp {
namespace {

/// Nothing when the calendar cannot express the time.
std::optional<std::tm> localTime(std::chrono::system_clock::time_point time) {
  // Downwards, also before 1970; to_time_t may cut towards 1970.
  const auto seconds =
      static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count());
  // The agent runs for months: the machine may have moved to another time zone, and localtime_r alone
  // need not notice.
  tzset();
  std::tm local{};
  if (localtime_r(&seconds, &local) == nullptr) return std::nullopt;
  return local;
}

}  // namespace

std::string formatClockTime(std::chrono::system_clock::time_point time) {
  const auto local = localTime(time);
  if (!local) return "";
  std::array<char, 32> text{};
  const int length = std::snprintf(text.data(), text.size(), "%02d:%02d", local->tm_hour, local->tm_min);
  return {text.data(), static_cast<std::size_t>(length)};
}

std::string formatTime(std::chrono::system_clock::time_point time) {
  const auto local = localTime(time);
  if (!local) return "";
  const int twoDigitYear = (local->tm_year % 100 + 100) % 100;
  std::array<char, 80> text{};
  const int length =
      std::snprintf(text.data(), text.size(), "%02d-%02d-%02d %02d:%02d:%02d", twoDigitYear,
                    local->tm_mon + 1, local->tm_mday, local->tm_hour, local->tm_min, local->tm_sec);
  return {text.data(), static_cast<std::size_t>(length)};
}

}  // namespace msp
