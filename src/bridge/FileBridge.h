#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

#include "bridge/BridgeEnvironment.h"
#include "bridge/LoadCheckpointIndex.h"
#include "bridge/TargetResolution.h"
#include "bridge/WorkspaceBoundary.h"
#include "bridge/WorkspaceWatcher.h"
#include "contracts/BridgeHandling.h"
#include "contracts/DraftRecord.h"
#include "contracts/OperationRecord.h"
#include "recovery/RecoveryServicing.h"
#include "storage/ConflictInfo.h"
#include "storage/DurableChanges.h"
#include "storage/FileSystem.h"
#include "storage/PathLocks.h"
#include "storage/RecoveryEntry.h"
#include "storage/SafeAdapter.h"

namespace vorna::bridge {

// Answers every /api request of one open workspace: reads, saves and the other
// mutations, the recovery operations and the shell operations. Every path a
// request names is confined to the workspace first; every failure is an error
// response, and handle never throws.
//
// Dispatch, in order; the first row whose method and op both match exactly
// runs, anything else is 404 "unknown op: {method} {op}":
//    1 GET list        6 GET draft        11 DELETE file    16 POST resolve
//    2 GET stat        7 GET conflicts    12 POST mkdir     17 POST dismiss
//    3 GET file        8 GET candidate    13 POST rename    18 POST reveal
//    4 HEAD file       9 GET operations   14 PUT draft      19 POST open
//    5 GET drafts     10 PUT file         15 DELETE draft
// and this host's own version history, reads like rows 1 to 9:
//   20 GET history    21 GET version     22 GET deleted
//
// Version history. "GET history?path=P": a JSON array of the retained
// versions that belong to page P now (it need not exist; versions kept under
// its names before renames the host journalled count), newest first, each
// {"byteCount","capturedAt","fingerprint" (when known),"id","kind"}.
// "GET version?id=ID": that version's bytes with the headers of GET file
// (type by the page's name, X-VN-Fingerprint of the bytes, X-QX-Mtime of the
// stored copy); 400 "missing id", 404 "not found: {id}" for an id that no
// sidecar of this workspace's store has, or whose payload cannot be read.
// "GET deleted?path=FOLDER": the pages under FOLDER, at any depth, that no
// longer exist but have versions, newest first (then by path), each
// {"count","newestCapturedAt","path"}. A payload without a sidecar belongs to
// no page and is left out of both lists; its id is not found. POST rename
// journals the move (RenameHistory) before making it, and answers 507 when
// it cannot.
//
// On Linux: DELETE file moves the file into the freedesktop.org trash of its
// file system and answers the item's path there as "trashed"; POST open
// refuses what executableRefusal names and, with VORNA_DRY_OPEN set to "1",
// opens nothing; reveal and open only post their desktop call (DesktopActions)
// and answer at once. Destroying the bridge stops its watcher.
//
// Thread safety: handle may run on several threads at once. Rows 10 to 17
// change pages, drafts or conflicts and each holds the path locks of what it
// touches for its whole run: the item it names (a save, a draft, a conflict's
// page, a new folder), or the whole subtree of what it moves (rename: source
// and destination; DELETE file). Operations on different pages therefore run
// side by side, each page's operations one at a time, and nothing runs below
// a folder while it moves. Reads and the shell operations take no bridge lock
// and run beside them (a read racing a save sees the old or the new file,
// since saves replace files atomically). The lock order is written down in
// docs/architecture.md.
class FileBridge final : public contracts::BridgeHandling {
 public:
  // The safe adapter's fixed settings.
  static constexpr std::uint64_t kSettleInterval = 8'000'000;  // nanoseconds
  static constexpr int kSettleAttempts = 25;

  // `workspaceRoot` is absolute, as the user opened it (it may pass through
  // symbolic links); it is resolved once, here. The recovery service must be
  // the one of this workspace.
  FileBridge(std::string workspaceRoot, std::shared_ptr<recovery::RecoveryServicing> recovery,
             BridgeEnvironment environment = {},
             storage::FileSystem& fs = storage::FileSystem::real());
  FileBridge(const FileBridge&) = delete;
  FileBridge& operator=(const FileBridge&) = delete;
  // Waits for the work prepareInBackground started.
  ~FileBridge() override;

  // Reads the recovery store once, on a thread of its own: the load
  // checkpoints are seeded from that read, and then the retention budget runs
  // on it (a failure is logged as "retention budget skipped: {error}").
  // Answers meanwhile do not wait for it, except one that needs the copy of
  // an older version (a conflict's base). Call at most once, before the first
  // request.
  void prepareInBackground();

  const std::string& workspaceRoot() const override { return workspaceRoot_; }
  contracts::BridgeResponse handle(const contracts::BridgeRequest& request) override;
  void startWatching(std::function<void(const contracts::WorkspaceChange&)> onChange) override;
  void stopWatching() override;
  void setWatchNoticeHandler(std::function<void(const std::string& notice)> onNotice) override;

  const WorkspaceBoundary& boundary() const { return boundary_; }
  LoadCheckpointIndex& checkpoints() { return checkpoints_; }
  // How many mutations wait for a path another one holds.
  size_t waitingMutations() const { return pathLocks_.waiting(); }

  // The query parameter `key` as a path under the workspace root, or the
  // refusal to answer with (see resolveTarget).
  TargetResult target(const contracts::BridgeRequest& request, const std::string& key) const;

 private:
  using Operation = contracts::BridgeResponse (FileBridge::*)(const contracts::BridgeRequest&);
  // An operation on the item named by "path", which dispatch has resolved.
  using PathOperation = contracts::BridgeResponse (FileBridge::*)(const contracts::BridgeRequest&,
                                                                  const std::string& path);
  struct Route {
    std::string_view method;
    std::string_view op;
    std::variant<Operation, PathOperation> run;
    // Which path locks the operation holds: none, those of the item "path"
    // names, of its subtree, or those it takes itself once it knows them.
    enum class Locking { none, item, subtree, own } locking;
  };
  static const std::array<Route, 22> kRoutes;

  contracts::BridgeResponse dispatch(const contracts::BridgeRequest& request);
  contracts::BridgeResponse run(const Route& route, const contracts::BridgeRequest& request);

  using Request = contracts::BridgeRequest;
  using Response = contracts::BridgeResponse;
  // Reads.
  Response list(const Request& request, const std::string& path);
  Response stat(const Request& request, const std::string& path);
  Response readFile(const Request& request, const std::string& path);
  Response headFile(const Request& request, const std::string& path);
  // Mutations.
  Response putFile(const Request& request, const std::string& path);
  Response saveFile(const Request& request, const std::string& page, const std::string& base);
  Response createFile(const Request& request, const std::string& path);
  Response trashFile(const Request& request, const std::string& path);
  Response makeFolder(const Request& request, const std::string& path);
  Response rename(const Request& request, const std::string& source);
  // Recovery operations.
  Response listDrafts(const Request& request);
  Response draftBytes(const Request& request);
  Response listConflicts(const Request& request);
  Response candidateBytes(const Request& request);
  Response listOperations(const Request& request);
  Response storeDraft(const Request& request, const std::string& path);
  Response discardDraft(const Request& request, const std::string& path);
  Response resolve(const Request& request);
  Response dismiss(const Request& request, const std::string& path);
  // Version history.
  Response listHistory(const Request& request, const std::string& path);
  Response readVersion(const Request& request);
  Response listDeleted(const Request& request, const std::string& path);
  // Shell operations.
  Response reveal(const Request& request, const std::string& path);
  Response open(const Request& request, const std::string& path);

  // The 409 answer of a save whose compare-and-swap failed, after gathering
  // the base, editor and disk candidates and recording the conflict.
  contracts::BridgeResponse conflictResponse(const std::string& page, const std::string& base,
                                             const std::optional<recovery::SavedDraft>& draft,
                                             const contracts::Bytes& editorBytes,
                                             const std::string& editorFingerprint,
                                             const storage::ConflictInfo& info);
  // Makes the version just written the page's load checkpoint, adopting the
  // draft's stored copy of the same bytes when there is one.
  void recordWrittenVersion(const std::string& page, const contracts::Bytes& bytes,
                            const std::string& fingerprint,
                            const std::optional<recovery::SavedDraft>& draft);
  // Registers a payload already in the store as the copy of that version.
  void adoptCheckpoint(const std::string& page, const std::string& fingerprint,
                       const std::string& payloadPath);
  std::optional<storage::RecoveryEntry> draftEntry(
      const std::optional<recovery::SavedDraft>& draft);
  // Finishes a journalled operation, its steps marked failed unless it
  // landed; the error's text when that fails, nothing without an operation.
  std::optional<std::string> closeJournal(
      const std::optional<contracts::OperationRecord>& operation, bool landed);
  // The three headers of a file answer.
  std::map<std::string, std::string> fileHeaders(const std::string& path,
                                                 const std::string& fingerprint) const;
  contracts::Json saveResult(const std::string& path, size_t bytes,
                             const std::string& fingerprint) const;
  bool fileExists(const std::string& path) const;
  // Announces each folder a mutation makes to the watcher, as it is made.
  std::function<void(const std::string&)> announceFolder();
  storage::SafeAdapter& adapter();

  const std::string workspaceRoot_;
  const std::shared_ptr<recovery::RecoveryServicing> recovery_;
  const WorkspaceBoundary boundary_;
  WorkspaceWatcher watcher_;
  storage::PathLocks pathLocks_;
  LoadCheckpointIndex checkpoints_;
  std::once_flag adapterOnce_;
  std::unique_ptr<storage::SafeAdapter> adapter_;  // made on first use, then kept
  BridgeEnvironment environment_;
  storage::FileSystem& fs_;
  storage::DurableChanges changes_{fs_};
  WorkspaceWatcher::NoticeHandler watchNotice_;
  std::thread preparing_;
};

}  // namespace vorna::bridge
