#include "support/FaultInjectingFileSystem.h"

#include <algorithm>
#include <cerrno>

namespace vorna::testing {

const char* fsCallName(FsCall call) {
  static constexpr const char* kNames[] = {
      "open",   "close", "read",  "write", "fsync", "fstat", "rename",   "exchange",
      "unlink", "mkdir", "rmdir", "stat",  "lstat", "chmod", "readlink", "listDirectory",
  };
  return kNames[static_cast<int>(call)];
}

FaultInjectingFileSystem::FaultInjectingFileSystem(storage::FileSystem& target)
    : ForwardingFileSystem(target) {}

void FaultInjectingFileSystem::failNth(FsCall call, int occurrence, int errorNumber) {
  std::lock_guard lock(mutex_);
  rules_.push_back({call, occurrence, "", errorNumber, nullptr});
}

void FaultInjectingFileSystem::failWhere(FsCall call, std::string pathPart, int errorNumber) {
  std::lock_guard lock(mutex_);
  rules_.push_back({call, 0, std::move(pathPart), errorNumber, nullptr});
}

void FaultInjectingFileSystem::failNthMatching(FsCall call, PathMatcher matches, int occurrence,
                                               int errorNumber) {
  std::lock_guard lock(mutex_);
  rules_.push_back({call, occurrence, "", errorNumber, std::move(matches)});
}

void FaultInjectingFileSystem::limitWrites(size_t limit) {
  std::lock_guard lock(mutex_);
  writeLimit_ = limit;
}

void FaultInjectingFileSystem::beforeCall(FsCall call,
                                          std::function<void(const std::string&)> hook) {
  std::lock_guard lock(mutex_);
  hooks_.emplace_back(call, std::move(hook));
}

void FaultInjectingFileSystem::clearFaults() {
  std::lock_guard lock(mutex_);
  rules_.clear();
  hooks_.clear();
  writeLimit_.reset();
}

std::vector<FaultInjectingFileSystem::Call> FaultInjectingFileSystem::calls() const {
  std::lock_guard lock(mutex_);
  return calls_;
}

size_t FaultInjectingFileSystem::callCount() const {
  std::lock_guard lock(mutex_);
  return calls_.size();
}

size_t FaultInjectingFileSystem::count(FsCall call) const {
  std::lock_guard lock(mutex_);
  return static_cast<size_t>(
      std::count_if(calls_.begin(), calls_.end(), [&](const Call& c) { return c.call == call; }));
}

int FaultInjectingFileSystem::countMatching(FsCall call, const PathMatcher& matches) const {
  int seen = 0;
  for (const Call& c : calls_) {
    seen += c.call == call && (!matches || matches(c.path)) ? 1 : 0;
  }
  return seen;
}

FaultInjectingFileSystem::Admission FaultInjectingFileSystem::admit(FsCall call,
                                                                    const std::string& path) {
  Admission admission;
  std::function<void(const std::string&)> hook;
  {
    std::lock_guard lock(mutex_);
    calls_.push_back({call, path});
    for (const Rule& rule : rules_) {
      if (rule.call != call) {
        continue;
      }
      bool pathMatches =
          rule.matches ? rule.matches(path)
                       : rule.pathPart.empty() || path.find(rule.pathPart) != std::string::npos;
      if (!pathMatches) {
        continue;
      }
      if (rule.occurrence == 0 || rule.occurrence == countMatching(call, rule.matches)) {
        admission.injectedErrno = rule.errorNumber;
        return admission;
      }
    }
    for (const auto& [hookCall, hookFn] : hooks_) {
      if (hookCall == call) {
        hook = hookFn;
      }
    }
  }
  if (hook) {
    hook(path);
  }
  return admission;
}

std::string FaultInjectingFileSystem::pathOf(int fd) const {
  std::lock_guard lock(mutex_);
  for (auto it = openPaths_.rbegin(); it != openPaths_.rend(); ++it) {
    if (it->first == fd) {
      return it->second;
    }
  }
  return {};
}

// Declares `admission` and returns -1 with the injected errno when the call is
// to fail.
#define VORNA_ADMIT(call, path)            \
  Admission admission = admit(call, path); \
  if (admission.injectedErrno != 0) {      \
    errno = admission.injectedErrno;       \
    return -1;                             \
  }

int FaultInjectingFileSystem::open(const std::string& path, int flags, mode_t mode) {
  VORNA_ADMIT(FsCall::open, path);
  int fd = target().open(path, flags, mode);
  if (fd >= 0) {
    std::lock_guard lock(mutex_);
    openPaths_.emplace_back(fd, path);
  }
  return fd;
}

int FaultInjectingFileSystem::close(int fd) {
  std::string path = pathOf(fd);
  {
    std::lock_guard lock(mutex_);
    auto it = std::find_if(openPaths_.begin(), openPaths_.end(),
                           [&](const auto& entry) { return entry.first == fd; });
    if (it != openPaths_.end()) {
      openPaths_.erase(it);
    }
  }
  // The descriptor is released even when the close is made to fail, as on Linux.
  Admission admission = admit(FsCall::close, path);
  int result = target().close(fd);
  if (admission.injectedErrno != 0) {
    errno = admission.injectedErrno;
    result = -1;
  }
  return result;
}

ssize_t FaultInjectingFileSystem::read(int fd, void* buffer, size_t count) {
  VORNA_ADMIT(FsCall::read, pathOf(fd));
  return target().read(fd, buffer, count);
}

ssize_t FaultInjectingFileSystem::write(int fd, const void* buffer, size_t count) {
  VORNA_ADMIT(FsCall::write, pathOf(fd));
  {
    std::lock_guard lock(mutex_);
    if (writeLimit_) {
      count = std::min(count, *writeLimit_);
      if (count == 0) {
        return ssize_t{0};
      }
    }
  }
  return target().write(fd, buffer, count);
}

int FaultInjectingFileSystem::fsync(int fd) {
  VORNA_ADMIT(FsCall::fsync, pathOf(fd));
  return target().fsync(fd);
}

int FaultInjectingFileSystem::fstat(int fd, struct stat* out) {
  VORNA_ADMIT(FsCall::fstat, pathOf(fd));
  return target().fstat(fd, out);
}

int FaultInjectingFileSystem::rename(const std::string& from, const std::string& to) {
  VORNA_ADMIT(FsCall::rename, from);
  return target().rename(from, to);
}

int FaultInjectingFileSystem::renameNoReplace(const std::string& from, const std::string& to) {
  VORNA_ADMIT(FsCall::rename, from);
  return target().renameNoReplace(from, to);
}

int FaultInjectingFileSystem::exchange(const std::string& a, const std::string& b) {
  VORNA_ADMIT(FsCall::exchange, a);
  return target().exchange(a, b);
}

int FaultInjectingFileSystem::unlink(const std::string& path) {
  VORNA_ADMIT(FsCall::unlink, path);
  return target().unlink(path);
}

int FaultInjectingFileSystem::mkdir(const std::string& path, mode_t mode) {
  VORNA_ADMIT(FsCall::mkdir, path);
  return target().mkdir(path, mode);
}

int FaultInjectingFileSystem::rmdir(const std::string& path) {
  VORNA_ADMIT(FsCall::rmdir, path);
  return target().rmdir(path);
}

int FaultInjectingFileSystem::stat(const std::string& path, struct stat* out) {
  VORNA_ADMIT(FsCall::stat, path);
  return target().stat(path, out);
}

int FaultInjectingFileSystem::lstat(const std::string& path, struct stat* out) {
  VORNA_ADMIT(FsCall::lstat, path);
  return target().lstat(path, out);
}

int FaultInjectingFileSystem::chmod(const std::string& path, mode_t mode) {
  VORNA_ADMIT(FsCall::chmod, path);
  return target().chmod(path, mode);
}

ssize_t FaultInjectingFileSystem::readlink(const std::string& path, std::string& target_) {
  VORNA_ADMIT(FsCall::readlink, path);
  return target().readlink(path, target_);
}

int FaultInjectingFileSystem::listDirectory(const std::string& path,
                                            std::vector<std::string>& names) {
  VORNA_ADMIT(FsCall::listDirectory, path);
  return target().listDirectory(path, names);
}

int FaultInjectingFileSystem::listDirectoryTyped(const std::string& path,
                                                 std::vector<std::string>& names,
                                                 std::vector<unsigned char>& types) {
  VORNA_ADMIT(FsCall::listDirectory, path);
  return target().listDirectoryTyped(path, names, types);
}

#undef VORNA_ADMIT

}  // namespace vorna::testing
