#include "support/refresh.h"

#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/host.h"
#include "platform/http_client.h"
#include "platform/task_runner.h"

namespace msp::bench {
namespace {

class UnansweredHttpClient : public HttpClient {
 public:
  void send(HttpRequest /*request*/, Completion /*completion*/) override {}
  void download(HttpRequest /*request*/, DownloadCompletion /*completion*/) override {}
};

UnansweredHttpClient& unanswered() {
  static UnansweredHttpClient client;
  return client;
}

/// Runs the tools, and notes each one that could be launched once it has ended.
class RecordingTaskRunner : public TaskRunner {
 public:
  explicit RecordingTaskRunner(std::vector<Launch>& launches) : launches_(launches) {}

  // A look-up ends before the tool that it was made for starts.
  std::string runCommand(const std::string& command, const std::vector<std::string>& arguments) override {
    std::string output = TaskRunner::runCommand(command, arguments);
    const std::string path = pathForCommand(command);
    if (!path.empty() && isLaunchablePath(path)) launches_.push_back({path, arguments});
    return output;
  }

 private:
  std::vector<Launch>& launches_;
};

/// This machine; its one runner is recorded.
class RecordingHost : public SystemHost {
 public:
  explicit RecordingHost(std::vector<Launch>& launches) : launches_(launches) {}

  [[nodiscard]] std::unique_ptr<TaskRunner> makeTaskRunner() const override {
    return std::make_unique<RecordingTaskRunner>(launches_);
  }

 private:
  std::vector<Launch>& launches_;
};

}  // namespace

Refresh::Refresh(const Host& host) : gatherer_("", host, unanswered()) {}

GatheredData Refresh::run() {
  const auto refreshed = std::make_shared<std::promise<GatheredData>>();
  gatherer_.gather([refreshed](GatheredData report) { refreshed->set_value(std::move(report)); });
  return refreshed->get_future().get();
}

RefreshLaunches recordRefreshLaunches() {
  std::vector<Launch> launches;
  const RecordingHost host(launches);
  Refresh refresh(host);
  RefreshLaunches recorded;
  refresh.run();
  recorded.first = std::exchange(launches, {});
  refresh.run();
  recorded.warm = std::move(launches);
  return recorded;
}

}  // namespace msp::bench
