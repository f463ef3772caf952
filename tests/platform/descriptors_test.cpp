#include "platform/descriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <utility>

namespace msp {
namespace {

bool isOpen(int number) { return fcntl(number, F_GETFD) >= 0; }

TEST(Descriptor, isClosedOnceByItsLastOwner) {
  int number = -1;
  {
    Pipe pipe;
    ASSERT_EQ(openPipe(pipe), 0);
    number = pipe.readingEnd.number();
    Descriptor owner(std::move(pipe.readingEnd));
    pipe.readingEnd.close();
    EXPECT_TRUE(owner);
    EXPECT_TRUE(isOpen(number));

    // Assignment closes what the target held before.
    const int other = pipe.writingEnd.number();
    pipe.writingEnd = std::move(owner);
    EXPECT_FALSE(isOpen(other));
    EXPECT_EQ(pipe.writingEnd.number(), number);
    EXPECT_TRUE(isOpen(number));
  }
  EXPECT_FALSE(isOpen(number));
}

TEST(Descriptor, isNoneUntilThereIsOne) {
  Descriptor none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none.number(), -1);
  none.close();
  EXPECT_FALSE(none);
}

TEST(OpenPipe, givesEndsThatNoLaunchedProgramInherits) {
  Pipe pipe;
  ASSERT_EQ(openPipe(pipe), 0);
  for (const int end : {pipe.readingEnd.number(), pipe.writingEnd.number()}) {
    EXPECT_EQ(fcntl(end, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(end, F_GETFL) & O_NONBLOCK, 0);
  }
  EXPECT_EQ(write(pipe.writingEnd.number(), "x", 1), 1);
  char byte = 0;
  EXPECT_EQ(read(pipe.readingEnd.number(), &byte, 1), 1);
  EXPECT_EQ(byte, 'x');
}

}  // namespace
}  // namespace msp
