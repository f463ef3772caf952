#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "scenarios/scenario.h"

namespace msp::test {
namespace {

constexpr const char* kProcessListing = "ps -ax -c -r -o pid,%cpu,rss,comm";

/// When the agent is killed.
struct Moment {
  std::string name;
  std::function<void(Lab&)> prepare;  // before its start
  std::function<void(Lab&)> waitAndKill;
};

void killWhileToolRuns(Lab& lab, std::string_view commandLine) {
  const auto tool = lab.waitForTool(commandLine);
  lab.killAgent();
  lab.mac().forgetAnswer(commandLine);
}

const Moment kMoments[] = {
    {"at once", [](Lab&) {}, [](Lab& lab) { lab.killAgent(); }},
    {"while a tool of its report runs", [](Lab& lab) { lab.mac().hold("vm_stat"); },
     [](Lab& lab) { killWhileToolRuns(lab, "vm_stat"); }},
    {"while a job runs",
     [](Lab& lab) {
       lab.mac().hold(kProcessListing);
       lab.server().queueJob("get_processes");
     },
     [](Lab& lab) { killWhileToolRuns(lab, kProcessListing); }},
    {"while the server thinks about its check-in", [](Lab& lab) { lab.server().holdAnswers("checkin"); },
     [](Lab& lab) {
       lab.checkIn(lab.checkIns() + 1);
       lab.killAgent();
       lab.server().releaseAnswers("checkin");
     }},
};

using Restart = Scenario;

TEST_F(Restart, keepsTheIdentityWheneverTheAgentIsKilled) {
  Lab lab;
  // Killed before it knew its identity it has to ask again.
  lab.server().holdAnswers("create");
  lab.startAgent();
  ASSERT_TRUE(lab.server().waitForRequests(1, Clock::now() + kPatience));
  lab.expectLog({"Starting up: version 3.3.1"});
  lab.killAgent();
  EXPECT_EQ(lab.files(), (std::vector<std::string>{"default_api.txt", "logfile.log", "msp-agent"}));
  lab.server().releaseAnswers("create");

  lab.startAgent();
  lab.waitForFiles("an identity", [&] { return !lab.file("config.ini").empty(); });
  lab.killAgent();
  const auto identity = lab.file("config.ini");
  const std::string uuid = Json::parse(identity).at("api_uuid");

  for (const Moment& moment : kMoments) {
    SCOPED_TRACE(moment.name);
    moment.prepare(lab);
    lab.startAgent();
    moment.waitAndKill(lab);
    EXPECT_EQ(lab.file("config.ini"), identity);
  }
  lab.startAgent();
  const auto checkIn = lab.checkIn(lab.checkIns() + 1);
  EXPECT_EQ(checkIn->message.body["uuid"], uuid);
  EXPECT_EQ(resultsIn(*checkIn), Json::array());
  EXPECT_EQ(lab.server().received("create").size(), 2U);
  EXPECT_EQ(lab.server().received("test").size(), 1U);
}

TEST_F(Restart, neverFindsATornIdentity) {
  Lab lab;
  const auto before = lab.identity("3.3.0").dump(), after = lab.identity("3.3.1").dump();
  for (int round = 0; round < 20; ++round) {
    lab.storeIdentity("3.3.0");
    lab.startAgent();
    // Killed as soon as it has begun to store the new version.
    lab.waitForFiles("a change of config.ini", [&] {
      const auto names = lab.files();
      return lab.file("config.ini") != before ||
             std::any_of(names.begin(), names.end(),
                         [](const std::string& name) { return name.starts_with("config.ini."); });
    });
    lab.killAgent();
    const auto stored = lab.file("config.ini");
    EXPECT_TRUE(stored == before || stored == after) << stored;
  }
  lab.startAgent();
  EXPECT_EQ(lab.checkIn(lab.checkIns() + 1)->message.body["uuid"], lab.identity()["api_uuid"]);
  EXPECT_EQ(lab.server().received("create").size(), 0U);
}

}  // namespace
}  // namespace msp::test
