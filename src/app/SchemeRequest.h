#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "app/RequestBodyStream.h"
#include "contracts/Bytes.h"

namespace vorna::app {

// One load on the vorna: scheme, copied out of the engine's request on the main
// thread so that its answer can be computed anywhere.
struct SchemeRequest {
  std::optional<std::string> url;
  std::optional<std::string> method;
  std::map<std::string, std::string> headers;
  std::optional<contracts::Bytes> body;           // the body when it came whole
  std::shared_ptr<RequestBodyStream> bodyStream;  // else the body as a stream, or none
};

}  // namespace vorna::app
