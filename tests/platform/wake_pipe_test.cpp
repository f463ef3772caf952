#include "platform/wake_pipe.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>

namespace msp::test {
namespace {

bool isReadable(const WakePipe& pipe) {
  pollfd entry{pipe.readable(), POLLIN, 0};
  return poll(&entry, 1, 0) == 1;
}

TEST(WakePipe, isReadableFromTheFirstSignalUntilItIsDrained) {
  WakePipe pipe;
  EXPECT_FALSE(isReadable(pipe));
  pipe.signal();
  pipe.signal();
  EXPECT_TRUE(isReadable(pipe));
  pipe.drain();
  EXPECT_FALSE(isReadable(pipe));
}

TEST(WakePipe, neverBlocks) {
  WakePipe pipe;
  pipe.drain();
  for (int i = 0; i < 100'000; ++i) pipe.signal();  // more than a pipe holds
  EXPECT_TRUE(isReadable(pipe));
  pipe.drain();
  EXPECT_FALSE(isReadable(pipe));
}

TEST(WakePipe, isInheritedByNoChild) {
  const WakePipe pipe;
  EXPECT_EQ(fcntl(pipe.readable(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

}  // namespace
}  // namespace msp::test
