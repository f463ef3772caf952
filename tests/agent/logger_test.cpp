#include "agent/logger.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "support/read_only_directory.h"
#include "support/temporary_directory.h"

namespace msp {
namespace {

constexpr std::size_t kStampBytes = 18;  // "24-05-31 14:02:09" and the tab

class LoggerTest : public testing::Test {
 protected:
  void write(const std::string& content) const {
    std::ofstream(directory.file("logfile.log"), std::ios::binary) << content;
  }
  [[nodiscard]] std::string content() const {
    std::ifstream stream(directory.file("logfile.log"), std::ios::binary);
    std::stringstream bytes;
    bytes << stream.rdbuf();
    return bytes.str();
  }
  /// A log of `bytes` bytes in ten lines, numbered from 1.
  static std::string tenLines(std::size_t bytes) {
    std::string text;
    for (int line = 1; line <= 9; ++line) text += std::to_string(line) + "\n";
    const std::string last = "10";
    return text + last + std::string(bytes - text.size() - last.size() - 1, 'x') + "\n";
  }
  [[nodiscard]] std::size_t entries() const {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory.path())) ++count;
    return count;
  }

  test::TemporaryDirectory directory;
  Logger logger{directory.path()};
};

TEST_F(LoggerTest, createsTheFileWithExactlyOneLine) {
  logger.log("Starting up: version 3.3.1");
  EXPECT_TRUE(std::regex_match(
      content(), std::regex(R"(\d\d-\d\d-\d\d \d\d:\d\d:\d\d\tStarting up: version 3\.3\.1\n)")))
      << content();
  struct stat info {};
  ASSERT_EQ(stat(directory.file("logfile.log").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777U, 0600U);
  EXPECT_EQ(entries(), 1U);
}

TEST_F(LoggerTest, writesAMessageAsItIsGiven) {
  struct Case {
    const char* name;
    std::string message;
    std::string written;
  };
  const Case cases[] = {
      {"a tab makes a second one in its line", "a\tb", "a\tb\n"},
      {"a line feed makes a second line", "a\nb", "a\nb\n"},
      {"an empty message", "", "\n"},
      {"every script", "José 東京", "José 東京\n"},
      {"malformed UTF-8 is repaired",
       "a\xFF"
       "b",
       "a\uFFFDb\n"},
  };
  for (const Case& c : cases) {
    std::filesystem::remove(directory.file("logfile.log"));
    logger.log(c.message);
    logger.log(c.message);
    const std::string first = content().substr(0, kStampBytes + c.written.size());
    EXPECT_EQ(first.substr(kStampBytes), c.written) << c.name;
    EXPECT_EQ(content().size(), 2 * first.size()) << c.name;
  }
}

TEST_F(LoggerTest, trimsAtStartUpFromTenThousandBytesOn) {
  struct Case {
    std::size_t bytes;
    bool trims;
  };
  for (const Case& c : {Case{9'999, false}, Case{10'000, true}, Case{10'001, true}}) {
    const std::string before = tenLines(c.bytes);
    write(before);
    logger.trimLog();
    // Ten lines are eleven pieces; the last five are four lines and the empty one.
    EXPECT_EQ(content(), c.trims ? before.substr(before.find("7\n")) : before) << c.bytes;
  }
  EXPECT_EQ(entries(), 1U);
}

TEST_F(LoggerTest, trimsAfterAnAppendThatLeavesMoreThanTenThousandBytes) {
  const std::size_t added = kStampBytes + std::string("new\n").size();
  write(tenLines(10'000 - added));
  logger.log("new");
  EXPECT_EQ(content().size(), 10'000U) << "exactly ten thousand bytes are left alone";

  write(tenLines(10'001 - added));
  logger.log("new");
  // Eleven lines are twelve pieces; the last six are five lines and the empty one.
  const std::string trimmed = content();
  EXPECT_TRUE(trimmed.starts_with("7\n8\n9\n10x")) << trimmed.substr(0, 40);
  EXPECT_TRUE(trimmed.ends_with("\tnew\n"));
}

TEST_F(LoggerTest, doesNotTrimTheFileItCreates) {
  logger.log(std::string(20'000, 'x'));
  EXPECT_EQ(content().size(), kStampBytes + 20'000 + 1);
}

TEST_F(LoggerTest, trimsBytesThatAreNoText) {
  std::string before = "first\xFF\n";
  before += std::string(10'000, '\xFE') + "\nlast\xC3\n";
  write(before);
  logger.trimLog();
  EXPECT_EQ(content(), "last\xC3\n");
}

TEST_F(LoggerTest, cutsAtEveryKindOfLineBreak) {
  struct Case {
    const char* name;
    std::string separator;
  };
  const Case cases[] = {{"line feed", "\n"},
                        {"carriage return", "\r"},
                        {"vertical tab", "\v"},
                        {"form feed", "\f"},
                        {"next line", "\xC2\x85"},
                        {"line separator", "\xE2\x80\xA8"},
                        {"paragraph separator", "\xE2\x80\xA9"}};
  for (const Case& c : cases) {
    write(std::string(10'000, 'a') + c.separator + "b" + c.separator + "c" + c.separator + "d");
    logger.trimLog();
    EXPECT_EQ(content(), "c\nd") << c.name;
  }
}

TEST_F(LoggerTest, dropsMessagesWhileItsDirectoryIsMissing) {
  Logger nowhere(directory.file("missing"));
  EXPECT_EQ(nowhere.logFileURL(), std::nullopt);
  nowhere.log("lost");
  nowhere.trimLog();
  EXPECT_EQ(entries(), 0U);
  EXPECT_EQ(logger.logFileURL(), directory.file("logfile.log"));
}

TEST_F(LoggerTest, doesNothingWithoutAFileToTrim) {
  logger.trimLog();
  EXPECT_EQ(entries(), 0U);
}

TEST_F(LoggerTest, leavesADirectoryInItsPlaceAlone) {
  std::filesystem::create_directory(directory.file("logfile.log"));
  logger.log("lost");
  logger.trimLog();
  EXPECT_TRUE(std::filesystem::is_empty(directory.file("logfile.log")));
  EXPECT_EQ(entries(), 1U);
}

TEST_F(LoggerTest, saysOnceThatATrimFailedAndLeavesTheLinesAsTheyWere) {
  // The file may be written, but nothing can be created beside it, as a trim has to.
  const std::string before = tenLines(12'000);
  write(before);
  const test::ReadOnlyDirectory readOnly(directory.path(), {"logfile.log"});
  logger.trimLog();
  EXPECT_EQ(content().substr(0, before.size()), before);
  EXPECT_EQ(content().substr(before.size() + kStampBytes), "Failed to trim log.\n");

  const std::string afterOne = content();
  logger.log("another");
  const std::string added = content().substr(afterOne.size());
  EXPECT_TRUE(std::regex_match(
      added,
      std::regex(
          R"(\d\d-\d\d-\d\d \d\d:\d\d:\d\d\tanother\n\d\d-\d\d-\d\d \d\d:\d\d:\d\d\tFailed to trim log\.\n)")))
      << added;
  EXPECT_EQ(entries(), 1U);
}

TEST_F(LoggerTest, losesNoLineAndMixesNoneWhenManyThreadsWrite) {
  constexpr int kThreads = 8;
  constexpr int kMessages = 40;  // together below the size that trims
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([this, thread] {
      for (int n = 0; n < kMessages; ++n) logger.log(std::to_string(thread * kMessages + n));
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<std::string> seen;
  std::istringstream all(content());
  for (std::string line; std::getline(all, line);) seen.insert(line.substr(kStampBytes));
  for (int n = 0; n < kThreads * kMessages; ++n) EXPECT_TRUE(seen.contains(std::to_string(n))) << n;
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(kThreads * kMessages));
}

TEST_F(LoggerTest, staysSmallAndWholeWhenManyThreadsWriteForLong) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([this] {
      for (int n = 0; n < 300; ++n) logger.log("a message of some length, as they are");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_LE(content().size(), 10'000U);
  std::istringstream all(content());
  for (std::string line; std::getline(all, line);) {
    EXPECT_EQ(line.substr(kStampBytes), "a message of some length, as they are");
  }
  EXPECT_EQ(entries(), 1U);
}

}  // namespace
}  // namespace msp
