#include "app/HostContext.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "app/FilePaths.h"

#ifndef VORNA_INSTALLED_APP_DIR
#define VORNA_INSTALLED_APP_DIR "/usr/local/share/vorna/_app"
#endif

namespace vorna::app {
namespace {

constexpr int kClimbLimit = 12;

bool holdsEditor(const std::string& folder) {
  return isRegularFile(folder + "/index.html");
}

std::string parentOf(const std::string& folder) {
  size_t slash = folder.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : folder.substr(0, slash);
}

std::string joined(const std::string& folder, const char* name) {
  return folder == "/" ? std::string("/") + name : folder + "/" + name;
}

}  // namespace

std::shared_ptr<contracts::BridgeHandling> HostContext::bridge() const {
  std::lock_guard guard(lock_);
  return bridge_;
}

void HostContext::setBridge(std::shared_ptr<contracts::BridgeHandling> bridge) {
  std::shared_ptr<contracts::BridgeHandling> previous;
  {
    std::lock_guard guard(lock_);
    previous = std::exchange(bridge_, std::move(bridge));
  }
  // `previous` may hold the last reference; it is released outside the lock.
}

std::optional<std::string> HostContext::locateAppDirectory() {
  const char* environment = std::getenv("VORNA_APP_DIR");
  char executable[PATH_MAX];
  ssize_t length = ::readlink("/proc/self/exe", executable, sizeof executable - 1);
  std::string executablePath =
      length > 0 ? std::string(executable, static_cast<size_t>(length)) : "";
  return locateAppDirectory(environment == nullptr ? "" : environment, VORNA_INSTALLED_APP_DIR,
                            executablePath);
}

std::optional<std::string> HostContext::locateAppDirectory(const std::string& environmentValue,
                                                           const std::string& installedDirectory,
                                                           const std::string& executablePath) {
  if (!environmentValue.empty() && holdsEditor(environmentValue)) {
    return standardizedPath(environmentValue);
  }
  if (!installedDirectory.empty() && holdsEditor(installedDirectory)) {
    return standardizedPath(installedDirectory);
  }
  if (executablePath.empty()) {
    return std::nullopt;
  }
  char resolved[PATH_MAX];
  std::string folder = parentOf(standardizedPath(
      ::realpath(executablePath.c_str(), resolved) != nullptr ? resolved : executablePath));
  for (int tried = 0; tried < kClimbLimit; ++tried) {
    std::string candidate = joined(folder, "_app");
    if (holdsEditor(candidate)) {
      return standardizedPath(candidate);
    }
    std::string parent = parentOf(folder);
    if (parent == folder) {
      break;
    }
    folder = parent;
  }
  return std::nullopt;
}

}  // namespace vorna::app
