#include "recovery/RecoveryEnvironment.h"

#include <unistd.h>

#include <cerrno>

#include "storage/UserFolders.h"

namespace vorna::recovery {

void RecoveryEnvironment::writeToStandardError(std::string_view line) {
  // One write per line keeps lines of concurrent writers from interleaving.
  const char* data = line.data();
  size_t left = line.size();
  while (left > 0) {
    ssize_t written = ::write(STDERR_FILENO, data, left);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return;  // nowhere left to report a failing diagnostic
    }
    data += written;
    left -= static_cast<size_t>(written);
  }
}

std::optional<std::string> RecoveryEnvironment::xdgDataHome() {
  return storage::xdgFolder("XDG_DATA_HOME", ".local/share");
}

std::string recoveryLogLine(std::string_view message) {
  std::string line = "Vorna recovery: ";
  line += message;
  line += '\n';
  return line;
}

}  // namespace vorna::recovery
