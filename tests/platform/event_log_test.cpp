#include "platform/event_log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/captured_log.h"

namespace msp {
namespace {

TEST(EventLog, handsMessagesToTheSinkInForce) {
  const test::CapturedLog outer;
  logEvent("first");
  {
    const test::CapturedLog inner;
    logEvent("second");
    EXPECT_EQ(inner.messages(), std::vector<std::string>{"second"});
  }
  logEvent("third");
  EXPECT_EQ(outer.messages(), (std::vector<std::string>{"first", "third"}));
}

TEST(EventLog, dropsMessagesWithoutASink) {
  const EventSink before = setEventSink(nullptr);
  logEvent("nobody hears this");
  setEventSink(before);
}

TEST(EventLog, usesNoSinkAfterItWasReplaced) {
  std::atomic<bool> stop = false;
  std::thread writer([&stop] {
    while (!stop) logEvent("message");
  });
  for (int i = 0; i < 200; ++i) {
    // Gone at the end of each round: a call that still ran in it would be a use after free.
    const test::CapturedLog log;
  }
  stop = true;
  writer.join();
}

}  // namespace
}  // namespace msp
