#include <nlohmann/json.hpp>

#include <utility>

#include "api/answers.h"
#include "api/api_manager.h"
#include "api/envelope.h"
#include "inventory/data_gatherer.h"
#include "platform/event_log.h"
#include "platform/text.h"

// How the agent comes by its identity.
namespace msp {

void APIManager::loadConfig() {
  auto config = files_.load();
  if (!config) {
    registerAgent();
    return;
  }
  if (config->agent_version != agentVersion_) {
    config->agent_version = agentVersion_;
    files_.store(*config);
  }
  setAgentConfig(std::move(*config));
  readyForUse_ = true;
}

void APIManager::registerAgent() {
  const auto url = files_.defaultAPIAddress();
  if (!url) return;
  const DataGatherer gatherer("", host_, http_);
  const auto name = host_.computerName();
  const std::string label = hostLabel(name ? *name : gatherer.report().name);
  transport_.post(createRequest(label), *url, [this, url = *url](const std::optional<Json>& answer) {
    handleRegistrationAnswer(answer, url);
  });
}

void APIManager::handleRegistrationAnswer(const std::optional<Json>& answer, const std::string& url) {
  auto registration = readRegistrationAnswer(answer);
  if (!registration) return;
  setAgentConfig({url, std::move(registration->uuid), std::move(registration->id), agentVersion_});
  testConfig(url);
}

void APIManager::testConfig(const std::string& url) {
  transport_.post(testRequest(), url,
                  [this](const std::optional<Json>& answer) { handleTestAnswer(readTestAnswer(answer)); });
}

void APIManager::handleTestAnswer(bool passed) {
  if (!passed) {
    logEvent("Testing new config failed.");
    return;
  }
  if (const auto config = agentConfig()) files_.store(*config);
  logEvent("Tested & stored new config.");
  readyForUse_ = true;
}

}  // namespace msp
