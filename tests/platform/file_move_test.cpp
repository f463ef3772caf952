#include "platform/file_move.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

#include "platform/exclusive_rename.h"
#include "support/file_size_limit.h"
#include "support/files.h"
#include "support/temporary_directory.h"

namespace msp::test {
namespace {

namespace fs = std::filesystem;

std::optional<FileError> error(std::errc code) { return FileError{std::make_error_code(code).message()}; }

using Names = std::set<std::string>;

TemporaryFile fileWith(const std::string& directory, const std::string& content) {
  auto created = std::get<OpenTemporaryFile>(createTemporaryFile(directory + "/source."));
  write(created.file.path(), content);
  return std::move(created.file);
}

TEST(TemporaryFile, isForItsOwnerOnlyAndGoneInTheEnd) {
  const TemporaryDirectory directory;
  const mode_t before = umask(0777);
  {
    const auto created = createTemporaryFile(directory.file("name."));
    umask(before);
    const auto& [file, descriptor] = std::get<OpenTemporaryFile>(created);
    EXPECT_EQ(file.path().size(), directory.file("name.XXXXXX").size());
    EXPECT_EQ(permissionsOf(file.path()), 0600U);
    EXPECT_EQ(fcntl(descriptor.number(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC)
        << "a launched program inherits it";
    EXPECT_EQ(entriesOf(directory.path()).size(), 1U);
  }
  EXPECT_EQ(entriesOf(directory.path()), Names{});
}

TEST(TemporaryFile, staysWhenItIsReleasedAndGoesWithTheObjectItWasMovedTo) {
  const TemporaryDirectory directory;
  write(directory.file("released"), "");
  write(directory.file("moved"), "");
  write(directory.file("replaced"), "");
  {
    TemporaryFile released(directory.file("released"));
    released.release();
    TemporaryFile moved(directory.file("moved"));
    TemporaryFile target(directory.file("replaced"));
    target = std::move(moved);
    EXPECT_EQ(entriesOf(directory.path()), (Names{"released", "moved"}));
  }
  EXPECT_EQ(entriesOf(directory.path()), Names{"released"});
}

TEST(TemporaryFile, cannotBeCreatedWhereThereIsNoDirectory) {
  const TemporaryDirectory directory;
  const auto created = createTemporaryFile(directory.file("missing/name."));
  EXPECT_EQ(std::get<FileError>(created), error(std::errc::no_such_file_or_directory));
  const auto cutShort = createTemporaryFile(directory.file(std::string("a\0b", 3)));
  EXPECT_EQ(std::get<FileError>(cutShort), error(std::errc::no_such_file_or_directory));
}

TEST(TemporaryDirectoryOfTheSystem, isADirectory) { EXPECT_TRUE(fs::is_directory(temporaryDirectory())); }

/// How the file gets its name, by what the file system can do.
struct Way {
  const char* name;
  ExclusiveNaming naming;
};

std::vector<Way> ways() {
  const ExclusiveNaming real = systemNaming();
  const auto cannot = [](const std::string&, const std::string&) { return ENOTSUP; };
  // The temporary file lies on another file system than its destination.
  const auto apart = [](const ExclusiveNaming::Call& call) {
    return [call](const std::string& from, const std::string& to) {
      return fs::path(from).parent_path() == fs::path(to).parent_path() ? call(from, to) : EXDEV;
    };
  };
  const auto notPermitted = [](const std::string&, const std::string&) { return EPERM; };
  return {{"on one file system", real},
          {"between two file systems", {apart(real.rename), apart(real.link)}},
          {"where there are links only", {cannot, real.link}},
          {"where there are not even links", {cannot, notPermitted}},
          {"to where there are links only", {apart(cannot), apart(real.link)}},
          {"to where there are not even links", {apart(cannot), apart(cannot)}}};
}

TEST(FileMove, theFileHasTheNewNameOnly) {
  for (const auto& [name, naming] : ways()) {
    const TemporaryDirectory from, to;
    const std::string content = std::string(1'000'000, 'x') + std::string("\0end", 4);
    EXPECT_EQ(moveWithoutOverwriting(fileWith(from.path(), content), to.file("new"), naming), std::nullopt)
        << name;
    EXPECT_EQ(contentOf(to.file("new")), content) << name;
    EXPECT_EQ(permissionsOf(to.file("new")), 0600U) << name;
    EXPECT_EQ(entriesOf(to.path()), Names{"new"}) << name;
    EXPECT_EQ(entriesOf(from.path()), Names{}) << name;
  }
}

TEST(FileMove, anEmptyFileIsMovedToo) {
  for (const auto& [name, naming] : ways()) {
    const TemporaryDirectory from, to;
    EXPECT_EQ(moveWithoutOverwriting(fileWith(from.path(), ""), to.file("new"), naming), std::nullopt)
        << name;
    EXPECT_EQ(entriesOf(to.path()), Names{"new"}) << name;
  }
}

TEST(FileMove, aNameAsLongAsNamesCanBeIsReached) {
  const std::string longest(NAME_MAX, 'n');
  for (const auto& [name, naming] : ways()) {
    const TemporaryDirectory from, to;
    EXPECT_EQ(moveWithoutOverwriting(fileWith(from.path(), "x"), to.file(longest), naming), std::nullopt)
        << name;
    EXPECT_EQ(entriesOf(to.path()), Names{longest}) << name;
  }
}

TEST(FileMove, whatCannotBeReachedLeavesNothing) {
  struct Case {
    const char* name;
    std::string destination;
    std::errc code;
  };
  for (const auto& [way, naming] : ways()) {
    const TemporaryDirectory from, to;
    write(to.file("file"), "old");
    fs::create_directory(to.file("directory"));
    fs::create_symlink(to.file("nowhere"), to.file("dangling"));
    fs::create_symlink(to.file("file"), to.file("link"));
    const Case cases[] = {
        {"a file", to.file("file"), std::errc::file_exists},
        {"a directory", to.file("directory"), std::errc::file_exists},
        {"a link to a file", to.file("link"), std::errc::file_exists},
        {"a dangling link", to.file("dangling"), std::errc::file_exists},
        {"in a directory that is not there", to.file("missing/new"), std::errc::no_such_file_or_directory},
        {"in a file", to.file("file/new"), std::errc::not_a_directory},
        {"no name", "", std::errc::no_such_file_or_directory},
        {"a NUL in the name", to.file(std::string("new\0er", 6)), std::errc::invalid_argument},
        {"a name too long", to.file(std::string(NAME_MAX + 1, 'n')), std::errc::filename_too_long},
    };
    for (const Case& c : cases) {
      // The empty name's directory is the working directory, where nothing may appear either.
      EXPECT_EQ(moveWithoutOverwriting(fileWith(from.path(), "new"), c.destination, naming), error(c.code))
          << c.name << ' ' << way;
      EXPECT_EQ(entriesOf(from.path()), Names{}) << c.name << ' ' << way;
      EXPECT_EQ(entriesOf(to.path()), (Names{"file", "directory", "dangling", "link"}))
          << c.name << ' ' << way;
    }
    EXPECT_EQ(contentOf(to.file("file")), "old") << way;
  }
}

TEST(FileMove, otherProblemsAreTheSystemsWords) {
  const TemporaryDirectory directory;
  EXPECT_EQ(moveWithoutOverwriting(fileWith(directory.path(), "new"), directory.file("new"),
                                   {[](const std::string&, const std::string&) { return EIO; }, nullptr}),
            error(std::errc::io_error));
  EXPECT_EQ(entriesOf(directory.path()), Names{});
}

TEST(FileMove, aSourceThatIsGoneIsAnError) {
  for (const auto& [name, naming] : ways()) {
    const TemporaryDirectory from, to;
    EXPECT_EQ(moveWithoutOverwriting(TemporaryFile(from.file("gone")), to.file("new"), naming),
              error(std::errc::no_such_file_or_directory))
        << name;
    EXPECT_EQ(entriesOf(to.path()), Names{}) << name;
  }
}

TEST(FileMove, aDiskThatIsFullInTheMiddleOfTheCopyLeavesNothing) {
  for (const std::size_t copying : {1U, 3U, 4U, 5U}) {
    const auto [name, naming] = ways().at(copying);
    const TemporaryDirectory from, to;
    auto file = fileWith(from.path(), std::string(3'000'000, 'x'));
    const FileSizeLimit limit(1'000'000);
    EXPECT_EQ(moveWithoutOverwriting(std::move(file), to.file("new"), naming),
              error(std::errc::file_too_large))
        << name;
    EXPECT_EQ(entriesOf(to.path()), Names{}) << name;
    EXPECT_EQ(entriesOf(from.path()), Names{}) << name;
  }
}

TEST(FileMove, whatAppearsWhileTheFileIsCopiedIsNotOverwritten) {
  const TemporaryDirectory from, to;
  const std::string destination = to.file("new");
  ExclusiveNaming naming = systemNaming();
  naming.rename = [&](const std::string& source, const std::string& target) {
    if (fs::path(source).parent_path() == from.path()) return EXDEV;
    write(destination, "somebody else's");
    return renameExclusively(source, target);
  };
  EXPECT_EQ(moveWithoutOverwriting(fileWith(from.path(), "mine"), destination, naming),
            error(std::errc::file_exists));
  EXPECT_EQ(contentOf(destination), "somebody else's");
  EXPECT_EQ(entriesOf(to.path()), Names{"new"});
  EXPECT_EQ(entriesOf(from.path()), Names{});
}

TEST(FileMove, ofManyMovesToOneNameExactlyOneSucceeds) {
  for (const auto& [name, naming] : ways()) {
    for (int round = 0; round < 20; ++round) {
      const TemporaryDirectory from, to;
      constexpr int kMoves = 4;
      std::vector<std::string> contents;
      std::vector<TemporaryFile> files;
      for (int i = 0; i < kMoves; ++i) {
        contents.emplace_back(100'000, static_cast<char>('a' + i));
        files.push_back(fileWith(from.path(), contents.back()));
      }
      std::atomic<int> winner = -1, losers = 0;
      std::vector<std::thread> threads;
      threads.reserve(kMoves);
      for (int i = 0; i < kMoves; ++i) {
        threads.emplace_back([&, i, &move = naming, &file = files[static_cast<std::size_t>(i)]] {
          const auto problem = moveWithoutOverwriting(std::move(file), to.file("new"), move);
          if (!problem) winner = i;
          if (problem == error(std::errc::file_exists)) ++losers;
        });
      }
      for (auto& thread : threads) thread.join();
      ASSERT_EQ(losers, kMoves - 1) << name;
      EXPECT_EQ(contentOf(to.file("new")), contents.at(static_cast<std::size_t>(winner.load()))) << name;
      EXPECT_EQ(entriesOf(to.path()), Names{"new"}) << name;
      EXPECT_EQ(entriesOf(from.path()), Names{}) << name;
    }
  }
}

/// A directory in shared memory that is gone with this object; without a path where there is none or it is on
/// the file system of the others.
class SharedMemoryDirectory {
 public:
  explicit SharedMemoryDirectory(const std::string& other) {
    std::string name = "/dev/shm/msp-test-XXXXXX";
    struct stat here {};
    struct stat there {};
    if (mkdtemp(name.data()) == nullptr) return;
    if (stat(name.c_str(), &here) == 0 && stat(other.c_str(), &there) == 0 && here.st_dev != there.st_dev) {
      path_ = name;
    } else {
      rmdir(name.c_str());
    }
  }
  ~SharedMemoryDirectory() {
    std::error_code ignored;
    if (!path_.empty()) fs::remove_all(path_, ignored);
  }
  SharedMemoryDirectory(const SharedMemoryDirectory&) = delete;
  SharedMemoryDirectory& operator=(const SharedMemoryDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

TEST(FileMove, crossesFromOneRealFileSystemToAnother) {
  const TemporaryDirectory to;
  const SharedMemoryDirectory from(to.path());
  if (from.path().empty()) GTEST_SKIP() << "there are no two file systems here";
  EXPECT_EQ(moveWithoutOverwriting(fileWith(from.path(), "content"), to.file("new")), std::nullopt);
  EXPECT_EQ(contentOf(to.file("new")), "content");
  EXPECT_EQ(permissionsOf(to.file("new")), 0600U);
  EXPECT_EQ(moveWithoutOverwriting(fileWith(from.path(), "other"), to.file("new")),
            error(std::errc::file_exists));
  EXPECT_EQ(contentOf(to.file("new")), "content");
  EXPECT_EQ(entriesOf(to.path()), Names{"new"});
  EXPECT_EQ(entriesOf(from.path()), Names{});
}

}  // namespace
}  // namespace msp::test
