#include "agent/logger.h"

#include <chrono>
#include <string_view>

#include "platform/file_system.h"
#include "platform/text.h"
#include "platform/time_format.h"

namespace msp {
namespace {

// In bytes. An append trims above the first; a trim leaves a file of the second alone.
constexpr std::int64_t kTrimWhenLarger = 10'000;
constexpr std::int64_t kLargestUntrimmed = 9'999;

/// The newer half of the pieces between newline characters, rounded down.
std::string newerHalf(std::string_view content) {
  const auto pieces = lines(content);
  const std::size_t first = pieces.size() - pieces.size() / 2;
  std::string kept;
  for (std::size_t i = first; i < pieces.size(); ++i) {
    if (i > first) kept += '\n';
    kept += pieces[i];
  }
  return kept;
}

}  // namespace

std::optional<std::string> Logger::logFileURL() const {
  if (!fileExists(directory_)) return std::nullopt;
  return directory_ + "/logfile.log";
}

void Logger::log(const std::string& message) {
  const MutexLock lock(mutex_);
  const auto path = logFileURL();
  if (!path) return;
  const bool created = append(*path, message);
  if (!created && fileSize(*path).value_or(0) > kTrimWhenLarger) trim();
}

void Logger::trimLog() {
  const MutexLock lock(mutex_);
  trim();
}

bool Logger::append(const std::string& path, const std::string& message) {
  const std::string line = formatTime(std::chrono::system_clock::now()) + "\t" + repairText(message) + "\n";
  if (!fileExists(path)) {
    static_cast<void>(replaceFile(path, line));
    return true;
  }
  static_cast<void>(appendToFile(path, line));
  return false;
}

void Logger::trim() {
  const auto path = logFileURL();
  if (!path || !fileExists(*path)) return;
  const auto size = fileSize(*path);
  if (size && *size <= kLargestUntrimmed) return;
  if (size) {
    const auto content = readFile(*path);
    const auto* const bytes = std::get_if<std::string>(&content);
    if (bytes != nullptr && !replaceFile(*path, newerHalf(*bytes))) return;
  }
  // Written without trimming again: what failed once would fail without end.
  append(*path, "Failed to trim log.");
}

}  // namespace msp
