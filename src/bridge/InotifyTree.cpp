#include "bridge/InotifyTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vorna::bridge {

namespace {

// Folder events only. IN_ATTRIB is included because touching a page changes its
// modification time without writing; IN_CLOSE_WRITE catches writers that
// truncate and rewrite through a descriptor opened earlier.
constexpr uint32_t kWatchMask = IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB |
                                IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR | IN_DONT_FOLLOW |
                                IN_EXCL_UNLINK;

std::string childPath(const std::string& folder, const std::string& name) {
  return folder.ends_with('/') ? folder + name : folder + "/" + name;
}

bool isBelow(const std::string& path, const std::string& folder) {
  return path == folder ||
         (path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/');
}

}  // namespace

InotifyTree::Calls InotifyTree::Calls::real() {
  return Calls{[](int flags) { return ::inotify_init1(flags); },
               [](int fd, const std::string& folder, uint32_t mask) {
                 return ::inotify_add_watch(fd, folder.c_str(), mask);
               }};
}

InotifyTree::InotifyTree(Calls calls) : calls_(std::move(calls)) {
  fd_ = calls_.init(IN_NONBLOCK | IN_CLOEXEC);
  if (fd_ < 0) {
    openError_ = errno;
  }
}

InotifyTree::~InotifyTree() {
  // Closing the instance releases all of its watches at once.
  if (fd_ >= 0) {
    ::close(fd_);
  }
}

std::optional<std::string> InotifyTree::watchTree(const std::string& folder, const Visitor& visit) {
  return walk(folder, visit, nullptr);
}

std::optional<std::string> InotifyTree::rewatch(const std::string& root, const Visitor& visit) {
  std::unordered_set<int> met;
  {
    // The walk meets every folder again and says anew which get no watch.
    std::lock_guard guard(lock_);
    unwatched_.clear();
  }
  auto limitedAt = walk(root, visit, &met);
  std::lock_guard guard(lock_);
  std::vector<int> stale;
  for (const auto& [wd, folder] : folders_) {
    if (!met.contains(wd)) {
      stale.push_back(wd);
    }
  }
  for (int wd : stale) {
    retireLocked(wd);
  }
  return limitedAt;
}

std::optional<std::string> InotifyTree::walk(const std::string& folder, const Visitor& visit,
                                             std::unordered_set<int>* met) {
  std::optional<std::string> limitedAt;
  std::vector<std::string> pending{folder};
  struct stat info {};
  while (!pending.empty()) {
    std::string current = std::move(pending.back());
    pending.pop_back();
    addWatch(current, limitedAt, met);
    // Listed through the folder's own descriptor and each item looked up
    // relative to it: a lookup by whole path would walk every ancestor again,
    // which is most of the cost of starting on a large tree.
    int folderFd = ::open(current.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folderFd < 0) {
      continue;  // gone or unreadable since its parent was listed
    }
    DIR* listing = ::fdopendir(folderFd);
    if (listing == nullptr) {
      ::close(folderFd);
      continue;
    }
    while (const dirent* entry = ::readdir(listing)) {
      if (entry->d_name[0] == '.') {
        continue;  // hidden, or "." and ".."
      }
      if (::fstatat(folderFd, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
        continue;  // removed since the listing; its own record reports that
      }
      std::string path = childPath(current, entry->d_name);
      visit(path, info);
      if (S_ISDIR(info.st_mode)) {
        pending.push_back(std::move(path));
      }
    }
    ::closedir(listing);
  }
  return limitedAt;
}

void InotifyTree::addWatch(const std::string& folder, std::optional<std::string>& limitedAt,
                           std::unordered_set<int>* met) {
  int wd = fd_ < 0 ? -1 : calls_.addWatch(fd_, folder, kWatchMask);
  if (wd < 0) {
    const bool limited = fd_ >= 0 && errno == ENOSPC;
    if (limited && !limitedAt) {
      limitedAt = folder;
    }
    if (limited || fd_ < 0) {
      std::lock_guard guard(lock_);
      unwatched_.insert(folder);
    }
    return;
  }
  // An inode already watched under another path (a rename we did not see) gets
  // its old descriptor back; the path is corrected here.
  std::lock_guard guard(lock_);
  unwatched_.erase(folder);
  folders_[wd] = folder;
  retired_.erase(wd);
  if (met != nullptr) {
    met->insert(wd);
  }
}

std::optional<std::string> InotifyTree::folderOf(int wd) const {
  std::lock_guard guard(lock_);
  auto found = folders_.find(wd);
  if (found == folders_.end()) {
    return std::nullopt;
  }
  return found->second;
}

bool InotifyTree::isRetired(int wd) const {
  std::lock_guard guard(lock_);
  return retired_.contains(wd);
}

void InotifyTree::forget(int wd) {
  std::lock_guard guard(lock_);
  folders_.erase(wd);
  retired_.erase(wd);
}

void InotifyTree::retireBelow(const std::string& folder) {
  std::lock_guard guard(lock_);
  std::vector<int> leaving;
  for (const auto& [wd, path] : folders_) {
    if (isBelow(path, folder)) {
      leaving.push_back(wd);
    }
  }
  for (int wd : leaving) {
    retireLocked(wd);
  }
  std::erase_if(unwatched_, [&](const std::string& path) { return isBelow(path, folder); });
}

bool InotifyTree::isUnwatched(const std::string& folder) const {
  std::lock_guard guard(lock_);
  return unwatched_.contains(folder);
}

size_t InotifyTree::unwatchedCount() const {
  std::lock_guard guard(lock_);
  return unwatched_.size();
}

void InotifyTree::retireLocked(int wd) {
  ::inotify_rm_watch(fd_, wd);
  folders_.erase(wd);
  retired_.insert(wd);
}

std::vector<InotifyTree::Record> InotifyTree::readAvailable() {
  std::vector<Record> records;
  // Aligned for inotify_event; large enough for hundreds of records per read.
  alignas(struct inotify_event) char buffer[64 * 1024];
  while (true) {
    ssize_t got = ::read(fd_, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      break;  // EAGAIN: drained
    }
    for (ssize_t offset = 0; offset < got;) {
      const auto* event = reinterpret_cast<const struct inotify_event*>(buffer + offset);
      Record record;
      record.wd = event->wd;
      record.mask = event->mask;
      if (event->len > 0) {
        record.name.assign(event->name, ::strnlen(event->name, event->len));
      }
      records.push_back(std::move(record));
      offset += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
    }
  }
  return records;
}

size_t InotifyTree::watchCount() const {
  std::lock_guard guard(lock_);
  return folders_.size();
}

}  // namespace vorna::bridge
