#include "platform/host_info.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "platform/host.h"
#include "platform/text.h"
#include "support/temporary_directory.h"

namespace msp {
namespace {

TEST(HostInfo, computerNameIsTextIfThereIsOne) {
  if (const auto name = computerName()) {
    EXPECT_NE(*name, "");
    EXPECT_EQ(decodeText(*name), name);
  }
}

TEST(HostInfo, computerNameIsTheHostNameWhereTheSystemHasNoOther) {
  if (!std::filesystem::exists("/proc/sys/kernel/hostname")) GTEST_SKIP() << "this system has another";
  std::string hostName;
  std::getline(std::ifstream("/proc/sys/kernel/hostname"), hostName);
  EXPECT_EQ(computerName().value_or(""), hostName);
}

TEST(HostInfo, uptimeCountsSinceBoot) {
  if (!std::filesystem::exists("/proc/uptime")) GTEST_SKIP() << "no such file on this system";
  const double before = systemUptime();
  double system = 0;
  std::ifstream("/proc/uptime") >> system;
  const double after = systemUptime();
  // The file's hundredths are cut off.
  EXPECT_LE(before - 0.02, system);
  EXPECT_GE(after + 0.02, system);
}

TEST(HostInfo, uptimeGoesOnInFractionsOfASecond) {
  const double first = systemUptime();
  EXPECT_GT(first, 0);
  double next = systemUptime();
  while (next == first) next = systemUptime();
  EXPECT_GT(next, first);
  EXPECT_LT(next - first, 1);
}

TEST(HostInfo, executableDirectoryHoldsThisProgram) {
  const std::filesystem::path directory = executableDirectory();
  EXPECT_TRUE(directory.is_absolute());
  EXPECT_EQ(std::filesystem::canonical(directory), directory);
  EXPECT_TRUE(std::filesystem::is_regular_file(directory / "platform_tests"));
}

TEST(SystemHost, asksTheSystem) {
  const Host& host = systemHost();
  EXPECT_EQ(&host, &systemHost());
  EXPECT_EQ(host.computerName(), computerName());
  EXPECT_GE(host.uptime(), 0);
  EXPECT_NE(host.makeTaskRunner(), nullptr);
}

TEST(SystemHost, readsFiles) {
  const test::TemporaryDirectory directory;
  std::ofstream(directory.file("file")) << "content\n";
  EXPECT_EQ(systemHost().fileContent(directory.file("file")), "content\n");
  EXPECT_EQ(systemHost().fileContent(directory.file("absent")), std::nullopt);
  EXPECT_EQ(systemHost().fileContent(directory.path()), std::nullopt);
}

}  // namespace
}  // namespace msp
