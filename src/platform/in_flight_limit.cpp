#include "platform/in_flight_limit.h"

namespace msp {

std::shared_ptr<const void> InFlightLimit::tryStart() {
  if (underWay_->fetch_add(1) >= most_) {
    underWay_->fetch_sub(1);
    return nullptr;
  }
  return {underWay_.get(), [underWay = underWay_](const void*) { underWay->fetch_sub(1); }};
}

}  // namespace msp
