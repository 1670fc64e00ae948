#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace vorna::storage {

// The one seam through which storage, recovery and the bridge reach the disk.
//
// Every operation follows the POSIX convention of the call it wraps: a negative
// result (or -1) means failure and errno says why. Keeping errno, rather than
// throwing here, lets the callers turn it into a FileOpError in exactly one place
// and lets a test wrapper fail any chosen call with any chosen errno.
//
// Implementations must be safe to call from any thread.
class FileSystem {
 public:
  virtual ~FileSystem() = default;

  // The real implementation adds O_CLOEXEC and O_NONBLOCK to `flags` and
  // retries EINTR. O_NONBLOCK keeps an open from waiting for the other end of
  // a named pipe (a writer that never comes would hold the caller for good);
  // regular files and folders ignore it.
  virtual int open(const std::string& path, int flags, mode_t mode) = 0;
  virtual int close(int fd) = 0;
  // read and write may transfer fewer bytes than asked; callers loop.
  virtual ssize_t read(int fd, void* buffer, size_t count) = 0;
  virtual ssize_t write(int fd, const void* buffer, size_t count) = 0;
  virtual int fsync(int fd) = 0;
  virtual int fstat(int fd, struct stat* out) = 0;

  virtual int rename(const std::string& from, const std::string& to) = 0;
  // Renames without ever replacing (renameat2 with RENAME_NOREPLACE): EEXIST
  // when anything is at `to`, however late it came; EINVAL where the file
  // system cannot promise that.
  virtual int renameNoReplace(const std::string& from, const std::string& to) = 0;
  // Atomically exchanges the two directory entries (renameat2 with RENAME_EXCHANGE).
  // Both must exist on one file system; EINVAL where the file system cannot exchange.
  virtual int exchange(const std::string& a, const std::string& b) = 0;
  virtual int unlink(const std::string& path) = 0;
  virtual int mkdir(const std::string& path, mode_t mode) = 0;
  virtual int rmdir(const std::string& path) = 0;
  virtual int stat(const std::string& path, struct stat* out) = 0;
  virtual int lstat(const std::string& path, struct stat* out) = 0;
  virtual int chmod(const std::string& path, mode_t mode) = 0;
  // On success stores the link's target in `target` and returns its length.
  virtual ssize_t readlink(const std::string& path, std::string& target) = 0;
  // On success stores the entry names of the folder, without "." and "..", in
  // the order the file system returns them, and returns 0.
  virtual int listDirectory(const std::string& path, std::vector<std::string>& names) = 0;
  // As listDirectory, with `types[i]` the type the folder records for
  // `names[i]` (DT_REG, DT_DIR, DT_LNK, ...; DT_UNKNOWN where it records none,
  // so the caller must look). A link's type is the link's, not its target's.
  // This default records none.
  virtual int listDirectoryTyped(const std::string& path, std::vector<std::string>& names,
                                 std::vector<unsigned char>& types);

  // The process-wide real file system.
  static FileSystem& real();
};

}  // namespace vorna::storage
