#include "platform/file_system.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <variant>
#include <vector>

#include "support/file_size_limit.h"
#include "support/files.h"
#include "support/temporary_directory.h"

namespace msp {
namespace {

using namespace std::string_literals;
using test::contentOf;
using test::entriesOf;
using test::FileSizeLimit;
using test::permissionsOf;
using test::TemporaryDirectory;
using test::write;

using ReadResult = std::variant<std::string, FileError>;

FileError error(std::errc code) { return {std::make_error_code(code).message()}; }

/// A name that leaves no room for a longer one beside it: whatever the rights of the tests, nothing can be
/// created there.
std::string longestName() { return std::string(NAME_MAX, 'n'); }

/// Another mask for new files, as long as it lives.
class Umask {
 public:
  explicit Umask(mode_t mask) : previous_(umask(mask)) {}
  ~Umask() { umask(previous_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t previous_;
};

TEST(FileExists, followsSymbolicLinks) {
  const TemporaryDirectory directory;
  write(directory.file("file"), "");
  std::filesystem::create_symlink("file", directory.file("link"));
  std::filesystem::create_symlink("nowhere", directory.file("dangling"));

  EXPECT_TRUE(fileExists(directory.file("file")));
  EXPECT_TRUE(fileExists(directory.path()));
  EXPECT_TRUE(fileExists(directory.file("link")));
  EXPECT_FALSE(fileExists(directory.file("dangling")));
  EXPECT_FALSE(fileExists(directory.file("absent")));
  EXPECT_FALSE(fileExists(""));
  EXPECT_FALSE(fileExists(directory.file("file\0.txt"s))) << "a NUL does not end the path";
}

TEST(VisibleDirectories, areNeitherHiddenNorLinksNorFiles) {
  const TemporaryDirectory directory;
  const std::filesystem::path root = directory.path();
  for (const char* name : {"ana", "Shared", ".hidden", "with blank"}) create_directory(root / name);
  write(root / "file", "x");
  create_directory_symlink(root / "ana", root / "link");
  auto found = visibleDirectories(root.string());
  auto& names = std::get<std::vector<std::string>>(found);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"Shared", "ana", "with blank"}));
}

TEST(VisibleDirectories, ofWhatCannotBeListedAreAnError) {
  const TemporaryDirectory directory;
  const std::string file = directory.path() + "/file";
  write(file, "x");
  using Result = std::variant<std::vector<std::string>, FileError>;
  EXPECT_EQ(visibleDirectories(file), Result(error(std::errc::not_a_directory)));
  EXPECT_EQ(visibleDirectories(directory.path() + "/absent"),
            Result(error(std::errc::no_such_file_or_directory)));
  EXPECT_EQ(visibleDirectories(directory.path() + "\0x"s),
            Result(error(std::errc::no_such_file_or_directory)));
}

TEST(ReadFile, givesTheWholeContentByteForByte) {
  const TemporaryDirectory directory;
  const std::string path = directory.file("file");
  for (const std::string& content :
       {""s, "line\n"s, "\0\xFF\r\n"s, std::string(16384, 'x'), std::string(1'000'003, 'y')}) {
    write(path, content);
    EXPECT_EQ(readFile(path), ReadResult(content)) << content.size() << " bytes";
  }
}

TEST(ReadFile, readsWhatIsThereWhateverSizeTheSystemStates) {
  // The system's own files say that they are empty.
  if (!fileExists("/proc/self/status")) GTEST_SKIP() << "no such file system here";
  const auto status = readFile("/proc/self/status");
  ASSERT_TRUE(std::holds_alternative<std::string>(status));
  EXPECT_TRUE(std::get<std::string>(status).starts_with("Name:"));
}

TEST(ReadFile, refusesWhatIsNoRegularFileWithoutWaiting) {
  const TemporaryDirectory directory;
  ASSERT_EQ(mkfifo(directory.file("pipe").c_str(), 0600), 0);
  std::filesystem::create_symlink("link", directory.file("link"));
  write(directory.file("file"), "content");

  EXPECT_EQ(readFile(directory.path()), ReadResult(error(std::errc::is_a_directory)));
  EXPECT_EQ(readFile(directory.file("pipe")), ReadResult(FileError{"Not a regular file"}));
  EXPECT_EQ(readFile("/dev/zero"), ReadResult(FileError{"Not a regular file"}));
  EXPECT_EQ(readFile(directory.file("absent")), ReadResult(error(std::errc::no_such_file_or_directory)));
  EXPECT_EQ(readFile(""), ReadResult(error(std::errc::no_such_file_or_directory)));
  EXPECT_EQ(readFile(directory.file("file") + "/x"), ReadResult(error(std::errc::not_a_directory)));
  EXPECT_EQ(readFile(directory.file("link")), ReadResult(error(std::errc::too_many_symbolic_link_levels)));
  EXPECT_EQ(readFile(directory.file("file\0"s)), ReadResult(error(std::errc::no_such_file_or_directory)));
}

TEST(FileSize, isInBytes) {
  const TemporaryDirectory directory;
  write(directory.file("file"), std::string(10'001, 'x'));
  write(directory.file("empty"), "");
  std::filesystem::create_symlink("file", directory.file("link"));

  EXPECT_EQ(fileSize(directory.file("file")), 10'001);
  EXPECT_EQ(fileSize(directory.file("link")), 10'001);
  EXPECT_EQ(fileSize(directory.file("empty")), 0);
  EXPECT_EQ(fileSize(directory.file("absent")), std::nullopt);
  EXPECT_EQ(fileSize(directory.file("file\0"s)), std::nullopt);
}

using Replace = std::optional<FileError> (*)(const std::string&, std::string_view);
struct Replacement {
  const char* name;
  Replace replace;
};
std::ostream& operator<<(std::ostream& out, const Replacement& replacement) {
  return out << replacement.name;
}

/// What holds for both ways to replace a file.
class Replacing : public testing::TestWithParam<Replacement> {
 protected:
  [[nodiscard]] std::optional<FileError> replace(const std::string& path, std::string_view content) const {
    return GetParam().replace(path, content);
  }
};
INSTANTIATE_TEST_SUITE_P(File, Replacing,
                         testing::Values(Replacement{"replaceFile", replaceFile},
                                         Replacement{"replaceFileOrOverwrite", replaceFileOrOverwrite}),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(Replacing, createsAFileForItsOwnerOnly) {
  const TemporaryDirectory directory;
  const std::string path = directory.file("config.ini");
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{0777}}) {
    const Umask umask(mask);
    std::filesystem::remove(path);
    EXPECT_EQ(replace(path, "secret\0\xFF"s), std::nullopt);
    EXPECT_EQ(permissionsOf(path), 0600U) << "mask " << mask;
    EXPECT_EQ(contentOf(path), "secret\0\xFF"s);
  }
  EXPECT_EQ(entriesOf(directory.path()), std::set<std::string>{"config.ini"});
}

TEST_P(Replacing, putsAnotherFileInThePlaceOfTheOld) {
  const TemporaryDirectory directory;
  const std::string path = directory.file("config.ini");
  write(path, "a longer old content");
  std::filesystem::permissions(path, std::filesystem::perms(0644));
  std::ifstream reader(path, std::ios::binary);

  EXPECT_EQ(replace(path, "new"), std::nullopt);
  EXPECT_EQ(contentOf(path), "new");
  EXPECT_EQ(permissionsOf(path), 0600U);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "a longer old content")
      << "who has the old file open still reads it";
  EXPECT_EQ(entriesOf(directory.path()), std::set<std::string>{"config.ini"});
}

TEST_P(Replacing, replacesASymbolicLinkItself) {
  const TemporaryDirectory directory;
  write(directory.file("target"), "target");
  std::filesystem::create_symlink("target", directory.file("link"));

  EXPECT_EQ(replace(directory.file("link"), "new"), std::nullopt);
  EXPECT_FALSE(std::filesystem::is_symlink(directory.file("link")));
  EXPECT_EQ(contentOf(directory.file("link")), "new");
  EXPECT_EQ(contentOf(directory.file("target")), "target");
}

TEST_P(Replacing, takesAPathRelativeToTheWorkingDirectory) {
  const TemporaryDirectory directory;
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(directory.path());
  EXPECT_EQ(replace("file", "new"), std::nullopt);
  std::filesystem::current_path(before);
  EXPECT_EQ(contentOf(directory.file("file")), "new");
}

TEST_P(Replacing, failsWithoutAStrayFile) {
  const TemporaryDirectory directory;
  std::filesystem::create_directory(directory.file("directory"));

  EXPECT_EQ(replace(directory.file("directory"), "new"), error(std::errc::is_a_directory));
  EXPECT_EQ(replace(directory.file("absent/file"), "new"), error(std::errc::no_such_file_or_directory));
  EXPECT_EQ(replace(directory.file("file\0"s), "new"), error(std::errc::no_such_file_or_directory));
  EXPECT_EQ(entriesOf(directory.path()), std::set<std::string>{"directory"});
}

TEST_P(Replacing, keepsTheOldFileWhenTheNewOneCannotBeWrittenWhole) {
  const TemporaryDirectory directory;
  const std::string path = directory.file("config.ini");
  write(path, "old");
  {
    const FileSizeLimit limit(4096);
    EXPECT_EQ(replace(path, std::string(10'000, 'x')), error(std::errc::file_too_large));
  }
  EXPECT_EQ(contentOf(path), "old");
  EXPECT_EQ(entriesOf(directory.path()), std::set<std::string>{"config.ini"});
}

TEST_P(Replacing, showsAReaderTheOldContentOrTheNew) {
  const TemporaryDirectory directory;
  const std::string path = directory.file("config.ini");
  const std::string contents[] = {std::string(100'000, 'a'), std::string(50'000, 'b')};
  write(path, contents[0]);

  std::atomic<bool> finished = false;
  std::thread writer([&] {
    for (int i = 1; i <= 30; ++i) EXPECT_EQ(replace(path, contents[i % 2]), std::nullopt);
    finished = true;
  });
  while (!finished) {
    const ReadResult seen = readFile(path);
    EXPECT_TRUE(seen == ReadResult(contents[0]) || seen == ReadResult(contents[1]));
  }
  writer.join();
}

TEST_P(Replacing, letsOneOfManyWritersWinWhole) {
  const TemporaryDirectory directory;
  const std::string path = directory.file("config.ini");
  std::vector<std::thread> writers;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    writers.emplace_back([&, letter] {
      for (int i = 0; i < 25; ++i) EXPECT_EQ(replace(path, std::string(5000, letter)), std::nullopt);
    });
  }
  for (std::thread& writer : writers) writer.join();
  const std::string content = contentOf(path);
  EXPECT_EQ(content, std::string(5000, content.front()));
  EXPECT_EQ(entriesOf(directory.path()), std::set<std::string>{"config.ini"});
}

TEST(ReplaceFile, needsRoomBesideTheFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.file(longestName());
  write(path, "old");
  EXPECT_EQ(replaceFile(path, "new"), error(std::errc::filename_too_long));
  EXPECT_EQ(contentOf(path), "old");
}

TEST(ReplaceFileOrOverwrite, writesInPlaceWhereNothingCanBeCreatedBeside) {
  const TemporaryDirectory directory;
  const std::string path = directory.file(longestName());
  for (const std::string& content : {"new"s, "a longer content"s, "\0"s, ""s}) {
    write(path, "old content");
    EXPECT_EQ(replaceFileOrOverwrite(path, content), std::nullopt);
    EXPECT_EQ(contentOf(path), content);
  }
  EXPECT_EQ(entriesOf(directory.path()), std::set<std::string>{longestName()});
}

TEST(ReplaceFileOrOverwrite, writesInPlaceInADirectoryWithoutWritePermission) {
  if (geteuid() == 0) GTEST_SKIP() << "permissions do not bind root";
  const TemporaryDirectory directory;
  const std::string path = directory.file("config.ini");
  write(path, "old content");
  std::filesystem::permissions(directory.path(), std::filesystem::perms(0500));
  EXPECT_EQ(replaceFile(path, "new"), error(std::errc::permission_denied));
  EXPECT_EQ(contentOf(path), "old content");
  EXPECT_EQ(replaceFileOrOverwrite(path, "new"), std::nullopt);
  EXPECT_EQ(replaceFileOrOverwrite(directory.file("absent"), "new"), error(std::errc::permission_denied));
  std::filesystem::permissions(directory.path(), std::filesystem::perms(0700));
  EXPECT_EQ(contentOf(path), "new");
}

TEST(ReplaceFileOrOverwrite, overwritesARegularFileOnly) {
  const TemporaryDirectory directory;
  EXPECT_EQ(replaceFileOrOverwrite(directory.file(longestName()), "new"), error(std::errc::filename_too_long))
      << "there is none to overwrite";
  EXPECT_EQ(entriesOf(directory.path()), std::set<std::string>{});

  ASSERT_EQ(mkfifo(directory.file(longestName()).c_str(), 0600), 0);
  EXPECT_EQ(replaceFileOrOverwrite(directory.file(longestName()), "new"),
            error(std::errc::filename_too_long));
}

TEST(ReplaceFileOrOverwrite, leavesTheOldContentWhenNotAByteCanBeWritten) {
  const TemporaryDirectory directory;
  const std::string path = directory.file(longestName());
  write(path, "old");
  {
    const FileSizeLimit limit(0);
    EXPECT_EQ(replaceFileOrOverwrite(path, "new"), error(std::errc::file_too_large));
  }
  EXPECT_EQ(contentOf(path), "old");
}

TEST(AppendToFile, addsAtTheEndOfAnExistingFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.file("logfile.log");
  write(path, "one\n");
  std::filesystem::permissions(path, std::filesystem::perms(0640));
  EXPECT_EQ(appendToFile(path, "two\n"), std::nullopt);
  EXPECT_EQ(appendToFile(path, ""), std::nullopt);
  EXPECT_EQ(appendToFile(path, "\0\xFF"s), std::nullopt);
  EXPECT_EQ(contentOf(path), "one\ntwo\n\0\xFF"s);
  EXPECT_EQ(permissionsOf(path), 0640U);
}

TEST(AppendToFile, followsASymbolicLink) {
  const TemporaryDirectory directory;
  write(directory.file("target"), "one");
  std::filesystem::create_symlink("target", directory.file("link"));
  EXPECT_EQ(appendToFile(directory.file("link"), "two"), std::nullopt);
  EXPECT_EQ(contentOf(directory.file("target")), "onetwo");
}

TEST(AppendToFile, createsNothingAndWaitsForNobody) {
  const TemporaryDirectory directory;
  ASSERT_EQ(mkfifo(directory.file("pipe").c_str(), 0600), 0);
  EXPECT_EQ(appendToFile(directory.file("absent"), "x"), error(std::errc::no_such_file_or_directory));
  EXPECT_EQ(appendToFile(directory.path(), "x"), error(std::errc::is_a_directory));
  EXPECT_EQ(appendToFile(directory.file("pipe"), "x"), error(std::errc::no_such_device_or_address))
      << "a pipe that nobody reads";
  EXPECT_EQ(appendToFile("/dev/null", "x"), FileError{"Not a regular file"});
  EXPECT_EQ(entriesOf(directory.path()), std::set<std::string>{"pipe"});
}

TEST(AppendToFile, reportsWhatDidNotFit) {
  const TemporaryDirectory directory;
  const std::string path = directory.file("logfile.log");
  write(path, "one");
  {
    const FileSizeLimit limit(5);
    EXPECT_EQ(appendToFile(path, "four"), error(std::errc::file_too_large));
  }
  EXPECT_EQ(contentOf(path), "onefo");
}

}  // namespace
}  // namespace msp
