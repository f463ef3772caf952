#include "platform/http_redirect.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace msp::test {
namespace {

TEST(HttpRedirect, fiveStatusesAreFollowed) {
  for (const int status : {301, 302, 303, 307, 308}) EXPECT_TRUE(isRedirect(status)) << status;
  for (const int status : {200, 201, 300, 304, 305, 306, 309, 400})
    EXPECT_FALSE(isRedirect(status)) << status;
}

TEST(HttpRedirect, aPostKeepsMethodAndBodyOnlyWhereTheStatusSaysSo) {
  HttpRequest request;
  request.method = "POST";
  request.url = "http://a/";
  request.headers = {"content-TYPE: text/plain", "X-Other: 1"};
  request.body = "body";
  for (const int status : {301, 302, 303}) {
    const auto next = redirectedRequest(request, status, "http://b/");
    EXPECT_EQ(next.method, "GET") << status;
    EXPECT_EQ(next.url, "http://b/") << status;
    EXPECT_EQ(next.headers, std::vector<std::string>{"X-Other: 1"}) << status;
    EXPECT_EQ(next.body, "") << status;
  }
  for (const int status : {307, 308}) {
    const auto next = redirectedRequest(request, status, "http://b/");
    EXPECT_EQ(next.method, "POST") << status;
    EXPECT_EQ(next.url, "http://b/") << status;
    EXPECT_EQ(next.headers, request.headers) << status;
    EXPECT_EQ(next.body, "body") << status;
  }
}

TEST(HttpRedirect, limitsStay) {
  HttpRequest request;
  request.idleLimit = std::chrono::milliseconds(7);
  request.totalLimit = std::chrono::milliseconds(9);
  request.waitsForConnectivity = true;
  const auto next = redirectedRequest(request, 302, "http://b/");
  EXPECT_EQ(next.idleLimit, request.idleLimit);
  EXPECT_EQ(next.totalLimit, request.totalLimit);
  EXPECT_TRUE(next.waitsForConnectivity);
}

}  // namespace
}  // namespace msp::test
