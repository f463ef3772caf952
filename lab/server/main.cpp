// lab-server [--port N] [--port-file FILE] [--lab FOLDER] [--seconds N] [--summary FILE]
//
// The lab server as a program: serves agents on 127.0.0.1, gives the first one a job of every type and prints
// what happens, line by line, with a table of the jobs at the end. Ends after the given seconds, or at
// SIGTERM or SIGINT.
//
//   --port N          the port; any free one when it is not given
//   --port-file FILE  takes the server's URL as soon as it listens
//   --lab FOLDER      takes etc/hosts and etc/ca-certificates.crt, by which a simulated Mac finds
//                     the stand-in for the public-address service
//   --summary FILE    takes what was seen, as JSON, at the end

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "server/announcements.h"
#include "server/demo_jobs.h"
#include "server/lab_server.h"
#include "server/public_address_server.h"

namespace msp::lab {
namespace {

constexpr int kShortInterval = 2;  // seconds; once the first check-in was seen

struct Options {
  int port = 0;
  unsigned seconds = 0;  // 0 is without end
  std::string portFile;
  std::string labFolder;
  std::string summaryFile;
};

template <typename Number>
bool readNumber(std::string_view text, Number greatest, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number > 0 && number <= greatest;
}

/// Nothing when an option is unknown, lacks its value or has an unusable one.
std::optional<Options> readOptions(int argc, char** argv) {
  Options options;
  for (int at = 1; at < argc; at += 2) {
    if (at + 1 == argc) return std::nullopt;
    const std::string_view name = argv[at];
    const std::string value = argv[at + 1];
    bool usable = !value.empty();
    if (name == "--port") {
      usable = readNumber(value, 65535, options.port);
    } else if (name == "--seconds") {
      usable = readNumber(value, 1'000'000U, options.seconds);
    } else if (name == "--port-file") {
      options.portFile = value;
    } else if (name == "--lab") {
      options.labFolder = value;
    } else if (name == "--summary") {
      options.summaryFile = value;
    } else {
      return std::nullopt;
    }
    if (!usable) return std::nullopt;
  }
  return options;
}

/// A server of which everything that happens is printed and counted for the summary, and that queues the
/// first jobs itself. Safe on any thread, as far as the server is.
class NarratedServer {
 public:
  LabServer& server() { return server_; }

  void say(const std::string& line) {
    const MutexLock lock(mutex_);
    print(line);
  }

  /// Every job and what came of it, one line each.
  void tellJobs() {
    const MutexLock lock(mutex_);
    if (!jobs_.empty()) print("the jobs and their results:");
    for (const auto& [id, job] : jobs_) {
      const Json& results = job["results"];
      print("  " + (results.empty() ? "job " + id + " (" + job["type"].get<std::string>() + "): no result yet"
                                    : resultLine(job["type"], results.front())));
    }
  }

  /// What was seen, for whoever judges the run.
  [[nodiscard]] Json summary() const {
    const MutexLock lock(mutex_);
    Json all = {{"registered", !uuid_.empty()}, {"uuid", uuid_},         {"tested", tested_},
                {"check_ins", checkIns_},       {"problems", problems_}, {"jobs", Json::array()}};
    for (const auto& [id, job] : jobs_) all["jobs"].push_back(job);
    all["jobs_queued"] = jobs_.size();
    all["jobs_answered"] = answered_;
    return all;
  }

 private:
  void arrived(const Received& received) {
    const Message& message = received.message;
    if (!message.problem.empty()) {
      const MutexLock lock(mutex_);
      ++problems_;
      print("request refused: " + printable(message.problem));
      return;
    }
    if (message.task != "checkin") return;
    bool isFirst = false;
    {
      const MutexLock lock(mutex_);
      isFirst = checkIns_++ == 0;
      print(checkInLine(checkIns_, message.report));
      for (const Json& result : jobResults(message)) tellResult(result);
    }
    if (isFirst) welcome();
  }

  /// Goes out with the answer to the first check-in.
  void welcome() {
    for (const JobOrder& order : oneJobOfEachType(server_.url())) {
      server_.queueJob(order.type, order.arguments);
    }
    server_.setCheckInInterval(kShortInterval);
    say("the second check-in comes 30 seconds after the first, since the agent set its clock before it heard "
        "from the server; then one comes every " +
        std::to_string(kShortInterval) + " seconds");
  }

  void answered(const Received& received, const ServerAnswer& answer) {
    if (!received.message.problem.empty()) return;
    const MutexLock lock(mutex_);
    if (received.message.task == "create") {
      const Json sent = Json::parse(answer.body);
      uuid_ = sent["uuid"];
      print(registrationLine(received.message.body["name"], uuid_));
    } else if (received.message.task == "test") {
      tested_ = true;
      print("test: passed");
    }
  }

  void jobQueued(const Json& job) {
    const MutexLock lock(mutex_);
    print(jobQueuedLine(job));
    Json entry = job;
    entry["results"] = Json::array();
    jobs_.emplace_back(job["id"], std::move(entry));
  }

  void tellResult(const Json& result) MSP_REQUIRES(mutex_) {
    const std::string id = result.is_object() && result.contains("id") ? compact(result["id"]) : "?";
    const auto job =
        std::find_if(jobs_.begin(), jobs_.end(), [&](const auto& one) { return one.first == id; });
    print(resultLine(job == jobs_.end() ? "unknown job" : job->second["type"].get<std::string>(), result));
    if (job == jobs_.end()) return;
    if (job->second["results"].empty()) ++answered_;
    job->second["results"].push_back(result);
  }

  void print(const std::string& line) MSP_REQUIRES(mutex_) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
  }

  mutable Mutex mutex_;
  std::string uuid_ MSP_GUARDED_BY(mutex_);  // the identity given last
  bool tested_ MSP_GUARDED_BY(mutex_) = false;
  std::size_t checkIns_ MSP_GUARDED_BY(mutex_) = 0;
  std::size_t problems_ MSP_GUARDED_BY(mutex_) = 0;
  std::size_t answered_ MSP_GUARDED_BY(mutex_) = 0;
  /// Ids, and jobs with the results that came.
  std::vector<std::pair<std::string, Json>> jobs_ MSP_GUARDED_BY(mutex_);

  // Last, since it calls the rest until its end.
  LabServer server_{
      {[this](const Received& received) { arrived(received); },
       [this](const Received& received, const ServerAnswer& answer) { answered(received, answer); },
       [this](const Json& job) { jobQueued(job); }}};
};

/// False when the file cannot be written. It may be a named pipe.
bool writeFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text << std::flush;
  return file.good();
}

int complain(const std::string& problem) {
  std::fprintf(stderr, "lab-server: %s\n", problem.c_str());
  return 1;
}

void startPublicAddressService(PublicAddressServer& service, const std::string& labFolder,
                               NarratedServer& narrated) {
  if (service.start()) {
    narrated.say("public-address service: on " + service.address());
  } else {
    narrated.say("public-address service: not there, its port cannot be had; look-ups will be refused");
  }
  if (!service.writeTrustFiles(labFolder))
    narrated.say("public-address service: no agent will find it, " + labFolder + "/etc cannot be written");
}

int run(const Options& options) {
  // Blocked before there are other threads, so that sigwait() is the only one to hear of them.
  sigset_t ends;
  sigemptyset(&ends);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGALRM}) sigaddset(&ends, signal);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  alarm(options.seconds);

  NarratedServer narrated;
  LabServer& server = narrated.server();
  PublicAddressServer publicAddress;
  if (!options.labFolder.empty()) startPublicAddressService(publicAddress, options.labFolder, narrated);
  if (!server.start(options.port)) return complain("cannot listen on port " + std::to_string(options.port));
  narrated.say("lab server: " + server.url());
  if (!options.portFile.empty() && !writeFile(options.portFile, server.url() + "\n"))
    return complain("cannot write " + options.portFile);

  int signal = 0;
  sigwait(&ends, &signal);
  server.stop();

  narrated.tellJobs();
  const Json summary = narrated.summary();
  narrated.say("summary: " + summary["check_ins"].dump() + " check-ins, " + summary["jobs_answered"].dump() +
               " of " + summary["jobs_queued"].dump() + " jobs answered");
  if (!options.summaryFile.empty() && !writeFile(options.summaryFile, summary.dump(2) + "\n"))
    return complain("cannot write " + options.summaryFile);
  return 0;
}

}  // namespace
}  // namespace msp::lab

int main(int argc, char** argv) {
  const auto options = msp::lab::readOptions(argc, argv);
  if (!options) {
    std::fputs(
        "usage: lab-server [--port N] [--port-file FILE] [--lab FOLDER] [--seconds N] [--summary FILE]\n",
        stderr);
    return 2;
  }
  return msp::lab::run(*options);
}
