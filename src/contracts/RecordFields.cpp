#include "contracts/RecordFields.h"

#include <limits>

namespace vorna::contracts::fields {
namespace {

[[noreturn]] void fail(std::string_view problem, std::string_view key) {
  std::string message(problem);
  message += key;
  throw DecodeError(message);
}

// The value under `key`, or nothing when it is missing or null.
const Json* find(const Json& object, std::string_view key) {
  auto found = object.find(key);
  if (found == object.end() || found->is_null()) {
    return nullptr;
  }
  return &*found;
}

const Json& require(const Json& object, std::string_view key) {
  const Json* value = find(object, key);
  if (value == nullptr) {
    fail("missing key: ", key);
  }
  return *value;
}

const std::string& asString(const Json& value, std::string_view key) {
  if (!value.is_string()) {
    fail("wrong type for key: ", key);
  }
  return value.get_ref<const std::string&>();
}

Timestamp asDate(const Json& value, std::string_view key) {
  std::optional<Timestamp> date = parseIsoDate(asString(value, key));
  if (!date) {
    fail("invalid value for key: ", key);
  }
  return *date;
}

}  // namespace

void requireObject(const Json& json) {
  if (!json.is_object()) {
    throw DecodeError("expected an object");
  }
}

std::string readString(const Json& object, std::string_view key) {
  return asString(require(object, key), key);
}

std::optional<std::string> readOptionalString(const Json& object, std::string_view key) {
  const Json* value = find(object, key);
  if (value == nullptr) {
    return std::nullopt;
  }
  return asString(*value, key);
}

std::int64_t readInt64(const Json& object, std::string_view key) {
  const Json& value = require(object, key);
  if (value.is_number_unsigned()) {
    auto number = value.get<std::uint64_t>();
    if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      fail("invalid value for key: ", key);
    }
    return static_cast<std::int64_t>(number);
  }
  if (!value.is_number_integer()) {
    fail("wrong type for key: ", key);
  }
  return value.get<std::int64_t>();
}

Timestamp readDate(const Json& object, std::string_view key) {
  return asDate(require(object, key), key);
}

std::optional<Timestamp> readOptionalDate(const Json& object, std::string_view key) {
  const Json* value = find(object, key);
  if (value == nullptr) {
    return std::nullopt;
  }
  return asDate(*value, key);
}

const Json& readArray(const Json& object, std::string_view key) {
  const Json& value = require(object, key);
  if (!value.is_array()) {
    fail("wrong type for key: ", key);
  }
  return value;
}

void writeOptionalDate(Json& object, std::string_view key, const std::optional<Timestamp>& value) {
  if (value) {
    object[std::string(key)] = formatIsoDate(*value);
  }
}

}  // namespace vorna::contracts::fields
