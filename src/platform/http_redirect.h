#pragma once

#include <string>

#include "platform/http_client.h"

/// What a redirect makes of a request. Pure functions, safe on any thread.
namespace msp {

/// The statuses whose Location is followed: 301, 302, 303, 307 and 308.
bool isRedirect(int status);

/// The request that follows a redirect to `url`. 301, 302 and 303 turn a POST into a GET without body and
/// Content-Type; 307 and 308 keep method and body.
HttpRequest redirectedRequest(HttpRequest request, int status, std::string url);

}  // namespace msp
