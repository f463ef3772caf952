#include "api/transport.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <utility>

#include "platform/console.h"
#include "platform/event_log.h"
#include "platform/url.h"

namespace msp {

void Transport::post(const Json& body, const std::string& url, Completion completion) {
  std::string problem;
  auto text = compactText(body, problem);
  if (!text) {
    printLine("Error creating JSON: " + problem);
    return;
  }
  if (!isUrl(url)) return;

  HttpRequest request;
  request.method = "POST";
  request.url = url;
  request.headers = {"Content-Type: application/json"};
  request.body = std::move(*text);
  request.idleLimit = std::chrono::seconds(15);
  request.totalLimit = std::chrono::seconds(60);
  request.waitsForConnectivity = true;

  http_.send(std::move(request), [task = stringValue(body, "task").value_or("unknown task"),
                                  completion = std::move(completion)](const HttpResult& result) {
    constexpr int kOk = 200;
    if (result.answer && result.answer->status == kOk) {
      completion(JSONUtilities::jsonToDictionary(result.answer->body));
      return;
    }
    logEvent("POST failed: " + (result.error.empty() ? "unknown error" : result.error));
    logEvent("Task: " + task);
    completion(std::nullopt);
  });
}

}  // namespace msp
