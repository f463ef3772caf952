#include "server/lab_server.h"

#include <httplib.h>
#include <strings.h>

#include <algorithm>
#include <iterator>

namespace msp::lab {
namespace {

constexpr const char* kAddress = "127.0.0.1";

/// The HTTP library files the connection's addresses among the headers.
bool isAddedByLibrary(const std::string& header) {
  return header == "REMOTE_ADDR" || header == "REMOTE_PORT" || header == "LOCAL_ADDR" ||
         header == "LOCAL_PORT";
}

void send(const ServerAnswer& answer, httplib::Response& response) {
  response.status = answer.status;
  for (const auto& [name, value] : answer.headers) response.set_header(name, value);
  if (!answer.cutOff) {
    response.set_content(answer.body, answer.contentType);
    return;
  }
  // One byte more is announced than ever comes.
  response.set_content_provider(
      answer.body.size() + 1, answer.contentType,
      [body = answer.body](std::size_t offset, std::size_t, httplib::DataSink& sink) {
        if (offset >= body.size()) return false;
        return sink.write(body.data() + offset, body.size() - offset);
      });
}

}  // namespace

std::optional<std::string> Received::header(std::string_view name) const {
  const std::string wanted(name);
  for (const auto& [key, value] : headers)
    if (strcasecmp(key.c_str(), wanted.c_str()) == 0) return value;
  return std::nullopt;
}

LabServer::LabServer(Observer observer) : observer_(std::move(observer)) {}

LabServer::~LabServer() { stop(); }

bool LabServer::start(int port) {
  if (http_) return false;
  http_ = std::make_unique<httplib::Server>();
  http_->Post("/lab/jobs", [this](const httplib::Request& request, httplib::Response& response) {
    serveJobOrder(request, response);
  });
  http_->Get("/lab/received", [this](const httplib::Request&, httplib::Response& response) {
    send({200, compact(everything())}, response);
  });
  http_->Post(".*", [this](const httplib::Request& request, httplib::Response& response) {
    serveAgent(request, response);
  });
  setRunning(true);
  if (listener_.start(*http_, kAddress, port, [this] { setRunning(false); })) return true;
  setRunning(false);
  http_.reset();
  return false;
}

void LabServer::stop() {
  listener_.stop();
  http_.reset();
}

void LabServer::setRunning(bool running) {
  const MutexLock lock(mutex_);
  running_ = running;
  changed_.notify_all();
}

std::string LabServer::url() const {
  return "http://" + std::string(kAddress) + ":" + std::to_string(port()) + "/";
}

std::int64_t LabServer::queueJob(const std::string& type, const Json& arguments) {
  std::int64_t id = 0;
  {
    const MutexLock lock(mutex_);
    id = nextJobId_++;
  }
  queueRawJob(makeJob(id, type, arguments));
  return id;
}

void LabServer::queueRawJob(Json job) { queueRawJobs({std::move(job)}); }

void LabServer::queueRawJobs(std::vector<Json> jobs) {
  // Told first: the jobs may be on their way as soon as they are queued.
  if (observer_.jobQueued) std::for_each(jobs.begin(), jobs.end(), observer_.jobQueued);
  const MutexLock lock(mutex_);
  jobs_.insert(jobs_.end(), jobs.begin(), jobs.end());
  std::move(jobs.begin(), jobs.end(), std::back_inserter(state_.queuedJobs));
}

void LabServer::setCheckInInterval(std::optional<Json> interval) {
  const MutexLock lock(mutex_);
  state_.checkInInterval = std::move(interval);
}

void LabServer::answerWith(const std::string& task, Answerer answerer) {
  const MutexLock lock(mutex_);
  answerers_[task] = std::move(answerer);
}

void LabServer::answerNormally(const std::string& task) {
  const MutexLock lock(mutex_);
  answerers_.erase(task);
}

ServerAnswer LabServer::normalAnswer(const Received& received) {
  const std::string uuid = makeUuid();
  const MutexLock lock(mutex_);
  return answerTo(received.message, state_, uuid);
}

void LabServer::holdAnswers(const std::string& task) {
  const MutexLock lock(mutex_);
  held_.insert(task);
}

void LabServer::releaseAnswers(const std::string& task) {
  const MutexLock lock(mutex_);
  held_.erase(task);
  changed_.notify_all();
}

bool LabServer::waitForRequests(std::size_t count, Clock::time_point deadline) {
  const MutexLock lock(mutex_);
  while (running_ && received_.size() < count &&
         changed_.wait_until(mutex_, deadline) == std::cv_status::no_timeout)
    ;
  return received_.size() >= count;
}

bool LabServer::waitForCheckIns(std::size_t count, Clock::time_point deadline) {
  const MutexLock lock(mutex_);
  while (running_ && checkInCount() < count &&
         changed_.wait_until(mutex_, deadline) == std::cv_status::no_timeout)
    ;
  return checkInCount() >= count;
}

std::optional<Json> LabServer::waitForResult(std::int64_t jobId, Clock::time_point deadline) {
  const MutexLock lock(mutex_);
  while (running_ && !results_.contains(jobId) &&
         changed_.wait_until(mutex_, deadline) == std::cv_status::no_timeout)
    ;
  const auto found = results_.find(jobId);
  return found == results_.end() ? std::nullopt : std::optional(found->second.front());
}

std::vector<LabServer::ReceivedPointer> LabServer::received() const {
  const MutexLock lock(mutex_);
  return received_;
}

std::vector<LabServer::ReceivedPointer> LabServer::received(const std::string& task) const {
  const MutexLock lock(mutex_);
  std::vector<ReceivedPointer> matching;
  std::copy_if(received_.begin(), received_.end(), std::back_inserter(matching),
               [&task](const ReceivedPointer& one) { return one->message.task == task; });
  return matching;
}

std::vector<Json> LabServer::results(std::int64_t jobId) const {
  const MutexLock lock(mutex_);
  const auto found = results_.find(jobId);
  return found == results_.end() ? std::vector<Json>{} : found->second;
}

std::vector<Json> LabServer::jobs() const {
  const MutexLock lock(mutex_);
  return jobs_;
}

Json LabServer::everything() const {
  const MutexLock lock(mutex_);
  Json all = {{"requests", Json::array()}, {"jobs", jobs_}, {"results", Json::array()}};
  for (const ReceivedPointer& one : received_) {
    Json headers = Json::array();
    for (const auto& [name, value] : one->headers) headers.push_back({{"name", name}, {"value", value}});
    all["requests"].push_back({{"number", one->number},
                               {"path", one->path},
                               {"headers", std::move(headers)},
                               {"task", one->message.task},
                               {"problem", one->message.problem},
                               {"body", one->body}});
  }
  for (const auto& [id, results] : results_)
    for (const Json& result : results) all["results"].push_back(result);
  return all;
}

std::size_t LabServer::checkInCount() const {
  return static_cast<std::size_t>(std::count_if(
      received_.begin(), received_.end(), [](const auto& one) { return one->message.task == "checkin"; }));
}

void LabServer::serveAgent(const httplib::Request& request, httplib::Response& response) {
  const ReceivedPointer received = keep(request);
  if (observer_.arrived) observer_.arrived(*received);
  const ServerAnswer answer = makeAnswer(*received);
  if (observer_.answered) observer_.answered(*received, answer);
  send(answer, response);
}

LabServer::ReceivedPointer LabServer::keep(const httplib::Request& request) {
  auto received = std::make_shared<Received>();
  received->arrival = Clock::now();
  received->peerPort = request.remote_port;
  received->path = request.path;
  std::copy_if(request.headers.begin(), request.headers.end(), std::back_inserter(received->headers),
               [](const auto& header) { return !isAddedByLibrary(header.first); });
  received->body = request.body;
  received->message = parseMessage(request.body);

  const MutexLock lock(mutex_);
  received->number = received_.size() + 1;
  received_.push_back(received);
  for (Json& result : jobResults(received->message)) {
    const auto id = result.is_object() ? result.find("id") : result.end();
    if (id != result.end() && id->is_number_integer()) results_[id->get<std::int64_t>()].push_back(result);
  }
  changed_.notify_all();
  return received;
}

ServerAnswer LabServer::makeAnswer(const Received& received) {
  Answerer answerer;
  {
    const MutexLock lock(mutex_);
    while (running_ && held_.contains(received.message.task)) changed_.wait(mutex_);
    if (!running_) return {503};  // nobody hears it, so no job is handed out
    const auto found = answerers_.find(received.message.task);
    if (found != answerers_.end()) answerer = found->second;
  }
  return answerer ? answerer(received) : normalAnswer(received);
}

void LabServer::serveJobOrder(const httplib::Request& request, httplib::Response& response) {
  const Json order = parseObject(request.body);
  const bool usable = order.contains("type") && order["type"].is_string();
  if (!usable) {
    send({400, compact({{"error", "a job is a JSON object with a text \"type\""}})}, response);
    return;
  }
  const std::int64_t id = queueJob(order["type"], order.value("arguments", Json(nullptr)));
  send({200, compact({{"id", std::to_string(id)}})}, response);
}

}  // namespace msp::lab
