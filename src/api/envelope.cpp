#include "api/envelope.h"

#include <nlohmann/json.hpp>

namespace msp {
namespace {

Json envelope(const char* task) { return {{"api_action", "msp"}, {"api_version", 1}, {"task", task}}; }

}  // namespace

Json createRequest(const std::string& name) {
  Json body = envelope("create");
  body["name"] = name;
  return body;
}

Json testRequest() { return envelope("test"); }

Json checkInRequest(const std::string& uuid, const std::string& report) {
  Json body = envelope("checkin");
  body["uuid"] = uuid;
  body["data"] = report;
  return body;
}

}  // namespace msp
