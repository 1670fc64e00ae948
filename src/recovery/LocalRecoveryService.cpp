#include "recovery/LocalRecoveryService.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <map>

#include "contracts/IsoDate.h"
#include "contracts/RecoveryError.h"
#include "recovery/Identity.h"
#include "recovery/IndexFiles.h"
#include "recovery/PathForms.h"
#include "recovery/StoreLocation.h"
#include "recovery/SwapFiles.h"
#include "storage/DurableChanges.h"
#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"
#include "storage/Fingerprint.h"
#include "storage/PathNames.h"
#include "storage/RandomUuid.h"

namespace vorna::recovery {
namespace {

using contracts::Bytes;
using contracts::CandidateRecord;
using contracts::ConflictRecord;
using contracts::DraftRecord;
using contracts::Json;
using contracts::OperationRecord;
using contracts::RecoveryError;
using storage::FileOpError;
using storage::Fingerprint;
using storage::RecoveryEntry;
using storage::RecoveryKind;

constexpr const char* kIdentityFile = "identity.json";
constexpr const char* kDraftsFile = "drafts.json";
constexpr const char* kConflictsFile = "conflicts.json";
constexpr const char* kOperationsFile = "operations.json";
constexpr const char* kRetainedFolder = "retained";
constexpr mode_t kStoreFolderMode = 0700;
// How often the sweep reads a swap file before taking its last reading: the
// safe adapter's own number.
constexpr int kSwapSettleAttempts = 25;

// The sidecar beside a payload: its extension replaced by "json", or ".json"
// appended when it has none.
std::string sidecarOf(const std::string& payloadPath) {
  std::string name = storage::lastComponent(payloadPath);
  size_t dot = name.rfind('.');
  std::string stem = dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
  return storage::joinPath(storage::parentFolder(payloadPath), stem + ".json");
}

// The text of anything the retention store throws: FileOpError, or
// std::invalid_argument for a path a sidecar cannot hold.
std::string describe(const std::exception& error) {
  return error.what();
}

// The index of the record with `id`; notFound "operation {id}" when there is
// none. Ids are unique, and the operation a step belongs to is nearly always
// among the last begun, so the search runs from the end.
size_t operationIn(const std::vector<OperationRecord>& journal, const std::string& id) {
  auto found = std::find_if(journal.rbegin(), journal.rend(),
                            [&](const OperationRecord& record) { return record.id == id; });
  if (found == journal.rend()) {
    throw RecoveryError::notFound("operation " + id);
  }
  return static_cast<size_t>(journal.rend() - found) - 1;
}

}  // namespace

LocalRecoveryService::LocalRecoveryService(const std::string& workspaceRoot,
                                           const std::optional<std::string>& storeRoot,
                                           std::int64_t retainedPerPage, double retentionGrace,
                                           storage::FileSystem& fs, RecoveryEnvironment environment)
    : fs_(fs),
      environment_(std::move(environment)),
      workspaceRoot_(resolvedPath(workspaceRoot, fs)),
      workspaceID_(workspaceIdentifier(workspaceRoot_, fs)),
      retainedPerPage_(retainedPerPage),
      retentionGrace_(retentionGrace) {
  std::string root = storeRoot ? standardisedPath(*storeRoot)
                               : defaultStoreRoot(workspaceRoot_, environment_, fs_);
  std::string candidate = storage::joinPath(root, workspaceID_);
  std::string resolved = resolvedPath(candidate, fs_);
  // Copies of pages kept inside the workspace would be watched, listed and
  // swept as if they were pages.
  if (isSameOrInside(resolved, workspaceRoot_)) {
    throw RecoveryError::storeUnavailable("recovery store would live inside the workspace: " +
                                          resolved);
  }
  storeDirectory_ = candidate;
  const std::size_t limit = environment_.indexJournalLimit;
  drafts_.emplace(indexPath(kDraftsFile), fs_, DraftEntry::fromJson, limit);
  conflicts_.emplace(indexPath(kConflictsFile), fs_, ConflictEntry::fromJson, limit);
  operations_.emplace(indexPath(kOperationsFile), fs_, OperationRecord::fromJson, limit);
  try {
    storage::DurableChanges(fs_).makeFolder(storeDirectory_, kStoreFolderMode);
  } catch (const FileOpError& error) {
    throw RecoveryError::storeUnavailable("cannot create " + storeDirectory_ + ": " +
                                          error.description());
  }
  try {
    retentionStore_ = std::make_unique<storage::RecoveryStore>(
        storage::joinPath(storeDirectory_, kRetainedFolder), fs_);
  } catch (const FileOpError& error) {
    throw RecoveryError::storeUnavailable("cannot open retention store: " + error.description());
  }
  writeIdentityIfNeeded();
}

std::string LocalRecoveryService::indexPath(std::string_view name) const {
  return storage::joinPath(storeDirectory_, name);
}

void LocalRecoveryService::log(std::string_view message) {
  environment_.log(recoveryLogLine(message));
}

void LocalRecoveryService::writeIdentityIfNeeded() {
  const std::string path = indexPath(kIdentityFile);
  if (indexExists(path, fs_)) {
    Identity identity = readIndex<Identity>(path, fs_, Identity::fromJson);
    // The path decides, not the recorded identifier: a store follows its
    // folder's path, and a folder made anew there has another identifier anyway.
    if (identity.workspacePath != workspaceRoot_) {
      throw RecoveryError::identityMismatch("recovery at " + storeDirectory_ + " belongs to " +
                                            identity.workspacePath + ", not " + workspaceRoot_);
    }
    return;
  }
  Identity identity{.workspaceID = workspaceID_,
                    .workspacePath = workspaceRoot_,
                    .createdAt = environment_.now()};
  writeIndex(identity.toJson(), path, fs_);
}

const std::vector<DraftEntry>& LocalRecoveryService::readDrafts() {
  return drafts_->entries();
}

const std::vector<ConflictEntry>& LocalRecoveryService::readConflicts() {
  return conflicts_->entries();
}

const std::vector<OperationRecord>& LocalRecoveryService::readOperations() {
  return operations_->entries();
}

// Drafts

SavedDraft LocalRecoveryService::saveDraft(const std::string& pagePath, std::string_view bytes,
                                           const std::optional<std::string>& baseFingerprint) {
  const std::string page = standardisedPath(pagePath);
  {
    // An index that cannot be read is reported before anything is retained.
    std::lock_guard guard(lock_);
    readDrafts();
  }
  // The payload is written and flushed outside the lock, so drafts of other
  // pages do not wait for it; it belongs to no draft until the index names it.
  RecoveryEntry retained;
  try {
    retained = retentionStore_->retain(bytes, RecoveryKind::pendingEditorBytes, pagePath);
  } catch (const std::exception& error) {
    throw RecoveryError::storeUnavailable("cannot retain " + std::to_string(bytes.size()) +
                                          " bytes for " + page + ": " + describe(error));
  }
  DraftRecord record{
      .id = retained.id,
      .pagePath = page,
      .baseFingerprint = baseFingerprint,
      .fingerprint = Fingerprint::ofBytes(bytes).hex,
      .byteCount = static_cast<std::int64_t>(bytes.size()),
      .capturedAt = environment_.now(),
  };
  std::unique_lock hold(lock_);
  drafts_->append(
      DraftEntry{.record = record, .payloadPath = retained.payloadPath, .discarded = false}, hold);
  return SavedDraft{std::move(record), std::move(retained.payloadPath)};
}

std::vector<DraftRecord> LocalRecoveryService::drafts() {
  std::lock_guard guard(lock_);
  // Ordered by page path; one record per page, so no ties to break by time.
  std::map<std::string, DraftRecord> newestByPage;
  for (const DraftEntry& entry : readDrafts()) {
    if (!entry.discarded) {
      newestByPage.insert_or_assign(entry.record.pagePath, entry.record);
    }
  }
  std::vector<DraftRecord> result;
  result.reserve(newestByPage.size());
  for (auto& [page, record] : newestByPage) {
    result.push_back(std::move(record));
  }
  return result;
}

Bytes LocalRecoveryService::draftBytes(const std::string& id) {
  std::lock_guard guard(lock_);
  const std::vector<DraftEntry>& list = readDrafts();
  auto found = std::find_if(list.begin(), list.end(),
                            [&](const DraftEntry& entry) { return entry.record.id == id; });
  if (found == list.end()) {
    throw RecoveryError::notFound("draft " + id);
  }
  Bytes bytes;
  try {
    bytes = storage::readFileWhole(found->payloadPath, fs_);
  } catch (const FileOpError&) {
    throw RecoveryError::notFound("draft " + id + ": payload missing at " + found->payloadPath);
  }
  if (Fingerprint::ofBytes(bytes).hex != found->record.fingerprint) {
    throw RecoveryError::storeUnavailable("draft " + id + ": payload at " + found->payloadPath +
                                          " no longer matches its fingerprint");
  }
  return bytes;
}

void LocalRecoveryService::discardDraft(const std::string& pagePath) {
  std::unique_lock hold(lock_);
  const std::string page = standardisedPath(pagePath);
  std::vector<std::pair<size_t, DraftEntry>> marks;
  {
    const std::vector<DraftEntry>& list = readDrafts();
    for (size_t index = 0; index < list.size(); ++index) {
      if (list[index].record.pagePath == page && !list[index].discarded) {
        marks.emplace_back(index, list[index]);
        marks.back().second.discarded = true;
      }
    }
  }
  // The marks are on disk before any payload goes. The plan is made under the
  // hold that carries out its deletions (after the marks' write let it go): a
  // conflict recorded meanwhile could pin what it deletes.
  if (!marks.empty()) {
    drafts_->change(std::move(marks), hold);
  }
  const std::vector<DraftEntry>* list = &readDrafts();
  RetentionPlan plan = retentionPlan({page}, *list, storeEntriesForOnePage());
  if (!plan.droppedDrafts.empty() && drafts_->awaitWrites(hold)) {
    list = &readDrafts();
    plan = retentionPlan({page}, *list, storeEntriesForOnePage());
  }
  if (!plan.droppedDrafts.empty()) {
    drafts_->rewrite(plan.keptDrafts(*list), hold);
  }
  prune(plan.deletions);
}

std::string LocalRecoveryService::draftPayloadURL(const std::string& id) {
  std::lock_guard guard(lock_);
  for (const DraftEntry& entry : readDrafts()) {
    if (entry.record.id == id) {
      return entry.payloadPath;
    }
  }
  throw RecoveryError::notFound("draft " + id);
}

// Conflicts

ConflictRecord LocalRecoveryService::recordConflict(const std::string& pagePath,
                                                    std::optional<std::string_view> base,
                                                    const std::vector<RecoveryEntry>& retained) {
  const std::string page = standardisedPath(pagePath);
  // The slow part, reading the retained payloads and writing and flushing the
  // base, runs outside the lock, as a draft's payload does. The caller holds
  // the page's lock, so no other recording for this page runs meanwhile; if
  // one did, a base retained here and then not needed is one more version kept.
  struct Offered {
    const RecoveryEntry* entry;
    std::string fingerprint;
    std::int64_t byteCount;
  };
  std::vector<Offered> offered;
  for (const RecoveryEntry& entry : retained) {
    Bytes bytes;
    try {
      bytes = storage::readFileWhole(entry.payloadPath, fs_);
    } catch (const FileOpError&) {
      throw RecoveryError::storeUnavailable("retained payload missing at " + entry.payloadPath);
    }
    // What the candidate offers is what was read now, not what the entry claimed.
    offered.push_back(Offered{&entry, Fingerprint::ofBytes(bytes).hex,
                              static_cast<std::int64_t>(bytes.size())});
  }
  // True when the open conflict of the page, if any, has no base candidate
  // and none with `fingerprint`.
  auto wantsBase = [&](const std::vector<ConflictEntry>& list, const std::string& fingerprint) {
    for (const ConflictEntry& entry : list) {
      if (entry.record.pagePath != page || entry.record.resolvedAt) {
        continue;
      }
      return std::none_of(
          entry.record.candidates.begin(), entry.record.candidates.end(),
          [&](const CandidateRecord& c) {
            return c.role == CandidateRecord::Role::base || c.fingerprint == fingerprint;
          });
    }
    return true;
  };
  std::optional<RecoveryEntry> baseEntry;
  std::string baseFingerprint;
  if (base) {
    baseFingerprint = Fingerprint::ofBytes(*base).hex;
    bool wanted;
    {
      std::lock_guard guard(lock_);
      wanted = wantsBase(readConflicts(), baseFingerprint);
    }
    if (wanted) {
      try {
        baseEntry = retentionStore_->retain(*base, RecoveryKind::displacedExpected, pagePath);
      } catch (const std::exception& error) {
        throw RecoveryError::storeUnavailable("cannot retain " + std::to_string(base->size()) +
                                              " bytes for " + page + ": " + describe(error));
      }
    }
  }

  std::unique_lock hold(lock_);
  const std::vector<ConflictEntry>& list = readConflicts();
  auto open = std::find_if(list.begin(), list.end(), [&](const ConflictEntry& entry) {
    return entry.record.pagePath == page && !entry.record.resolvedAt;
  });
  const bool opened = open == list.end();
  const auto index = static_cast<size_t>(open - list.begin());
  ConflictEntry conflict =
      opened ? ConflictEntry{.record = ConflictRecord{.id = storage::randomUuid(),
                                                      .pagePath = page,
                                                      .candidates = {},
                                                      .openedAt = environment_.now(),
                                                      .resolvedAt = std::nullopt,
                                                      .chosenCandidateID = std::nullopt},
                             .payloads = {}}
             : *open;

  std::unordered_set<std::string> known;
  bool hasBase = false;
  for (const CandidateRecord& candidate : conflict.record.candidates) {
    known.insert(candidate.fingerprint);
    hasBase = hasBase || candidate.role == CandidateRecord::Role::base;
  }
  auto add = [&](const std::string& id, CandidateRecord::Role role, std::string fingerprint,
                 std::int64_t byteCount, contracts::Timestamp capturedAt,
                 const std::string& payloadPath) {
    known.insert(fingerprint);
    hasBase = hasBase || role == CandidateRecord::Role::base;
    conflict.record.candidates.push_back(CandidateRecord{.id = id,
                                                         .role = role,
                                                         .fingerprint = std::move(fingerprint),
                                                         .byteCount = byteCount,
                                                         .capturedAt = capturedAt});
    conflict.payloads.insert_or_assign(id, payloadPath);
  };

  if (baseEntry && !hasBase && !known.contains(baseFingerprint)) {
    add(baseEntry->id, CandidateRecord::Role::base, baseFingerprint,
        static_cast<std::int64_t>(base->size()), baseEntry->capturedAt, baseEntry->payloadPath);
  }

  for (Offered& candidate : offered) {
    if (known.contains(candidate.fingerprint)) {
      continue;
    }
    const RecoveryEntry& entry = *candidate.entry;
    CandidateRecord::Role role = CandidateRecord::Role::disk;
    switch (entry.kind) {
      case RecoveryKind::pendingEditorBytes:
      case RecoveryKind::editorBytesWithdrawn:
        role = CandidateRecord::Role::editor;
        break;
      case RecoveryKind::displacedExternal:
        role = CandidateRecord::Role::disk;
        break;
      case RecoveryKind::displacedExpected:
        role = hasBase ? CandidateRecord::Role::disk : CandidateRecord::Role::base;
        break;
    }
    add(entry.id, role, std::move(candidate.fingerprint), candidate.byteCount, entry.capturedAt,
        entry.payloadPath);
  }

  ConflictRecord result = conflict.record;
  if (opened) {
    conflicts_->append(std::move(conflict), hold);
  } else {
    conflicts_->change({{index, std::move(conflict)}}, hold);
  }
  return result;
}

std::vector<ConflictRecord> LocalRecoveryService::conflicts() {
  std::lock_guard guard(lock_);
  std::vector<ConflictRecord> open;
  for (const ConflictEntry& entry : readConflicts()) {
    if (!entry.record.resolvedAt) {
      open.push_back(std::move(entry.record));
    }
  }
  std::stable_sort(open.begin(), open.end(), [](const ConflictRecord& a, const ConflictRecord& b) {
    return a.openedAt < b.openedAt;
  });
  return open;
}

Bytes LocalRecoveryService::candidateBytes(const std::string& id) {
  std::lock_guard guard(lock_);
  for (const ConflictEntry& entry : readConflicts()) {
    auto candidate = std::find_if(entry.record.candidates.begin(), entry.record.candidates.end(),
                                  [&](const CandidateRecord& c) { return c.id == id; });
    if (candidate == entry.record.candidates.end()) {
      continue;
    }
    auto payload = entry.payloads.find(id);
    if (payload == entry.payloads.end()) {
      continue;  // a damaged entry; another conflict may still know the candidate
    }
    Bytes bytes;
    try {
      bytes = storage::readFileWhole(payload->second, fs_);
    } catch (const FileOpError&) {
      throw RecoveryError::notFound("candidate " + id + ": payload missing at " + payload->second);
    }
    if (Fingerprint::ofBytes(bytes).hex != candidate->fingerprint) {
      throw RecoveryError::storeUnavailable("candidate " + id + ": payload at " + payload->second +
                                            " no longer matches its fingerprint");
    }
    return bytes;
  }
  throw RecoveryError::notFound("candidate " + id);
}

void LocalRecoveryService::markResolved(const std::string& conflictID,
                                        const std::string& chosenCandidateID) {
  std::unique_lock hold(lock_);
  const std::vector<ConflictEntry>& list = readConflicts();
  auto found = std::find_if(list.begin(), list.end(), [&](const ConflictEntry& entry) {
    return entry.record.id == conflictID;
  });
  if (found == list.end()) {
    throw RecoveryError::notFound("conflict " + conflictID);
  }
  const auto& candidates = found->record.candidates;
  if (std::none_of(candidates.begin(), candidates.end(),
                   [&](const CandidateRecord& c) { return c.id == chosenCandidateID; })) {
    throw RecoveryError::notFound("candidate " + chosenCandidateID + " in conflict " + conflictID);
  }
  ConflictEntry conflict = *found;
  conflict.record.resolvedAt = environment_.now();
  conflict.record.chosenCandidateID = chosenCandidateID;
  conflicts_->change({{static_cast<size_t>(found - list.begin()), std::move(conflict)}}, hold);
}

// Operations journal

OperationRecord LocalRecoveryService::beginOperation(
    const std::string& label, const std::vector<OperationRecord::Step>& steps) {
  std::unique_lock hold(lock_);
  readOperations();
  OperationRecord record{.id = storage::randomUuid(),
                         .label = label,
                         .steps = steps,
                         .startedAt = environment_.now(),
                         .finishedAt = std::nullopt};
  operations_->append(record, hold);
  return record;
}

void LocalRecoveryService::updateStep(const std::string& operationID, std::int64_t index,
                                      OperationRecord::StepState state) {
  std::unique_lock hold(lock_);
  const std::vector<OperationRecord>& journal = readOperations();
  const size_t at = operationIn(journal, operationID);
  if (index < 0 || static_cast<std::uint64_t>(index) >= journal[at].steps.size()) {
    throw RecoveryError::notFound("step " + std::to_string(index) + " of operation " + operationID);
  }
  OperationRecord operation = journal[at];
  operation.steps[static_cast<size_t>(index)].state = state;
  operations_->change({{at, std::move(operation)}}, hold);
}

void LocalRecoveryService::finishOperation(const std::string& operationID) {
  std::unique_lock hold(lock_);
  const std::vector<OperationRecord>& journal = readOperations();
  const size_t at = operationIn(journal, operationID);
  OperationRecord operation = journal[at];
  operation.finishedAt = environment_.now();
  operations_->change({{at, std::move(operation)}}, hold);
}

std::vector<OperationRecord> LocalRecoveryService::unfinishedOperations() {
  std::lock_guard guard(lock_);
  std::vector<OperationRecord> unfinished;
  for (const OperationRecord& record : readOperations()) {
    if (!record.finishedAt) {
      unfinished.push_back(record);
    }
  }
  std::stable_sort(
      unfinished.begin(), unfinished.end(),
      [](const OperationRecord& a, const OperationRecord& b) { return a.startedAt < b.startedAt; });
  return unfinished;
}

// Retention

std::unordered_set<std::string> LocalRecoveryService::pinnedPayloadPaths(
    const std::vector<DraftEntry>& drafts, const std::vector<ConflictEntry>& conflicts) {
  std::unordered_set<std::string> pinned;
  for (const DraftEntry& entry : drafts) {
    if (!entry.discarded) {
      pinned.insert(entry.payloadPath);
    }
  }
  for (const ConflictEntry& entry : conflicts) {
    for (const auto& [id, path] : entry.payloads) {
      pinned.insert(path);
    }
  }
  return pinned;
}

RetentionPlan LocalRecoveryService::retentionPlan(
    const std::set<std::string>& pages, const std::vector<DraftEntry>& drafts,
    const RetentionStoreIndex::EntriesByPage& storeEntries) {
  if (retainedPerPage_ < 0) {
    return {};
  }
  // Nothing is deleted while conflicts.json cannot be read. The list stays
  // valid under the caller's hold.
  const std::vector<ConflictEntry>* conflicts = nullptr;
  try {
    conflicts = &readConflicts();
  } catch (const RecoveryError&) {
    return {};
  }
  // Gathered only once a version is old enough to go, which most discards
  // never meet: the pins grow with the workspace's history.
  std::optional<std::unordered_set<std::string>> pinned;
  auto isPinned = [&](const std::string& payloadPath) {
    if (!pinned) {
      pinned = pinnedPayloadPaths(drafts, *conflicts);
    }
    return pinned->contains(payloadPath);
  };
  return RetentionPlan::make(pages, drafts, isPinned, storeEntries, retentionStore_->directory(),
                             retainedPerPage_, retentionGrace_, environment_.now());
}

const RetentionStoreIndex::EntriesByPage& LocalRecoveryService::storeEntriesForOnePage() {
  // The store stamps a version with its own clock's whole second when it takes
  // it, so a version the index has not met is no older than the moment its last
  // listing began. While that moment is inside the grace, no such version could
  // be deleted, and leaving it out ranks the page's known versions higher, so
  // the plan deletes less, never more. (A version the index still holds but
  // another pass deleted lay beyond the newest N, which all rank above it.)
  // Listing a large store on every discard would hold the lock for longer than
  // all the rest of the discard.
  const double cutoff =
      std::chrono::duration<double>(environment_.now().time_since_epoch()).count() -
      retentionGrace_;
  if (storeListedAt_ &&
      std::chrono::duration<double>(storeListedAt_->time_since_epoch()).count() >= cutoff) {
    return storeIndex_.entriesByPage();
  }
  const contracts::Timestamp listing = contracts::wholeSecondsNow();
  const RetentionStoreIndex::EntriesByPage& entries = storeIndex_.refresh(*retentionStore_);
  storeListedAt_ = listing;
  return entries;
}

void LocalRecoveryService::prune(const std::vector<std::string>& payloadPaths) {
  for (const std::string& payload : payloadPaths) {
    // The sidecar goes first: a payload without one is no longer an entry, so
    // a pass cut short here never leaves an entry whose payload is gone.
    for (const std::string& path : {sidecarOf(payload), payload}) {
      struct stat st {};
      if (fs_.lstat(path, &st) != 0) {
        continue;
      }
      if (fs_.unlink(path) != 0) {
        log("retention budget could not delete " + path + ": " +
            FileOpError::fromErrno("unlink", path).description());
      }
    }
  }
}

void LocalRecoveryService::enforceRetentionBudget() {
  std::unique_lock hold(lock_);
  // A plan that drops drafts is made while no write of them is under way, so
  // the list it keeps is the whole list (CachedIndex::rewrite).
  drafts_->awaitWrites(hold);
  const std::vector<DraftEntry>& list = readDrafts();
  // The store index is refreshed once per pass: under the lock nothing of this
  // service changes the store between gathering the pages and planning.
  const RetentionStoreIndex::EntriesByPage& storeEntries = storeIndex_.refresh(*retentionStore_);
  std::set<std::string> pages;
  for (const DraftEntry& entry : list) {
    pages.insert(entry.record.pagePath);
  }
  for (const auto& [page, entries] : storeEntries) {
    pages.insert(page);
  }
  if (pages.empty()) {
    return;
  }
  RetentionPlan plan = retentionPlan(pages, list, storeEntries);
  if (!plan.droppedDrafts.empty()) {
    drafts_->rewrite(plan.keptDrafts(list), hold);
  }
  prune(plan.deletions);
}

// Swap sweep

std::vector<RecoveryEntry> LocalRecoveryService::loadStoreIndex() {
  RetentionStoreIndex loaded;
  loaded.refresh(*retentionStore_);
  std::vector<RecoveryEntry> entries;
  entries.reserve(loaded.size());
  for (const auto& [page, versions] : loaded.entriesByPage()) {
    entries.insert(entries.end(), versions.begin(), versions.end());
  }
  std::lock_guard guard(lock_);
  if (storeIndex_.size() == 0) {
    storeIndex_ = std::move(loaded);
  }
  return entries;
}

bool LocalRecoveryService::retentionStoreAcceptsWrites() {
  // Making a file answers for everything that can refuse one (mode bits, ACLs,
  // a read-only mount), which a test of the mode bits alone would not.
  std::string probe =
      storage::joinPath(retentionStore_->directory(), ".probe-" + storage::randomUuid());
  int fd = fs_.open(probe, O_WRONLY | O_CREAT | O_EXCL, 0600);
  if (fd < 0) {
    return false;
  }
  fs_.close(fd);
  fs_.unlink(probe);
  return true;
}

std::vector<RecoveryEntry> LocalRecoveryService::sweepOrphanedSwaps() {
  std::lock_guard guard(lock_);
  std::vector<std::string> swaps;
  collectSwapFiles(workspaceRoot_, swaps, fs_);
  std::vector<RecoveryEntry> adopted;
  std::vector<std::pair<std::string, std::string>> failures;
  for (const std::string& swap : swaps) {
    storage::StabilizedFingerprint settled = storage::stabilizedFingerprint(
        swap, environment_.swapSettleInterval, kSwapSettleAttempts, fs_);
    try {
      adopted.push_back(retentionStore_->adopt(swap, RecoveryKind::displacedExternal,
                                               pageForSwap(swap), settled.fingerprint,
                                               settled.byteCount, settled.stabilized));
    } catch (const std::exception& error) {
      failures.emplace_back(swap, describe(error));
    }
  }
  for (const auto& [swap, error] : failures) {
    log("orphaned swap left in place at " + swap + ": " + error);
  }
  if (!failures.empty() && !retentionStoreAcceptsWrites()) {
    throw RecoveryError::storeUnavailable(
        "retention store at " + retentionStore_->directory() + " cannot accept writes; " +
        std::to_string(failures.size()) + " orphaned swap file(s) left in the workspace");
  }
  return adopted;
}

// Version history

const RenameHistory& LocalRecoveryService::renameHistory() {
  // Parsing a journal of a thousand entries costs more than the rest of a
  // history request; it is parsed again only when the operations changed.
  try {
    const std::vector<OperationRecord>& operations = readOperations();
    if (renamesGeneration_ != operations_->generation()) {
      renames_ = RenameHistory(operations);
      renamesGeneration_ = operations_->generation();
    }
  } catch (const RecoveryError& error) {
    log(std::string("version history follows no renames: ") + error.what());
    renames_ = RenameHistory({});
    renamesGeneration_ = 0;
  }
  return renames_;
}

std::vector<RecoveryEntry> LocalRecoveryService::pageHistory(const std::string& pagePath) {
  std::lock_guard guard(lock_);
  const RetentionStoreIndex::EntriesByPage& byPage = storeIndex_.refresh(*retentionStore_);
  const RenameHistory& renames = renameHistory();
  std::vector<RecoveryEntry> history;
  for (const std::string& name : renames.formerPaths(pagePath)) {
    auto found = byPage.find(name);
    if (found == byPage.end()) {
      continue;
    }
    for (const RecoveryEntry& entry : found->second) {
      if (renames.currentPath(entry.pagePath, entry.capturedAt) == pagePath) {
        history.push_back(entry);
      }
    }
  }
  std::sort(history.begin(), history.end(), [](const RecoveryEntry& a, const RecoveryEntry& b) {
    return a.capturedAt != b.capturedAt ? a.capturedAt > b.capturedAt : a.id > b.id;
  });
  return history;
}

RecoveryEntry LocalRecoveryService::retainedVersion(const std::string& id) {
  std::lock_guard guard(lock_);
  storeIndex_.refresh(*retentionStore_);
  const RecoveryEntry* entry = storeIndex_.find(id);
  if (entry == nullptr) {
    throw RecoveryError::notFound(id);
  }
  return *entry;
}

std::vector<RetainedPage> LocalRecoveryService::retainedPages(const std::string& folder) {
  std::lock_guard guard(lock_);
  const RetentionStoreIndex::EntriesByPage& byPage = storeIndex_.refresh(*retentionStore_);
  const RenameHistory& renames = renameHistory();
  const std::string prefix = folder.ends_with('/') ? folder : folder + "/";
  auto under = [&](const std::string& path) {
    return path.size() > prefix.size() && path.starts_with(prefix);
  };
  std::map<std::string, RetainedPage> pages;
  for (const auto& [page, entries] : byPage) {
    // Most pages were never renamed: all their versions stay theirs.
    const bool moved = renames.movedAway(page);
    if (!moved && !under(page)) {
      continue;
    }
    for (const RecoveryEntry& entry : entries) {
      std::string owner = moved ? renames.currentPath(page, entry.capturedAt) : page;
      if (!under(owner)) {
        continue;
      }
      RetainedPage& summary = pages[owner];
      if (summary.versionCount++ == 0 || summary.newestCapturedAt < entry.capturedAt) {
        summary.newestCapturedAt = entry.capturedAt;
      }
      summary.pagePath = std::move(owner);
    }
  }
  std::vector<RetainedPage> result;
  result.reserve(pages.size());
  for (auto& [path, summary] : pages) {
    result.push_back(std::move(summary));
  }
  return result;
}

}  // namespace vorna::recovery
