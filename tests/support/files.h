#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

/// Files as tests look at them.
namespace msp::test {

inline void write(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

/// "" when there is no file.
inline std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// 0 when there is no file.
inline mode_t permissionsOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

/// The names in a directory.
inline std::set<std::string> entriesOf(const std::string& directory) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory))
    names.insert(entry.path().filename().string());
  return names;
}

}  // namespace msp::test
