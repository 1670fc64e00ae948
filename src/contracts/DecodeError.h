#pragma once

#include <stdexcept>
#include <string>

namespace vorna::contracts {

// A JSON value that does not have the shape of the record asked for: not an
// object, a required key missing, a value of the wrong type, an enumeration
// value that is not one of the exact raw strings, or a malformed date. The
// text names the key, e.g. "missing key: capturedAt".
class DecodeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace vorna::contracts
