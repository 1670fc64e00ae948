#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "storage/ForwardingFileSystem.h"

namespace vorna::testing {

// The file-system calls a test can observe and fail. `rename` stands for both
// kinds of rename, the replacing one and renameNoReplace.
enum class FsCall {
  open,
  close,
  read,
  write,
  fsync,
  fstat,
  rename,
  exchange,
  unlink,
  mkdir,
  rmdir,
  stat,
  lstat,
  chmod,
  readlink,
  listDirectory
};

const char* fsCallName(FsCall call);

// A file system (the real one unless another is given) that records every call
// and fails the calls a test picks.
//
//   FaultInjectingFileSystem fs;
//   fs.failNth(FsCall::exchange, 1, EXDEV);     // the first exchange fails
//   fs.failWhere(FsCall::open, "/store/", EIO); // every open under /store/ fails
//
// Paths are recorded for calls that take one; descriptor calls record the path
// the descriptor was opened with. Thread-safe.
class FaultInjectingFileSystem final : public storage::ForwardingFileSystem {
 public:
  struct Call {
    FsCall call;
    std::string path;
  };
  using PathMatcher = std::function<bool(const std::string& path)>;

  explicit FaultInjectingFileSystem(storage::FileSystem& target = storage::FileSystem::real());

  // Fails the `occurrence`-th (1-based) call of `call` with `errorNumber`.
  void failNth(FsCall call, int occurrence, int errorNumber);
  // Makes the `occurrence`-th (1-based) call of `call` report success without
  // reaching the file system: a flush taken away, say.
  void skipNth(FsCall call, int occurrence);
  // Fails every call of `call` whose path contains `pathPart`.
  void failWhere(FsCall call, std::string pathPart, int errorNumber);
  // Makes every write transfer at most `limit` bytes (0 makes writes return 0).
  void limitWrites(size_t limit);
  // Fails the `occurrence`-th (1-based) call of `call` among those whose path
  // `matches` accepts. Counting within such a group stays deterministic when
  // the code under test spreads other calls over several threads.
  void failNthMatching(FsCall call, PathMatcher matches, int occurrence, int errorNumber);
  // Runs `hook` just before each call of `call` is forwarded (after fault checks pass).
  void beforeCall(FsCall call, std::function<void(const std::string& path)> hook);
  void clearFaults();

  std::vector<Call> calls() const;
  size_t count(FsCall call) const;

  int open(const std::string& path, int flags, mode_t mode) override;
  int close(int fd) override;
  ssize_t read(int fd, void* buffer, size_t count) override;
  ssize_t write(int fd, const void* buffer, size_t count) override;
  int fsync(int fd) override;
  int fstat(int fd, struct stat* out) override;
  int rename(const std::string& from, const std::string& to) override;
  int renameNoReplace(const std::string& from, const std::string& to) override;
  int exchange(const std::string& a, const std::string& b) override;
  int unlink(const std::string& path) override;
  int mkdir(const std::string& path, mode_t mode) override;
  int rmdir(const std::string& path) override;
  int stat(const std::string& path, struct stat* out) override;
  int lstat(const std::string& path, struct stat* out) override;
  int chmod(const std::string& path, mode_t mode) override;
  ssize_t readlink(const std::string& path, std::string& target) override;
  int listDirectory(const std::string& path, std::vector<std::string>& names) override;
  int listDirectoryTyped(const std::string& path, std::vector<std::string>& names,
                         std::vector<unsigned char>& types) override;

 private:
  struct Rule {
    FsCall call;
    int occurrence;       // 0: every matching call
    int errorNumber;      // kSkip: succeed without forwarding
    PathMatcher matches;  // when set, occurrences count only the calls it accepts
  };
  static constexpr int kSkip = -1;
  // Records the call and decides whether it fails: the errno to fail it
  // with, kSkip, or 0 to forward it.
  int admit(FsCall call, const std::string& path);
  // Calls of `call` recorded so far whose path `matches` accepts. Needs mutex_.
  int countMatching(FsCall call, const PathMatcher& matches) const;
  std::string pathOf(int fd) const;

  mutable std::mutex mutex_;
  std::vector<Call> calls_;
  std::vector<Rule> rules_;
  std::vector<std::pair<FsCall, std::function<void(const std::string&)>>> hooks_;
  std::vector<std::pair<int, std::string>> openPaths_;
  std::optional<size_t> writeLimit_;
};

}  // namespace vorna::testing
