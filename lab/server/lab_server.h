#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "server/loopback_listener.h"
#include "server/protocol.h"

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

namespace msp::lab {

/// A request as it came in.
struct Received {
  std::size_t number = 0;  // from 1, in order of arrival
  std::chrono::steady_clock::time_point arrival;
  int peerPort = 0;  // the same for all requests of one connection
  std::string path;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  Message message;

  /// The header's value, the name compared without regard to case; nothing when there is none.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

/// A management server for one or many agents, on 127.0.0.1 only. It answers as the protocol asks, hands out
/// each queued job once and keeps everything that it received; a test can put its own answers in between.
///
/// Scripts find two addresses beside the agents': `POST /lab/jobs` with {"type": .., "arguments": ..} queues
/// a job, `GET /lab/received` tells what came in.
///
/// Safe on any thread, but for start() and stop(), which are for the owner's. Waiting ends at its deadline at
/// the latest, and at once when the server stops.
class LabServer {
 public:
  using Clock = std::chrono::steady_clock;
  using ReceivedPointer = std::shared_ptr<const Received>;
  /// Makes an answer; runs on the connection's thread and may wait.
  using Answerer = std::function<ServerAnswer(const Received&)>;

  /// Called on the connections' threads; may call the server.
  struct Observer {
    /// Before the answer is made: a job queued here goes out with this very answer.
    std::function<void(const Received&)> arrived;
    /// Before the answer is sent.
    std::function<void(const Received&, const ServerAnswer&)> answered;
    std::function<void(const Json& job)> jobQueued;
  };

  explicit LabServer(Observer observer = {});
  ~LabServer();
  LabServer(const LabServer&) = delete;
  LabServer& operator=(const LabServer&) = delete;

  /// Listens on 127.0.0.1; `port` 0 is any free one. False when the port cannot be had. A stopped server can
  /// be started again and remembers what it knew.
  [[nodiscard]] bool start(int port = 0);

  /// Cuts all connections; held answers are never sent.
  void stop();

  [[nodiscard]] int port() const { return listener_.port(); }
  /// What belongs into default_api.txt: "http://127.0.0.1:8080/".
  [[nodiscard]] std::string url() const;

  /// Queues a job for the next check-in and returns its id: 1, 2, 3 ... Arguments are sent as JSON text; a
  /// text is sent as it is, null leaves them out.
  std::int64_t queueJob(const std::string& type, const Json& arguments = nullptr);
  /// Queues anything at all as an element of the list of jobs.
  void queueRawJob(Json job);
  /// The same for several, which are handed out with one answer.
  void queueRawJobs(std::vector<Json> jobs);
  /// What the following check-ins are told; nothing leaves the key out.
  void setCheckInInterval(std::optional<Json> interval);

  /// Answers this task ("create", "test", "checkin", or "" for requests without one) otherwise from now on.
  void answerWith(const std::string& task, Answerer answerer);
  void answerNormally(const std::string& task);
  /// The protocol's own answer, for an Answerer that changes it a little; hands out the queued jobs.
  ServerAnswer normalAnswer(const Received& received);

  /// Requests of this task that arrive from now on are answered only after releaseAnswers().
  void holdAnswers(const std::string& task);
  void releaseAnswers(const std::string& task);

  /// True when that many requests, or check-ins, have arrived since the server was made.
  [[nodiscard]] bool waitForRequests(std::size_t count, Clock::time_point deadline);
  [[nodiscard]] bool waitForCheckIns(std::size_t count, Clock::time_point deadline);
  /// The first result that came for the job; nothing when there is none at the deadline.
  [[nodiscard]] std::optional<Json> waitForResult(std::int64_t jobId, Clock::time_point deadline);

  /// Every request of an agent, in order of arrival; well-formed or not.
  [[nodiscard]] std::vector<ReceivedPointer> received() const;
  /// Those with this task.
  [[nodiscard]] std::vector<ReceivedPointer> received(const std::string& task) const;
  /// Every result that came for the job, in order of arrival: more than one when an agent sent it again.
  [[nodiscard]] std::vector<Json> results(std::int64_t jobId) const;
  /// Every job queued, in order; jobs queued raw among them.
  [[nodiscard]] std::vector<Json> jobs() const;
  /// How many connections were accepted, those of scripts included.
  [[nodiscard]] std::size_t connections() const { return listener_.connections(); }

  /// All of it as one JSON object: "requests", "jobs", "results".
  [[nodiscard]] Json everything() const;

 private:
  void serveAgent(const httplib::Request& request, httplib::Response& response);
  void serveJobOrder(const httplib::Request& request, httplib::Response& response);
  ReceivedPointer keep(const httplib::Request& request);
  ServerAnswer makeAnswer(const Received& received);
  void setRunning(bool running);
  [[nodiscard]] std::size_t checkInCount() const MSP_REQUIRES(mutex_);

  const Observer observer_;
  std::unique_ptr<httplib::Server> http_;
  LoopbackListener listener_;

  mutable Mutex mutex_;
  std::condition_variable_any changed_;
  bool running_ MSP_GUARDED_BY(mutex_) = false;
  ProtocolState state_ MSP_GUARDED_BY(mutex_);
  std::int64_t nextJobId_ MSP_GUARDED_BY(mutex_) = 1;
  std::vector<Json> jobs_ MSP_GUARDED_BY(mutex_);
  std::vector<ReceivedPointer> received_ MSP_GUARDED_BY(mutex_);
  std::map<std::int64_t, std::vector<Json>> results_ MSP_GUARDED_BY(mutex_);
  std::map<std::string, Answerer> answerers_ MSP_GUARDED_BY(mutex_);
  std::set<std::string> held_ MSP_GUARDED_BY(mutex_);
};

}  // namespace msp::lab
