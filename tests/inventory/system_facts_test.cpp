#include "inventory/system_facts.h"

#include <gtest/gtest.h>

#include <iterator>
#include <random>

#include "platform/text.h"
#include "support/fake_host.h"
#include "support/machine_files.h"
#include "support/time_zone.h"

namespace msp {
namespace {

using test::FakeHost;
using test::FakeTaskRunner;
using test::trimmedMachineOutput;
using Text = std::optional<std::string>;

constexpr const char* kHardware = "system_profiler SPHardwareDataType";

TEST(SystemFacts, serialNumberAndModelAreTheLastPiecesOfTheirFirstLines) {
  struct Case {
    const char* name;
    std::string_view output;
    HardwareIdentity expected;
  };
  const Case cases[] = {
      {"both",
       "      Model Identifier: Mac14,2\n      Serial Number (system): FX7Q2M4L0K",
       {"FX7Q2M4L0K", "Mac14,2"}},
      {"the first of two serial numbers counts",
       "Serial Number (system): A1\nSerial Number (processor tray): B2",
       {"A1", {}}},
      {"the first of two models counts", "Model Identifier: A\nModel Identifier: B", {{}, "A"}},
      {"only what follows the last blank", "Serial Number (system): A1 B2", {"B2", {}}},
      {"a tab at the end is trimmed", "Serial Number: A1\t\nModel Identifier: B\t", {"A1", "B"}},
      {"a blank at the end leaves nothing", "Serial Number: A1 \nx", {"", {}}},
      {"a line without a colon", "Serial Number", {"Number", {}}},
      {"another case does not count", "serial number: A1", {}},
      {"the model's name is not its identifier", "Model Name: MacBook Air\nModel Number: Z15S", {}},
      {"no output", "", {}},
  };
  for (const Case& c : cases) EXPECT_EQ(parseHardwareIdentity(c.output), c.expected) << c.name;
}

TEST(SystemFacts, theVersionIsWhatAllLinesYield) {
  struct Case {
    const char* name;
    std::string_view output;
    SystemVersion expected;
  };
  const Case cases[] = {
      {"one tab",
       "ProductName:\tmacOS\nProductVersion:\t12.6.5\nBuildVersion:\t21G531",
       {"macOS 12.6.5 21G531", "macOS", "12.6.5"}},
      {"two tabs",
       "ProductName:\t\tmacOS\nProductVersion:\t\t14.4.1\nBuildVersion:\t\t23E224",
       {"macOS 14.4.1 23E224", "macOS", "14.4.1"}},
      {"a name of several words",
       "ProductName:\tMac OS X\nProductVersion:\t10.15.7",
       {"Mac OS X 10.15.7", "Mac OS X", "10.15.7"}},
      {"a security response comes after the version and replaces it",
       "ProductName:\t\tmacOS\nProductVersion:\t\t13.4.1\nProductVersionExtra:\t\t(c)\nBuildVersion:"
       "\t\t22F770820d",
       {"macOS 13.4.1 (c) 22F770820d", "macOS", "(c)"}},
      {"blanks around a value are trimmed",
       "ProductName:\t macOS \nProductVersion:\t 14 ",
       {"macOS 14", "macOS", "14"}},
      {"a line without a tab yields itself and is neither",
       " ProductName: macOS \nProductVersion: 14",
       {"ProductName: macOS ProductVersion: 14", {}, {}}},
      {"a first piece that holds both is the name", "ProductName ProductVersion\tx", {"x", "x", {}}},
      {"only the first piece is searched", "a\tProductName\tx", {"x", {}, {}}},
      {"an empty line yields an empty value",
       "ProductName:\tmacOS\n\nBuildVersion:\t23E224",
       {"macOS  23E224", "macOS", {}}},
      {"a name without a value", "ProductName:\t\nProductVersion:\t14", {" 14", "", "14"}},
      {"no output", "", {}},
  };
  for (const Case& c : cases) EXPECT_EQ(parseSystemVersion(c.output), c.expected) << c.name;
}

TEST(SystemFacts, theUserIsTheFirstOnATerminalElseTheFirstOnTheConsole) {
  struct Case {
    const char* name;
    std::string_view output;
    Text expected;
  };
  const Case cases[] = {
      {"the console alone", "chloe            console      May 20 08:31", "chloe"},
      {"a terminal wins over the console before it",
       "frontdesk console Nov  4 07:58\nitadmin ttys000 Nov  5 09:03 (10.20.0.14)", "itadmin"},
      {"the first of two terminals wins", "anna ttys001 x\nbert ttys000 x", "anna"},
      {"the first of two consoles wins", "anna console x\nbert console x", "anna"},
      {"a terminal of any name", "anna tty x", "anna"},
      {"a name that continues console", "anna console2", "anna"},
      {"two words are enough", "anna\tttys000", "anna"},
      {"a line of one word is none", "ttys000\nanna", {}},
      {"the terminal must be the second word", "anna x ttys000", {}},
      {"the case counts", "anna TTY0\nbert Console", {}},
      {"another kind of line", "reboot ~ Nov  4 07:58", {}},
      {"a name in another script", "josé console", "josé"},
      {"no output", "", {}},
  };
  for (const Case& c : cases) EXPECT_EQ(parseLoggedInUser(c.output), c.expected) << c.name;
}

TEST(SystemFacts, theLoadIsTheLastThreeOfMoreThanThreePieces) {
  struct Case {
    const char* name;
    std::string_view output;
    Text expected;
  };
  const Case cases[] = {
      {"a usual line", "9:12  up 1 day,  1:14, 2 users, load averages: 1.52 1.61 1.70", "1.52, 1.61, 1.70"},
      {"decimal commas stay", "9:12  up 44 mins, 1 user, load averages: 1,52 1,61 1,70", "1,52, 1,61, 1,70"},
      {"four pieces", "a b c d", "b, c, d"},
      {"three pieces are too few", "a b c", {}},
      {"two blanks hold an empty piece", "a  b c", ", b, c"},
      {"tabs do not separate", "a\tb c\td", {}},
      {"no output", "", {}},
  };
  for (const Case& c : cases) EXPECT_EQ(parseLoadAverage(c.output), c.expected) << c.name;
}

TEST(SystemFacts, freeMemoryIsTheFreeAndInactivePagesTimesTheirSize) {
  struct Case {
    const char* name;
    std::string_view output;
    std::optional<std::int64_t> expected;
  };
  constexpr Case kCases[] = {
      {"free and inactive are summed",
       "Mach Virtual Memory Statistics: (page size of 16384 bytes)\n"
       "Pages free:                                5120.\n"
       "Pages active:                            301224.\n"
       "Pages inactive:                          298811.\n"
       "Pages speculative:                         1204.",
       (5120 + 298811) * 16384LL},
      {"the heading states the page size", "(page size of 4096 bytes)\nPages free: 3.", 3 * 4096},
      {"the first number of the first line is the page size", "of 5 or 7\nPages free: 3.", 3 * 5},
      {"a bracket at the number hides it", "(16384)\nPages free: 3.", 3 * 4096},
      {"without a number in the first line it is 4096", "Statistics\nPages free: 3.", 3 * 4096},
      {"a later line states no page size", "Statistics\npage size of 16384 bytes\nPages free: 3.", 3 * 4096},
      {"the first line may be a count too", "Pages free: 3 .", 3 * 3},
      {"every matching line counts", "x\nPages free: 1.\nPages free: 2.\nPages inactive: 4.", 7 * 4096},
      {"a longer name counts too", "x\nPages freed by magic: 5.", 5 * 4096},
      {"a line that begins with a blank does not", "x\n Pages free: 5.", 0},
      {"no full stop at the end", "x\nPages free: 5", 5 * 4096},
      {"any punctuation is trimmed", "x\nPages free: 5.!)", 5 * 4096},
      {"a symbol is none", "x\nPages free: 5$", 0},
      {"a blank after the full stop hides it", "x\nPages free: 5. ", 0},
      {"a count that is no number is 0", "x\nPages free: many.\nPages inactive: 4.", 4 * 4096},
      {"a count beyond 64 bits is no number", "x\nPages free: 9223372036854775808.\nPages inactive: 4.",
       4 * 4096},
      {"a count with decimals is no number", "x\nPages free: 1.5.", 0},
      {"a name alone", "x\nPages free", 0},
      {"output without any count", "garbage", 0},
      {"the greatest sum that fits", "of 1 byte\nPages free: 9223372036854775806.\nPages inactive: 1.",
       9223372036854775807},
      {"the greatest product that fits", "of 2 bytes\nPages free: 4611686018427387903.", 9223372036854775806},
      {"no output", "", {}},
  };
  for (const Case& c : kCases) EXPECT_EQ(parseFreeMemory(c.output), c.expected) << c.name;
}

TEST(SystemFactsDeathTest, freeMemoryBeyond64BitsEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr const char* kLastWords = "^Free memory exceeds 64 bits\n$";
  EXPECT_DEATH(parseFreeMemory("of 1 byte\nPages free: 9223372036854775807.\nPages inactive: 1."), kLastWords)
      << "the sum";
  EXPECT_DEATH(parseFreeMemory("of 2 bytes\nPages free: 4611686018427387904."), kLastWords) << "the product";
}

TEST(SystemFacts, sizeAndFreeSpaceAreInTheLastLine) {
  using Space = std::optional<DriveSpace>;
  struct Case {
    const char* name;
    std::string_view output;
    Space expected;
  };
  constexpr Case kCases[] = {
      {"a usual listing",
       "Filesystem     1024-blocks    Used Available Capacity iused      ifree %iused  Mounted on\n"
       "/dev/disk3s1s1   482797652 9989340 180442208     6%  404108 1804422080    0%   /",
       DriveSpace{482797652LL * 1024, 180442208LL * 1024}},
      {"four pieces are enough", "/dev/disk1 100 60 40", DriveSpace{102400, 40960}},
      {"three pieces are too few", "/dev/disk1 100 60", {}},
      {"tabs separate as well", "/dev/disk1\t100 \t60\t40", DriveSpace{102400, 40960}},
      {"the heading alone has no numbers", "Filesystem 1024-blocks Used Available", {}},
      {"only the last line counts", "/dev/disk1 100 60 40\n/dev/disk2 7 6 5", DriveSpace{7168, 5120}},
      {"an empty last line has no pieces", "/dev/disk1 100 60 40\n", {}},
      {"a size that is no number", "/dev/disk1 many 60 40", {}},
      {"a free space that is no number", "/dev/disk1 100 60 4.0", {}},
      {"used blocks are not looked at", "/dev/disk1 100 - 40", DriveSpace{102400, 40960}},
      {"a blank in the name moves the pieces", "map auto_home 0 60 40", {}},
      {"the greatest size that fits", "d 9007199254740991 0 1", DriveSpace{9223372036854774784, 1024}},
      {"a size beyond 64 bits in bytes", "d 9007199254740992 0 1", {}},
      {"a free space beyond 64 bits in bytes", "d 1 0 9007199254740992", {}},
      {"a size beyond 64 bits in blocks", "d 9223372036854775808 0 1", {}},
      {"a negative size", "d -1 0 1", DriveSpace{-1024, 1024}},
      {"no output", "", {}},
  };
  for (const Case& c : kCases) EXPECT_EQ(parseDriveSpace(c.output), c.expected) << c.name;
}

/// A property list around the text.
std::string propertyList(const std::string& content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\">" + content + "</plist>";
}

std::string entry(const std::string& name, const std::string& date) {
  return "<dict><key>date</key><date>" + date + "</date><key>displayName</key><string>" + name +
         "</string></dict>";
}

TEST(SystemFacts, theLastSystemUpdateIsTheNewestEntryWhoseNameBeginsWithMacOS) {
  const test::TimeZone zone("UTC0");
  const std::string old = entry("macOS 14.4", "2024-03-07T19:00:00Z");
  const std::string recent = entry("macOS 14.5", "2024-05-14T22:08:03Z");
  struct Case {
    const char* name;
    std::string file;
    Text expected;
  };
  const Case cases[] = {
      {"one entry", propertyList("<array>" + recent + "</array>"), "24-05-14 22:08:03"},
      {"the newest wins, whatever the order", propertyList("<array>" + recent + old + "</array>"),
       "24-05-14 22:08:03"},
      {"a newer security update does not count",
       propertyList("<array>" + old + entry("Security Update 2024-001", "2024-06-01T00:00:00Z") + "</array>"),
       "24-03-07 19:00:00"},
      {"the name must begin with it",
       propertyList("<array>" + old + entry("Install macOS Sonoma", "2024-06-01T00:00:00Z") + "</array>"),
       "24-03-07 19:00:00"},
      {"the case counts",
       propertyList("<array>" + entry("MacOS 14.5", "2024-06-01T00:00:00Z") + "</array>"),
       {}},
      {"any continuation counts",
       propertyList("<array>" + entry("macOSLike", "2024-06-01T00:00:00Z") + "</array>"),
       "24-06-01 00:00:00"},
      {"an entry without a date is skipped",
       propertyList("<array><dict><key>displayName</key><string>macOS 15</string></dict>" + old + "</array>"),
       "24-03-07 19:00:00"},
      {"an entry without a name is skipped",
       propertyList("<array><dict><key>date</key><date>2024-06-01T00:00:00Z</date></dict>" + old +
                    "</array>"),
       "24-03-07 19:00:00"},
      {"a date written as text is none",
       propertyList("<array><dict><key>displayName</key><string>macOS 15</string><key>date</key>"
                    "<string>2024-06-01T00:00:00Z</string></dict></array>"),
       {}},
      {"a name that is a date is none",
       propertyList("<array><dict><key>displayName</key><date>2024-06-01T00:00:00Z</date><key>date</key>"
                    "<date>2024-06-01T00:00:00Z</date></dict></array>"),
       {}},
      {"a date before 1970", propertyList("<array>" + entry("macOS", "1969-12-31T23:59:58Z") + "</array>"),
       "69-12-31 23:59:58"},
      {"no entry at all", propertyList("<array></array>"), {}},
      {"a dictionary instead of a list", propertyList(recent), {}},
      {"a list of texts", propertyList("<array><string>macOS 14.5</string></array>"), {}},
      {"half a file", propertyList("<array>" + recent + "</array>").substr(0, 100), {}},
      {"no property list", "macOS 14.5", {}},
      {"an empty file", "", {}},
  };
  for (const Case& c : cases) EXPECT_EQ(parseLastSystemUpdate(c.file), c.expected) << c.name;
}

TEST(SystemFacts, theLastSystemUpdateIsInTheMachinesTimeZone) {
  const test::TimeZone zone("JST-9");
  EXPECT_EQ(
      parseLastSystemUpdate(propertyList("<array>" + entry("macOS", "2024-12-31T20:00:00Z") + "</array>")),
      "25-01-01 05:00:00");
}

struct Machine {
  std::string name;
  std::string computerName;
  double uptime = 0;
  GatheredData expected;
};

TEST(SystemFacts, theFactsOfThreeMachines) {
  const test::TimeZone zone("UTC0");
  Machine machines[] = {{"intel-ventura", "Reception iMac", 90884.512, {}},
                        {"m2-sonoma", "Chloé’s MacBook Air", 970261.204, {}},
                        {"m4-sequoia", "mini-studio-3", 2648.75, {}}};
  {
    GatheredData& iMac = machines[0].expected;
    iMac.last_sw_update = "24-08-08 03:15:31";
    iMac.cpu = "Intel(R) Core(TM) i5-8500 CPU @ 3.00GHz";
    iMac.os_version = "macOS 13.6.9 22G830";
    iMac.os_name = "macOS";
    iMac.os_build = "13.6.9";
    iMac.hw_serial_number = "C02ZQ7FAKE01";
    iMac.hw_model = "iMac19,2";
    iMac.ram = 17179869184;
    iMac.name = "Reception-iMac";
    iMac.username = "itadmin";
    iMac.uptime = 90884.512;
    iMac.load_average = "1.52, 1.61, 1.70";
    iMac.free_ram = (181204 + 1180233) * 4096LL;
    iMac.primary_drive_size = 488245288LL * 1024;
    iMac.primary_drive_free_space = 301224408LL * 1024;

    GatheredData& macBook = machines[1].expected;
    macBook.last_sw_update = "24-05-14 22:08:03";
    macBook.cpu = "Apple M2";
    macBook.os_version = "macOS 14.5 23F79";
    macBook.os_name = "macOS";
    macBook.os_build = "14.5";
    macBook.hw_serial_number = "FX7Q2M4L0K";
    macBook.hw_model = "Mac14,2";
    macBook.ram = 17179869184;
    macBook.name = "Chloés-MacBook-Air";
    macBook.username = "chloe";
    macBook.uptime = 970261.204;
    macBook.load_average = "2.81, 3.27, 3.01";
    macBook.free_ram = (5120 + 298811) * 16384LL;
    macBook.primary_drive_size = 482797652LL * 1024;
    macBook.primary_drive_free_space = 180442208LL * 1024;

    GatheredData& macMini = machines[2].expected;
    macMini.last_sw_update = "25-08-21 04:12:09";
    macMini.cpu = "Apple M4";
    macMini.os_version = "macOS 15.6.1 24G90";
    macMini.os_name = "macOS";
    macMini.os_build = "15.6.1";
    macMini.hw_serial_number = "L9T4W0NDXY";
    macMini.hw_model = "Mac16,10";
    macMini.ram = 25769803776;
    macMini.name = "mini-studio-3";
    macMini.username = "mediaops";
    macMini.uptime = 2648.75;
    macMini.load_average = "0.98, 1.20, 0.77";
    macMini.free_ram = (301224 + 390441) * 16384LL;
    macMini.primary_drive_size = 239362496LL * 1024;
    macMini.primary_drive_free_space = 90112844LL * 1024;
  }
  for (const Machine& machine : machines) {
    SCOPED_TRACE(machine.name);
    FakeHost host;
    host.name = machine.computerName;
    host.uptimeSeconds = machine.uptime;
    host.files["/Library/Receipts/InstallHistory.plist"] =
        test::machineFile(machine.name, "InstallHistory.plist");
    FakeTaskRunner& runner = host.runner();
    for (const char* commandLine : {"sysctl -n machdep.cpu.brand_string", "sw_vers", kHardware,
                                    "sysctl -n hw.memsize", "who", "uptime", "vm_stat", "df -k /"}) {
      runner.answer(commandLine, trimmedMachineOutput(machine.name, commandLine));
    }
    GatheredData report;
    report.time_stamp = machine.expected.time_stamp;
    collectLastSystemUpdate(report, host);
    collectProcessor(report, runner);
    collectSystemVersion(report, runner);
    collectHardwareIdentity(report, runner);
    collectMemorySize(report, runner);
    collectComputerName(report, host);
    collectUserName(report, runner);
    collectUptime(report, host);
    collectLoadAverage(report, runner);
    collectFreeMemory(report, runner);
    collectDriveSpace(report, runner);
    EXPECT_EQ(report.jsonText(), machine.expected.jsonText());
    EXPECT_EQ(report, machine.expected);
  }
}

/// A report in which every collector's fields hold something.
GatheredData knownReport() {
  GatheredData report;
  report.last_sw_update = "20-01-01 00:00:00";
  report.cpu = "known cpu";
  report.os_version = "known version";
  report.hw_serial_number = "known serial";
  report.hw_model = "known model";
  report.ram = 1;
  report.os_name = "known system";
  report.os_build = "known build";
  report.name = "known-name";
  report.username = "known user";
  report.load_average = "known load";
  report.free_ram = 2;
  report.primary_drive_size = 3;
  report.primary_drive_free_space = 4;
  return report;
}

TEST(SystemFacts, aToolThatPrintsNothingLeavesTheReportAsItWas) {
  FakeHost host;
  host.name = std::nullopt;
  FakeTaskRunner& runner = host.runner();
  GatheredData report = knownReport();
  const GatheredData before = report;
  collectLastSystemUpdate(report, host);
  collectProcessor(report, runner);
  collectSystemVersion(report, runner);
  collectHardwareIdentity(report, runner);
  collectMemorySize(report, runner);
  collectComputerName(report, host);
  collectUserName(report, runner);
  collectLoadAverage(report, runner);
  collectFreeMemory(report, runner);
  collectDriveSpace(report, runner);
  EXPECT_EQ(report, before);
}

TEST(SystemFacts, outputThatDoesNotParseLeavesItsFieldsAsTheyWere) {
  using Collector = void (*)(GatheredData&, TaskRunner&);
  struct Case {
    const char* name;
    Collector collect;
    const char* commandLine;
    const char* output;
  };
  const Case cases[] = {
      {"a memory size that is no number", collectMemorySize, "sysctl -n hw.memsize", "16 GB"},
      {"a memory size beyond 64 bits", collectMemorySize, "sysctl -n hw.memsize", "9223372036854775808"},
      {"a profile without identity", collectHardwareIdentity, kHardware, "Hardware:"},
      {"nobody logged in on a terminal", collectUserName, "who", "anna pts/0"},
      {"an uptime of three words", collectLoadAverage, "uptime", "up for ever"},
      {"a file system of three words", collectDriveSpace, "df -k /", "/dev/disk1 100 60"},
      {"a file system whose free space is no number", collectDriveSpace, "df -k /", "/dev/disk1 100 60 x"},
      {"a file system whose size exceeds 64 bits", collectDriveSpace, "df -k /", "d 9007199254740992 0 1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeTaskRunner runner;
    runner.answer(c.commandLine, c.output);
    GatheredData report = knownReport();
    const GatheredData before = report;
    c.collect(report, runner);
    EXPECT_EQ(report, before);
    EXPECT_EQ(runner.commandLines(), std::vector<std::string>{c.commandLine});
  }
}

TEST(SystemFacts, oneHalfOfTheIdentityIsStoredWithoutTheOther) {
  FakeTaskRunner runner;
  runner.answer(kHardware, "Model Identifier: Mac14,2");
  GatheredData report = knownReport();
  collectHardwareIdentity(report, runner);
  EXPECT_EQ(report.hw_model, "Mac14,2");
  EXPECT_EQ(report.hw_serial_number, "known serial");
}

TEST(SystemFacts, aVersionWithoutItsUsualLinesFallsBackToTheReport) {
  FakeTaskRunner runner;
  runner.answer("sw_vers", "Darwin 23.5");
  GatheredData report = knownReport();
  collectSystemVersion(report, runner);
  EXPECT_EQ(report.os_version, "Darwin 23.5");
  EXPECT_EQ(report.os_name, "known system");
  EXPECT_EQ(report.os_build, "known version") << "what os_version held before, not the old build";

  GatheredData fresh;
  collectSystemVersion(fresh, runner);
  EXPECT_EQ(fresh.os_build, "") << "nor what os_version holds now";
}

TEST(SystemFacts, aMemorySizeIsReadAsItStands) {
  FakeTaskRunner runner;
  runner.answer("sysctl -n hw.memsize", "17179869184");
  GatheredData report;
  collectMemorySize(report, runner);
  EXPECT_EQ(report.ram, 17179869184);
}

TEST(SystemFacts, theNameIsMadeFitForAHostLabel) {
  struct Case {
    const char* name;
    Text computerName;
    std::string expected;
  };
  const Case cases[] = {
      {"blanks become dashes, an apostrophe goes", "Ana's MacBook Pro", "Anas-MacBook-Pro"},
      {"letters and digits of any script stay", "會議室 Mac ٣", "會議室-Mac-٣"},
      {"without a computer name the report's own is made fit", {}, "old-name"},
      {"nothing may stay", "’!?", ""},
  };
  for (const Case& c : cases) {
    FakeHost host;
    host.name = c.computerName;
    GatheredData report;
    report.name = "old name!";
    collectComputerName(report, host);
    EXPECT_EQ(report.name, c.expected) << c.name;
  }
}

TEST(SystemFacts, whateverIsPrintedEveryParserAnswersWithinItsType) {
  // Numbers stand between blanks and are small, so that no product reaches the limit that ends the process.
  const std::string fragments[] = {"Pages free:",
                                   "Pages inactive",
                                   "Serial Number",
                                   "Model Identifier: ",
                                   "ProductName",
                                   "ProductVersion",
                                   "console",
                                   "ttys000",
                                   " 12345 ",
                                   " -7 ",
                                   " +42. ",
                                   "\n",
                                   "\r\n",
                                   "\t",
                                   " ",
                                   "\u2028",
                                   "é",
                                   "\xC3",
                                   "\xFF",
                                   "\xE2\x80",
                                   std::string(1, '\0'),
                                   ".",
                                   "(",
                                   "/dev/disk1",
                                   "<array>",
                                   "<dict/>",
                                   "macOS"};
  std::mt19937 random(20240305);
  std::uniform_int_distribution<std::size_t> anyFragment(0, std::size(fragments) - 1);
  std::uniform_int_distribution<int> anyLength(0, 60);
  const auto isPartOf = [](const std::string& output, const Text& piece) {
    return !piece || output.find(*piece) != std::string::npos;
  };
  for (int round = 0; round < 3000; ++round) {
    std::string output;
    for (int i = anyLength(random); i > 0; --i) output += fragments[anyFragment(random)];
    SCOPED_TRACE(output);
    const HardwareIdentity identity = parseHardwareIdentity(output);
    ASSERT_TRUE(isPartOf(output, identity.serialNumber) && isPartOf(output, identity.model));
    const SystemVersion version = parseSystemVersion(output);
    ASSERT_TRUE(isPartOf(output, version.productName) && isPartOf(output, version.productVersion));
    ASSERT_LE(version.everything.size(), output.size());
    ASSERT_TRUE(isPartOf(output, parseLoggedInUser(output)));
    const Text load = parseLoadAverage(output);
    ASSERT_TRUE(!load || load->size() <= output.size() + 2);
    const auto freeMemory = parseFreeMemory(output);
    ASSERT_EQ(freeMemory.has_value(), !output.empty());
    if (const auto space = parseDriveSpace(output)) {
      ASSERT_EQ(space->size % 1024, 0);
      ASSERT_EQ(space->available % 1024, 0);
    }
    ASSERT_EQ(parseLastSystemUpdate(output), std::nullopt);
    if (!decodeText(output)) continue;
    GatheredData report;
    report.hw_serial_number = identity.serialNumber.value_or("");
    report.os_version = version.everything;
    report.load_average = load.value_or("");
    ASSERT_NE(report.jsonText(), "") << "well-formed output must not be cut within a character";
  }
}

TEST(SystemFacts, wellFormedFileSystemLinesComeBackAsTheyWere) {
  std::mt19937_64 random(20240305);
  for (int round = 0; round < 2000; ++round) {
    const auto size = static_cast<std::int64_t>(random() >> 12U);
    const auto available = static_cast<std::int64_t>(random() >> 12U);
    const std::string line = "/dev/disk" + std::to_string(random() % 100) +
                             std::string(random() % 5 + 1, ' ') + std::to_string(size) + " " +
                             std::to_string(random()) + "\t" + std::to_string(available) + " 6% 1 2 0% /";
    ASSERT_EQ(parseDriveSpace("Filesystem 1024-blocks\n" + line), (DriveSpace{size * 1024, available * 1024}))
        << line;
  }
}

}  // namespace
}  // namespace msp
