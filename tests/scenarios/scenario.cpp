#include "scenarios/scenario.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <future>
#include <stdexcept>
#include <thread>

#include "lab/running_program.h"
#include "scenarios/surroundings.h"
#include "server/announcements.h"

namespace msp::test {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
    lines.push_back(text.substr(begin, end - begin));
  }
  if (begin < text.size()) lines.push_back(text.substr(begin));
  return lines;
}

/// "24-05-31 14:02:09" and a tab.
bool hasTimeStamp(std::string_view line) {
  constexpr std::string_view kPattern = "00-00-00 00:00:00\t";
  return line.size() >= kPattern.size() &&
         std::equal(kPattern.begin(), kPattern.end(), line.begin(), [](char pattern, char character) {
           return pattern == '0' ? character >= '0' && character <= '9' : pattern == character;
         });
}

bool matches(std::string_view text, std::string_view pattern) {
  if (!pattern.ends_with('*')) return text == pattern;
  pattern.remove_suffix(1);
  return text.size() > pattern.size() && text.starts_with(pattern);
}

bool allMatch(const std::vector<std::string>& texts, const std::vector<std::string>& patterns) {
  return std::equal(texts.begin(), texts.end(), patterns.begin(), patterns.end(), matches);
}

std::string listed(const std::vector<std::string>& texts) {
  std::string list;
  for (const auto& text : texts) list += "  " + lab::printable(text, 400) + "\n";
  return list;
}

Clock::time_point patience() { return Clock::now() + kPatience; }

std::string computerName(const lab::SimulatedMac& mac) {
  return Json::parse(std::ifstream(mac.folder() / "machine/platform.json")).at("computer_name");
}

}  // namespace

Lab::Lab(std::string_view machine) : machine_(machine), mac_(place_.file("lab"), machine) {
  if (!server_.start()) throw std::runtime_error("the lab server found no port");
  if (!publicAddress_.start()) throw std::runtime_error("the public-address service has no port");
  if (!publicAddress_.writeTrustFiles(mac_.folder())) throw std::runtime_error("no trust files");
  mac_.installAgent(MSP_AGENT, server_.url() + "\n");
}

Lab::~Lab() { killAgent(); }

void Lab::killAgent() {
  if (agent_) checkAgent();
  agent_.reset();
}

void Lab::checkAgent() const {
  EXPECT_TRUE(agent_->runs()) << "the agent ended by itself";
  EXPECT_EQ(agent_->error(), "");
}

void Lab::start(AgentProcess::Surroundings surroundings) {
  surroundings.hostName = computerName(mac_);
  agent_ = std::make_unique<AgentProcess>(mac_, surroundings);
}

void Lab::startAgentInReadOnlyDirectory() {
  AgentProcess::Surroundings surroundings;
  surroundings.readOnlyDirectory = true;
  start(surroundings);
}

Json Lab::identity(const std::string& version) const {
  return {{"api_url", server_.url()},
          {"api_uuid", "0f8b1a52-6c1e-4a57-9b1e-3d1f5c7a9e10"},
          {"agent_id", "17"},
          {"agent_version", version}};
}

void Lab::storeIdentity(const std::string& version) const {
  writeFile("config.ini", identity(version).dump());
}

void Lab::writeFile(const std::string& name, std::string_view content) const {
  std::ofstream(path(name), std::ios::binary) << content;
}

std::string Lab::file(const std::string& name) const { return contentOf(path(name)); }

std::vector<std::string> Lab::files() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(mac_.agentDirectory())) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

int Lab::modeOf(const std::string& name) const {
  struct stat facts {};
  stat(path(name).c_str(), &facts);
  return static_cast<int>(facts.st_mode & 07777);
}

std::vector<std::string> Lab::log() const {
  std::vector<std::string> messages;
  for (const auto& line : splitLines(file("logfile.log"))) {
    if (hasTimeStamp(line)) {
      messages.push_back(line.substr(line.find('\t') + 1));
    } else if (messages.empty()) {
      messages.push_back("no time stamp: " + line);
    } else {
      messages.back() += "\n" + line;
    }
  }
  return messages;
}

std::vector<std::string> Lab::output() const { return splitLines(agent_->output()); }

void Lab::expectLog(const std::vector<std::string>& messages) const {
  waitForFiles("the event log\n" + listed(messages), [&] { return allMatch(log(), messages); });
}

void Lab::expectOutput(const std::vector<std::string>& lines) const {
  if (!agent_->waitForOutput(patience(), [&] { return allMatch(output(), lines); })) {
    fail("the output did not come:\n" + listed(lines));
  }
}

void Lab::waitForFiles(const std::string& what, const std::function<bool()>& condition) const {
  if (!waitForChange(mac_.agentDirectory(), patience(), condition)) fail("this did not come: " + what);
}

lab::LabServer::ReceivedPointer Lab::checkIn(std::size_t number) {
  if (!server_.waitForCheckIns(number, patience())) {
    fail("check-in " + std::to_string(number) + " did not come");
  }
  return server_.received("checkin").at(number - 1);
}

Json Lab::result(std::int64_t jobId) {
  auto result = server_.waitForResult(jobId, patience());
  if (!result) fail("the result of job " + std::to_string(jobId) + " did not come");
  return *std::move(result);
}

void Lab::succeedOnlyWithJobs() {
  server_.answerWith("checkin", [this](const lab::Received& received) -> lab::ServerAnswer {
    auto answer = server_.normalAnswer(received);
    if (Json::parse(answer.body)["jobs"].empty()) answer.body = R"({"success": 0})";
    return answer;
  });
}

Descriptor Lab::waitForTool(std::string_view commandLine) const {
  const auto pipe = mac_.folder() / "answers" / commandLine;
  std::promise<void> opened;
  std::atomic<bool> isLate = false;
  // Opening waits for the tool, for ever if need be; another reader ends that.
  std::thread watchdog([&] {
    auto isOpened = opened.get_future();
    if (isOpened.wait_until(patience()) == std::future_status::ready) return;
    isLate = true;
    const Descriptor reader(open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    isOpened.wait();
  });
  Descriptor writer(open(pipe.c_str(), O_WRONLY | O_CLOEXEC));
  opened.set_value();
  watchdog.join();
  if (!writer || isLate) fail("nobody ran " + std::string(commandLine));
  return writer;
}

void Lab::fail(const std::string& problem) const {
  throw std::runtime_error(problem + "\n" + (agent_->runs() ? "the agent runs" : "the agent has ended") +
                           "; the server got " + std::to_string(server_.received().size()) +
                           " requests; the event log:\n" + listed(log()) + "standard output:\n" +
                           listed(output()) + "standard error:\n" + agent_->error());
}

void Scenario::SetUp() {
  const auto reason = whyNoScenario();
  if (!reason.empty()) GTEST_SKIP() << reason;
}

Json resultsIn(const lab::Received& checkIn) { return lab::jobResults(checkIn.message); }

Json plainResult(std::int64_t id, const std::string& message, int success) {
  return {{"id", id}, {"message", message}, {"success", success}};
}

Json process(const std::string& name, std::int64_t pid, double cpuTime, std::int64_t memory) {
  return {{"name", name},           {"pid", pid},     {"cpu_time", cpuTime},
          {"physical_ram", memory}, {"peak_ram", ""}, {"file_name", name}};
}

Json merged(Json object, const Json& changes) {
  object.update(changes);
  return object;
}

}  // namespace msp::test
