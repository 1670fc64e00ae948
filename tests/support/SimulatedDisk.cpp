#include "support/SimulatedDisk.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

namespace vorna::testing {
namespace {

// What a power cut may leave of a file whose bytes are `now` and were
// `flushed` at its last flush (rule 1): the flushed bytes followed by none,
// half or all of the rest; after a truncation also nothing or half of the new.
std::vector<std::string> survivingContents(const std::string& flushed, const std::string& now) {
  std::vector<std::string> contents{flushed, now};
  if (now.starts_with(flushed)) {
    contents.push_back(now.substr(0, flushed.size() + (now.size() - flushed.size()) / 2));
  } else {
    contents.push_back("");
    contents.push_back(now.substr(0, now.size() / 2));
  }
  std::sort(contents.begin(), contents.end());
  contents.erase(std::unique(contents.begin(), contents.end()), contents.end());
  return contents;
}

int fail(int code) {
  errno = code;
  return -1;
}

}  // namespace

bool SimulatedDisk::Change::isEntryChange() const {
  return kind == Kind::link || kind == Kind::unlink || kind == Kind::rename ||
         kind == Kind::exchange;
}

SimulatedDisk::SimulatedDisk() {
  nodes_.push_back(Node{.folder = true});
  durable_ = nodes_;
}

// ---- Looking up paths ----

int SimulatedDisk::lookup(const std::string& path, Id& out) const {
  if (path.empty() || path[0] != '/') {
    return ENOENT;
  }
  std::vector<Id> trail{0};
  size_t start = 1;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) {
      end = path.size();
    }
    std::string_view part(path.data() + start, end - start);
    start = end + 1;
    if (part.empty() || part == ".") {
      continue;
    }
    if (part == "..") {
      if (trail.size() > 1) {
        trail.pop_back();
      }
      continue;
    }
    const Node& here = nodes_[trail.back()];
    if (!here.folder) {
      return ENOTDIR;
    }
    auto found = here.entries.find(std::string(part));
    if (found == here.entries.end()) {
      return ENOENT;
    }
    trail.push_back(found->second);
  }
  if (path.back() == '/' && !nodes_[trail.back()].folder) {
    return ENOTDIR;
  }
  out = trail.back();
  return 0;
}

int SimulatedDisk::lookupParent(const std::string& path, Id& folder, std::string& name) const {
  std::string trimmed = path;
  while (trimmed.size() > 1 && trimmed.back() == '/') {
    trimmed.pop_back();
  }
  size_t slash = trimmed.rfind('/');
  if (slash == std::string::npos) {
    return ENOENT;
  }
  name = trimmed.substr(slash + 1);
  if (name.empty()) {
    return EEXIST;  // the root
  }
  if (name == "." || name == "..") {
    return EINVAL;
  }
  if (int error = lookup(slash == 0 ? "/" : trimmed.substr(0, slash), folder)) {
    return error;
  }
  return nodes_[folder].folder ? 0 : ENOTDIR;
}

int SimulatedDisk::lookupEntry(const std::string& path, Id& folder, std::string& name,
                               Id& node) const {
  if (int error = lookupParent(path, folder, name)) {
    return error;
  }
  auto entry = nodes_[folder].entries.find(name);
  if (entry == nodes_[folder].entries.end()) {
    return ENOENT;
  }
  node = entry->second;
  return 0;
}

// ---- Changes ----

void SimulatedDisk::apply(std::vector<Node>& nodes, const Change& change) {
  switch (change.kind) {
    case Change::Kind::write: {
      std::string& data = nodes[change.node].data;
      if (data.size() < change.offset + change.bytes.size()) {
        data.resize(change.offset + change.bytes.size());
      }
      data.replace(change.offset, change.bytes.size(), change.bytes);
      break;
    }
    case Change::Kind::truncate:
      nodes[change.node].data.clear();
      break;
    case Change::Kind::link:
      nodes[change.folder].entries[change.name] = change.node;
      break;
    case Change::Kind::unlink:
      nodes[change.folder].entries.erase(change.name);
      break;
    case Change::Kind::rename: {
      auto& from = nodes[change.folder].entries;
      auto moved = from.find(change.name);
      if (moved != from.end()) {
        Id node = moved->second;
        from.erase(moved);
        nodes[change.otherFolder].entries[change.otherName] = node;
      }
      break;
    }
    case Change::Kind::exchange:
      std::swap(nodes[change.folder].entries[change.name],
                nodes[change.otherFolder].entries[change.otherName]);
      break;
    case Change::Kind::flush:
      break;
  }
}

void SimulatedDisk::make(Change change) {
  apply(nodes_, change);
  changes_.push_back(std::move(change));
}

SimulatedDisk::Id SimulatedDisk::newNode(bool folder, dev_t device) {
  nodes_.push_back(Node{.folder = folder, .device = device});
  return static_cast<Id>(nodes_.size() - 1);
}

void SimulatedDisk::fill(Id id, struct stat* out) const {
  const Node& node = nodes_[id];
  std::memset(out, 0, sizeof *out);
  out->st_mode = node.folder ? S_IFDIR | 0755 : S_IFREG | 0644;
  out->st_ino = id + 1;
  out->st_dev = node.device;
  out->st_nlink = 1;
  out->st_uid = ::getuid();
  out->st_gid = ::getgid();
  out->st_size = static_cast<off_t>(node.folder ? 4096 : node.data.size());
  out->st_blksize = 4096;
  out->st_mtim.tv_sec = 1'700'000'000;
}

// ---- The seam ----

int SimulatedDisk::open(const std::string& path, int flags, mode_t) {
  std::lock_guard lock(mutex_);
  const bool writable = (flags & O_ACCMODE) != O_RDONLY;
  Id id = 0;
  int error = lookup(path, id);
  if (error == 0) {
    const Node& node = nodes_[id];
    if ((flags & O_CREAT) && (flags & O_EXCL)) {
      return fail(EEXIST);
    }
    if (node.folder && writable) {
      return fail(EISDIR);
    }
    if (!node.folder && (flags & O_DIRECTORY)) {
      return fail(ENOTDIR);
    }
    if ((flags & O_TRUNC) && writable && !node.data.empty()) {
      make({.kind = Change::Kind::truncate, .node = id});
    }
  } else if (error == ENOENT && (flags & O_CREAT)) {
    Id folder = 0;
    std::string name;
    if (int parentError = lookupParent(path, folder, name)) {
      return fail(parentError);
    }
    id = newNode(false, nodes_[folder].device);
    make({.kind = Change::Kind::link, .node = id, .folder = folder, .name = name});
  } else {
    return fail(error);
  }
  int fd = nextFd_++;
  open_[fd] = OpenFile{id, 0, writable, (flags & O_APPEND) != 0};
  return fd;
}

int SimulatedDisk::close(int fd) {
  std::lock_guard lock(mutex_);
  return open_.erase(fd) == 1 ? 0 : fail(EBADF);
}

ssize_t SimulatedDisk::read(int fd, void* buffer, size_t count) {
  std::lock_guard lock(mutex_);
  auto file = open_.find(fd);
  if (file == open_.end()) {
    return fail(EBADF);
  }
  const Node& node = nodes_[file->second.node];
  if (node.folder) {
    return fail(EISDIR);
  }
  if (file->second.offset >= node.data.size()) {
    return 0;
  }
  size_t got = std::min(count, node.data.size() - file->second.offset);
  std::memcpy(buffer, node.data.data() + file->second.offset, got);
  file->second.offset += got;
  return static_cast<ssize_t>(got);
}

ssize_t SimulatedDisk::write(int fd, const void* buffer, size_t count) {
  std::lock_guard lock(mutex_);
  auto file = open_.find(fd);
  if (file == open_.end() || !file->second.writable) {
    return fail(EBADF);
  }
  if (file->second.append) {
    file->second.offset = nodes_[file->second.node].data.size();
  }
  make({.kind = Change::Kind::write,
        .node = file->second.node,
        .offset = file->second.offset,
        .bytes = std::string(static_cast<const char*>(buffer), count)});
  file->second.offset += count;
  return static_cast<ssize_t>(count);
}

int SimulatedDisk::fsync(int fd) {
  std::lock_guard lock(mutex_);
  auto file = open_.find(fd);
  if (file == open_.end()) {
    return fail(EBADF);
  }
  make({.kind = Change::Kind::flush, .node = file->second.node});
  return 0;
}

int SimulatedDisk::fstat(int fd, struct stat* out) {
  std::lock_guard lock(mutex_);
  auto file = open_.find(fd);
  if (file == open_.end()) {
    return fail(EBADF);
  }
  fill(file->second.node, out);
  return 0;
}

int SimulatedDisk::move(const std::string& from, const std::string& to, bool replace) {
  std::lock_guard lock(mutex_);
  Id fromFolder = 0;
  Id toFolder = 0;
  Id moved = 0;
  std::string fromName;
  std::string toName;
  if (int error = lookupEntry(from, fromFolder, fromName, moved)) {
    return fail(error);
  }
  if (int error = lookupParent(to, toFolder, toName)) {
    return fail(error);
  }
  if (nodes_[fromFolder].device != nodes_[toFolder].device) {
    return fail(EXDEV);
  }
  auto target = nodes_[toFolder].entries.find(toName);
  if (target != nodes_[toFolder].entries.end()) {
    if (!replace) {
      return fail(EEXIST);
    }
    if (target->second == moved) {
      return 0;
    }
    const Node& there = nodes_[target->second];
    if (nodes_[moved].folder != there.folder) {
      return fail(there.folder ? EISDIR : ENOTDIR);
    }
    if (there.folder && !there.entries.empty()) {
      return fail(ENOTEMPTY);
    }
  }
  if (nodes_[moved].folder) {
    // A folder cannot move below itself.
    std::vector<Id> below{moved};
    while (!below.empty()) {
      Id next = below.back();
      below.pop_back();
      if (next == toFolder) {
        return fail(EINVAL);
      }
      for (const auto& [name, child] : nodes_[next].entries) {
        if (nodes_[child].folder) {
          below.push_back(child);
        }
      }
    }
  }
  make({.kind = Change::Kind::rename,
        .folder = fromFolder,
        .otherFolder = toFolder,
        .name = fromName,
        .otherName = toName});
  return 0;
}

int SimulatedDisk::exchange(const std::string& a, const std::string& b) {
  std::lock_guard lock(mutex_);
  Id folderA = 0;
  Id folderB = 0;
  Id node = 0;
  std::string nameA;
  std::string nameB;
  if (int error = lookupEntry(a, folderA, nameA, node)) {
    return fail(error);
  }
  if (int error = lookupEntry(b, folderB, nameB, node)) {
    return fail(error);
  }
  if (nodes_[folderA].device != nodes_[folderB].device) {
    return fail(EXDEV);
  }
  make({.kind = Change::Kind::exchange,
        .folder = folderA,
        .otherFolder = folderB,
        .name = nameA,
        .otherName = nameB});
  return 0;
}

int SimulatedDisk::remove(const std::string& path, bool folder) {
  std::lock_guard lock(mutex_);
  Id parent = 0;
  Id node = 0;
  std::string name;
  if (int error = lookupEntry(path, parent, name, node)) {
    return fail(error);
  }
  if (nodes_[node].folder != folder) {
    return fail(folder ? ENOTDIR : EISDIR);
  }
  if (folder && !nodes_[node].entries.empty()) {
    return fail(ENOTEMPTY);
  }
  make({.kind = Change::Kind::unlink, .folder = parent, .name = name});
  return 0;
}

int SimulatedDisk::mkdir(const std::string& path, mode_t) {
  std::lock_guard lock(mutex_);
  Id folder = 0;
  std::string name;
  if (int error = lookupParent(path, folder, name)) {
    return fail(error);
  }
  if (nodes_[folder].entries.contains(name)) {
    return fail(EEXIST);
  }
  Id id = newNode(true, nodes_[folder].device);
  make({.kind = Change::Kind::link, .node = id, .folder = folder, .name = name});
  return 0;
}

int SimulatedDisk::stat(const std::string& path, struct stat* out) {
  std::lock_guard lock(mutex_);
  Id id = 0;
  if (int error = lookup(path, id)) {
    return fail(error);
  }
  fill(id, out);
  return 0;
}

int SimulatedDisk::chmod(const std::string& path, mode_t) {
  std::lock_guard lock(mutex_);
  Id id = 0;
  int error = lookup(path, id);
  return error == 0 ? 0 : fail(error);
}

ssize_t SimulatedDisk::readlink(const std::string& path, std::string&) {
  std::lock_guard lock(mutex_);
  Id id = 0;
  int error = lookup(path, id);
  return fail(error == 0 ? EINVAL : error);
}

int SimulatedDisk::listDirectory(const std::string& path, std::vector<std::string>& names) {
  std::lock_guard lock(mutex_);
  Id id = 0;
  if (int error = lookup(path, id)) {
    return fail(error);
  }
  if (!nodes_[id].folder) {
    return fail(ENOTDIR);
  }
  names.clear();
  for (const auto& [name, child] : nodes_[id].entries) {
    names.push_back(name);
  }
  return 0;
}

// ---- Setup and inspection ----

void SimulatedDisk::writeFile(const std::string& path, std::string_view bytes) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash), 0755);
  }
  int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  write(fd, bytes.data(), bytes.size());
  close(fd);
}

std::optional<std::string> SimulatedDisk::readFile(const std::string& path) const {
  std::lock_guard lock(mutex_);
  Id id = 0;
  if (lookup(path, id) != 0 || nodes_[id].folder) {
    return std::nullopt;
  }
  return nodes_[id].data;
}

std::map<std::string, std::string> SimulatedDisk::filesBelow(const std::string& folder) const {
  std::lock_guard lock(mutex_);
  std::map<std::string, std::string> files;
  Id top = 0;
  if (lookup(folder, top) == 0) {
    walkBelow(nodes_, top, folder, [&](Id id, const std::string& path) {
      if (!nodes_[id].folder) {
        files[path] = nodes_[id].data;
      }
    });
  }
  return files;
}

void SimulatedDisk::mountSeparateFileSystem(const std::string& path) {
  std::lock_guard lock(mutex_);
  Id top = 0;
  if (lookup(path, top) != 0) {
    return;
  }
  const dev_t device = nextDevice_++;
  nodes_[top].device = device;
  walkBelow(nodes_, top, path, [&](Id id, const std::string&) { nodes_[id].device = device; });
}

void SimulatedDisk::markDurable() {
  std::lock_guard lock(mutex_);
  durable_ = nodes_;
  changes_.clear();
}

size_t SimulatedDisk::changeCount() const {
  std::lock_guard lock(mutex_);
  return changes_.size();
}

void SimulatedDisk::walkBelow(const std::vector<Node>& nodes, Id folder, const std::string& path,
                              const std::function<void(Id, const std::string&)>& visit) {
  for (const auto& [name, child] : nodes[folder].entries) {
    visit(child, path + "/" + name);
    walkBelow(nodes, child, path + "/" + name, visit);
  }
}

std::string SimulatedDisk::describe() const {
  std::lock_guard lock(mutex_);
  std::string out;
  walkBelow(nodes_, 0, "", [&](Id id, const std::string& path) {
    const Node& node = nodes_[id];
    out += node.folder ? path + "/\n"
                       : path + " " + std::to_string(node.data.size()) + ":" + node.data + "\n";
  });
  return out;
}

// ---- Crash states ----

void SimulatedDisk::forEachCrashState(
    size_t count, const std::function<bool(SimulatedDisk& state)>& visit) const {
  std::vector<Node> base;
  std::vector<Change> changes;
  dev_t nextDevice = 0;
  {
    std::lock_guard lock(mutex_);
    base = durable_;
    // Nodes made since markDurable start out empty, as a power cut finds them.
    for (size_t id = base.size(); id < nodes_.size(); ++id) {
      base.push_back(Node{.folder = nodes_[id].folder, .device = nodes_[id].device});
    }
    changes.assign(changes_.begin(), changes_.begin() + static_cast<ptrdiff_t>(count));
    nextDevice = nextDevice_;
  }

  // Each file's bytes now and at its last flush; which entry changes a folder
  // flush has pinned.
  std::vector<Node> now = base;
  std::vector<std::string> flushed(base.size());
  for (size_t id = 0; id < base.size(); ++id) {
    flushed[id] = base[id].data;
  }
  std::vector<const Change*> entryChanges;
  std::vector<bool> pinned;
  auto touches = [](const Change& change, Id folder) {
    return change.folder == folder ||
           ((change.kind == Change::Kind::rename || change.kind == Change::Kind::exchange) &&
            change.otherFolder == folder);
  };
  for (const Change& change : changes) {
    if (change.isEntryChange()) {
      entryChanges.push_back(&change);
      pinned.push_back(false);
    } else if (change.kind != Change::Kind::flush) {
      apply(now, change);
    } else if (base[change.node].folder) {
      for (size_t i = 0; i < entryChanges.size(); ++i) {
        pinned[i] = pinned[i] || touches(*entryChanges[i], change.node);
      }
    } else {
      flushed[change.node] = now[change.node].data;
    }
  }

  // For one choice of surviving entry changes, every choice of file contents.
  auto visitContents = [&](const std::vector<bool>& keep) {
    std::vector<Node> tree = base;
    for (size_t i = 0; i < entryChanges.size(); ++i) {
      if (keep[i]) {
        apply(tree, *entryChanges[i]);
      }
    }
    std::set<Id> reachable;
    walkBelow(tree, 0, "", [&](Id id, const std::string&) {
      if (!tree[id].folder) {
        reachable.insert(id);
      }
    });
    std::vector<std::pair<Id, std::vector<std::string>>> choices;
    for (Id id : reachable) {
      choices.emplace_back(id, survivingContents(flushed[id], now[id].data));
    }
    std::vector<size_t> pick(choices.size(), 0);
    for (;;) {
      SimulatedDisk state;
      state.nodes_ = tree;
      for (size_t i = 0; i < choices.size(); ++i) {
        state.nodes_[choices[i].first].data = choices[i].second[pick[i]];
      }
      state.durable_ = state.nodes_;
      state.nextDevice_ = nextDevice;
      if (!visit(state)) {
        return false;
      }
      size_t digit = 0;
      while (digit < pick.size() && ++pick[digit] == choices[digit].second.size()) {
        pick[digit++] = 0;
      }
      if (digit == pick.size()) {
        return true;
      }
    }
  };

  // Per folder a prefix of its changes survives (rule 5); a change that
  // touches two folders survives in both or neither (rule 4); a pinned change
  // always survives. Leaving a change out closes its folders to later ones.
  std::vector<bool> keep(entryChanges.size(), false);
  std::function<bool(size_t, std::vector<Id>&)> choose = [&](size_t i, std::vector<Id>& closed) {
    if (i == entryChanges.size()) {
      return visitContents(keep);
    }
    const Change& change = *entryChanges[i];
    const bool blocked = std::any_of(closed.begin(), closed.end(),
                                     [&](Id folder) { return touches(change, folder); });
    if (!blocked) {
      keep[i] = true;
      if (!choose(i + 1, closed)) {
        return false;
      }
    }
    if (!pinned[i]) {
      keep[i] = false;
      size_t before = closed.size();
      closed.push_back(change.folder);
      if (change.kind == Change::Kind::rename || change.kind == Change::Kind::exchange) {
        closed.push_back(change.otherFolder);
      }
      bool more = choose(i + 1, closed);
      closed.resize(before);
      return more;
    }
    return true;
  };
  std::vector<Id> closed;
  choose(0, closed);
}

}  // namespace vorna::testing
