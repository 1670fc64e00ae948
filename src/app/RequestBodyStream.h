#pragma once

#include <cstddef>

namespace vorna::app {

// A request body that arrives as a stream. Used from one thread at a time.
class RequestBodyStream {
 public:
  virtual ~RequestBodyStream() = default;
  // Reads at most `capacity` bytes: the count read, 0 at the end, negative on error.
  virtual long read(char* buffer, size_t capacity) = 0;
  virtual void close() = 0;
};

}  // namespace vorna::app
