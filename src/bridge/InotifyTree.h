#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace vorna::bridge {

// One inotify instance with a watch on every non-hidden folder of a tree, and the
// map from watch descriptors to the folders' paths.
//
// Folders, never files, are watched: a watch follows an inode, so a watch on a
// page that is saved by exchanging it with a staged copy would go on reporting
// the displaced copy under its new name. Symbolic links are never followed, so a
// link cannot pull an outside folder, or a loop, into the tree. Hidden folders
// (names starting with ".") are never watched: nothing inside them is reported.
//
// Platform code, like inotify itself: the walk lists each folder through its own
// descriptor (readdir and fstatat), calls the file-system seam has no form of.
//
// Folders that get no watch, because the watch limit is reached (ENOSPC) or
// no inotify instance could be had at all, are remembered as unwatched: their
// owner has to look at them itself.
//
// Every method may be called from any thread: the descriptor map sits under one
// lock so that a watch and the folder path it stands for never disagree.
class InotifyTree {
 public:
  // The two inotify calls that can be refused, replaceable so that tests can
  // refuse them: init as inotify_init1, addWatch as inotify_add_watch.
  struct Calls {
    std::function<int(int flags)> init;
    std::function<int(int fd, const std::string& folder, uint32_t mask)> addWatch;
    static Calls real();
  };

  // One decoded inotify record.
  struct Record {
    int wd = -1;
    uint32_t mask = 0;
    std::string name;  // empty for records about the watched folder itself
  };

  // Called for every item found below a folder being watched, with the lstat data
  // of the item (so a link is seen as a link).
  using Visitor = std::function<void(const std::string& path, const struct stat& info)>;

  // Opens the inotify instance; valid() is false when that fails and
  // openError() holds the errno. Then every folder met is unwatched.
  explicit InotifyTree(Calls calls = Calls::real());
  ~InotifyTree();
  InotifyTree(const InotifyTree&) = delete;
  InotifyTree& operator=(const InotifyTree&) = delete;

  bool valid() const { return fd_ >= 0; }
  int openError() const { return openError_; }
  // Readable (for poll) whenever records are waiting; never blocks on read.
  int fd() const { return fd_; }

  // Watches `folder` and every non-hidden folder below it, depth first, each one
  // before it is listed so that nothing created in between goes unseen, and calls
  // `visit` for every non-hidden item below `folder` (not for `folder` itself).
  // Item paths are the folder's path + "/" + names: below a canonical folder,
  // every path that is not a link is canonical too.
  // Returns the first folder that could not be watched because the watch limit
  // (ENOSPC) is reached; nothing when every watch could be added or failed for
  // another reason (a folder that vanished or cannot be read is skipped, and
  // without an instance every folder is unwatched without a word).
  std::optional<std::string> watchTree(const std::string& folder, const Visitor& visit);

  // Like watchTree(root, visit), and afterwards removes every watch the walk did
  // not meet again: used to resynchronise after records were lost.
  std::optional<std::string> rewatch(const std::string& root, const Visitor& visit);

  // The folder a live watch stands for; nothing for a descriptor this tree never
  // issued, has forgotten or has retired.
  std::optional<std::string> folderOf(int wd) const;
  // True for a descriptor removed by retireBelow or rewatch whose IN_IGNORED
  // record has not been forgotten yet: records still queued for it are stale.
  bool isRetired(int wd) const;
  // The kernel dropped the watch (IN_IGNORED): the descriptor is gone for good.
  void forget(int wd);
  // Removes the watches on `folder` and on every folder below it, for a folder
  // that has left its place: its records would otherwise carry its old path.
  // Unwatched folders among them are forgotten too.
  void retireBelow(const std::string& folder);

  // Whether `folder` was met by a walk and got no watch (see the class).
  bool isUnwatched(const std::string& folder) const;
  size_t unwatchedCount() const;

  // Reads every record waiting now, without blocking. An empty result when none
  // is waiting or the read fails.
  std::vector<Record> readAvailable();

  size_t watchCount() const;

 private:
  std::optional<std::string> walk(const std::string& folder, const Visitor& visit,
                                  std::unordered_set<int>* met);
  void addWatch(const std::string& folder, std::optional<std::string>& limitedAt,
                std::unordered_set<int>* met);
  // Caller holds lock_.
  void retireLocked(int wd);

  Calls calls_;
  int fd_ = -1;
  int openError_ = 0;

  mutable std::mutex lock_;
  std::unordered_map<int, std::string> folders_;  // live watch -> folder path
  std::unordered_set<int> retired_;               // removed by us, IN_IGNORED still due
  std::unordered_set<std::string> unwatched_;     // met, but without a watch
};

}  // namespace vorna::bridge
