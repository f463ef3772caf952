#include "jobs/service.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace msp {

void to_json(Json& json, const Service& service) {
  Json::object_t object;
  object.emplace_back("name", service.name);
  object.emplace_back("status", service.status);
  object.emplace_back("service", service.service);
  json = std::move(object);
}

}  // namespace msp
