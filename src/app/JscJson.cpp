#include "app/JscJson.h"

#include <jsc/jsc.h>

#include <cmath>

#include "contracts/GObjectPtr.h"
#include "contracts/GUniquePtr.h"

namespace vorna::app {
namespace {

using contracts::Json;

constexpr int kMaxDepth = 64;

std::optional<Json> convert(JSCValue* value, int depth) {
  if (jsc_value_is_undefined(value) || jsc_value_is_function(value)) {
    return std::nullopt;
  }
  if (jsc_value_is_null(value)) {
    return Json(nullptr);
  }
  if (jsc_value_is_string(value)) {
    contracts::GText text(jsc_value_to_string(value));
    return Json(std::string(text ? text.get() : ""));
  }
  if (jsc_value_is_boolean(value)) {
    return Json(jsc_value_to_boolean(value) != FALSE);
  }
  if (jsc_value_is_number(value)) {
    double number = jsc_value_to_double(value);
    if (std::isfinite(number) && number == std::trunc(number) && std::fabs(number) < 9.0e15) {
      return Json(static_cast<int64_t>(number));
    }
    return std::isfinite(number) ? Json(number) : Json(nullptr);
  }
  if (!jsc_value_is_object(value) || depth >= kMaxDepth) {
    return Json(nullptr);
  }
  if (jsc_value_is_array(value)) {
    Json array = Json::array();
    auto length =
        contracts::GObjectPtr<JSCValue>::adopt(jsc_value_object_get_property(value, "length"));
    int count = length ? jsc_value_to_int32(length.get()) : 0;
    for (int i = 0; i < count; ++i) {
      auto item = contracts::GObjectPtr<JSCValue>::adopt(
          jsc_value_object_get_property_at_index(value, static_cast<guint>(i)));
      std::optional<Json> converted = convert(item.get(), depth + 1);
      array.push_back(converted ? std::move(*converted) : Json(nullptr));
    }
    return array;
  }
  Json object = Json::object();
  contracts::GStrv names(jsc_value_object_enumerate_properties(value));
  for (char** name = names.get(); name != nullptr && *name != nullptr; ++name) {
    auto member =
        contracts::GObjectPtr<JSCValue>::adopt(jsc_value_object_get_property(value, *name));
    if (std::optional<Json> converted = convert(member.get(), depth + 1)) {
      object[*name] = std::move(*converted);
    }
  }
  return object;
}

}  // namespace

std::optional<Json> jsonFromJsc(JSCValue* value) {
  if (value == nullptr) {
    return std::nullopt;
  }
  return convert(value, 0);
}

}  // namespace vorna::app
