#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "scenarios/scenario.h"
#include "scenarios/surroundings.h"
#include "support/loopback_server.h"

namespace msp::test {
namespace {

using namespace std::string_literals;

constexpr std::size_t kMiB = std::size_t{1024} * 1024;

struct Case {
  std::string name;
  lab::ServerAnswer answer;
  std::vector<std::string> output = {};
  std::vector<std::string> log = {};
};

std::vector<std::string> postFailed(const std::string& reason) {
  return {"POST failed: " + reason, "Task: checkin"};
}

lab::ServerAnswer json(std::string body) { return {200, std::move(body)}; }

/// Sent as it is: the server compresses what it takes for text.
lab::ServerAnswer bytes(std::string body, std::vector<std::pair<std::string, std::string>> headers = {}) {
  return {200, std::move(body), "application/octet-stream", std::move(headers)};
}

/// Compressed beforehand: a server that does it while the agent waits may take more than the agent's 15
/// seconds.
lab::ServerAnswer packed(const std::string& body) {
  std::string all;
  httplib::detail::gzip_compressor().compress(body.data(), body.size(), true,
                                              [&](const char* data, std::size_t size) {
                                                all.append(data, size);
                                                return true;
                                              });
  return bytes(all, {{"Content-Encoding", "gzip"}});
}

lab::ServerAnswer redirect(int status, const std::string& location) {
  return {status, "", "text/plain", {{"Location", location}}};
}

std::string nested(std::size_t levels) {
  return R"({"success": 1, "data": )" + std::string(levels, '[') + std::string(levels, ']') + "}";
}

/// What no HTTP library would answer; the request's path tells which.
std::string rawAnswer(const LoopbackServer& server, const ReceivedRequest& request) {
  if (request.target == "/garbage") return "SSH-2.0-OpenSSH_9.2\r\n\r\n";
  if (request.target == "/loop") return httpAnswer(301, "", {"Location: " + server.url("/loop")});
  if (request.target == "/long-header") {
    return httpAnswer(200, "{}", {"X-Long: " + std::string(2 * kMiB, 'x')});
  }
  if (request.target == "/bad-chunks") return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\n";
  if (request.target == "/no-length") return "HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n{}";
  if (request.target == "/headers-without-end") {
    std::string text = "HTTP/1.1 200 OK\r\n";
    for (std::size_t i = 0; i < 2 * kMiB / 8; ++i) text += "A: 12\r\n";
    return text;
  }
  return "";
}

LoopbackServer::Handler rawHandler(const LoopbackServer*& server) {
  return [&server](ServerConnection& connection) {
    const auto request = connection.readRequest();
    if (request) connection.write(rawAnswer(*server, *request));
  };
}

std::vector<Case> cases(const LoopbackServer& raw) {
  lab::ServerAnswer manyHeaders = json(R"({"success": 1})");
  for (int i = 0; i < 5000; ++i) manyHeaders.headers.emplace_back("X-" + std::to_string(i), "value");
  return {
      {"a text that is no JSON", json("this is not JSON"), {"Error parsing JSON: *"}},
      {"no body at all", json(""), {"Error parsing JSON: *"}},
      {"half an object", json(R"({"success": 1, "jobs": [{"id": )"), {"Error parsing JSON: *"}},
      {"an object and something behind it", json(R"({"success": 1} {})"), {"Error parsing JSON: *"}},
      {"a list", json("[1, 2]"), {"Error converting JSON to dictionary"}},
      {"a number", json("5"), {"Error parsing JSON: the top level is neither an array nor an object"}},
      {"lists too deep in one another",
       json(nested(512)),
       {"Error parsing JSON: nested deeper than 512 levels"}},
      {"lists as deep in one another as they may be", json(nested(511))},
      {"a hundred thousand opening brackets",
       json(std::string(100'000, '[')),
       {"Error parsing JSON: nested deeper than 512 levels"}},
      {"a NUL character", json("{\"success\": 1\0}"s), {"Error parsing JSON: *"}},
      {"a lone surrogate", json(R"({"success": 1, "note": "\ud800"})"), {"Error parsing JSON: *"}},
      {"malformed UTF-8", json("{\"success\": 1, \"note\": \"\xFF\"}"), {"Error parsing JSON: *"}},
      {"success as a text", json(R"({"success": "1", "jobs": [{"id": "1", "type": "x"}]})")},
      {"success as a boolean", json(R"({"success": true, "jobs": [{"id": "1", "type": "x"}]})")},
      {"success of another value", json(R"({"success": 2, "checkin_interval": 1e300})")},
      {"jobs that are an object", json(R"({"success": 1, "jobs": {"id": "1", "type": "x"}})")},
      {"jobs that are a text, and an interval that is one",
       json(R"({"success": 1, "jobs": "x", "checkin_interval": "3600"})")},
      {"jobs that are numbers", json(R"({"success": 1, "jobs": [1, {"id": "1", "type": "x"}]})")},
      {"an interval of null", json(R"({"success": 1, "checkin_interval": null})")},
      {"an interval beyond all numbers",
       json(R"({"success": 1, "checkin_interval": 1e999})"),
       {"Error parsing JSON: *"}},
      {"a job with a NUL character in its type",
       json(R"({"success": 1, "jobs": [{"id": "101", "type": "a\u0000b"}]})"),
       {},
       {"Unknown task: a\0b"s}},
      {"a job whose arguments are no JSON",
       json(R"({"success": 1, "jobs": [{"id": "102", "type": "c", "arguments": "{\"a\": \"\\ud800\"}"}]})"),
       {"Error parsing JSON: *"},
       {"Unknown task: c"}},
      {"a job whose arguments are a list",
       json(R"({"success": 1, "jobs": [{"id": "103", "type": "d", "arguments": "[]"}]})"),
       {"Error converting JSON to dictionary"},
       {"Unknown task: d"}},
      {"8 MiB of JSON", json(R"({"success": 1, "padding": ")" + std::string(8 * kMiB, 'x') + "\"}")},
      {"8 MiB of zero bytes", bytes(std::string(8 * kMiB, '\0')), {"Error parsing JSON: *"}},
      {"a body of more than 64 MiB",
       bytes(std::string(64 * kMiB + 1, ' ')),
       {},
       postFailed("The answer is larger than 64 MiB.")},
      {"a small body that unpacks to more than 64 MiB",
       packed(std::string(64 * kMiB + 1, ' ')),
       {},
       postFailed("The answer is larger than 64 MiB.")},
      {"a body that only says it is compressed",
       bytes("no gzip", {{"Content-Encoding", "gzip"}}),
       {},
       postFailed("*")},
      {"an unknown encoding", bytes("{}", {{"Content-Encoding", "rot13"}}), {}, postFailed("*")},
      {"no content", {204, ""}, {}, postFailed("unknown error")},
      {"created", {201, R"({"success": 1})"}, {}, postFailed("unknown error")},
      {"a server error with a good body", {500, R"({"success": 1})"}, {}, postFailed("unknown error")},
      {"a connection closed in the middle of the body",
       {.body = R"({"success": 1)", .cutOff = true},
       {},
       postFailed("transfer closed with 1 bytes remaining to read")},
      {"five thousand headers", manyHeaders},
      {"a redirect without a place", {301, ""}, {}, postFailed("unknown error")},
      {"a redirect to a place that is none", redirect(301, "/nowhere"), {}, postFailed("unknown error")},
      {"a redirect to a file", redirect(307, "file:///etc/passwd"), {}, postFailed("unsupported URL")},
      {"redirects without end", redirect(301, raw.url("/loop")), {}, postFailed("too many HTTP redirects")},
      {"a server that closes the connection",
       redirect(307, raw.url("/close")),
       {},
       postFailed("Empty reply from server")},
      {"a server that does not speak HTTP",
       redirect(307, raw.url("/garbage")),
       {},
       postFailed("Received HTTP/0.9 when not allowed")},
      {"a header of 2 MiB", redirect(307, raw.url("/long-header")), {}, postFailed("*")},
      {"headers without end", redirect(307, raw.url("/headers-without-end")), {}, postFailed("*")},
      {"chunks that are none", redirect(307, raw.url("/bad-chunks")), {}, postFailed("*")},
      {"a length below zero", redirect(307, raw.url("/no-length")), {}, postFailed("*")},
  };
}

/// Gives one check-in the answer that it is told, and all others the usual one.
class OneAnswer {
 public:
  explicit OneAnswer(lab::LabServer& server) {
    server.answerWith("checkin", [this, &server](const lab::Received& received) {
      const std::lock_guard lock(mutex_);
      return answer_ ? *std::exchange(answer_, std::nullopt) : server.normalAnswer(received);
    });
  }
  void set(lab::ServerAnswer answer) {
    const std::lock_guard lock(mutex_);
    answer_ = std::move(answer);
  }
  bool isGiven() {
    const std::lock_guard lock(mutex_);
    return !answer_;
  }

 private:
  std::mutex mutex_;
  std::optional<lab::ServerAnswer> answer_;
};

template <typename Value>
void append(std::vector<Value>& to, const std::vector<Value>& more) {
  to.insert(to.end(), more.begin(), more.end());
}

using HostileAnswers = Scenario;

TEST_F(HostileAnswers, areReportedAsDescribedAndTheAgentGoesOn) {
  const LoopbackServer* rawServer = nullptr;
  const LoopbackServer raw(rawHandler(rawServer));
  rawServer = &raw;
  Lab lab;
  OneAnswer oneAnswer(lab.server());
  lab.storeIdentity();
  lab.server().setCheckInInterval(0.05);
  lab.startAgent();
  lab.checkIn(2);

  std::vector<std::string> output;
  std::vector<std::string> log = {"Starting up: version 3.3.1"};
  for (const auto& row : cases(raw)) {
    SCOPED_TRACE(row.name);
    std::size_t number = lab.checkIns();
    oneAnswer.set(row.answer);
    while (!oneAnswer.isGiven()) lab.checkIn(++number);
    append(output, row.output);
    append(log, row.log);
    lab.expectOutput(output);
    lab.expectLog(log);
  }

  lab.server().queueJob("still_there");
  append(log, {"Unknown task: still_there"});
  lab.expectLog(log);
  lab.expectOutput(output);
}

TEST_F(HostileAnswers, thatNeverComeEndAfterFifteenSlowSeconds) {
  const UsableNetwork network;
  if (!network.whyNot().empty()) GTEST_SKIP() << network.whyNot();
  Lab lab;
  lab.storeIdentity();
  lab.server().holdAnswers("checkin");
  lab.startAgent();
  const auto first = lab.checkIn(1);
  lab.expectLog({"Starting up: version 3.3.1", "POST failed: The request timed out.", "Task: checkin"});
  const std::chrono::duration<double> waited = Clock::now() - first->arrival;
  EXPECT_GT(waited.count(), 14.5);
  EXPECT_LT(waited.count(), 25);
  EXPECT_EQ(lab.checkIns(), 1U) << "it was sent again";

  lab.server().releaseAnswers("checkin");
  lab.checkIn(2);
}

}  // namespace
}  // namespace msp::test
