#include "platform/host_info.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "platform/temporary_file.h"
#include "support/darwin/every_failure.h"
#include "support/temporary_directory.h"

namespace msp::test {
namespace {

TEST(ComputerName, isUtf8InAnyScript) {
  struct Case {
    const char* name;
    std::optional<MacValue> given;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {"an ordinary name", text(u"Anna\u2019s MacBook Pro"), "Anna\u2019s MacBook Pro"},
      {"another script", text(u"\u5E73\u5B50\u306EMac"), "\u5E73\u5B50\u306EMac"},
      {"characters beyond the first plane", text(u"\U0001F34E Mac"), "\U0001F34E Mac"},
      {"a name with a NUL", text(std::u16string(u"a\0b", 3)), std::string("a\0b", 3)},
      {"the first half of a pair at the end", text(u"Mac\xD83C"), "Mac?"},
      {"the second half of a pair at the start", text(u"\xDF4EMac"), "?Mac"},
      {"two first halves in a row", text(u"\xD83C\xD83C\xDF4E"), "?\U0001F34E"},
      {"the halves in the wrong order", text(u"\xDF4E\xD83C"), "??"},
      {"a long name", text(std::u16string(5000, u'\u20AC')),
       [] {
         std::string euros;
         for (int i = 0; i < 5000; ++i) euros += "\u20AC";
         return euros;
       }()},
      {"a blank is a name", text(u" "), " "},
      {"the empty name is none", text(u""), std::nullopt},
      {"none", std::nullopt, std::nullopt},
      {"what is no text is none", integer(1), std::nullopt},
  };
  for (const Case& row : cases) {
    SimulatedMac::current().computerName = row.given;
    EXPECT_EQ(computerName(), row.expected) << row.name;
  }
}

TEST(ComputerName, isNothingWhenTheSystemFails) {
  withEveryFailure([](SimulatedMac& mac) { mac.computerName = text(u"Mac"); },
                   [](int failing) {
                     EXPECT_EQ(computerName(),
                               failing == 0 ? std::optional<std::string>("Mac") : std::nullopt);
                   });
}

TEST(MacOSVersion, isWhatTheSystemSays) {
  struct Case {
    const char* name;
    std::optional<std::string> given;
    std::string expected;
  };
  const Case cases[] = {
      {"an ordinary version", "14.5", "14.5"},
      {"a long one", std::string(30, '1'), std::string(30, '1')},
      {"one that is too long is none", std::string(31, '1'), ""},
      {"none", std::nullopt, ""},
  };
  for (const Case& row : cases) {
    SimulatedMac::current().version = row.given;
    EXPECT_EQ(macOSVersion(), row.expected) << row.name;
  }
}

TEST(SystemUptime, isInSecondsWithFractions) {
  SimulatedMac::current().uptimeNanoseconds = 86'400'250'000'000;
  EXPECT_DOUBLE_EQ(systemUptime(), 86400.25);
}

TEST(ExecutableDirectory, hasItsLinksResolved) {
  const TemporaryDirectory directory;
  const std::string root = std::filesystem::canonical(directory.path());
  std::filesystem::create_directories(root + "/real");
  std::ofstream(root + "/real/agent") << "";
  std::filesystem::create_symlink(root + "/real", root + "/linked");
  struct Case {
    const char* name;
    std::string path, expected;
  };
  const Case cases[] = {
      {"a plain path", root + "/real/agent", root + "/real"},
      {"a path with a link", root + "/linked/agent", root + "/real"},
      {"a path with dots", root + "/linked/../real/./agent", root + "/real"},
      {"what is not there any more", root + "/gone/agent", ""},
      {"no path", "", ""},
  };
  for (const Case& row : cases) {
    SimulatedMac::current().executablePath = row.path;
    EXPECT_EQ(executableDirectory(), row.expected) << row.name;
  }
}

TEST(ExecutableDirectory, isEmptyWhenTheSystemFails) {
  const TemporaryDirectory directory;
  std::ofstream(directory.file("agent")) << "";
  withEveryFailure(
      [&](SimulatedMac& mac) { mac.executablePath = directory.file("agent"); },
      [&](int failing) {
        EXPECT_EQ(executableDirectory(),
                  failing == 0 ? std::filesystem::canonical(directory.path()).string() : std::string());
      });
}

TEST(TemporaryDirectoryOfTheUser, isTheSharedOneWhenThereIsNoOther) {
  struct Case {
    const char* name;
    std::string given, expected;
  };
  const Case cases[] = {
      {"the user's own", "/var/folders/zz/T/", "/var/folders/zz/T/"},
      {"none", "", "/tmp"},
      {"the longest path", std::string(4095, 'a'), std::string(4095, 'a')},
      {"one that is too long", std::string(4096, 'a'), "/tmp"},
  };
  for (const Case& row : cases) {
    SimulatedMac::current().userDirectory = row.given;
    EXPECT_EQ(temporaryDirectory(), row.expected) << row.name;
  }
}

}  // namespace
}  // namespace msp::test
