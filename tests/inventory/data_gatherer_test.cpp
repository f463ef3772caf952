#include "inventory/data_gatherer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "support/fake_host.h"
#include "support/fake_http_client.h"
#include "support/machine_files.h"
#include "support/time_zone.h"

namespace msp {
namespace {

using test::FakeHost;
using test::FakeHttpClient;

const std::vector<std::string> kTools = {"sysctl -n machdep.cpu.brand_string",
                                         "sw_vers",
                                         "system_profiler SPHardwareDataType",
                                         "sysctl -n hw.memsize",
                                         "who",
                                         "ipconfig getifaddr en0",
                                         "uptime",
                                         "vm_stat",
                                         "df -k /"};
const std::vector<std::string> kToolsOfEveryRefresh(kTools.begin() + 4, kTools.end());

class DataGathererTest : public testing::Test {
 protected:
  DataGathererTest() { becomeMachine("m2-sonoma"); }

  void becomeMachine(const std::string& machine) {
    for (const std::string& commandLine : kTools) {
      host_.runner().answer(commandLine, test::trimmedMachineOutput(machine, commandLine));
    }
    host_.name = "Chloé’s MacBook Air";
    host_.uptimeSeconds = 970261.204;
    host_.files["/Library/Receipts/InstallHistory.plist"] =
        test::machineFile(machine, "InstallHistory.plist");
  }

  GatheredData refresh() {
    const auto done = std::make_shared<std::promise<GatheredData>>();
    gatherer_.gather([done](GatheredData report) { done->set_value(std::move(report)); });
    return done->get_future().get();
  }

  const test::TimeZone zone_{"UTC0"};
  FakeHost host_;
  FakeHttpClient http_;
  DataGatherer gatherer_{"3.3.1", host_, http_};
};

TEST_F(DataGathererTest, theReportBeforeTheFirstRefreshHasTheVersionAlone) {
  GatheredData expected;
  expected.agent_version = "3.3.1";
  const GatheredData report = gatherer_.report();
  expected.time_stamp = report.time_stamp;
  EXPECT_EQ(report, expected);
}

TEST_F(DataGathererTest, aRefreshFillsTheWholeReport) {
  const GatheredData report = refresh();
  GatheredData expected;
  expected.agent_version = "3.3.1";
  expected.last_sw_update = "24-05-14 22:08:03";
  expected.cpu = "Apple M2";
  expected.os_version = "macOS 14.5 23F79";
  expected.hw_serial_number = "FX7Q2M4L0K";
  expected.hw_model = "Mac14,2";
  expected.ram = 17179869184;
  expected.os_name = "macOS";
  expected.os_build = "14.5";
  expected.name = "Chloés-MacBook-Air";
  expected.username = "chloe";
  expected.ipv4_address = "192.168.68.114";
  expected.uptime = 970261.204;
  expected.load_average = "2.81, 3.27, 3.01";
  expected.free_ram = (5120 + 298811) * 16384LL;
  expected.primary_drive_size = 482797652LL * 1024;
  expected.primary_drive_free_space = 180442208LL * 1024;
  expected.time_stamp = report.time_stamp;
  EXPECT_EQ(report.jsonText(), expected.jsonText());
  EXPECT_EQ(report, expected);
  EXPECT_EQ(gatherer_.report(), report);
}

TEST_F(DataGathererTest, theToolsRunInTheirOrderAndWhatDoesNotChangeOnlyOnce) {
  refresh();
  EXPECT_EQ(host_.runner().commandLines(), kTools);
  host_.runner().forgetCommandLines();
  host_.files.clear();
  const GatheredData second = refresh();
  EXPECT_EQ(host_.runner().commandLines(), kToolsOfEveryRefresh);
  EXPECT_EQ(second.last_sw_update, "24-05-14 22:08:03");
}

TEST_F(DataGathererTest, whatIsStillUnknownIsAskedForAgain) {
  struct Case {
    const char* name;
    const char* commandLine;
    const char* firstOutput;
    std::vector<std::string> askedAgain;
  };
  const Case cases[] = {
      {"the processor", kTools[0].c_str(), "", {kTools[0]}},
      {"the version", kTools[1].c_str(), "", {kTools[1]}},
      {"the identity, but not the memory", kTools[2].c_str(), "", {kTools[2]}},
      {"the identity when only the model is known", kTools[2].c_str(), "Model Identifier: X", {kTools[2]}},
      {"the identity when only the serial number is known",
       kTools[2].c_str(),
       "Serial Number: X",
       {kTools[2]}},
      {"the memory, but not the identity", kTools[3].c_str(), "", {kTools[3]}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeHost host;
    for (const std::string& commandLine : kTools) {
      host.runner().answer(commandLine, test::trimmedMachineOutput("m4-sequoia", commandLine));
    }
    host.runner().answer(c.commandLine, c.firstOutput);
    DataGatherer gatherer("3.3.1", host, http_);
    for (int i = 0; i < 2; ++i) {
      host.runner().forgetCommandLines();
      const auto done = std::make_shared<std::promise<void>>();
      gatherer.gather([done](const GatheredData&) { done->set_value(); });
      done->get_future().get();
    }
    auto expected = c.askedAgain;
    expected.insert(expected.end(), kToolsOfEveryRefresh.begin(), kToolsOfEveryRefresh.end());
    EXPECT_EQ(host.runner().commandLines(), expected);
  }
}

TEST_F(DataGathererTest, whatCannotBeLearntKeepsItsLastValue) {
  GatheredData first = refresh();
  for (const std::string& commandLine : kTools) host_.runner().answer(commandLine, "");
  host_.name = std::nullopt;
  const GatheredData second = refresh();
  first.time_stamp = second.time_stamp;
  EXPECT_EQ(second, first);
}

TEST_F(DataGathererTest, theInterfaceThatAnsweredIsAskedFirstNextTime) {
  host_.runner().answer("ipconfig getifaddr en0", "");
  host_.runner().answer("ipconfig getifaddr en1", "10.0.0.2");
  EXPECT_EQ(refresh().ipv4_address, "10.0.0.2");
  host_.runner().answer("ipconfig getifaddr en0", "10.0.0.1");
  host_.runner().forgetCommandLines();
  EXPECT_EQ(refresh().ipv4_address, "10.0.0.2");
  EXPECT_FALSE(host_.runner().ran("ipconfig getifaddr en0"));
}

TEST_F(DataGathererTest, thePublicAddressComesWithTheNextRefresh) {
  EXPECT_EQ(refresh().wan_ipv4_address, "");
  ASSERT_EQ(http_.requests().size(), 1U);
  http_.answer(0, 200, "203.0.113.9");
  EXPECT_EQ(refresh().wan_ipv4_address, "203.0.113.9");
  ASSERT_EQ(http_.requests().size(), 2U) << "every refresh looks it up again";
  http_.fail(1, "timed out");
  EXPECT_EQ(refresh().wan_ipv4_address, "203.0.113.9");
}

TEST_F(DataGathererTest, anAnswerDoesNotWaitForAToolThatHangs) {
  refresh();
  std::promise<void> hangs;
  std::promise<void> goesOn;
  host_.runner().onRun([&](const std::string& commandLine) {
    if (commandLine != "uptime") return;
    hangs.set_value();
    goesOn.get_future().wait();
  });
  const auto done = std::make_shared<std::promise<void>>();
  gatherer_.gather([done](const GatheredData&) { done->set_value(); });
  hangs.get_future().wait();
  http_.answer(0, 200, "203.0.113.9");  // would never return if it waited
  goesOn.set_value();
  done->get_future().wait();
  host_.runner().onRun(nullptr);
  EXPECT_EQ(refresh().wan_ipv4_address, "203.0.113.9");
}

TEST_F(DataGathererTest, theReportIsStampedWhenItIsComplete) {
  std::chrono::system_clock::time_point lastTool;
  host_.runner().onRun([&](const std::string&) { lastTool = std::chrono::system_clock::now(); });
  EXPECT_GE(refresh().time_stamp, lastTool);
}

TEST_F(DataGathererTest, theCompletionMayUseTheGatherer) {
  const auto done = std::make_shared<std::promise<GatheredData>>();
  gatherer_.gather([this, done](const GatheredData& report) {
    EXPECT_EQ(gatherer_.report(), report);
    gatherer_.gather([done](GatheredData next) { done->set_value(std::move(next)); });
  });
  EXPECT_EQ(done->get_future().get().cpu, "Apple M2");
}

TEST_F(DataGathererTest, overlappingRefreshesEachGetAConsistentReport) {
  constexpr int kThreads = 4;
  constexpr int kRefreshes = 25;
  int generation = 0;
  host_.runner().onRun([&](const std::string& commandLine) {
    if (commandLine != "who") return;
    const std::string number = std::to_string(++generation);
    host_.runner().answer("who", number + " console");
    host_.runner().answer("uptime", "load averages: 0 0 " + number);
  });
  std::atomic<int> consistent = 0;
  std::atomic<int> left = kThreads * kRefreshes;
  const auto done = std::make_shared<std::promise<void>>();
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < kRefreshes; ++j) {
        gatherer_.gather([&, done](const GatheredData& report) {
          if (report.load_average == "0, 0, " + report.username) ++consistent;
          if (--left == 0) done->set_value();
        });
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  done->get_future().wait();
  EXPECT_EQ(consistent, kThreads * kRefreshes);
  EXPECT_EQ(generation, kThreads * kRefreshes);
}

TEST(DataGatherer, aRefreshOutlivesItsGatherer) {
  FakeHost host;
  FakeHttpClient http;
  std::promise<void> mayGoOn;
  const auto done = std::make_shared<std::promise<GatheredData>>();
  host.runner().onRun([&](const std::string& commandLine) {
    if (commandLine == "who") mayGoOn.get_future().wait();
  });
  {
    DataGatherer gatherer("3.3.1", host, http);
    gatherer.gather([done](GatheredData report) { done->set_value(std::move(report)); });
  }
  mayGoOn.set_value();
  EXPECT_EQ(done->get_future().get().agent_version, "3.3.1");
  http.answer(0, 200, "203.0.113.9");
}

}  // namespace
}  // namespace msp
