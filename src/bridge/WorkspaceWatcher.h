#pragma once

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "bridge/InotifyTree.h"
#include "bridge/SeenStates.h"
#include "bridge/StateToken.h"
#include "bridge/WorkspaceBoundary.h"
#include "contracts/WorkspaceChange.h"
#include "storage/FileSystem.h"

namespace vorna::bridge {

// Tells the editor what changed in the workspace behind its back, and keeps quiet
// about the host's own writes.
//
// Every non-hidden folder of the workspace carries an inotify watch. Records are
// gathered for `latency` after the first one of a quiet spell, so that a writer's
// truncate, write and close become one change; each path of the batch is then
// compared with what it looked like when last seen (size and modification time,
// or folder), and a path that really changed and was not announced by
// noteOwnWrite reaches the callback as one WorkspaceChange.
//
// Records that were lost (a queue overflow, an unknown watch descriptor, a watch
// limit reached) lead to a rescan of the whole tree against what was last seen,
// so a change is never dropped without a line on stderr.
//
// Folders without a watch are looked at instead: when no inotify instance can
// be had (other programs used up the per-user limit) none has one, and when
// the watch limit is reached some have none. Then what the editor has open or
// listed (noteInterest) is looked at every hotInterval where it has no watch,
// and the whole tree is walked every coldInterval; outside changes still reach
// the callback, later. The user is told once per run, through the notice
// handler, with the sysctl that lifts the limit.
//
// All event handling and every callback run on one thread of the watcher, the
// serial queue `queueLabel`, one path at a time. start, stop and noteOwnWrite may
// be called from any thread, the callback's included.
class WorkspaceWatcher {
 public:
  using ChangeHandler = std::function<void(const contracts::WorkspaceChange&)>;
  // Receives a text for the user, on the thread of start or on the queue.
  using NoticeHandler = std::function<void(const std::string& notice)>;

  struct Settings {
    // How often what the editor has open or listed is looked at, where it has
    // no watch.
    std::chrono::milliseconds hotInterval{2000};
    // How often the whole tree is walked while some of it has no watch; a walk
    // that takes long waits twenty times its own length at least.
    std::chrono::milliseconds coldInterval{30000};
    InotifyTree::Calls inotify = InotifyTree::Calls::real();
  };

  // The notices, in words a user understands, each with the sysctl that lifts
  // its limit.
  static constexpr const char* kNoInstanceNotice =
      "Other programs have used up this computer's limit on file-change notifications, so Vorna "
      "checks this folder for changes made outside it every few seconds instead: they still show "
      "up, a little later. To lift the limit, run: sudo sysctl fs.inotify.max_user_instances=1024";
  static constexpr const char* kWatchLimitNotice =
      "This computer's limit on folders watched for changes is reached, so Vorna checks some "
      "folders for changes made outside it every few seconds instead: they still show up, a "
      "little later. To lift the limit, run: sudo sysctl fs.inotify.max_user_watches=524288";

  static constexpr const char* queueLabel = "app.vorna.bridge.fsevents";
  // How long an announced write may wait for its echo.
  static constexpr std::chrono::seconds echoWindow{6};
  // At most this many announced writes are kept per path; older ones give way.
  static constexpr size_t echoDepth = 8;
  // At most this many paths the editor has open or listed are kept.
  static constexpr size_t interestDepth = 64;
  // How long records are gathered before their paths are handled.
  static constexpr std::chrono::milliseconds latency{200};

  // Event flags handed to the handling of one path.
  static constexpr uint32_t itemCreated = 0x100;
  static constexpr uint32_t itemRenamed = 0x800;

  // Attributes, links, listings and contents are read through `fs`; the folder
  // walk and inotify itself are platform calls.
  explicit WorkspaceWatcher(WorkspaceBoundary boundary,
                            storage::FileSystem& fs = storage::FileSystem::real());
  WorkspaceWatcher(WorkspaceBoundary boundary, storage::FileSystem& fs, Settings settings);
  // Stops watching first.
  ~WorkspaceWatcher();
  WorkspaceWatcher(const WorkspaceWatcher&) = delete;
  WorkspaceWatcher& operator=(const WorkspaceWatcher&) = delete;

  const WorkspaceBoundary& boundary() const { return boundary_; }

  // (Re)starts watching: stops first, then watches the tree and records how every
  // item looks now; only later changes are reported, to `onChange`, on the queue.
  // Folders that get no watch are looked at instead (see the class), with one
  // line on stderr and one call of `onNotice`.
  void start(ChangeHandler onChange, NoticeHandler onNotice = nullptr);

  // Ends watching; idempotent. Called from any thread but the queue, it returns
  // only after a callback in progress has finished; no callback starts after it
  // returns. Called from the callback itself, it cannot wait for itself: the
  // callback in progress is the last one.
  void stop();

  // Announces a host write of `path` (before it or right after it): the next
  // reported change of that path whose content has `fingerprint` (none: the item
  // is gone or a folder) is an echo and is not delivered. An announcement expires
  // after echoWindow; repeating one replaces it.
  void noteOwnWrite(const std::string& path, std::optional<std::string> fingerprint);

  // Announces that the host moves the item at `from`, a file or a whole folder,
  // to `to`, or takes it away (to the trash) when `to` is nothing; before the
  // move. Every path at or below `from` is expected gone, and every path at or
  // below `to` as it was last seen at its place below `from` (same kind, size
  // and modification time). The first change of each of those paths that
  // meets the expectation within echoWindow is an echo; anything else, and
  // everything after that, is reported as usual.
  void noteOwnMove(const std::string& from, const std::optional<std::string>& to);

  // Tells that the editor has `path` open or listed: where it has no watch it
  // is looked at every hotInterval. The newest interestDepth paths are kept.
  void noteInterest(const std::string& path);

  // For tests: behaves as if the kernel's event queue overflowed now. The records
  // not yet handled are dropped and the tree is rescanned.
  void simulateOverflow();

 private:
  struct OwnWrite {
    std::optional<std::string> fingerprint;
    std::chrono::steady_clock::time_point until;
  };
  // A move announced by noteOwnMove, by canonical paths. Paths are relative to
  // `from` or `to`; "" is the moved item itself.
  struct OwnMove {
    std::string from;
    std::optional<std::string> to;
    std::unordered_map<std::string, StateToken> expected;
    std::unordered_set<std::string> absorbedFrom;
    std::unordered_set<std::string> absorbedTo;
    std::chrono::steady_clock::time_point until;
  };
  struct Session;

  StateToken stateToken(const std::string& path) const;
  std::optional<std::string> currentFingerprint(const std::string& path) const;
  // Adds the item the tree walk found to `snapshot`, keyed by its canonical path.
  void recordItem(SeenStates& snapshot, const std::string& path, const struct stat& info) const;

  // Watches the tree and seeds lastSeen in one walk.
  void snapshotWorkspace(Session& session);
  void handle(const std::string& path, uint32_t flags, uint64_t id);
  bool isOwnEcho(const std::string& canonicalPath, const std::string& path,
                 const StateToken& token);
  // Caller holds lock_.
  bool isOwnMoveEcho(const std::string& canonicalPath, const StateToken& token);

  // The queue: reads records, batches them and hands each path to handle.
  void runQueue(const std::shared_ptr<Session>& session) noexcept;
  // Turns waiting records into batch entries; sets `resyncLine` (the line to log,
  // possibly empty) when records were lost.
  void takeRecords(Session& session, std::optional<std::string>& resyncLine);
  void resync(Session& session, const std::string& line);
  std::string overflowLine() const;
  void flush(Session& session);
  void noteWatchLimit(Session& session, const std::string& folder);
  void tell(Session& session, const char* notice);
  std::vector<std::string> lastSeenBelow(const std::string& folder);
  // Adds to the batch what was last seen below a folder that has left its place.
  void addLeftBelow(Session& session, const std::string& folder, uint32_t flags);
  // The looks that stand in for missing watches: the hot paths, then a folder.
  void pollInterests(Session& session);
  void pollFolder(Session& session, const std::string& folder);
  void pollItem(Session& session, const std::string& path);
  static void shutDown(const std::shared_ptr<Session>& session);

  const WorkspaceBoundary boundary_;
  storage::FileSystem& fs_;
  const Settings settings_;

  std::mutex lock_;  // short sections over the fields below; never across I/O or a callback
  std::shared_ptr<Session> session_;
  ChangeHandler onChange_;
  uint64_t startEventID_ = 0;
  SeenStates lastSeen_;
  std::unordered_map<std::string, std::vector<OwnWrite>> ownWrites_;
  std::vector<OwnMove> ownMoves_;
  std::deque<std::string> interests_;  // newest first, each once

  // Event ids: the queue takes the next one for every path it handles.
  std::atomic<uint64_t> lastEventID_{0};
};

}  // namespace vorna::bridge
