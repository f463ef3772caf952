#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "scenarios/scenario.h"

namespace msp::test {
namespace {

namespace fs = std::filesystem;

struct Case {
  std::string name;
  std::function<void(Lab&)> prepare;
  /// What the event log holds when all has happened; not looked at where the agent cannot write it.
  std::vector<std::string> log;
};

constexpr const char* kStart = "Starting up: version 3.3.1";
constexpr const char* kStored = "Tested & stored new config.";

void makeDirectory(const Lab& lab, const std::string& name) {
  fs::remove(lab.path(name));
  fs::create_directory(lab.path(name));
}

/// Lets the start-up line be the first in the log: registration goes on beside the start.
void startSlowly(Lab& lab) {
  lab.server().holdAnswers("create");
  lab.startAgent();
  lab.waitForFiles("a log", [&] { return !lab.log().empty(); });
  lab.server().releaseAnswers("create");
}

const Case kWithIdentity[] = {
    {"the stored identity cannot be read: it is a directory",
     [](Lab& lab) {
       makeDirectory(lab, "config.ini");
       startSlowly(lab);
     },
     {kStart, "Error converting config to JSON: Is a directory", kStored}},
    {"the stored identity is half-written",
     [](Lab& lab) {
       const auto whole = lab.identity().dump();
       lab.writeFile("config.ini", whole.substr(0, whole.size() / 2));
       startSlowly(lab);
     },
     {kStart, kStored}},
    {"the stored identity is empty",
     [](Lab& lab) {
       lab.writeFile("config.ini", "");
       startSlowly(lab);
     },
     {kStart, kStored}},
    {"the stored identity is no text",
     [](Lab& lab) {
       lab.writeFile("config.ini", "{\"api_url\": \"\xFF\xFE\"}");
       startSlowly(lab);
     },
     {kStart, kStored}},
    {"the stored agent_id is a number",
     [](Lab& lab) {
       auto identity = lab.identity();
       identity["agent_id"] = 17;
       lab.writeFile("config.ini", identity.dump());
       startSlowly(lab);
     },
     {kStart, kStored}},
    {"the event log is a directory",
     [](Lab& lab) {
       makeDirectory(lab, "logfile.log");
       lab.storeIdentity();
       lab.startAgent();
     },
     {}},
    {"nothing can be written in the agent's directory, where an older agent stored an identity",
     [](Lab& lab) {
       lab.storeIdentity("3.3.0");
       lab.startAgentInReadOnlyDirectory();
     },
     {}},
    {"nothing can be written in the agent's directory, and there is no identity",
     [](Lab& lab) { lab.startAgentInReadOnlyDirectory(); },
     {}},
    {"the event log is large and not all text",
     [](Lab& lab) {
       lab.storeIdentity();
       lab.writeFile("logfile.log", "24-05-31 14:02:09\told\n" + std::string(20'000, '\xFF') + "\n");
       lab.startAgent();
     },
     {kStart}},
};

const Case kWithoutIdentity[] = {
    {"no default address",
     [](Lab& lab) {
       fs::remove(lab.path("default_api.txt"));
       lab.startAgent();
     },
     {kStart}},
    {"the default address is a directory",
     [](Lab& lab) {
       makeDirectory(lab, "default_api.txt");
       lab.startAgent();
     },
     {"No default API address.", kStart}},
    {"the default address is no text",
     [](Lab& lab) {
       lab.writeFile("default_api.txt", "http://127.0.0.1/\xFF");
       lab.startAgent();
     },
     {"No default API address.", kStart}},
    {"the default address is blank",
     [](Lab& lab) {
       lab.writeFile("default_api.txt", " \r\n\t");
       lab.startAgent();
     },
     {kStart}},
    {"the default address is no URL",
     [](Lab& lab) {
       lab.writeFile("default_api.txt", "the server in the cellar");
       lab.startAgent();
     },
     {kStart}},
    {"the server refuses the registration",
     [](Lab& lab) {
       lab.server().answerWith("create", [](const lab::Received&) {
         return lab::ServerAnswer{200, R"({"success": "1", "uuid": "u", "id": "1"})"};
       });
       lab.startAgent();
     },
     {kStart}},
    {"the new identity does not pass its test",
     [](Lab& lab) {
       lab.server().answerWith("test", [](const lab::Received&) {
         return lab::ServerAnswer{200, R"({"test_success": 0})"};
       });
       startSlowly(lab);
     },
     {kStart, "Testing new config failed."}},
    {"the test of the new identity gets no answer",
     [](Lab& lab) {
       lab.server().answerWith("test", [](const lab::Received&) { return lab::ServerAnswer{503}; });
       startSlowly(lab);
     },
     {kStart, "POST failed: unknown error", "Task: test", "Testing new config failed."}},
};

std::unique_ptr<Lab> play(const Case& row) {
  auto lab = std::make_unique<Lab>();
  row.prepare(*lab);
  return lab;
}

using BadSurroundings = Scenario;

TEST_F(BadSurroundings, doNotKeepAnAgentWithAnIdentityFromCheckingIn) {
  std::vector<std::unique_ptr<Lab>> labs;
  for (const Case& row : kWithIdentity) labs.push_back(play(row));
  for (std::size_t i = 0; i < labs.size(); ++i) {
    SCOPED_TRACE(kWithIdentity[i].name);
    Lab& lab = *labs[i];
    lab.checkIn(2);
    if (!kWithIdentity[i].log.empty()) lab.expectLog(kWithIdentity[i].log);
    EXPECT_EQ(lab.output(), std::vector<std::string>{});
    EXPECT_LE(lab.server().received("create").size(), 1U);
  }
}

TEST_F(BadSurroundings, doNotEndAnAgentWithoutIdentityWhichNeverAsksAgain) {
  std::vector<std::unique_ptr<Lab>> labs;
  for (const Case& row : kWithoutIdentity) labs.push_back(play(row));
  Lab serverIsDown;
  serverIsDown.server().stop();
  serverIsDown.startAgent();
  serverIsDown.expectLog({"*", "*", "*"});
  ASSERT_TRUE(serverIsDown.server().start(serverIsDown.server().port()));

  // Another agent's second check-in tells that 30 seconds have passed.
  Lab clock;
  clock.startAgent();
  clock.checkIn(2);

  for (std::size_t i = 0; i < labs.size(); ++i) {
    SCOPED_TRACE(kWithoutIdentity[i].name);
    Lab& lab = *labs[i];
    lab.expectLog(kWithoutIdentity[i].log);
    EXPECT_EQ(lab.output(), std::vector<std::string>{});
    EXPECT_FALSE(fs::exists(lab.path("config.ini")));
    EXPECT_EQ(lab.checkIns(), 0U);
    EXPECT_LE(lab.server().received("create").size(), 1U);
    EXPECT_LE(lab.server().received("test").size(), 1U);
  }
  EXPECT_EQ(serverIsDown.server().received().size(), 0U);
  EXPECT_EQ(serverIsDown.log().size(), 3U);
}

TEST_F(BadSurroundings, leaveAReadOnlyDirectoryAsItIs) {
  Lab lab;
  lab.storeIdentity("3.3.0");
  lab.startAgentInReadOnlyDirectory();
  EXPECT_EQ(lab.checkIn(1)->message.body["uuid"], lab.identity()["api_uuid"]);
  EXPECT_EQ(lab.file("config.ini"), lab.identity("3.3.0").dump());
  EXPECT_EQ(lab.files(), (std::vector<std::string>{"config.ini", "default_api.txt", "msp-agent"}));
}

}  // namespace
}  // namespace msp::test
