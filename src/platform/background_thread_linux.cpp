#include <pthread.h>

#include "platform/background_thread.h"

namespace msp {

void becomeBackgroundThread(const std::string& label) {
  constexpr std::size_t kLongestName = 15;
  // The end of a label is what tells two threads apart.
  const std::string name = label.size() > kLongestName ? label.substr(label.size() - kLongestName) : label;
  pthread_setname_np(pthread_self(), name.c_str());
}

}  // namespace msp
