#include "server/protocol.h"

#include <array>
#include <cstdio>
#include <random>

namespace msp::lab {
namespace {

// Copying and printing a JSON value goes as deep as the value.
constexpr int kGreatestDepth = 512;

/// Whether lists and objects lie too deep in one another. Only sound for well-formed JSON.
bool isTooDeep(std::string_view text) {
  int depth = 0;
  bool isInText = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char character = text[at];
    if (isInText && character == '\\') {
      ++at;
    } else if (character == '"') {
      isInText = !isInText;
    } else if (!isInText && (character == '[' || character == '{')) {
      if (++depth > kGreatestDepth) return true;
    } else if (!isInText && (character == ']' || character == '}')) {
      --depth;
    }
  }
  return false;
}

bool isText(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string();
}

/// What is wrong with an envelope that is an object; "" when nothing.
std::string envelopeProblem(const Json& body) {
  if (!isText(body, "api_action") || body["api_action"] != "msp") return "api_action is not \"msp\"";
  const auto version = body.find("api_version");
  if (version == body.end() || !version->is_number_integer() || *version != 1)
    return "api_version is not the number 1";
  if (!isText(body, "task")) return "there is no task";
  return "";
}

std::string taskProblem(const Message& message) {
  if (message.task == "test") return "";
  if (message.task == "create") return isText(message.body, "name") ? "" : "there is no name";
  if (message.task != "checkin") return "unknown task " + message.task;
  if (!isText(message.body, "uuid")) return "there is no uuid";
  if (!isText(message.body, "data")) return "there is no data";
  return message.report.is_object() ? "" : "data is not the text of a JSON object";
}

ServerAnswer jsonAnswer(const Json& value) { return {200, compact(value)}; }

}  // namespace

Json parseObject(std::string_view text) {
  if (isTooDeep(text)) return nullptr;
  Json value = Json::parse(text, nullptr, false);
  if (!value.is_object()) value = nullptr;
  return value;
}

Message parseMessage(std::string_view body) {
  Message message;
  message.body = parseObject(body);
  if (!message.body.is_object()) {
    message.problem = "the body is not a JSON object";
    return message;
  }
  if (isText(message.body, "task")) message.task = message.body["task"];
  if (message.task == "checkin" && isText(message.body, "data"))
    message.report = parseObject(message.body["data"].get_ref<const std::string&>());
  message.problem = envelopeProblem(message.body);
  if (message.problem.empty()) message.problem = taskProblem(message);
  return message;
}

std::vector<Json> jobResults(const Message& message) {
  if (!message.report.is_object()) return {};
  const auto found = message.report.find("job_results");
  if (found == message.report.end() || !found->is_array()) return {};
  return {found->begin(), found->end()};
}

ServerAnswer answerTo(const Message& message, ProtocolState& state, const std::string& newUuid) {
  if (!message.problem.empty()) return {400, compact({{"error", message.problem}})};
  if (message.task == "create") {
    ++state.registrations;
    return jsonAnswer({{"success", 1}, {"uuid", newUuid}, {"id", std::to_string(state.registrations)}});
  }
  if (message.task == "test") return jsonAnswer({{"test_success", 1}});

  Json answer = {{"success", 1}, {"jobs", Json::array()}};
  for (Json& job : state.queuedJobs) answer["jobs"].push_back(std::move(job));
  state.queuedJobs.clear();
  if (state.checkInInterval) answer["checkin_interval"] = *state.checkInInterval;
  return jsonAnswer(answer);
}

Json makeJob(std::int64_t id, const std::string& type, const Json& arguments) {
  Json job = {{"id", std::to_string(id)}, {"type", type}};
  if (arguments.is_string()) {
    job["arguments"] = arguments;
  } else if (!arguments.is_null()) {
    job["arguments"] = compact(arguments);
  }
  return job;
}

std::string makeUuid() {
  std::random_device random;
  std::array<unsigned, 4> words{};
  for (unsigned& word : words) word = random();
  words[1] = (words[1] & 0xffff0fffU) | 0x00004000U;  // version 4
  words[2] = (words[2] & 0x3fffffffU) | 0x80000000U;  // the variant of RFC 9562
  std::array<char, 37> text{};
  std::snprintf(text.data(), text.size(), "%08x-%04x-%04x-%04x-%04x%08x", words[0], words[1] >> 16U,
                words[1] & 0xffffU, words[2] >> 16U, words[2] & 0xffffU, words[3]);
  return text.data();
}

std::string compact(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

}  // namespace msp::lab
