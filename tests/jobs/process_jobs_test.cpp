#include "jobs/process_jobs.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>

#include "jobs/jobs_manager.h"
#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_http_client.h"
#include "support/machine_files.h"

namespace msp {
namespace {

constexpr const char* kListing = "ps -ax -c -r -o pid,%cpu,rss,comm";

ProcessData process(const std::string& name, std::int64_t pid, double cpu, std::int64_t ram) {
  return {.name = name, .pid = pid, .cpu_time = cpu, .physical_ram = ram, .peak_ram = "", .file_name = name};
}

TEST(ParseProcesses, aLineOfFourWordsWithThreeNumbersIsAProcess) {
  struct Case {
    const char* name;
    std::string_view output;
    std::vector<ProcessData> expected;
  };
  const Case cases[] = {
      {"one process", "  152   9.1 140224 WindowServer", {process("WindowServer", 152, 9.1, 140224)}},
      {"the heading is none",
       "  PID  %CPU    RSS COMM\n    1   0.2  16224 launchd\n",
       {process("launchd", 1, 0.2, 16224)}},
      {"the order of the lines is kept",
       "9 9.5 1 b\n1 0.5 2 a",
       {process("b", 9, 9.5, 1), process("a", 1, 0.5, 2)}},
      {"tabs separate as well", "\t1\t0.5 \t 2\ta\t", {process("a", 1, 0.5, 2)}},
      {"a name with a blank is left out", "1 0.5 2 Google Chrome", {}},
      {"a line without a name is left out", "1 0.5 2", {}},
      {"empty lines are left out", "\n\n1 0.5 2 a\n\n", {process("a", 1, 0.5, 2)}},
      {"any newline character ends a line",
       "1 0.5 2 a\r\n2 0.5 2 b\u2028"
       "3 0.5 2 c\u0085"
       "4 0.5 2 d",
       {process("a", 1, 0.5, 2), process("b", 2, 0.5, 2), process("c", 3, 0.5, 2), process("d", 4, 0.5, 2)}},
      {"a name keeps its brackets and dashes",
       "1 0.0 0 (mdworker)\n2 0.0 0 <defunct>\n3 0.0 1 -zsh",
       {process("(mdworker)", 1, 0, 0), process("<defunct>", 2, 0, 0), process("-zsh", 3, 0, 1)}},
      {"a name in another script", "1 0.5 2 Überwachung", {process("Überwachung", 1, 0.5, 2)}},
      {"a no-break space does not separate", "1 0.5 2 a\u00A0b", {process("a\u00A0b", 1, 0.5, 2)}},
      {"a name that is a number", "1 0.5 2 3", {process("3", 1, 0.5, 2)}},
      {"signs are numbers too", "+1 -0.5 -2 a", {process("a", 1, -0.5, -2)}},
      {"a processor share without decimals", "1 100 2 a", {process("a", 1, 100, 2)}},
      {"a decimal comma is no number", "1 0,5 2 a", {}},
      {"an infinite share is no number", "1 inf 2 a", {}},
      {"a process id with decimals is none", "1.0 0.5 2 a", {}},
      {"a process id beyond 64 bits is none", "9223372036854775808 0.5 2 a", {}},
      {"a size with decimals is none", "1 0.5 2.0 a", {}},
      {"a size with a unit is none", "1 0.5 2K a", {}},
      {"a bad line costs only itself", "1 x 2 a\n2 0.5 2 b", {process("b", 2, 0.5, 2)}},
      {"garbage", "\x01\x02 %%% \xFF\xFE", {}},
  };
  for (const Case& c : cases) EXPECT_EQ(parseProcesses(c.output), c.expected) << c.name;
}

TEST(ParseProcesses, theProcessesOfThreeMachines) {
  EXPECT_EQ(
      parseProcesses(test::machineOutput("intel-ventura", kListing)),
      (std::vector<ProcessData>{process("WindowServer", 152, 9.1, 140224), process("mds", 91, 1.2, 22044),
                                process("Finder", 312, 0.7, 88012), process("launchd", 1, 0.3, 14480),
                                process("opendirectoryd", 118, 0.1, 6120), process("sshd", 5120, 0, 1880),
                                process("-zsh", 5122, 0, 1512), process("(mdworker)", 5200, 0, 0),
                                process("loginwindow", 301, 0, 12044)}));
  EXPECT_EQ(parseProcesses(test::machineOutput("m2-sonoma", kListing)),
            (std::vector<ProcessData>{
                process("com.apple.WebKit.WebContent", 612, 21.7, 401224),
                process("WindowServer", 401, 12.3, 202114), process("Safari", 1204, 3.1, 120884),
                process("mds_stores", 344, 1.1, 40112), process("Finder", 588, 0.4, 90221),
                process("launchd", 1, 0.2, 16224), process("Dock", 600, 0, 30112),
                process("zsh", 612204, 0, 2880), process("bluetoothd", 377, 0, 8812)}));
  EXPECT_EQ(
      parseProcesses(test::machineOutput("m4-sequoia", kListing)),
      (std::vector<ProcessData>{process("Compressor", 901, 77, 1204884),
                                process("WindowServer", 388, 6.4, 180442), process("launchd", 1, 0.5, 18044),
                                process("logd", 366, 0.3, 22044), process("Finder", 410, 0, 90112),
                                process("ssh-agent", 388120, 0, 1204), process("<defunct>", 512, 0, 0)}));
}

TEST(ParseProcesses, whateverIsPrintedOnlyWholeLinesBecomeProcesses) {
  const std::string pieces[] = {"0",
                                "1",
                                "42",
                                "100",
                                "-2",
                                "0.5",
                                "3.25",
                                "7e300",
                                "1e999",
                                "a",
                                "PID",
                                "%",
                                "+",
                                "\xFF",
                                "é",
                                "",
                                std::string(1, '\0'),
                                "99999999999999999999"};
  const std::string separators[] = {" ", "\t", "  "};
  const std::string ends[] = {"\n", "\r\n", "\u2029", "\xE2\x80"};
  std::mt19937 random(20240305);
  int processes = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string output;
    for (int line = 0; line < 8; ++line) {
      for (auto count = random() % 4 + 2; count > 0; --count) {
        output += pieces[random() % std::size(pieces)] + separators[random() % std::size(separators)];
      }
      output += ends[random() % std::size(ends)];
    }
    for (const ProcessData& found : parseProcesses(output)) {
      ++processes;
      ASSERT_FALSE(found.name.empty()) << output;
      ASSERT_EQ(found.name.find_first_of(" \t\n\r"), std::string::npos) << output;
      ASSERT_NE(output.find(found.name), std::string::npos) << output;
      ASSERT_EQ(found, process(found.name, found.pid, found.cpu_time, found.physical_ram)) << output;
      ASSERT_TRUE(std::isfinite(found.cpu_time)) << output;
    }
  }
  EXPECT_GT(processes, 100) << "the output should hold some";
}

TEST(ParseProcesses, wellFormedLinesComeBackAsTheyWere) {
  std::mt19937_64 random(20240305);
  std::vector<ProcessData> expected;
  std::string output = "  PID  %CPU    RSS COMM\n";
  for (int i = 0; i < 2000; ++i) {
    std::string name;
    for (auto length = random() % 20 + 1; length > 0; --length)
      name += static_cast<char>('!' + random() % 94);
    // Tenths, as the tool prints them: the nearest number to "12.3" is the one nearest to 123 / 10.
    const auto tenths = static_cast<std::int64_t>(random() % 100000);
    expected.push_back(process(name, static_cast<std::int64_t>(random()), static_cast<double>(tenths) / 10,
                               static_cast<std::int64_t>(random() >> 1U)));
    output += std::string(random() % 4, ' ') + std::to_string(expected.back().pid) + "  " +
              std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + "\t" +
              std::to_string(expected.back().physical_ram) + " " + name + "\n";
  }
  EXPECT_EQ(parseProcesses(output), expected);
}

class ListProcesses : public testing::Test {
 protected:
  JobResult run() {
    return JobsManager(host_, http_).listProcesses(Job::parse(R"({"id": "8", "type": "get_processes"})"));
  }

  test::FakeHost host_;
  test::FakeHttpClient http_;
  test::CapturedLog log_;
};

TEST_F(ListProcesses, theListingIsRunOnceAndAnswered) {
  host_.runner().answer(kListing, "  PID  %CPU    RSS COMM\n    1   0.2  16224 launchd\n");
  const JobResult expected{
      .id = 8, .message = "", .success = 1, .processes = {{process("launchd", 1, 0.2, 16224)}}};
  EXPECT_EQ(run(), expected);
  EXPECT_EQ(host_.runner().commandLines(),
            std::vector<std::string>{"streaming ps -ax -c -r -o pid,%cpu,rss,comm"});
  EXPECT_TRUE(log_.messages().empty());
}

TEST_F(ListProcesses, aListingWithoutProcessesSucceedsWithAnEmptyList) {
  host_.runner().answer(kListing, "  PID  %CPU    RSS COMM\n");
  const JobResult expected{.id = 8, .message = "", .success = 1, .processes = std::vector<ProcessData>{}};
  EXPECT_EQ(run(), expected);
}

TEST_F(ListProcesses, aToolThatPrintsNothingFailsTheJob) {
  const JobResult expected{.id = 8, .message = "Error - unable to list processes.", .success = 0};
  EXPECT_EQ(run(), expected);
  EXPECT_EQ(log_.messages(), std::vector<std::string>{"Unable to list processes: get_processes"});
}

}  // namespace
}  // namespace msp
