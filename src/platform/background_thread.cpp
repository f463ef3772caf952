#include "platform/background_thread.h"

#include <system_error>
#include <thread>
#include <utility>

namespace msp {

bool startBackgroundThread(const std::string& label, std::function<void()> body) {
  try {
    std::thread([label, body = std::move(body)] {
      becomeBackgroundThread(label);
      body();
    }).detach();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

}  // namespace msp
