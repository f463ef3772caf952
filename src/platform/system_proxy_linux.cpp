#include "platform/system_proxy.h"

namespace msp {

ProxySettings systemProxySettings() { return {}; }

}  // namespace msp
