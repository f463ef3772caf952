#include "jobs/service.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace msp {
namespace {

TEST(Service, everyFieldIsEncodedInItsOrder) {
  const Service service{.name = "org.example.sync", .status = "Running", .service = "org.example.sync"};
  EXPECT_EQ(Json(service).dump(),
            R"({"name":"org.example.sync","status":"Running","service":"org.example.sync"})");
}

}  // namespace
}  // namespace msp
