#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "storage/FileSystem.h"

namespace vorna::testing {

// A file system in memory behind the seam that knows, besides what it holds,
// what a power cut could still take away: for each file the bytes written
// since its last flush, for each folder the entries made, renamed, exchanged
// or removed since its last flush. From that it builds every state a power cut
// may leave after any number of changes since markDurable(), each as a disk of
// its own on which the next start of the host can run.
//
// The states follow these rules, each with where it comes from:
//  1. A file's bytes last only once the file is flushed. Bytes written since
//     are lost or cut short, each file on its own and whatever became of its
//     name: after the flushed bytes come none, half or all of the rest; a file
//     truncated since holds its flushed bytes, nothing, or half or all of the
//     new ones. Never bytes that were not written.
//     Source: fsync(2). ext4 with data=ordered writes a file's data before the
//     metadata that points at it, so a crash shows no stale blocks (kernel
//     Documentation/admin-guide/ext4.rst), while delayed allocation lets a
//     name outlive bytes not yet flushed (ALICE, OSDI '14, table 1: on ext4
//     appends are neither atomic nor ordered before later operations).
//  2. Renaming a file over another does not flush the renamed file's bytes.
//     Source: ext4.rst, auto_da_alloc: a heuristic that noauto_da_alloc turns
//     off; not relied on.
//  3. A folder's entries last only once the folder is flushed. Flushing a file
//     does not make its name last, and a new folder is an entry of its parent.
//     Source: fsync(2): "an explicit fsync() on a file descriptor for the
//     directory is also needed".
//  4. A rename or an exchange is atomic: it lasts in every folder it touched or
//     in none, and it lasts once any of them is flushed.
//     Source: rename(2) and renameat2(2); ext4 journals each as one handle
//     (ALICE, table 1: directory operations are atomic on ext4).
//  5. Within one folder, changes last in the order they were made: a change
//     lasts only with every earlier change of its folder.
//     Source: ext4's journal commits in order (ALICE, table 1: ext4 keeps
//     directory operations in order).
//  6. Across folders nothing is ordered but through rule 4: a folder's flush
//     is not taken to carry another folder's changes. ext4's single journal
//     happens to commit them together; the host does not lean on that, just
//     as CrashMonkey (OSDI '18) holds a file system only to what was
//     explicitly persisted.
//  7. Permission bits and times are not modelled: stat reports 0644 or 0755.
//
// Flushing a folder pins every change made so far in it (and, by rules 4 and
// 5, every change those depend on); a state keeps, per folder, a prefix of its
// unpinned changes, and per file one of the surviving contents of rule 1.
//
// Paths are absolute; symbolic links are not modelled. Safe to call from any
// thread.
class SimulatedDisk final : public storage::FileSystem {
 public:
  SimulatedDisk();
  SimulatedDisk(const SimulatedDisk&) = delete;
  SimulatedDisk& operator=(const SimulatedDisk&) = delete;

  // Setup and inspection for tests. writeFile makes missing folders; readFile
  // finds nothing unless a regular file is there.
  void writeFile(const std::string& path, std::string_view bytes);
  std::optional<std::string> readFile(const std::string& path) const;
  // Every regular file below `folder`, by path; none for a missing folder.
  std::map<std::string, std::string> filesBelow(const std::string& folder) const;

  // Makes the existing folder `path` the top of a file system of its own:
  // stat reports another device from there down, and renames and exchanges
  // across its edge fail with EXDEV.
  void mountSeparateFileSystem(const std::string& path);

  // Takes everything so far as on disk: the state a sequence under test starts
  // from. Clears the record of changes. (A flush is taken away by wrapping the
  // disk in a FaultInjectingFileSystem that skips it.)
  void markDurable();
  // The number of changes (writes, truncations, entry changes, flushes) since
  // markDurable.
  size_t changeCount() const;

  // Calls `visit` with every state a power cut may leave once the first
  // `changes` changes since markDurable have been made; each is a fresh disk
  // on which everything is durable. Stops early when `visit` returns false.
  // `visit` must not use this disk.
  void forEachCrashState(size_t changes,
                         const std::function<bool(SimulatedDisk& state)>& visit) const;
  // A text naming every path and the bytes of every file: equal for equal
  // states.
  std::string describe() const;

  int open(const std::string& path, int flags, mode_t mode) override;
  int close(int fd) override;
  ssize_t read(int fd, void* buffer, size_t count) override;
  ssize_t write(int fd, const void* buffer, size_t count) override;
  int fsync(int fd) override;
  int fstat(int fd, struct stat* out) override;
  int rename(const std::string& from, const std::string& to) override {
    return move(from, to, true);
  }
  int renameNoReplace(const std::string& from, const std::string& to) override {
    return move(from, to, false);
  }
  int exchange(const std::string& a, const std::string& b) override;
  int unlink(const std::string& path) override { return remove(path, /*folder=*/false); }
  int mkdir(const std::string& path, mode_t mode) override;
  int rmdir(const std::string& path) override { return remove(path, /*folder=*/true); }
  int stat(const std::string& path, struct stat* out) override;
  int lstat(const std::string& path, struct stat* out) override { return stat(path, out); }
  int chmod(const std::string& path, mode_t mode) override;
  ssize_t readlink(const std::string& path, std::string& target) override;
  int listDirectory(const std::string& path, std::vector<std::string>& names) override;

 private:
  using Id = uint32_t;
  struct Node {
    bool folder = false;
    dev_t device = 1;
    std::string data{};                   // a file's bytes
    std::map<std::string, Id> entries{};  // a folder's entries
  };
  struct Change {
    enum class Kind { write, truncate, link, unlink, rename, exchange, flush } kind;
    Id node = 0;         // write, truncate, flush: the node; link: the new node
    Id folder = 0;       // link, unlink; rename and exchange: the first name's folder
    Id otherFolder = 0;  // rename and exchange: the second name's folder
    std::string name{};
    std::string otherName{};
    uint64_t offset = 0;  // write
    std::string bytes{};  // write
    bool isEntryChange() const;
  };
  struct OpenFile {
    Id node;
    uint64_t offset;
    bool writable;
    bool append;  // O_APPEND: every write lands at the end
  };

  // Finds the node at `path`, or the folder and last name of `path`; errno
  // values as the system's calls give them.
  int lookup(const std::string& path, Id& out) const;
  int lookupParent(const std::string& path, Id& folder, std::string& name) const;
  // As lookupParent, and the node of the entry there (ENOENT when none).
  int lookupEntry(const std::string& path, Id& folder, std::string& name, Id& node) const;
  int remove(const std::string& path, bool folder);
  // rename(2), or renameat2 with RENAME_NOREPLACE when `replace` is false.
  int move(const std::string& from, const std::string& to, bool replace);
  static void apply(std::vector<Node>& nodes, const Change& change);
  // Records and applies a change; needs mutex_.
  void make(Change change);
  Id newNode(bool folder, dev_t device);
  void fill(Id id, struct stat* out) const;
  // Calls `visit` with every node below `folder` and its path, each folder
  // before what it holds, in name order.
  static void walkBelow(const std::vector<Node>& nodes, Id folder, const std::string& path,
                        const std::function<void(Id, const std::string&)>& visit);

  mutable std::mutex mutex_;
  std::vector<Node> nodes_;    // as things are now; a node's id is its index, the root is 0
  std::vector<Node> durable_;  // as they were at markDurable
  std::vector<Change> changes_;
  std::map<int, OpenFile> open_;
  int nextFd_ = 3;
  dev_t nextDevice_ = 2;
};

}  // namespace vorna::testing
