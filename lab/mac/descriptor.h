#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace msp::lab {

/// A file descriptor that no tool inherits: one that did would keep a held tool from seeing the end.
/// What fails throws std::system_error that names the file.
class Descriptor {
 public:
  /// open(2); a file that is created gets these access rights, less the umask.
  Descriptor(const std::filesystem::path& file, int flags, unsigned mode = 0644);
  /// openat(2): an entry of an open folder, nothing else as long as the name is plain and O_NOFOLLOW is
  /// given.
  Descriptor(const Descriptor& folder, const std::string& name, int flags);
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor(Descriptor&&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;

  [[nodiscard]] int number() const { return number_; }
  void writeAll(std::string_view content) const;

 private:
  std::string name_;
  int number_ = -1;
};

/// Creates the file, or empties it first.
void writeFile(const std::filesystem::path& file, std::string_view content);

/// The whole file; nothing when it cannot be opened.
[[nodiscard]] std::optional<std::string> readFile(const std::filesystem::path& file);

}  // namespace msp::lab
