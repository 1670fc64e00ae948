#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "contracts/DecodeError.h"
#include "contracts/IsoDate.h"
#include "contracts/Json.h"

// Reading and writing the fields of a record's JSON object. Every reader throws
// DecodeError with one of these texts:
//   "expected an object"          the value itself is not a JSON object
//   "missing key: {key}"          a required key is absent (or null)
//   "wrong type for key: {key}"   the value has another JSON type
//   "invalid value for key: {key}" right type, but not a date, enumeration
//                                  value or integer that the field can hold
// An optional field reads as absent when its key is missing or null, and is
// written only when present: records never hold a null.
namespace vorna::contracts::fields {

// Throws "expected an object" unless `json` is an object.
void requireObject(const Json& json);

std::string readString(const Json& object, std::string_view key);
std::optional<std::string> readOptionalString(const Json& object, std::string_view key);
// Only JSON integers that fit 64 signed bits; 1.0 and 1e3 are refused.
std::int64_t readInt64(const Json& object, std::string_view key);
Timestamp readDate(const Json& object, std::string_view key);
std::optional<Timestamp> readOptionalDate(const Json& object, std::string_view key);
// The array under `key`; its elements are the caller's to decode.
const Json& readArray(const Json& object, std::string_view key);

// The array under `key`, each element decoded by Record::fromJson.
template <typename Record>
std::vector<Record> readRecords(const Json& object, std::string_view key) {
  const Json& array = readArray(object, key);
  std::vector<Record> records;
  records.reserve(array.size());
  for (const Json& element : array) {
    records.push_back(Record::fromJson(element));
  }
  return records;
}

// The records, each written by its toJson, in order.
template <typename Record>
Json toJsonArray(const std::vector<Record>& records) {
  Json array = Json::array();
  for (const Record& record : records) {
    array.push_back(record.toJson());
  }
  return array;
}

// Decodes a string-valued enumeration through `fromName`, which accepts only
// the exact raw strings.
template <typename Enum, typename FromName>
Enum readEnum(const Json& object, std::string_view key, FromName fromName) {
  std::optional<Enum> value = fromName(readString(object, key));
  if (!value) {
    throw DecodeError("invalid value for key: " + std::string(key));
  }
  return *value;
}

// Sets `key` only when a value is present.
template <typename T>
void writeOptional(Json& object, std::string_view key, const std::optional<T>& value) {
  if (value) {
    object[std::string(key)] = *value;
  }
}
void writeOptionalDate(Json& object, std::string_view key, const std::optional<Timestamp>& value);

}  // namespace vorna::contracts::fields
