#include "mac/home_folders.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "mac/descriptor.h"

namespace msp::lab {

namespace {

constexpr int kFolderItself = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;

[[noreturn]] void fail(int error) { throw std::system_error(error, std::generic_category()); }

struct stat factsOf(const Descriptor& file) {
  struct stat facts {};
  if (fstat(file.number(), &facts) != 0) fail(errno);
  return facts;
}

bool isFolder(const Descriptor& parent, const std::string& name) {
  struct stat facts {};
  if (fstatat(parent.number(), name.c_str(), &facts, AT_SYMLINK_NOFOLLOW) != 0) fail(errno);
  return S_ISDIR(facts.st_mode);
}

std::vector<std::string> namesIn(const Descriptor& folder) {
  const int copy = fcntl(folder.number(), F_DUPFD_CLOEXEC, 0);  // closedir closes it
  if (copy < 0) fail(errno);
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(fdopendir(copy), closedir);
  if (!listing) {
    const int error = errno;
    close(copy);
    fail(error);
  }
  std::vector<std::string> names;
  while (const dirent* entry = readdir(listing.get())) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(std::move(name));
  }
  return names;
}

void removeFolder(const Descriptor& parent, const std::string& name, dev_t fileSystem);

void emptyFolder(const Descriptor& folder, dev_t fileSystem) {
  // What is mounted below the lab is not the lab's.
  if (factsOf(folder).st_dev != fileSystem) fail(EXDEV);
  for (const auto& name : namesIn(folder)) {
    if (isFolder(folder, name)) {
      removeFolder(folder, name, fileSystem);
    } else if (unlinkat(folder.number(), name.c_str(), 0) != 0) {
      fail(errno);
    }
  }
}

void removeFolder(const Descriptor& parent, const std::string& name, dev_t fileSystem) {
  emptyFolder(Descriptor(parent, name, kFolderItself), fileSystem);
  if (unlinkat(parent.number(), name.c_str(), AT_REMOVEDIR) != 0) fail(errno);
}

/// The lab's Users; never the root directory's, should something else than a lab be given.
class UsersFolder {
 public:
  explicit UsersFolder(const std::filesystem::path& lab)
      : lab_(lab, O_RDONLY | O_DIRECTORY), users_(lab_, "Users", kFolderItself) {
    const Descriptor root("/", O_RDONLY | O_DIRECTORY);
    const auto labFacts = factsOf(lab_), rootFacts = factsOf(root);
    if (labFacts.st_dev == rootFacts.st_dev && labFacts.st_ino == rootFacts.st_ino) fail(EPERM);
  }
  [[nodiscard]] const Descriptor& descriptor() const { return users_; }

 private:
  Descriptor lab_;
  Descriptor users_;
};

}  // namespace

bool isPlainName(std::string_view text) {
  return !text.empty() && text != "." && text != ".." && text.find('/') == std::string_view::npos;
}

void createHomeFolder(const std::filesystem::path& lab, const std::string& name) {
  if (!isPlainName(name)) throw std::invalid_argument(name + " is no name for a home folder");
  const UsersFolder users(lab);
  if (mkdirat(users.descriptor().number(), name.c_str(), 0755) != 0 && errno != EEXIST) fail(errno);
}

Answer removeHomeFolder(const std::filesystem::path& lab, const std::string& name) {
  const auto refused = [&name](const std::string& reason) {
    return Answer{.error = "rm: /Users/" + name + "/: " + reason + "\n", .status = 1};
  };
  if (!isPlainName(name)) return refused("no home folder");
  try {
    const UsersFolder users(lab);
    removeFolder(users.descriptor(), name, factsOf(users.descriptor()).st_dev);
  } catch (const std::system_error& problem) {
    if (problem.code() != std::errc::no_such_file_or_directory) return refused(problem.code().message());
  }
  return {};
}

}  // namespace msp::lab
