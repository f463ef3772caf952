#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The server's side of the protocol, apart from sockets and threads: a request's body in, an answer out.
namespace msp::lab {

/// A JSON value; objects keep the order of their keys.
using Json = nlohmann::ordered_json;

/// The object in a JSON text; null when it does not parse, is no object or is nested deeper than 512 levels.
Json parseObject(std::string_view text);

/// An agent's request, taken apart.
struct Message {
  std::string task;     // "" when it has none
  Json body;            // the envelope; null when it is not a JSON object
  Json report;          // a check-in's report; null for other tasks, or when it is not a JSON object
  std::string problem;  // what a server finds wrong with the request; "" when nothing
};

/// Takes a request's body apart. Never fails: what is wrong is in `problem`, and what could be read is there.
Message parseMessage(std::string_view body);

/// The job results that a check-in brings, in order; empty for other requests.
std::vector<Json> jobResults(const Message& message);

/// What goes back over HTTP.
struct ServerAnswer {
  int status = 200;
  std::string body = {};
  std::string contentType = "application/json";
  std::vector<std::pair<std::string, std::string>> headers = {};  // besides the usual ones
  bool cutOff = false;  // the connection ends before the last byte of the body
};

/// What the server remembers between requests, as far as answers depend on it.
struct ProtocolState {
  std::vector<Json> queuedJobs;         // handed out, in order, with the next check-in's answer
  std::optional<Json> checkInInterval;  // seconds as a rule; sent as it is
  std::size_t registrations = 0;
};

/// The answer to a message: "create" registers `newUuid`, "test" passes, "checkin" hands out the queued jobs
/// and forgets them. A message with a problem gets status 400 and changes nothing.
ServerAnswer answerTo(const Message& message, ProtocolState& state, const std::string& newUuid);

/// A job as it is handed out: the id as text, the arguments as JSON text. Null arguments are left out; a
/// text among the arguments is taken for JSON text already.
Json makeJob(std::int64_t id, const std::string& type, const Json& arguments);

/// A random identity, as RFC 9562 writes version 4: "6f1c2d3a-0b4e-4c5d-9a8b-1234567890ab".
std::string makeUuid();

/// Compact JSON text; malformed UTF-8 in it is replaced by U+FFFD.
std::string compact(const Json& value);

}  // namespace msp::lab
