#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "contracts/Bytes.h"
#include "contracts/ConflictRecord.h"
#include "contracts/DraftRecord.h"
#include "contracts/OperationRecord.h"
#include "recovery/RetainedPage.h"
#include "recovery/SavedDraft.h"
#include "storage/RecoveryEntry.h"
#include "storage/RecoveryStore.h"

namespace vorna::recovery {

// What the file bridge may ask of the recovery service of its workspace: drafts,
// conflicts with their candidates, the operations journal and the sweep of
// swap files a failed save left behind.
//
// Every operation except retentionStore() throws contracts::RecoveryError and
// nothing else: storeUnavailable when something in the store cannot be read,
// written or created (or a payload's bytes no longer match their fingerprint),
// notFound for an unknown id or a payload file that is gone. Implementations
// may be called from any thread.
class RecoveryServicing {
 public:
  virtual ~RecoveryServicing() = default;

  // The store of retained payloads for this workspace; the safe adapter and
  // the load checkpoints write into it too.
  virtual storage::RecoveryStore& retentionStore() = 0;

  // Keeps `bytes` as the current draft of the page at `pagePath`.
  virtual SavedDraft saveDraft(const std::string& pagePath, std::string_view bytes,
                               const std::optional<std::string>& baseFingerprint) = 0;
  // The newest live draft of each page, ordered by page path.
  virtual std::vector<contracts::DraftRecord> drafts() = 0;
  // The bytes of a draft, discarded ones included while their payload lasts.
  virtual contracts::Bytes draftBytes(const std::string& id) = 0;
  // Discards every draft of the page and runs the retention budget for it.
  virtual void discardDraft(const std::string& pagePath) = 0;

  // Records the versions of a conflicting save, extending the page's open
  // conflict or opening a new one.
  virtual contracts::ConflictRecord recordConflict(
      const std::string& pagePath, std::optional<std::string_view> base,
      const std::vector<storage::RecoveryEntry>& retained) = 0;
  // The open conflicts, oldest first.
  virtual std::vector<contracts::ConflictRecord> conflicts() = 0;
  // The bytes of a candidate of any conflict, resolved ones included.
  virtual contracts::Bytes candidateBytes(const std::string& id) = 0;
  virtual void markResolved(const std::string& conflictID,
                            const std::string& chosenCandidateID) = 0;

  virtual contracts::OperationRecord beginOperation(
      const std::string& label, const std::vector<contracts::OperationRecord::Step>& steps) = 0;
  virtual void updateStep(const std::string& operationID, std::int64_t index,
                          contracts::OperationRecord::StepState state) = 0;
  virtual void finishOperation(const std::string& operationID) = 0;
  // The operations never finished, oldest first.
  virtual std::vector<contracts::OperationRecord> unfinishedOperations() = 0;

  // Moves the swap files left in the workspace into the retention store and
  // returns their new entries.
  virtual std::vector<storage::RecoveryEntry> sweepOrphanedSwaps() = 0;

  // The retained versions that belong to the page at `pagePath` now, those
  // kept under its names before renames of the journal included (see
  // RenameHistory), newest first: by capturedAt, then by id, the greater
  // first. The page need not exist. A payload without a sidecar is no version
  // of any page: only the sidecar says which page it holds.
  virtual std::vector<storage::RecoveryEntry> pageHistory(const std::string& pagePath) = 0;
  // The retained version with `id`; notFound with the detail `id` when no
  // sidecar of this store has that name.
  virtual storage::RecoveryEntry retainedVersion(const std::string& id) = 0;
  // Every path strictly under `folder`, at any depth, that retained versions
  // belong to now (as for pageHistory), ordered by path; whether the page still
  // exists is for the caller to see.
  virtual std::vector<RetainedPage> retainedPages(const std::string& folder) = 0;
};

}  // namespace vorna::recovery
