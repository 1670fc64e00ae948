#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "recovery/CachedIndex.h"
#include "recovery/ConflictEntry.h"
#include "recovery/DraftEntry.h"
#include "recovery/RecoveryEnvironment.h"
#include "recovery/RecoveryMaintenance.h"
#include "recovery/RecoveryServicing.h"
#include "recovery/RenameHistory.h"
#include "recovery/RetentionPlan.h"
#include "recovery/RetentionStoreIndex.h"
#include "storage/FileSystem.h"
#include "storage/RecoveryStore.h"

namespace vorna::recovery {

// The recovery service of one open workspace folder. Its store directory lies
// outside the workspace, at {store root}/{workspaceID}, and holds:
//   identity.json    which folder the store belongs to (written once)
//   drafts.json      DraftEntry list
//   conflicts.json   ConflictEntry list
//   operations.json  OperationRecord list
//   *.journal        each list's changes since its .json (IndexJournal)
//   retained/        the RecoveryStore of payloads and sidecars
//   .tmp-{UUID}      an index or new journal being written (transient)
// A missing index file reads as an empty list; an unreadable one fails every
// operation that needs it and is never overwritten. Each list is kept parsed
// in memory while its files are those this service last wrote or read
// (CachedIndex), and a new or changed record is one line appended to its
// journal, so an operation's cost does not grow with the list; a change
// another instance makes is seen on the next call.
//
// Thread safety: any thread may call. Every public operation holds `lock_`
// while it reads or changes the lists, so their changes happen one at a time;
// an operation that changed drafts, conflicts or the journal lets the lock go
// while it waits for the index file's write, which one thread makes for all the
// changes made until then (CachedIndex). A retention pass keeps the lock from
// its plan to its last deletion. The lock is not recursive; private functions
// run under their caller's hold. It does not exclude another process or
// another instance on the same store directory.
//
// Errors: contracts::RecoveryError only, with the texts given at each operation.
class LocalRecoveryService final : public RecoveryServicing, public RecoveryMaintenance {
 public:
  // Opens (creating as needed) the store of the folder `workspaceRoot`.
  // `storeRoot` is where stores are kept (the VORNA_RECOVERY_ROOT folder);
  // without it the per-user data folder serves when it is on the workspace's
  // volume, else {volume root}/.VornaRecovery/{uid}.
  //
  // Throws storeUnavailable with the detail
  //   "no writable recovery location for {root}: {error}"
  //   "recovery store would live inside the workspace: {store directory}"
  //   "cannot create {store directory}: {error}"
  //   "cannot open retention store: {error}"
  //   "cannot read identity.json: ..." / "recovery index identity.json is
  //     unreadable and was left untouched: ..."
  //   "cannot write identity.json: {error}"
  // or identityMismatch "recovery at {store directory} belongs to {recorded
  // path}, not {workspace path}". Folders made before a failure stay.
  LocalRecoveryService(const std::string& workspaceRoot,
                       const std::optional<std::string>& storeRoot, std::int64_t retainedPerPage,
                       double retentionGrace, storage::FileSystem& fs = storage::FileSystem::real(),
                       RecoveryEnvironment environment = {});
  LocalRecoveryService(const LocalRecoveryService&) = delete;
  LocalRecoveryService& operator=(const LocalRecoveryService&) = delete;

  // The folder standardised with its symbolic links resolved.
  const std::string& workspaceRoot() const { return workspaceRoot_; }
  const std::string& storeDirectory() const { return storeDirectory_; }
  const std::string& workspaceID() const { return workspaceID_; }
  std::int64_t retainedPerPage() const { return retainedPerPage_; }
  double retentionGrace() const { return retentionGrace_; }

  storage::RecoveryStore& retentionStore() override { return *retentionStore_; }

  // Drafts. pagePath is standardised ("." and ".." removed, links kept).
  //   saveDraft: "cannot retain {n} bytes for {page}: {error}" (index
  //     unchanged); "cannot write drafts.json: {error}" (the payload stays,
  //     referenced by no draft).
  //   draftBytes: notFound "draft {id}", notFound "draft {id}: payload missing
  //     at {path}", storeUnavailable "draft {id}: payload at {path} no longer
  //     matches its fingerprint".
  //   discardDraft: a page without drafts is no error and writes nothing.
  SavedDraft saveDraft(const std::string& pagePath, std::string_view bytes,
                       const std::optional<std::string>& baseFingerprint) override;
  std::vector<contracts::DraftRecord> drafts() override;
  contracts::Bytes draftBytes(const std::string& id) override;
  void discardDraft(const std::string& pagePath) override;
  std::string draftPayloadURL(const std::string& id) override;

  // Conflicts. Candidates come in the order base, then `retained` in the given
  // order, each version (by fingerprint) once per conflict.
  //   recordConflict: "cannot retain {n} bytes for {page}: {error}",
  //     "retained payload missing at {path}" (nothing written either way).
  //   candidateBytes: notFound "candidate {id}", notFound "candidate {id}:
  //     payload missing at {path}", storeUnavailable "candidate {id}: payload
  //     at {path} no longer matches its fingerprint".
  //   markResolved: notFound "conflict {id}", notFound "candidate {id} in
  //     conflict {conflict id}".
  contracts::ConflictRecord recordConflict(
      const std::string& pagePath, std::optional<std::string_view> base,
      const std::vector<storage::RecoveryEntry>& retained) override;
  std::vector<contracts::ConflictRecord> conflicts() override;
  contracts::Bytes candidateBytes(const std::string& id) override;
  void markResolved(const std::string& conflictID, const std::string& chosenCandidateID) override;

  // The journal; entries are never removed. notFound "operation {id}" and
  // "step {index} of operation {id}".
  contracts::OperationRecord beginOperation(
      const std::string& label,
      const std::vector<contracts::OperationRecord::Step>& steps) override;
  void updateStep(const std::string& operationID, std::int64_t index,
                  contracts::OperationRecord::StepState state) override;
  void finishOperation(const std::string& operationID) override;
  std::vector<contracts::OperationRecord> unfinishedOperations() override;

  // Adopts every swap file under the workspace as a displacedExternal entry.
  // A swap that cannot be adopted stays in place and is logged; only when some
  // failed and the retention store cannot take files at all does this throw
  // storeUnavailable "retention store at {folder} cannot accept writes; {n}
  // orphaned swap file(s) left in the workspace".
  std::vector<storage::RecoveryEntry> sweepOrphanedSwaps() override;

  // Version history, answered from the in-memory store index (one status of
  // the store's folder when nothing changed) and the journal. An unreadable
  // operations.json is logged and the history then follows no renames.
  std::vector<storage::RecoveryEntry> pageHistory(const std::string& pagePath) override;
  storage::RecoveryEntry retainedVersion(const std::string& id) override;
  std::vector<RetainedPage> retainedPages(const std::string& folder) override;

  // Deletes, for every page, the old retained versions and discarded drafts
  // beyond the budget (RetentionPlan), never while conflicts.json is
  // unreadable. An unreadable drafts.json or a failing write of it is thrown
  // and nothing is deleted; a failing deletion is logged and skipped.
  void enforceRetentionBudget() override;
  // The sidecars are read outside the lock, so drafts and conflicts are kept
  // meanwhile; the result becomes the store index unless a refresh under the
  // lock filled it first. Never throws: an unreadable store reads as empty.
  std::vector<storage::RecoveryEntry> loadStoreIndex() override;

 private:
  std::string indexPath(std::string_view name) const;
  void writeIdentityIfNeeded();
  // The index files, from memory while they are as this service left them.
  const std::vector<DraftEntry>& readDrafts();
  const std::vector<ConflictEntry>& readConflicts();
  const std::vector<contracts::OperationRecord>& readOperations();
  // The payloads no retention pass may delete.
  static std::unordered_set<std::string> pinnedPayloadPaths(
      const std::vector<DraftEntry>& drafts, const std::vector<ConflictEntry>& conflicts);
  // `storeEntries` must have been refreshed under the current hold of the lock.
  RetentionPlan retentionPlan(const std::set<std::string>& pages,
                              const std::vector<DraftEntry>& drafts,
                              const RetentionStoreIndex::EntriesByPage& storeEntries);
  void prune(const std::vector<std::string>& payloadPaths);
  // The store index as a one-page plan may use it: listed again only when its
  // last listing for such a plan is older than the grace.
  const RetentionStoreIndex::EntriesByPage& storeEntriesForOnePage();
  // The journal's renames, read again only when the operations changed;
  // none, logged, when it is unreadable.
  const RenameHistory& renameHistory();
  // Whether the retention store's folder accepts a new file, found by making
  // and removing one.
  bool retentionStoreAcceptsWrites();
  void log(std::string_view message);

  storage::FileSystem& fs_;
  RecoveryEnvironment environment_;
  std::string workspaceRoot_;
  std::string workspaceID_;
  std::int64_t retainedPerPage_;
  double retentionGrace_;
  std::string storeDirectory_;
  std::unique_ptr<storage::RecoveryStore> retentionStore_;
  std::mutex lock_;
  RetentionStoreIndex storeIndex_;                     // guarded by lock_
  std::optional<contracts::Timestamp> storeListedAt_;  // guarded by lock_
  // The index files, parsed; set once the store directory is known, guarded by lock_.
  std::optional<CachedIndex<DraftEntry>> drafts_;
  std::optional<CachedIndex<ConflictEntry>> conflicts_;
  std::optional<CachedIndex<contracts::OperationRecord>> operations_;
  // The renames read from the operations, and the generation of the
  // operations they were read from (0: none), under lock_.
  RenameHistory renames_{{}};
  std::uint64_t renamesGeneration_ = 0;
};

}  // namespace vorna::recovery
