#pragma once

#include <string>

namespace vorna::contracts {

// A buffer of raw bytes (page content, request and response bodies). A string
// rather than a vector: it moves cheaply, feeds the JSON and I/O libraries
// without copies, and its contents are never treated as text by the host.
using Bytes = std::string;

}  // namespace vorna::contracts
