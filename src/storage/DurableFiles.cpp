#include "storage/DurableFiles.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "storage/FileOpError.h"
#include "storage/UniqueFd.h"

namespace vorna::storage {
namespace {

constexpr size_t kReadChunk = 64 * 1024;

}  // namespace

using contracts::Bytes;

void writeAll(int fd, std::string_view bytes, const std::string& path, FileSystem& fs) {
  size_t offset = 0;
  while (offset < bytes.size()) {
    ssize_t written = fs.write(fd, bytes.data() + offset, bytes.size() - offset);
    if (written < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw FileOpError::fromErrno("write", path);
    }
    // A write that makes no progress would spin for ever; report it instead.
    if (written == 0) {
      throw FileOpError::shortWrite(path);
    }
    offset += static_cast<size_t>(written);
  }
}

Bytes readAll(int fd, const std::string& path, FileSystem& fs) {
  // Sized from fstat so a whole file lands in one allocation; the one spare
  // byte lets the read that sees the end return 0 without growing the buffer.
  // The loop still reads to the end, so a file that grows or shrinks meanwhile
  // is read as it is.
  struct stat st {};
  size_t size = kReadChunk;
  if (fs.fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size >= 0) {
    size = static_cast<size_t>(st.st_size) + 1;
  }
  Bytes result(size, '\0');
  size_t used = 0;
  for (;;) {
    if (used == result.size()) {
      result.resize(result.size() + std::max(result.size() / 2, kReadChunk));
    }
    ssize_t got = fs.read(fd, result.data() + used, result.size() - used);
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw FileOpError::fromErrno("read", path);
    }
    if (got == 0) {
      result.resize(used);
      return result;
    }
    used += static_cast<size_t>(got);
  }
}

UniqueFd openRegularFile(const std::string& path, FileSystem& fs) {
  UniqueFd fd(fs, fs.open(path, O_RDONLY, 0));
  if (!fd) {
    throw FileOpError::fromErrno("open", path);
  }
  struct stat info {};
  if (fs.fstat(fd.get(), &info) != 0) {
    throw FileOpError::fromErrno("fstat", path);
  }
  if (!S_ISREG(info.st_mode)) {
    throw FileOpError::notAFile(path);
  }
  return fd;
}

Bytes readFileWhole(const std::string& path, FileSystem& fs) {
  UniqueFd fd = openRegularFile(path, fs);
  return readAll(fd.get(), path, fs);
}

void copyPermissions(const std::string& from, const std::string& to, FileSystem& fs) {
  struct stat st {};
  if (fs.stat(from, &st) == 0) {
    fs.chmod(to, st.st_mode & 07777);
  }
}

void makeReadOnly(const std::string& path, FileSystem& fs) {
  fs.chmod(path, 0444);
}

}  // namespace vorna::storage
