#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/curl_http_client.h"
#include "platform/http_client.h"

namespace msp::test {

using namespace std::chrono_literals;

/// Sends a request and gives its result as a future; a second completion would throw.
inline std::future<HttpResult> start(HttpClient& client, HttpRequest request) {
  auto promise = std::make_shared<std::promise<HttpResult>>();
  auto future = promise->get_future();
  client.send(std::move(request), [promise](HttpResult result) { promise->set_value(std::move(result)); });
  return future;
}

/// The result of a request that must have ended long since; throws when it has not.
inline HttpResult resultOf(std::future<HttpResult> future) {
  if (future.wait_for(60s) != std::future_status::ready) throw std::runtime_error("the request does not end");
  return future.get();
}

inline HttpResult ask(HttpClient& client, HttpRequest request) {
  return resultOf(start(client, std::move(request)));
}

inline HttpRequest get(std::string url) {
  HttpRequest request;
  request.url = std::move(url);
  return request;
}

inline HttpRequest post(std::string url, std::string body) {
  HttpRequest request;
  request.method = "POST";
  request.url = std::move(url);
  request.headers = {"Content-Type: application/json"};
  request.body = std::move(body);
  return request;
}

/// "200 body" of an answer, "error: text" without one.
inline std::string summary(const HttpResult& result) {
  return result.answer ? std::to_string(result.answer->status) + " " + result.answer->body
                       : "error: " + result.error;
}

inline std::string askFor(HttpClient& client, HttpRequest request) {
  return summary(ask(client, std::move(request)));
}

/// A machine with a network and without proxies, on which every name is this machine.
inline HttpSurroundings surroundings() {
  HttpSurroundings made;
  made.resolver = [](const std::string&) { return LookupAnswer{{"127.0.0.1"}, ""}; };
  made.hasUsableNetwork = [] { return true; };
  made.proxyFor = [](const std::string&, const std::string&) { return std::nullopt; };
  return made;
}

}  // namespace msp::test
