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
  failNthMatching(call, nullptr, occurrence, errorNumber);
}

void FaultInjectingFileSystem::skipNth(FsCall call, int occurrence) {
  failNth(call, occurrence, kSkip);
}

void FaultInjectingFileSystem::failWhere(FsCall call, std::string pathPart, int errorNumber) {
  failNthMatching(
      call, [part = std::move(pathPart)](const std::string& path) { return path.contains(part); },
      0, errorNumber);
}

void FaultInjectingFileSystem::failNthMatching(FsCall call, PathMatcher matches, int occurrence,
                                               int errorNumber) {
  std::lock_guard lock(mutex_);
  rules_.push_back({call, occurrence, errorNumber, std::move(matches)});
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

size_t FaultInjectingFileSystem::count(FsCall call) const {
  std::lock_guard lock(mutex_);
  return static_cast<size_t>(countMatching(call, nullptr));
}

int FaultInjectingFileSystem::countMatching(FsCall call, const PathMatcher& matches) const {
  int seen = 0;
  for (const Call& c : calls_) {
    seen += c.call == call && (!matches || matches(c.path)) ? 1 : 0;
  }
  return seen;
}

int FaultInjectingFileSystem::admit(FsCall call, const std::string& path) {
  std::function<void(const std::string&)> hook;
  {
    std::lock_guard lock(mutex_);
    calls_.push_back({call, path});
    for (const Rule& rule : rules_) {
      if (rule.call != call) {
        continue;
      }
      if (rule.matches && !rule.matches(path)) {
        continue;
      }
      if (rule.occurrence == 0 || rule.occurrence == countMatching(call, rule.matches)) {
        return rule.errorNumber;
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
  return 0;
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

// Returns -1 with the injected errno when the call is to fail, 0 when it is
// to be skipped.
#define VORNA_ADMIT(call, path)           \
  if (int injected = admit(call, path)) { \
    if (injected == kSkip) {              \
      return 0;                           \
    }                                     \
    errno = injected;                     \
    return -1;                            \
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
    std::erase_if(openPaths_, [&](const auto& entry) { return entry.first == fd; });
  }
  // The descriptor is released even when the close is made to fail, as on Linux.
  const int injected = admit(FsCall::close, path);
  const int result = target().close(fd);
  if (injected != 0) {
    errno = injected;
    return -1;
  }
  return result;
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

// A call that only forwards once admitted.
#define VORNA_FORWARD(Result, name, call, params, path, ...) \
  Result FaultInjectingFileSystem::name params {             \
    VORNA_ADMIT(call, path);                                 \
    return target().name(__VA_ARGS__);                       \
  }

VORNA_FORWARD(ssize_t, read, FsCall::read, (int fd, void* buffer, size_t count), pathOf(fd), fd,
              buffer, count)
VORNA_FORWARD(int, fsync, FsCall::fsync, (int fd), pathOf(fd), fd)
VORNA_FORWARD(int, fstat, FsCall::fstat, (int fd, struct stat* out), pathOf(fd), fd, out)
VORNA_FORWARD(int, rename, FsCall::rename, (const std::string& from, const std::string& to), from,
              from, to)
VORNA_FORWARD(int, renameNoReplace, FsCall::rename,
              (const std::string& from, const std::string& to), from, from, to)
VORNA_FORWARD(int, exchange, FsCall::exchange, (const std::string& a, const std::string& b), a, a,
              b)
VORNA_FORWARD(int, unlink, FsCall::unlink, (const std::string& path), path, path)
VORNA_FORWARD(int, mkdir, FsCall::mkdir, (const std::string& path, mode_t mode), path, path, mode)
VORNA_FORWARD(int, rmdir, FsCall::rmdir, (const std::string& path), path, path)
VORNA_FORWARD(int, stat, FsCall::stat, (const std::string& path, struct stat* out), path, path, out)
VORNA_FORWARD(int, lstat, FsCall::lstat, (const std::string& path, struct stat* out), path, path,
              out)
VORNA_FORWARD(int, chmod, FsCall::chmod, (const std::string& path, mode_t mode), path, path, mode)
VORNA_FORWARD(ssize_t, readlink, FsCall::readlink, (const std::string& path, std::string& link),
              path, path, link)
VORNA_FORWARD(int, listDirectory, FsCall::listDirectory,
              (const std::string& path, std::vector<std::string>& names), path, path, names)
VORNA_FORWARD(int, listDirectoryTyped, FsCall::listDirectory,
              (const std::string& path, std::vector<std::string>& names,
               std::vector<unsigned char>& types),
              path, path, names, types)

#undef VORNA_FORWARD
#undef VORNA_ADMIT

}  // namespace vorna::testing
