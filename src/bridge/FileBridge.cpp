#include "bridge/FileBridge.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <utility>

#include "bridge/ContentTypes.h"
#include "bridge/ExecutableRefusal.h"
#include "bridge/FreedesktopTrash.h"
#include "bridge/ItemFacts.h"
#include "bridge/NaturalOrder.h"
#include "bridge/PageKinds.h"
#include "contracts/BridgeHeader.h"
#include "contracts/ConflictRecord.h"
#include "contracts/OperationRecord.h"
#include "recovery/PathForms.h"
#include "recovery/RecoveryMaintenance.h"
#include "recovery/RenameHistory.h"
#include "storage/ConflictKind.h"
#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"
#include "storage/Fingerprint.h"
#include "storage/PathNames.h"
#include "storage/RecoveryKind.h"
#include "storage/Utf8.h"

namespace vorna::bridge {
namespace {

using contracts::BridgeRequest;
using contracts::BridgeResponse;
using contracts::Bytes;
using contracts::Json;
using storage::Fingerprint;

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kCreatedFileMode = 0644;

BridgeResponse notFound(const std::string& path) {
  return BridgeResponse::error(404, "not found: " + path);
}

BridgeResponse ok() {
  return BridgeResponse::json(200, Json{{"ok", true}});
}

// A pipe, device or socket is never saved over or moved: a reader or writer
// on its other end could be handed a page, or hold the operation for good.
std::optional<BridgeResponse> refuseSpecialFile(const std::string& path, storage::FileSystem& fs) {
  struct stat info {};
  if (fs.stat(path, &info) != 0 || S_ISDIR(info.st_mode) || S_ISREG(info.st_mode)) {
    return std::nullopt;
  }
  return BridgeResponse::error(400, storage::FileOpError::notAFile(path).description());
}

// A record that cannot be turned into JSON stands as an empty map, so one bad
// record never fails a whole answer.
template <typename Record>
Json jsonValue(const Record& record) {
  try {
    return record.toJson();
  } catch (const std::exception&) {
    return Json::object();
  }
}

// The value of a query parameter, or nothing when it is absent or empty.
std::optional<std::string> nonEmptyQuery(const BridgeRequest& request, const std::string& key) {
  auto found = request.query.find(key);
  if (found == request.query.end() || found->second.empty()) {
    return std::nullopt;
  }
  return found->second;
}

// A list from the recovery service as a bare JSON array, in the order fetched,
// each item converted by `convert` (records by their own JSON form); any
// failure of the service is 507.
template <typename Fetch, typename Convert>
BridgeResponse listAnswer(Fetch fetch, Convert convert) {
  try {
    Json array = Json::array();
    for (const auto& item : fetch()) {
      array.push_back(convert(item));
    }
    return BridgeResponse::json(200, array);
  } catch (const std::exception& error) {
    return BridgeResponse::error(507, error.what());
  }
}

template <typename Fetch>
BridgeResponse listAnswer(Fetch fetch) {
  return listAnswer(fetch, [](const auto& record) { return jsonValue(record); });
}

// One element of a version history.
Json versionJson(const storage::RecoveryEntry& version) {
  Json item{{"byteCount", version.byteCount},
            {"capturedAt", contracts::formatIsoDate(version.capturedAt)},
            {"id", version.id},
            {"kind", storage::recoveryKindName(version.kind)}};
  if (version.fingerprint) {
    item["fingerprint"] = version.fingerprint->hex;
  }
  return item;
}

// The bytes the recovery service keeps under the "id" parameter, with exactly
// two headers; any failure to get them is `missing` + the id, status 404.
template <typename Fetch>
BridgeResponse bytesAnswer(const BridgeRequest& request, std::string_view missing, Fetch fetch) {
  std::optional<std::string> id = nonEmptyQuery(request, "id");
  if (!id) {
    return BridgeResponse::error(400, "missing id");
  }
  Bytes bytes;
  try {
    bytes = fetch(*id);
  } catch (const std::exception&) {
    return BridgeResponse::error(404, std::string(missing) + *id);
  }
  std::string hex = Fingerprint::ofBytes(bytes).hex;
  return BridgeResponse{200,
                        {{"Content-Type", "application/octet-stream"},
                         {contracts::BridgeHeader::fingerprint, std::move(hex)}},
                        std::move(bytes)};
}

}  // namespace

// Rows 10 to 17 mutate. The order is the protocol's: the first match wins.
const std::array<FileBridge::Route, 22> FileBridge::kRoutes{{
    {"GET", "list", &FileBridge::list, Route::Locking::none},
    {"GET", "stat", &FileBridge::stat, Route::Locking::none},
    {"GET", "file", &FileBridge::readFile, Route::Locking::none},
    {"HEAD", "file", &FileBridge::headFile, Route::Locking::none},
    {"GET", "drafts", &FileBridge::listDrafts, Route::Locking::none},
    {"GET", "draft", &FileBridge::draftBytes, Route::Locking::none},
    {"GET", "conflicts", &FileBridge::listConflicts, Route::Locking::none},
    {"GET", "candidate", &FileBridge::candidateBytes, Route::Locking::none},
    {"GET", "operations", &FileBridge::listOperations, Route::Locking::none},
    {"PUT", "file", &FileBridge::putFile, Route::Locking::item},
    {"DELETE", "file", &FileBridge::trashFile, Route::Locking::subtree},
    {"POST", "mkdir", &FileBridge::makeFolder, Route::Locking::item},
    {"POST", "rename", &FileBridge::rename, Route::Locking::own},
    {"PUT", "draft", &FileBridge::storeDraft, Route::Locking::item},
    {"DELETE", "draft", &FileBridge::discardDraft, Route::Locking::item},
    {"POST", "resolve", &FileBridge::resolve, Route::Locking::own},
    {"POST", "dismiss", &FileBridge::dismiss, Route::Locking::item},
    {"POST", "reveal", &FileBridge::reveal, Route::Locking::none},
    {"POST", "open", &FileBridge::open, Route::Locking::none},
    {"GET", "history", &FileBridge::listHistory, Route::Locking::none},
    {"GET", "version", &FileBridge::readVersion, Route::Locking::none},
    {"GET", "deleted", &FileBridge::listDeleted, Route::Locking::none},
}};

FileBridge::FileBridge(std::string workspaceRoot,
                       std::shared_ptr<recovery::RecoveryServicing> recovery,
                       BridgeEnvironment environment, storage::FileSystem& fs)
    : workspaceRoot_(std::move(workspaceRoot)),
      recovery_(std::move(recovery)),
      boundary_(workspaceRoot_, fs),
      watcher_(boundary_, fs),
      checkpoints_(recovery_->retentionStore(), environment.log),
      environment_(std::move(environment)),
      fs_(fs) {}

FileBridge::~FileBridge() {
  if (preparing_.joinable()) {
    preparing_.join();
  }
}

void FileBridge::prepareInBackground() {
  auto* maintenance = dynamic_cast<recovery::RecoveryMaintenance*>(recovery_.get());
  if (maintenance == nullptr) {
    return;  // the checkpoints read the store when first needed
  }
  checkpoints_.expectSeed();
  preparing_ = std::thread([this, maintenance] {
    checkpoints_.seed(maintenance->loadStoreIndex());
    try {
      maintenance->enforceRetentionBudget();
    } catch (const std::exception& error) {
      checkpoints_.log(std::string("retention budget skipped: ") + error.what());
    }
  });
}

BridgeResponse FileBridge::handle(const BridgeRequest& request) {
  try {
    return dispatch(request);
  } catch (const std::exception& error) {
    // Every expected failure is answered where it happens; this only keeps an
    // unexpected one (memory exhausted, say) from taking the transport down.
    return BridgeResponse::error(500, error.what());
  } catch (...) {
    return BridgeResponse::error(500, "unexpected failure");
  }
}

BridgeResponse FileBridge::dispatch(const BridgeRequest& request) {
  for (const Route& route : kRoutes) {
    if (route.method != request.method || route.op != request.op) {
      continue;
    }
    return run(route, request);
  }
  return BridgeResponse::error(404, "unknown op: " + request.method + " " + request.op);
}

BridgeResponse FileBridge::run(const Route& route, const BridgeRequest& request) {
  if (const Operation* operation = std::get_if<Operation>(&route.run)) {
    return (this->*(*operation))(request);
  }
  // Every operation on an item names it by "path" and checks nothing before it.
  TargetResult resolved = target(request, "path");
  if (auto* refusal = std::get_if<PathRefusal>(&resolved)) {
    return refusal->response;
  }
  const std::string& path = std::get<std::string>(resolved);
  storage::PathLocks::Hold hold;
  if (route.locking == Route::Locking::item || route.locking == Route::Locking::subtree) {
    hold = pathLocks_.acquire(path, route.locking == Route::Locking::item
                                        ? storage::PathLocks::Reach::item
                                        : storage::PathLocks::Reach::subtree);
  }
  return (this->*std::get<PathOperation>(route.run))(request, path);
}

void FileBridge::startWatching(std::function<void(const contracts::WorkspaceChange&)> onChange) {
  watcher_.start(std::move(onChange), watchNotice_);
}

void FileBridge::setWatchNoticeHandler(std::function<void(const std::string& notice)> onNotice) {
  watchNotice_ = std::move(onNotice);
}

void FileBridge::stopWatching() {
  watcher_.stop();
}

TargetResult FileBridge::target(const BridgeRequest& request, const std::string& key) const {
  return resolveTarget(boundary_, request, key);
}

storage::SafeAdapter& FileBridge::adapter() {
  std::call_once(adapterOnce_, [this] {
    adapter_ = std::make_unique<storage::SafeAdapter>(
        recovery_->retentionStore(), kSettleInterval, kSettleAttempts,
        /*retainPendingBytes=*/false, /*restoreExternalVersion=*/true, fs_);
  });
  return *adapter_;
}

std::function<void(const std::string&)> FileBridge::announceFolder() {
  return [this](const std::string& folder) { watcher_.noteOwnWrite(folder, std::nullopt); };
}

bool FileBridge::fileExists(const std::string& path) const {
  struct stat info {};
  return fs_.stat(path, &info) == 0 && !S_ISDIR(info.st_mode);
}

std::map<std::string, std::string> FileBridge::fileHeaders(const std::string& path,
                                                           const std::string& fingerprint) const {
  return {
      {"Content-Type", std::string(ContentTypes::forPath(path))},
      {contracts::BridgeHeader::fingerprint, fingerprint},
      {contracts::BridgeHeader::mtime, std::to_string(modificationTime(path, fs_).milliseconds)},
  };
}

Json FileBridge::saveResult(const std::string& path, size_t bytes,
                            const std::string& fingerprint) const {
  return Json{{"ok", true},
              {"bytes", bytes},
              {"fingerprint", fingerprint},
              {"mtime_ms", modificationTime(path, fs_).milliseconds}};
}

// ---- Reads ----

BridgeResponse FileBridge::list(const BridgeRequest&, const std::string& path) {
  if (kindOf(path, fs_) != ItemKind::directory) {
    return BridgeResponse::error(404, "not a directory: " + path);
  }
  std::vector<std::string> names;
  std::vector<unsigned char> types;
  if (fs_.listDirectoryTyped(path, names, types) != 0) {
    return BridgeResponse::error(404, "cannot read directory: " + path);
  }
  // Hidden and unnamable entries are dropped in place, their types with them.
  size_t kept = 0;
  size_t unnamed = 0;
  for (size_t index = 0; index < names.size(); ++index) {
    if (names[index].front() == '.') {
      continue;
    }
    // JSON can carry only UTF-8, and the editor could not name such an item
    // back to the host anyway; one such name must not blank the listing.
    if (!storage::isValidUtf8(names[index])) {
      ++unnamed;
      continue;
    }
    if (kept != index) {
      names[kept] = std::move(names[index]);
      types[kept] = types[index];
    }
    ++kept;
  }
  names.resize(kept);
  types.resize(kept);
  if (unnamed > 0) {
    checkpoints_.log("list of " + path + " left out " + std::to_string(unnamed) +
                     " name(s) that are not valid UTF-8");
  }
  watcher_.noteInterest(path);
  // Written as text, since a JSON value per entry costs more than the listing
  // itself; the bytes are writeJson's for the same array.
  std::string text = "[";
  size_t length = 2;
  for (const std::string& name : names) {
    length += name.size() + 32;
  }
  text.reserve(length);
  std::string itemPath = path;
  itemPath += '/';
  const size_t folderLength = itemPath.size();
  for (size_t index : naturalOrder(names)) {
    const std::string& name = names[index];
    // The folder's own record of the type spares a status per entry; a link
    // is a folder when its target is, and an unrecorded type must be looked at.
    bool isFolder = types[index] == DT_DIR;
    if (types[index] == DT_LNK || types[index] == DT_UNKNOWN) {
      itemPath.resize(folderLength);
      itemPath += name;
      isFolder = kindOf(itemPath, fs_) == ItemKind::directory;
    }
    if (text.size() > 1) {
      text += ',';
    }
    text += isFolder ? R"({"kind":"directory","name":)" : R"({"kind":"file","name":)";
    const bool plain = std::none_of(name.begin(), name.end(), [](char c) {
      return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20;
    });
    if (plain) {
      text += '"';
      text += name;
      text += '"';
    } else {
      text += contracts::writeJson(Json(name));
    }
    text += '}';
  }
  text += ']';
  return BridgeResponse::jsonText(200, std::move(text));
}

BridgeResponse FileBridge::stat(const BridgeRequest&, const std::string& path) {
  std::optional<ItemKind> kind = kindOf(path, fs_);
  if (!kind) {
    return notFound(path);
  }
  const ModificationTime time = modificationTime(path, fs_);
  Json facts{{"kind", itemKindName(*kind)},
             {"mtime", time.seconds},
             {"mtime_ms", time.milliseconds},
             {"size", 0}};
  if (isRegularFile(path, fs_)) {
    try {
      storage::FileFingerprint content = storage::fingerprintFile(path, fs_);
      facts["size"] = content.byteCount;
      facts["fingerprint"] = content.fingerprint.hex;
    } catch (const std::exception&) {
      // An unreadable file is still there: its status says so, without content.
    }
  }
  return BridgeResponse::json(200, facts);
}

BridgeResponse FileBridge::readFile(const BridgeRequest&, const std::string& path) {
  if (kindOf(path, fs_) != ItemKind::file) {
    return notFound(path);
  }
  Bytes bytes;
  try {
    bytes = storage::readFileWhole(path, fs_);
  } catch (const std::exception&) {
    return notFound(path);
  }
  watcher_.noteInterest(path);
  // One read feeds the fingerprint, the checkpoint and the body, so all three
  // describe the same version even if the file changes meanwhile.
  std::string fingerprint = Fingerprint::ofBytes(bytes).hex;
  if (PageKinds::isPage(path)) {
    checkpoints_.checkpoint(path, bytes, fingerprint);
  }
  return BridgeResponse{200, fileHeaders(path, fingerprint), std::move(bytes)};
}

BridgeResponse FileBridge::headFile(const BridgeRequest& request, const std::string& path) {
  BridgeResponse response = readFile(request, path);
  if (response.status == 200) {
    response.body.clear();
  }
  return response;
}

// ---- Mutations ----

BridgeResponse FileBridge::putFile(const BridgeRequest& request, const std::string& path) {
  std::optional<std::string> base = request.header(contracts::BridgeHeader::base);
  if (!base || base->empty()) {
    return createFile(request, path);
  }
  return saveFile(request, path, *base);
}

BridgeResponse FileBridge::saveFile(const BridgeRequest& request, const std::string& page,
                                    const std::string& base) {
  if (std::optional<BridgeResponse> refusal = refuseSpecialFile(page, fs_)) {
    return *refusal;
  }
  // The editor's bytes are held by the recovery service before the page is
  // touched; without that there is no write at all.
  std::optional<recovery::SavedDraft> draft;
  try {
    draft = recovery_->saveDraft(page, request.body, base);
  } catch (const std::exception& error) {
    return BridgeResponse::error(507, error.what());
  }
  const std::string editorFingerprint = Fingerprint::ofBytes(request.body).hex;
  watcher_.noteOwnWrite(page, editorFingerprint);
  storage::SaveOutcome outcome = adapter().save(page, request.body, Fingerprint::fromHex(base));
  if (outcome.isSaved()) {
    const std::string& written = outcome.savedInfo().fingerprint.hex;
    recordWrittenVersion(page, request.body, written, draft);
    watcher_.noteOwnWrite(page, written);
    return BridgeResponse::json(200, saveResult(page, request.body.size(), written));
  }
  if (outcome.isConflict()) {
    const storage::ConflictInfo& info = outcome.conflictInfo();
    std::optional<std::string> onDisk;
    if (info.onDiskNow) {
      onDisk = info.onDiskNow->hex;
    }
    watcher_.noteOwnWrite(page, onDisk);
    return conflictResponse(page, base, draft, request.body, editorFingerprint, info);
  }
  const storage::SaveFailure& failure = outcome.failure();
  if (failure.kind() == storage::SaveFailure::Kind::pageMissing) {
    return notFound(page);
  }
  return BridgeResponse::error(500, failure.description());
}

BridgeResponse FileBridge::conflictResponse(const std::string& page, const std::string& base,
                                            const std::optional<recovery::SavedDraft>& draft,
                                            const Bytes& editorBytes,
                                            const std::string& editorFingerprint,
                                            const storage::ConflictInfo& info) {
  storage::RecoveryStore& store = recovery_->retentionStore();
  std::vector<storage::RecoveryEntry> retained = info.retained;
  auto holds = [&retained](const std::string& fingerprint) {
    return std::find_if(retained.begin(), retained.end(), [&](const storage::RecoveryEntry& e) {
      return e.fingerprint && e.fingerprint->hex == fingerprint;
    });
  };

  // The base: the version the editor loaded, found by its fingerprint.
  std::optional<Bytes> baseBytes;
  std::optional<std::string> basePayload = checkpoints_.payloadURL(page, base);
  if (!basePayload) {
    if (auto entry = holds(base); entry != retained.end()) {
      basePayload = entry->payloadPath;
    }
  }
  if (basePayload) {
    try {
      baseBytes = storage::readFileWhole(*basePayload, fs_);
    } catch (const std::exception&) {
    }
  }

  // The editor's version, unless this save already retained it.
  if (holds(editorFingerprint) == retained.end()) {
    std::optional<storage::RecoveryEntry> draftCopy;
    if (dynamic_cast<recovery::RecoveryMaintenance*>(recovery_.get()) == nullptr) {
      draftCopy = draftEntry(draft);
      if (draftCopy && !fileExists(draftCopy->payloadPath)) {
        draftCopy.reset();
      }
    }
    if (draftCopy) {
      retained.push_back(*draftCopy);
    } else {
      try {
        retained.push_back(
            store.retain(editorBytes, storage::RecoveryKind::pendingEditorBytes, page));
      } catch (const std::exception& error) {
        checkpoints_.log("editor version not retained for " + page + ": " + error.what());
      }
    }
  }

  // The disk's version, which from now on is what the editor is taken to hold.
  std::optional<std::string> diskFingerprint;
  std::optional<Bytes> disk;
  if (kindOf(page, fs_) == ItemKind::file) {
    try {
      disk = storage::readFileWhole(page, fs_);
    } catch (const std::exception&) {
    }
  }
  if (disk) {
    diskFingerprint = Fingerprint::ofBytes(*disk).hex;
    try {
      storage::RecoveryEntry entry =
          store.retain(*disk, storage::RecoveryKind::displacedExternal, page);
      adoptCheckpoint(page, *diskFingerprint, entry.payloadPath);
      retained.push_back(std::move(entry));
    } catch (const std::exception& error) {
      checkpoints_.log("disk version not retained for " + page + ": " + error.what());
    }
  } else if (info.onDiskNow) {
    diskFingerprint = info.onDiskNow->hex;
  } else if (isRegularFile(page, fs_)) {
    try {
      diskFingerprint = storage::fingerprintFile(page, fs_).fingerprint.hex;
    } catch (const std::exception&) {
    }
  }

  Json answer{{"error", "conflict"}, {"kind", storage::conflictKindName(info.kind)}};
  if (diskFingerprint) {
    answer["fingerprint"] = *diskFingerprint;
  }
  try {
    std::optional<std::string_view> baseView;
    if (baseBytes) {
      baseView = *baseBytes;
    }
    answer["conflict"] = jsonValue(recovery_->recordConflict(page, baseView, retained));
  } catch (const std::exception& error) {
    answer["conflict_error"] = error.what();
  }
  return BridgeResponse::json(409, answer);
}

void FileBridge::recordWrittenVersion(const std::string& page, const Bytes& bytes,
                                      const std::string& fingerprint,
                                      const std::optional<recovery::SavedDraft>& draft) {
  // The draft already holds these exact bytes in the store; a second copy
  // would only cost a write and a flush.
  if (draft && fileExists(draft->payloadPath)) {
    adoptCheckpoint(page, fingerprint, draft->payloadPath);
    return;
  }
  if (PageKinds::isPage(page)) {
    checkpoints_.checkpoint(page, bytes, fingerprint);
  }
}

void FileBridge::adoptCheckpoint(const std::string& page, const std::string& fingerprint,
                                 const std::string& payloadPath) {
  std::lock_guard guard(checkpoints_.lock());
  checkpoints_.seedIfNeeded();
  checkpoints_.noteLocked(page, fingerprint, payloadPath);
}

std::optional<storage::RecoveryEntry> FileBridge::draftEntry(
    const std::optional<recovery::SavedDraft>& draft) {
  if (!draft) {
    return std::nullopt;
  }
  try {
    for (storage::RecoveryEntry& entry : recovery_->retentionStore().entries()) {
      if (entry.id == draft->record.id) {
        return std::move(entry);
      }
    }
  } catch (const std::exception&) {
  }
  return std::nullopt;
}

BridgeResponse FileBridge::createFile(const BridgeRequest& request, const std::string& path) {
  if (kindOf(path, fs_)) {
    return BridgeResponse::error(409, "exists");
  }
  std::optional<recovery::SavedDraft> draft;
  try {
    draft = recovery_->saveDraft(path, request.body, std::nullopt);
  } catch (const std::exception& error) {
    return BridgeResponse::error(507, error.what());
  }
  const std::string fingerprint = Fingerprint::ofBytes(request.body).hex;
  watcher_.noteOwnWrite(path, fingerprint);
  const std::string folder = storage::parentFolder(path);
  try {
    changes_.makeFolder(folder, kFolderMode, announceFolder());
    changes_.createExclusively(path, request.body, kCreatedFileMode);
  } catch (const std::exception& error) {
    if (kindOf(path, fs_)) {
      return BridgeResponse::error(409, "exists");  // another writer created it first
    }
    return BridgeResponse::error(500, error.what());
  }
  recordWrittenVersion(path, request.body, fingerprint, draft);
  watcher_.noteOwnWrite(path, fingerprint);
  return BridgeResponse::json(200, saveResult(path, request.body.size(), fingerprint));
}

BridgeResponse FileBridge::makeFolder(const BridgeRequest&, const std::string& path) {
  if (kindOf(path, fs_) == ItemKind::directory) {
    return ok();
  }
  try {
    changes_.makeFolder(path, kFolderMode, announceFolder());
  } catch (const std::exception& error) {
    return BridgeResponse::error(400, error.what());
  }
  return ok();
}

BridgeResponse FileBridge::rename(const BridgeRequest& request, const std::string& source) {
  TargetResult resolvedDestination = target(request, "to");
  if (auto* refusal = std::get_if<PathRefusal>(&resolvedDestination)) {
    return refusal->response;
  }
  const std::string& destination = std::get<std::string>(resolvedDestination);
  if (boundary_.isRoot(source) || boundary_.isRoot(destination)) {
    return BridgeResponse::error(400, "the workspace folder is not a rename target");
  }
  // Nothing runs below either end while the move is looked at and made, so no
  // save writes into a folder half moved.
  storage::PathLocks::Hold hold =
      pathLocks_.acquire({{source, storage::PathLocks::Reach::subtree},
                          {destination, storage::PathLocks::Reach::subtree}});
  std::optional<ItemKind> kind = kindOf(source, fs_);
  if (!kind) {
    return notFound(source);
  }
  if (std::optional<BridgeResponse> refusal = refuseSpecialFile(source, fs_)) {
    return *refusal;
  }
  if (kindOf(destination, fs_)) {
    return BridgeResponse::error(409, "destination exists");
  }
  const bool regular = isRegularFile(source, fs_);
  std::optional<std::string> fingerprint;
  if (regular) {
    try {
      fingerprint = storage::fingerprintFile(source, fs_).fingerprint.hex;
    } catch (const std::exception&) {
    }
  }
  // The journal is how a page's version history follows it to its new name.
  // A name the journal cannot hold (not UTF-8) is moved without an entry.
  std::optional<contracts::OperationRecord> journal;
  if (storage::isValidUtf8(source) && storage::isValidUtf8(destination)) {
    try {
      journal = recovery_->beginOperation(
          std::string(recovery::RenameHistory::kLabel),
          recovery::RenameHistory::journalSteps(source, destination, fingerprint));
    } catch (const std::exception& error) {
      return BridgeResponse::error(507, error.what());
    }
  }
  // The move is announced whole, so that nothing below a moved folder echoes;
  // a file's new path is also announced by content, for a move that had to
  // copy it across file systems.
  watcher_.noteOwnMove(source, destination);
  if (fingerprint) {
    watcher_.noteOwnWrite(destination, fingerprint);
  }
  try {
    changes_.makeFolder(storage::parentFolder(destination), kFolderMode, announceFolder());
    // Neither move replaces what another program put at the destination after
    // the look above; folders (and pipes or devices) move only within one file
    // system.
    changes_.moveIntoFolder(source, destination,
                            regular ? storage::DurableChanges::AcrossFileSystems::copy
                                    : storage::DurableChanges::AcrossFileSystems::refuse);
  } catch (const storage::FileOpError& error) {
    closeJournal(journal, /*landed=*/false);
    if (error.kind() == storage::FileOpError::Kind::wouldOverwrite) {
      return BridgeResponse::error(409, "exists");
    }
    return BridgeResponse::error(409, error.what());
  } catch (const std::exception& error) {
    closeJournal(journal, /*landed=*/false);
    return BridgeResponse::error(409, error.what());
  }
  Json answer{{"ok", true}};
  // The move is made; an entry left unfinished only means the history does
  // not follow it.
  if (std::optional<std::string> error = closeJournal(journal, /*landed=*/true)) {
    answer["journal_error"] = *error;
  }
  return BridgeResponse::json(200, answer);
}

std::optional<std::string> FileBridge::closeJournal(
    const std::optional<contracts::OperationRecord>& operation, bool landed) {
  if (!operation) {
    return std::nullopt;
  }
  try {
    // Each call rewrites the journal, so a move that landed is only finished:
    // a finished rename without a failed step is one that happened.
    for (size_t step = 0; !landed && step < operation->steps.size(); ++step) {
      recovery_->updateStep(operation->id, static_cast<std::int64_t>(step),
                            contracts::OperationRecord::StepState::failed);
    }
    recovery_->finishOperation(operation->id);
  } catch (const std::exception& error) {
    return error.what();
  }
  return std::nullopt;
}

BridgeResponse FileBridge::trashFile(const BridgeRequest&, const std::string& path) {
  if (kindOf(path, fs_) != ItemKind::file) {
    return notFound(path);
  }
  watcher_.noteOwnMove(path, std::nullopt);
  std::optional<std::string> homeTrash = environment_.homeTrash();
  if (!homeTrash) {
    return BridgeResponse::error(404, "no trash folder: neither XDG_DATA_HOME nor HOME is set");
  }
  std::string trashed;
  try {
    // The trash records where the item really was, links resolved, so that a
    // file manager restores it to the same place.
    FreedesktopTrash trash(*homeTrash, fs_);
    trashed = trash.trash(recovery::canonicalPath(path, fs_).value_or(path));
  } catch (const std::exception& error) {
    return BridgeResponse::error(404, error.what());
  }
  return BridgeResponse::json(200, Json{{"ok", true}, {"trashed", trashed}});
}

// ---- Recovery operations ----

BridgeResponse FileBridge::listDrafts(const BridgeRequest&) {
  return listAnswer([this] { return recovery_->drafts(); });
}

BridgeResponse FileBridge::draftBytes(const BridgeRequest& request) {
  return bytesAnswer(
      request, "no draft: ", [this](const std::string& id) { return recovery_->draftBytes(id); });
}

BridgeResponse FileBridge::listConflicts(const BridgeRequest&) {
  return listAnswer([this] { return recovery_->conflicts(); });
}

BridgeResponse FileBridge::candidateBytes(const BridgeRequest& request) {
  return bytesAnswer(request, "no candidate: ", [this](const std::string& id) {
    return recovery_->candidateBytes(id);
  });
}

BridgeResponse FileBridge::listOperations(const BridgeRequest&) {
  return listAnswer([this] { return recovery_->unfinishedOperations(); });
}

BridgeResponse FileBridge::storeDraft(const BridgeRequest& request, const std::string& path) {
  // Present but empty is passed on as the empty string: the editor said it
  // has no base, which differs from not saying anything.
  std::optional<std::string> base = request.header(contracts::BridgeHeader::base);
  try {
    return BridgeResponse::json(200,
                                jsonValue(recovery_->saveDraft(path, request.body, base).record));
  } catch (const std::exception& error) {
    return BridgeResponse::error(507, error.what());
  }
}

BridgeResponse FileBridge::discardDraft(const BridgeRequest&, const std::string& path) {
  try {
    recovery_->discardDraft(path);
  } catch (const std::exception& error) {
    return BridgeResponse::error(507, error.what());
  }
  return ok();
}

BridgeResponse FileBridge::resolve(const BridgeRequest& request) {
  std::optional<std::string> id = nonEmptyQuery(request, "id");
  if (!id) {
    return BridgeResponse::error(400, "missing id");
  }
  std::optional<std::string> choose = nonEmptyQuery(request, "choose");
  if (!choose) {
    return BridgeResponse::error(400, "missing choose");
  }
  std::optional<std::string> disk = nonEmptyQuery(request, "disk");
  if (!disk) {
    return BridgeResponse::error(400, "missing disk");
  }
  std::vector<contracts::ConflictRecord> openConflicts;
  try {
    openConflicts = recovery_->conflicts();
  } catch (const std::exception& error) {
    return BridgeResponse::error(507, error.what());
  }
  auto conflict = std::find_if(openConflicts.begin(), openConflicts.end(),
                               [&](const contracts::ConflictRecord& c) { return c.id == *id; });
  if (conflict == openConflicts.end()) {
    return BridgeResponse::error(404, "no conflict: " + *id);
  }
  Bytes chosen;
  try {
    chosen = recovery_->candidateBytes(*choose);
  } catch (const std::exception&) {
    return BridgeResponse::error(404, "no candidate: " + *choose);
  }
  // The stored path is written as it is, but only when it still leads into
  // the workspace: the conflicts index lives outside it and is not trusted.
  const std::string& page = conflict->pagePath;
  if (page.empty() || page.front() != '/' || !boundary_.resolveInside(page)) {
    return BridgeResponse::error(400, "conflict page is outside the workspace");
  }
  storage::PathLocks::Hold hold = pathLocks_.acquire(page);
  std::string current;
  try {
    if (!isRegularFile(page, fs_)) {
      return BridgeResponse::error(409, "stale");
    }
    current = storage::fingerprintFile(page, fs_).fingerprint.hex;
  } catch (const std::exception&) {
    return BridgeResponse::error(409, "stale");
  }
  if (current != *disk) {
    return BridgeResponse::error(409, "stale");
  }
  watcher_.noteOwnWrite(page, Fingerprint::ofBytes(chosen).hex);
  storage::SaveOutcome outcome = adapter().save(page, chosen, Fingerprint::fromHex(current));
  if (outcome.isConflict()) {
    std::optional<std::string> onDisk;
    if (outcome.conflictInfo().onDiskNow) {
      onDisk = outcome.conflictInfo().onDiskNow->hex;
    }
    watcher_.noteOwnWrite(page, onDisk);
    return BridgeResponse::error(409, "stale");
  }
  if (outcome.isError()) {
    return BridgeResponse::error(500, outcome.failure().description());
  }
  const std::string& written = outcome.savedInfo().fingerprint.hex;
  // The page has its new content; bookkeeping that fails now is reported
  // inside the success, since the editor must learn the new fingerprint.
  Json answer{{"ok", true}, {"fingerprint", written}};
  try {
    recovery_->markResolved(*id, *choose);
  } catch (const std::exception& error) {
    answer["resolve_error"] = error.what();
  }
  try {
    recovery_->discardDraft(page);
  } catch (const std::exception& error) {
    answer["draft_error"] = error.what();
  }
  watcher_.noteOwnWrite(page, written);
  return BridgeResponse::json(200, answer);
}

BridgeResponse FileBridge::dismiss(const BridgeRequest&, const std::string& path) {
  std::vector<contracts::ConflictRecord> openConflicts;
  try {
    openConflicts = recovery_->conflicts();
  } catch (const std::exception& error) {
    return BridgeResponse::error(507, error.what());
  }
  const std::string key = recovery::canonicalPath(path, fs_).value_or(path);
  int closed = 0;
  for (const contracts::ConflictRecord& conflict : openConflicts) {
    const bool belongs =
        conflict.pagePath == path ||
        recovery::canonicalPath(conflict.pagePath, fs_).value_or(conflict.pagePath) == key;
    if (!belongs || conflict.candidates.empty()) {
      continue;
    }
    // The editor's version is what the user was working on; keep that choice.
    auto editor = std::find_if(conflict.candidates.rbegin(), conflict.candidates.rend(),
                               [](const contracts::CandidateRecord& candidate) {
                                 return candidate.role == contracts::CandidateRecord::Role::editor;
                               });
    const contracts::CandidateRecord& chosen =
        editor != conflict.candidates.rend() ? *editor : conflict.candidates.back();
    try {
      recovery_->markResolved(conflict.id, chosen.id);
    } catch (const std::exception& error) {
      return BridgeResponse::error(507, error.what());
    }
    ++closed;
  }
  try {
    recovery_->discardDraft(path);
  } catch (const std::exception&) {
    // The conflicts are closed, which is what was asked; a draft left behind
    // is harmless and can be discarded later.
  }
  return BridgeResponse::json(200, Json{{"ok", true}, {"closed", closed}});
}

// ---- Version history ----

BridgeResponse FileBridge::listHistory(const BridgeRequest&, const std::string& path) {
  return listAnswer([&] { return recovery_->pageHistory(path); }, versionJson);
}

BridgeResponse FileBridge::readVersion(const BridgeRequest& request) {
  std::optional<std::string> id = nonEmptyQuery(request, "id");
  if (!id) {
    return BridgeResponse::error(400, "missing id");
  }
  // The payload is the one this store's sidecar of that name records: the id
  // is looked up, never made into a path.
  storage::RecoveryEntry version;
  Bytes bytes;
  try {
    version = recovery_->retainedVersion(*id);
    bytes = storage::readFileWhole(version.payloadPath, fs_);
  } catch (const std::exception&) {
    return notFound(*id);
  }
  std::map<std::string, std::string> headers =
      fileHeaders(version.payloadPath, Fingerprint::ofBytes(bytes).hex);
  headers["Content-Type"] = ContentTypes::forPath(version.pagePath);  // not ".bin"'s
  return BridgeResponse{200, std::move(headers), std::move(bytes)};
}

BridgeResponse FileBridge::listDeleted(const BridgeRequest&, const std::string& folder) {
  auto deleted = [&] {
    std::vector<recovery::RetainedPage> pages = recovery_->retainedPages(folder);
    // A page is offered only under a path that still names itself inside
    // the workspace: not through a folder that became a link (perhaps to
    // somewhere outside), which GET history would resolve elsewhere.
    std::erase_if(pages, [&](const recovery::RetainedPage& page) {
      return boundary_.resolveInside(page.pagePath) != page.pagePath ||
             kindOf(page.pagePath, fs_).has_value();
    });
    // The service orders by path; that order stays among equal times.
    std::stable_sort(pages.begin(), pages.end(), [](const auto& a, const auto& b) {
      return a.newestCapturedAt > b.newestCapturedAt;
    });
    return pages;
  };
  return listAnswer(deleted, [](const recovery::RetainedPage& page) {
    return Json{{"count", page.versionCount},
                {"newestCapturedAt", contracts::formatIsoDate(page.newestCapturedAt)},
                {"path", page.pagePath}};
  });
}

// ---- Shell operations ----

BridgeResponse FileBridge::reveal(const BridgeRequest&, const std::string& path) {
  environment_.desktop->reveal(path);
  return ok();
}

BridgeResponse FileBridge::open(const BridgeRequest&, const std::string& path) {
  if (std::optional<std::string> refusal = executableRefusal(path, fs_)) {
    return BridgeResponse::error(400, *refusal);
  }
  const char* dryOpen = std::getenv("VORNA_DRY_OPEN");
  if (dryOpen != nullptr && std::string_view(dryOpen) == "1") {
    return BridgeResponse::json(200, Json{{"ok", true}, {"dryRun", true}});
  }
  environment_.desktop->open(path);
  return ok();
}

}  // namespace vorna::bridge
