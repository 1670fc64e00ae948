#include "bridge/WorkspaceWatcher.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>
#include <thread>
#include <utility>

#include "bridge/InotifyTree.h"
#include "recovery/PathForms.h"
#include "storage/FileOpError.h"
#include "storage/Fingerprint.h"
#include "storage/PathNames.h"

namespace vorna::bridge {

using contracts::WorkspaceChange;
using Clock = std::chrono::steady_clock;

namespace {

void logLine(const std::string& text) {
  // One call per line, so lines of different threads do not interleave.
  std::fputs(("Vorna bridge: " + text + "\n").c_str(), stderr);
}

// `path` relative to `folder`: "" for the folder itself, nothing outside it.
std::optional<std::string> relativeTo(const std::string& path, const std::string& folder) {
  if (path == folder) {
    return std::string();
  }
  if (path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/') {
    return path.substr(folder.size() + 1);
  }
  return std::nullopt;
}

// Without a descriptor to wake it, the queue looks for `stopping` this often.
constexpr std::chrono::milliseconds kUnwokenPoll{100};

}  // namespace

// One run of watching, from start to stop. The queue thread holds it too, so
// a thread that stop could not wait for (stop called from the callback) still
// finds its descriptors open, sees `stopping`, and leaves without touching the
// watcher again.
struct WorkspaceWatcher::Session {
  explicit Session(InotifyTree::Calls calls) : tree(std::move(calls)) {
    wakeFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  }
  ~Session() {
    if (wakeFd >= 0) {
      ::close(wakeFd);
    }
  }

  void wake() {
    if (wakeFd >= 0) {
      uint64_t one = 1;
      [[maybe_unused]] ssize_t ignored = ::write(wakeFd, &one, sizeof one);
    }
  }

  // Some folders have no watch and must be looked at.
  bool polling() const { return !tree.valid() || tree.unwatchedCount() > 0; }

  // Several records for one path within a batch become one handling, with their
  // flags combined; the first record of an empty batch opens the latency window.
  void add(const std::string& path, uint32_t flags) {
    auto [slot, added] = batchIndex.try_emplace(path, batch.size());
    if (!added) {
      batch[slot->second].second |= flags;
      return;
    }
    if (batch.empty()) {
      deadline = Clock::now() + latency;
    }
    batch.emplace_back(path, flags);
  }

  void clearBatch() {
    batch.clear();
    batchIndex.clear();
  }

  InotifyTree tree;
  int wakeFd = -1;
  NoticeHandler onNotice;
  std::atomic<bool> stopping{false};
  std::atomic<bool> overflowRequested{false};
  std::thread thread;

  // Touched by the queue thread only (and by start before the thread exists).
  std::vector<std::pair<std::string, uint32_t>> batch;
  std::unordered_map<std::string, size_t> batchIndex;
  Clock::time_point deadline;
  Clock::time_point nextHot;
  Clock::time_point nextCold;
  bool told = false;
};

WorkspaceWatcher::WorkspaceWatcher(WorkspaceBoundary boundary, storage::FileSystem& fs)
    : WorkspaceWatcher(std::move(boundary), fs, Settings{}) {}

WorkspaceWatcher::WorkspaceWatcher(WorkspaceBoundary boundary, storage::FileSystem& fs,
                                   Settings settings)
    : boundary_(std::move(boundary)), fs_(fs), settings_(std::move(settings)) {}

WorkspaceWatcher::~WorkspaceWatcher() {
  stop();
}

void WorkspaceWatcher::start(ChangeHandler onChange, NoticeHandler onNotice) {
  stop();
  {
    std::lock_guard guard(lock_);
    onChange_ = std::move(onChange);
    startEventID_ = lastEventID_.load();
  }
  auto session = std::make_shared<Session>(settings_.inotify);
  session->onNotice = std::move(onNotice);
  if (!session->tree.valid()) {
    logLine("cannot watch " + boundary_.root() + " with inotify: " +
            storage::FileOpError::systemMessage(session->tree.openError()) + "; looking for changes in it instead");
    tell(*session, kNoInstanceNotice);
  }
  session->nextHot = Clock::now() + settings_.hotInterval;
  session->nextCold = Clock::now() + settings_.coldInterval;
  snapshotWorkspace(*session);
  session->thread = std::thread([this, session] { runQueue(session); });
  std::shared_ptr<Session> previous;
  {
    std::lock_guard guard(lock_);
    previous = std::exchange(session_, session);
  }
  // Only when another thread started at the same time; one run is enough.
  if (previous) {
    shutDown(previous);
  }
}

void WorkspaceWatcher::stop() {
  std::shared_ptr<Session> session;
  {
    std::lock_guard guard(lock_);
    session = std::move(session_);
    onChange_ = nullptr;
    lastSeen_.clear();
  }
  if (session) {
    shutDown(session);
  }
}

void WorkspaceWatcher::shutDown(const std::shared_ptr<Session>& session) {
  session->stopping = true;
  session->wake();
  if (session->thread.get_id() == std::this_thread::get_id()) {
    // Called from the callback: waiting would wait for ourselves. The thread
    // sees `stopping` as soon as the callback returns.
    session->thread.detach();
  } else if (session->thread.joinable()) {
    session->thread.join();
  }
}

void WorkspaceWatcher::simulateOverflow() {
  std::shared_ptr<Session> session;
  {
    std::lock_guard guard(lock_);
    session = session_;
  }
  if (session) {
    session->overflowRequested = true;
    session->wake();
  }
}

void WorkspaceWatcher::noteOwnWrite(const std::string& path,
                                    std::optional<std::string> fingerprint) {
  std::string key = recovery::canonicalPath(path, fs_).value_or(path);
  std::lock_guard guard(lock_);
  auto& writes = ownWrites_[key];
  std::erase_if(writes, [&](const OwnWrite& write) { return write.fingerprint == fingerprint; });
  writes.push_back(OwnWrite{std::move(fingerprint), Clock::now() + echoWindow});
  if (writes.size() > echoDepth) {
    writes.erase(writes.begin(), writes.end() - echoDepth);
  }
}

void WorkspaceWatcher::noteOwnMove(const std::string& from, const std::optional<std::string>& to) {
  OwnMove move;
  move.from = recovery::canonicalPath(from, fs_).value_or(from);
  if (to) {
    move.to = recovery::canonicalPath(*to, fs_).value_or(*to);
  }
  // The item as it is now, for when the watcher has not seen it yet.
  const StateToken itself = stateToken(move.from);
  std::lock_guard guard(lock_);
  if (move.to) {
    // What was last seen, not what is there now: a change another program
    // made just before the move is still reported at the new place.
    move.expected.emplace("", lastSeen_.find(move.from).value_or(itself));
    for (auto& [path, token] : lastSeen_.entriesBelow(move.from)) {
      move.expected.emplace(path.substr(move.from.size() + 1), token);
    }
  }
  move.until = Clock::now() + echoWindow;
  ownMoves_.push_back(std::move(move));
}

void WorkspaceWatcher::noteInterest(const std::string& path) {
  std::lock_guard guard(lock_);
  std::erase(interests_, path);
  interests_.push_front(path);
  if (interests_.size() > interestDepth) {
    interests_.pop_back();
  }
}

bool WorkspaceWatcher::isOwnMoveEcho(const std::string& canonicalPath, const StateToken& token) {
  const auto now = Clock::now();
  std::erase_if(ownMoves_, [&](const OwnMove& move) { return move.until <= now; });
  for (OwnMove& move : ownMoves_) {
    // Each path absorbs one change on either side, so a later change of the
    // same path by another program is reported.
    if (auto below = relativeTo(canonicalPath, move.from)) {
      if (token.kind == StateToken::Kind::gone && move.absorbedFrom.insert(*below).second) {
        return true;
      }
    }
    if (!move.to) {
      continue;
    }
    if (auto below = relativeTo(canonicalPath, *move.to)) {
      auto expected = move.expected.find(*below);
      if (expected != move.expected.end() && expected->second == token &&
          move.absorbedTo.insert(*below).second) {
        return true;
      }
    }
  }
  return false;
}

bool WorkspaceWatcher::isOwnEcho(const std::string& canonicalPath, const std::string& path,
                                 const StateToken& token) {
  std::vector<OwnWrite> candidates;
  {
    std::lock_guard guard(lock_);
    if (isOwnMoveEcho(canonicalPath, token)) {
      return true;
    }
    auto now = Clock::now();
    for (auto entry = ownWrites_.begin(); entry != ownWrites_.end();) {
      std::erase_if(entry->second, [&](const OwnWrite& write) { return write.until <= now; });
      entry = entry->second.empty() ? ownWrites_.erase(entry) : std::next(entry);
    }
    auto found = ownWrites_.find(canonicalPath);
    if (found == ownWrites_.end()) {
      return false;
    }
    candidates = found->second;
  }
  auto current = currentFingerprint(path);
  auto matches = [&](const OwnWrite& write) { return write.fingerprint == current; };
  if (std::none_of(candidates.begin(), candidates.end(), matches)) {
    return false;
  }
  // Each announcement absorbs exactly one reported change.
  std::lock_guard guard(lock_);
  auto found = ownWrites_.find(canonicalPath);
  if (found != ownWrites_.end()) {
    auto& writes = found->second;
    auto match = std::find_if(writes.begin(), writes.end(), matches);
    if (match != writes.end()) {
      writes.erase(match);
    }
    if (writes.empty()) {
      ownWrites_.erase(found);
    }
  }
  return true;
}

StateToken WorkspaceWatcher::stateToken(const std::string& path) const {
  struct stat info {};
  if (fs_.stat(path, &info) != 0) {
    return StateToken{};
  }
  return StateToken::of(info);
}

std::optional<std::string> WorkspaceWatcher::currentFingerprint(const std::string& path) const {
  // Only regular files are read: a pipe would hold the queue until a writer
  // came, and a device could be endless.
  struct stat info {};
  if (fs_.stat(path, &info) != 0 || !S_ISREG(info.st_mode)) {
    return std::nullopt;
  }
  try {
    return storage::fingerprintFile(path, fs_).fingerprint.hex;
  } catch (const storage::FileOpError&) {
    return std::nullopt;
  }
}

void WorkspaceWatcher::recordItem(SeenStates& snapshot, const std::string& path,
                                  const struct stat& info) const {
  // The walk never enters a link, so only a link's own path can be non-canonical;
  // every other item is keyed as found, without resolving it again.
  if (S_ISLNK(info.st_mode)) {
    snapshot.assign(recovery::canonicalPath(path, fs_).value_or(path), stateToken(path));
  } else {
    snapshot.assign(path, StateToken::of(info));
  }
}

void WorkspaceWatcher::snapshotWorkspace(Session& session) {
  SeenStates snapshot;
  auto limitedAt = session.tree.watchTree(
      boundary_.canonicalRootPath(),
      [&](const std::string& path, const struct stat& info) { recordItem(snapshot, path, info); });
  if (limitedAt) {
    noteWatchLimit(session, *limitedAt);
  }
  std::lock_guard guard(lock_);
  lastSeen_ = std::move(snapshot);
}

void WorkspaceWatcher::noteWatchLimit(Session& session, const std::string& folder) {
  if (session.told) {
    return;
  }
  logLine("cannot watch " + folder +
          ": the inotify watch limit is reached, so folders without a watch are looked at "
          "instead; raise fs.inotify.max_user_watches (for example: sudo sysctl "
          "fs.inotify.max_user_watches=524288)");
  tell(session, kWatchLimitNotice);
}

void WorkspaceWatcher::tell(Session& session, const char* notice) {
  if (std::exchange(session.told, true) || !session.onNotice) {
    return;
  }
  try {
    session.onNotice(notice);
  } catch (const std::exception& error) {
    logLine(std::string("a notice was not delivered: ") + error.what());
  }
}

void WorkspaceWatcher::handle(const std::string& path, uint32_t flags, uint64_t id) {
  ChangeHandler onChange;
  uint64_t startID = 0;
  {
    std::lock_guard guard(lock_);
    onChange = onChange_;
    startID = startEventID_;
  }
  if (!onChange || id <= startID) {
    return;
  }
  auto canonical = recovery::canonicalPath(path, fs_);
  if (!canonical) {
    return;
  }
  auto rebased = boundary_.rebase(*canonical);
  if (!rebased) {
    return;
  }
  auto components = boundary_.relativeComponents(*rebased);
  if (!components || components->empty()) {
    return;
  }
  for (const std::string& component : *components) {
    if (component.starts_with('.')) {
      return;
    }
  }
  StateToken token = stateToken(*rebased);
  {
    std::lock_guard guard(lock_);
    if (lastSeen_.exchange(*canonical, token) == token) {
      return;
    }
  }
  if (isOwnEcho(*canonical, *rebased, token)) {
    return;
  }
  WorkspaceChange change;
  if (token.kind == StateToken::Kind::gone) {
    change.kind = WorkspaceChange::Kind::removed;
  } else if (flags & itemRenamed) {
    change.kind = WorkspaceChange::Kind::renamed;
  } else if (flags & itemCreated) {
    change.kind = WorkspaceChange::Kind::created;
  } else {
    change.kind = WorkspaceChange::Kind::modified;
  }
  change.path = *rebased;
  change.fingerprint = currentFingerprint(*rebased);
  onChange(change);
}

void WorkspaceWatcher::runQueue(const std::shared_ptr<Session>& session) noexcept {
  // The kernel keeps 15 bytes of a thread's name: the label's last part.
  std::string_view label = queueLabel;
  ::pthread_setname_np(::pthread_self(), std::string(label.substr(label.size() - 15)).c_str());
  try {
    // A descriptor below zero is left out by poll: without an instance only the
    // wake-up and the timeouts of the looks remain.
    pollfd fds[2] = {{session->tree.fd(), POLLIN, 0}, {session->wakeFd, POLLIN, 0}};
    while (!session->stopping) {
      // Idle costs nothing: without a pending batch or a look due the thread
      // sleeps until the kernel has a record or stop wakes it.
      std::optional<Clock::time_point> wakeAt;
      if (!session->batch.empty()) {
        wakeAt = session->deadline;
      }
      if (session->polling()) {
        wakeAt = std::min(
            {wakeAt.value_or(Clock::time_point::max()), session->nextHot, session->nextCold});
      }
      if (session->wakeFd < 0) {
        wakeAt = std::min(wakeAt.value_or(Clock::time_point::max()), Clock::now() + kUnwokenPoll);
      }
      int timeout = -1;
      if (wakeAt) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(*wakeAt - Clock::now());
        timeout = static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT32_MAX));
      }
      if (::poll(fds, 2, timeout) < 0) {
        if (errno == EINTR) {
          continue;
        }
        logLine("watching " + boundary_.root() + " ended: poll failed: " + storage::FileOpError::systemMessage(errno));
        return;
      }
      if (session->stopping) {
        return;
      }
      std::optional<std::string> resyncLine;
      if (fds[1].revents & POLLIN) {
        uint64_t count = 0;
        [[maybe_unused]] ssize_t ignored = ::read(session->wakeFd, &count, sizeof count);
        if (session->overflowRequested.exchange(false)) {
          session->tree.readAvailable();
          session->clearBatch();
          resyncLine = overflowLine();
        }
      }
      if (fds[0].revents & POLLIN) {
        takeRecords(*session, resyncLine);
      }
      if (session->polling() && Clock::now() >= session->nextCold) {
        // The walk is the look at the whole tree; its own length spaces the next.
        auto began = Clock::now();
        resync(*session, resyncLine.value_or(""));
        resyncLine.reset();
        auto took = Clock::now() - began;
        session->nextCold =
            Clock::now() + std::max<Clock::duration>(settings_.coldInterval, took * 20);
      }
      if (resyncLine) {
        resync(*session, *resyncLine);
      }
      if (session->polling() && Clock::now() >= session->nextHot) {
        pollInterests(*session);
        session->nextHot = Clock::now() + settings_.hotInterval;
      }
      if (!session->batch.empty() && Clock::now() >= session->deadline) {
        flush(*session);
      }
    }
  } catch (const std::exception& error) {
    logLine("watching " + boundary_.root() + " ended: " + error.what());
  } catch (...) {
    logLine("watching " + boundary_.root() + " ended by an unknown error");
  }
}

std::string WorkspaceWatcher::overflowLine() const {
  return "the inotify event queue overflowed; rescanned " + boundary_.root() +
         " for the changes it dropped";
}

void WorkspaceWatcher::takeRecords(Session& session, std::optional<std::string>& resyncLine) {
  for (const InotifyTree::Record& record : session.tree.readAvailable()) {
    if (record.mask & IN_Q_OVERFLOW) {
      resyncLine = overflowLine();
      continue;
    }
    if (record.mask & IN_IGNORED) {
      session.tree.forget(record.wd);
      continue;
    }
    auto folder = session.tree.folderOf(record.wd);
    if (!folder) {
      if (!session.tree.isRetired(record.wd) && !resyncLine) {
        resyncLine = "inotify reported an unknown watch descriptor (" + std::to_string(record.wd) +
                     "); rescanned " + boundary_.root() + " for the changes it stood for";
      }
      continue;
    }
    if (record.name.empty()) {
      continue;  // about the watched folder itself: its parent's watch reports it
    }
    std::string path = *folder + "/" + record.name;
    uint32_t flags = 0;
    if (record.mask & (IN_CREATE | IN_MOVED_TO)) {
      flags |= itemCreated;
    }
    if (record.mask & (IN_MOVED_FROM | IN_MOVED_TO)) {
      flags |= itemRenamed;
    }
    session.add(path, flags);
    if (!(record.mask & IN_ISDIR) || record.name.starts_with('.')) {
      continue;
    }
    if (record.mask & IN_MOVED_FROM) {
      addLeftBelow(session, path, itemRenamed);
    }
    if (record.mask & (IN_CREATE | IN_MOVED_TO)) {
      // Watched first, listed second: an item made in between is either listed
      // or recorded, and the batch folds the two into one.
      auto limitedAt = session.tree.watchTree(
          path, [&](const std::string& item, const struct stat&) { session.add(item, flags); });
      if (limitedAt) {
        // The new folder's listing above already reported what it holds; the
        // rescan catches up with whatever else the missing watches let slip.
        noteWatchLimit(session, *limitedAt);
        if (!resyncLine) {
          resyncLine = std::string();
        }
      }
    }
  }
}

std::vector<std::string> WorkspaceWatcher::lastSeenBelow(const std::string& folder) {
  std::vector<std::string> paths;
  std::lock_guard guard(lock_);
  for (auto& [path, token] : lastSeen_.entriesBelow(folder)) {
    paths.push_back(std::move(path));
  }
  return paths;
}

void WorkspaceWatcher::addLeftBelow(Session& session, const std::string& folder, uint32_t flags) {
  // Whatever the folder held has left these paths; its watches go with it so
  // that later records cannot be filed under the old names.
  session.tree.retireBelow(folder);
  for (const std::string& gone : lastSeenBelow(folder)) {
    session.add(gone, flags);
  }
}

void WorkspaceWatcher::pollInterests(Session& session) {
  std::deque<std::string> interests;
  {
    std::lock_guard guard(lock_);
    interests = interests_;
  }
  for (const std::string& path : interests) {
    auto canonical = recovery::canonicalPath(path, fs_);
    if (!canonical || !boundary_.rebase(*canonical)) {
      continue;
    }
    if (session.tree.isUnwatched(*canonical)) {
      pollFolder(session, *canonical);
    } else if (session.tree.isUnwatched(storage::parentFolder(*canonical))) {
      pollItem(session, *canonical);
    }
  }
}

void WorkspaceWatcher::pollItem(Session& session, const std::string& path) {
  StateToken token = stateToken(path);
  std::optional<StateToken> seen;
  {
    std::lock_guard guard(lock_);
    seen = lastSeen_.find(path);
  }
  if (seen == token) {
    return;
  }
  const bool isNew = !seen || seen->kind == StateToken::Kind::gone;
  session.add(path, isNew ? itemCreated : 0);
  if (seen && seen->kind == StateToken::Kind::folder && token.kind != StateToken::Kind::folder) {
    addLeftBelow(session, path, 0);
  }
  if (isNew && token.kind == StateToken::Kind::folder) {
    // As for a folder inotify reports created: watched if it can be, and listed.
    session.tree.watchTree(
        path, [&](const std::string& item, const struct stat&) { session.add(item, itemCreated); });
  }
}

void WorkspaceWatcher::pollFolder(Session& session, const std::string& folder) {
  std::vector<std::string> names;
  if (fs_.listDirectory(folder, names) != 0) {
    pollItem(session, folder);  // gone, or no longer a folder
    return;
  }
  // What is there and what was last seen there; looked at in path order, as
  // the batch then hands them on.
  std::set<std::string> paths;
  for (const std::string& name : names) {
    if (!name.starts_with('.')) {
      paths.insert(storage::joinPath(folder, name));
    }
  }
  std::vector<std::pair<std::string, StateToken>> seen;
  {
    std::lock_guard guard(lock_);
    seen = lastSeen_.entriesIn(folder);
  }
  for (const auto& [path, token] : seen) {
    if (token.kind != StateToken::Kind::gone) {
      paths.insert(path);
    }
  }
  for (const std::string& path : paths) {
    pollItem(session, path);
  }
}

void WorkspaceWatcher::resync(Session& session, const std::string& line) {
  SeenStates fresh;
  auto limitedAt = session.tree.rewatch(
      boundary_.canonicalRootPath(),
      [&](const std::string& path, const struct stat& info) { recordItem(fresh, path, info); });
  std::vector<std::pair<std::string, uint32_t>> differing;
  {
    std::lock_guard guard(lock_);
    fresh.forEach([&](const std::string& path, const StateToken& token) {
      auto seen = lastSeen_.find(path);
      if (!seen || seen->kind == StateToken::Kind::gone) {
        differing.emplace_back(path, itemCreated);
      } else if (*seen != token) {
        differing.emplace_back(path, 0);
      }
    });
    lastSeen_.forEach([&](const std::string& path, const StateToken& token) {
      if (token.kind != StateToken::Kind::gone && !fresh.find(path)) {
        differing.emplace_back(path, 0);
      }
    });
  }
  // In path order, so a folder is reported before what it holds. handle compares
  // each path once more: one that settled back to what was last seen stays quiet.
  std::sort(differing.begin(), differing.end());
  for (const auto& [path, flags] : differing) {
    session.add(path, flags);
  }
  if (!line.empty()) {
    logLine(line);
  }
  if (limitedAt) {
    noteWatchLimit(session, *limitedAt);
  }
}

void WorkspaceWatcher::flush(Session& session) {
  auto batch = std::move(session.batch);
  session.clearBatch();
  for (const auto& [path, flags] : batch) {
    // Checked before every path: after stop, the watcher may already be gone.
    if (session.stopping) {
      return;
    }
    try {
      handle(path, flags, ++lastEventID_);
    } catch (const std::exception& error) {
      logLine("a change of " + path + " was not delivered: " + error.what());
    }
  }
}

}  // namespace vorna::bridge
