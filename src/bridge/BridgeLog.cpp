#include "bridge/BridgeLog.h"

#include <unistd.h>

#include <cerrno>

namespace vorna::bridge {

std::string bridgeLogLine(std::string_view message) {
  std::string line = "Vorna bridge: ";
  line += message;
  line += '\n';
  return line;
}

void writeBridgeLogToStandardError(std::string_view line) {
  size_t written = 0;
  while (written < line.size()) {
    ssize_t got = ::write(STDERR_FILENO, line.data() + written, line.size() - written);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return;
    }
    written += static_cast<size_t>(got);
  }
}

}  // namespace vorna::bridge
