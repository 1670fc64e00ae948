#include "storage/DurableChanges.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"
#include "storage/PathNames.h"
#include "storage/RandomUuid.h"
#include "storage/UniqueFd.h"

namespace vorna::storage {

void DurableChanges::writeNewFile(const std::string& path, std::string_view bytes, mode_t mode) {
  UniqueFd fd(fs_, fs_.open(path, O_WRONLY | O_CREAT | O_EXCL, mode));
  if (!fd) {
    throw FileOpError::fromErrno("open", path);
  }
  try {
    writeAll(fd.get(), bytes, path, fs_);
    if (fs_.fsync(fd.get()) != 0) {
      throw FileOpError::fromErrno("fsync", path);
    }
  } catch (const FileOpError&) {
    // The exclusive open made this file, so removing it loses nobody's bytes;
    // left behind, a part of them could pass for a whole version.
    fd.reset();
    fs_.unlink(path);
    throw;
  }
  // The bytes are on disk once fsync returned; a failing close cannot undo that.
}

void DurableChanges::flushFolder(const std::string& folder) {
  UniqueFd fd(fs_, fs_.open(folder, O_RDONLY | O_DIRECTORY, 0));
  if (!fd) {
    throw FileOpError::fromErrno("open", folder);
  }
  if (fs_.fsync(fd.get()) != 0) {
    throw FileOpError::fromErrno("fsync", folder);
  }
}

void DurableChanges::stage(const std::string& path, std::string_view bytes, mode_t mode) {
  writeNewFile(path, bytes, mode);
}

void DurableChanges::createExclusively(const std::string& path, std::string_view bytes,
                                       mode_t mode) {
  writeNewFile(path, bytes, mode);
  try {
    flushFolder(parentFolder(path));
  } catch (const FileOpError&) {
    fs_.unlink(path);
    throw;
  }
}

void DurableChanges::replace(const std::string& path, std::string_view bytes, mode_t mode) {
  const std::string folder = parentFolder(path);
  const std::string temporary = joinPath(folder, ".tmp-" + randomUuid());
  writeNewFile(temporary, bytes, mode);
  // The temporary file's bytes are flushed before the rename can reach the
  // disk: renaming unflushed bytes over a file may leave it empty after a power
  // cut.
  if (fs_.rename(temporary, path) != 0) {
    FileOpError error = FileOpError::fromErrno("rename", temporary);
    fs_.unlink(temporary);
    throw error;
  }
  flushFolder(folder);
}

void DurableChanges::append(const std::string& path, std::string_view bytes) {
  UniqueFd fd(fs_, fs_.open(path, O_WRONLY | O_APPEND, 0));
  if (!fd) {
    throw FileOpError::fromErrno("open", path);
  }
  writeAll(fd.get(), bytes, path, fs_);
  if (fs_.fsync(fd.get()) != 0) {
    throw FileOpError::fromErrno("fsync", path);
  }
}

void DurableChanges::exchange(const std::string& a, const std::string& b) {
  if (fs_.exchange(a, b) != 0) {
    throw FileOpError::fromErrno(kSwapOp, a);
  }
}

void DurableChanges::moveIntoFolder(const std::string& source, const std::string& destination,
                                    AcrossFileSystems across) {
  struct stat st {};
  const std::string folder = parentFolder(destination);
  if (renameWithoutReplacing(source, destination)) {
    try {
      flushFolder(folder);
    } catch (const FileOpError&) {
      // Back where it was, unless something took its old name meanwhile.
      if (fs_.lstat(source, &st) != 0) {
        fs_.rename(destination, source);
      }
      throw;
    }
    return;
  }
  const int code = errno;
  if (code != EXDEV || across == AcrossFileSystems::refuse || fs_.lstat(source, &st) != 0 ||
      !S_ISREG(st.st_mode)) {
    throw FileOpError::syscall("rename", code, source);
  }
  writeNewFile(destination, readFileWhole(source, fs_), 0644);
  // The copy must be durable under its new name before the source can go: the
  // two folders reach the disk independently.
  try {
    flushFolder(folder);
  } catch (const FileOpError&) {
    fs_.unlink(destination);
    throw;
  }
  if (fs_.unlink(source) != 0) {
    throw FileOpError::fromErrno("unlink", source);
  }
  // With no rename to tie the two folders, this flush is also what carries the
  // source folder's earlier changes (a save's exchange).
  flushFolder(parentFolder(source));
}

bool DurableChanges::renameWithoutReplacing(const std::string& source,
                                            const std::string& destination) {
  if (fs_.renameNoReplace(source, destination) == 0) {
    return true;
  }
  if (errno == EEXIST) {
    throw FileOpError::wouldOverwrite(destination);
  }
  if (errno != EINVAL) {
    return false;
  }
  // rename(2) would silently replace a file, or an empty folder, there.
  struct stat st {};
  if (fs_.lstat(destination, &st) == 0) {
    throw FileOpError::wouldOverwrite(destination);
  }
  return fs_.rename(source, destination) == 0;
}

void DurableChanges::makeFolder(const std::string& path, mode_t mode,
                                const std::function<void(const std::string&)>& made) {
  struct stat st {};
  if (fs_.stat(path, &st) == 0 && S_ISDIR(st.st_mode)) {
    return;
  }
  const std::string parent = parentFolder(path);
  // Told before the flush, so that a watcher hears of the folder before it
  // can see it appear.
  auto finish = [&] {
    if (made) {
      made(path);
    }
    flushInParent(path, parent);
  };
  if (fs_.mkdir(path, mode) != 0) {
    int code = errno;
    // Made from the top down, so that what stands in the way is what is named.
    if ((code == ENOENT || code == ENOTDIR) && parent != path) {
      makeFolder(parent, mode, made);
      if (fs_.mkdir(path, mode) == 0) {
        finish();
        return;
      }
      code = errno;
    }
    // Another process may have made it meanwhile; only a folder will do.
    if (code == EEXIST && fs_.stat(path, &st) == 0 && S_ISDIR(st.st_mode)) {
      return;
    }
    throw FileOpError::syscall("mkdir", code, path);
  }
  finish();
}

void DurableChanges::flushInParent(const std::string& folder, const std::string& parent) {
  try {
    flushFolder(parent);
  } catch (const FileOpError&) {
    fs_.rmdir(folder);
    throw;
  }
}

}  // namespace vorna::storage
