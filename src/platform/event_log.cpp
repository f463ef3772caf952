#include "platform/event_log.h"

#include <mutex>
#include <shared_mutex>
#include <utility>

namespace msp {
namespace {

// Shared by every logging thread, exclusive for a change of sink: a sink that was replaced is not in use.
std::shared_mutex& sinkMutex() {
  static std::shared_mutex mutex;
  return mutex;
}

EventSink& currentSink() {
  static EventSink sink;
  return sink;
}

}  // namespace

EventSink setEventSink(EventSink sink) {
  const std::unique_lock lock(sinkMutex());
  return std::exchange(currentSink(), std::move(sink));
}

void logEvent(const std::string& message) {
  const std::shared_lock lock(sinkMutex());
  if (currentSink()) currentSink()(message);
}

}  // namespace msp
