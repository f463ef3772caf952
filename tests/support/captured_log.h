#pragma once

#include <string>
#include <vector>

#include "platform/event_log.h"
#include "platform/mutex.h"

namespace msp::test {

/// Takes the event log's messages for as long as it lives. Safe on any thread.
class CapturedLog {
 public:
  CapturedLog()
      : previous_(setEventSink([this](const std::string& message) {
          const MutexLock lock(mutex_);
          messages_.push_back(message);
        })) {}
  ~CapturedLog() { setEventSink(previous_); }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  [[nodiscard]] std::vector<std::string> messages() const {
    const MutexLock lock(mutex_);
    return messages_;
  }

 private:
  mutable Mutex mutex_;
  std::vector<std::string> messages_ MSP_GUARDED_BY(mutex_);
  EventSink previous_;
};

}  // namespace msp::test
