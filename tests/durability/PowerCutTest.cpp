// Every durable sequence the host runs, cut by a power failure after each of
// its changes into every state the crash model allows (support/SimulatedDisk.h
// states the model's rules and their sources). In each state the next start
// of the host opens the store and sweeps, and then:
//  - every version that existed before the sequence, and the editor's bytes
//    once the answer was given, is in the workspace, in a payload with its
//    sidecar, or in the trash with its record;
//  - every index file parses, and every record it held before is still there;
//  - once the answer was given, what it promised is on disk.
// Then each flush of each sequence is taken away in turn: the model must find
// a state that breaks one of these, or the flush is listed below with the
// reason it stays.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "bridge/DesktopActions.h"
#include "bridge/FileBridge.h"
#include "contracts/BridgeRequest.h"
#include "contracts/Json.h"
#include "recovery/LocalRecoveryService.h"
#include "storage/Fingerprint.h"
#include "storage/RecoveryKind.h"
#include "storage/SafeAdapter.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/SimulatedDisk.h"

namespace vorna::durability {
namespace {

using recovery::LocalRecoveryService;
using storage::FileSystem;
using storage::Fingerprint;
using storage::RecoveryEntry;
using storage::SaveOutcome;
using testing::FaultInjectingFileSystem;
using testing::FsCall;
using testing::SimulatedDisk;

using Problems = std::vector<std::string>;

const std::string kRoot = "/home/u/site";
const std::string kPage = kRoot + "/index.html";
const std::string kStoreRoot = "/home/u/.local/share/Vorna/Recovery";
const std::string kTrash = "/home/u/.local/share/Trash";
const std::string kOld = "<p>the version the editor loaded</p>";
const std::string kNew = "<p>the editor's new bytes</p>";
const std::string kForeign = "<p>written by another program</p>";
const std::string kEarlier = "<p>a version retained before</p>";

// ---- The host, opened on a disk ----

std::unique_ptr<LocalRecoveryService> openService(FileSystem& fs, const std::string& storeRoot,
                                                  size_t journalLimit = 64 * 1024) {
  recovery::RecoveryEnvironment environment;
  environment.indexJournalLimit = journalLimit;
  environment.log = [](std::string_view) {};
  environment.userDataDirectory = [] { return std::optional<std::string>(); };
  environment.swapSettleInterval = 0;
  return std::make_unique<LocalRecoveryService>(kRoot, storeRoot, 20, 86400.0, fs, environment);
}

class NoDesktop final : public bridge::DesktopActions {
 public:
  void reveal(const std::string&) override {}
  void open(const std::string&) override {}
};

std::string hex(const std::string& bytes) {
  return Fingerprint::ofBytes(bytes).hex;
}

// ---- What a state holds ----

// The records of the index files, as found after the setup.
struct Records {
  std::map<std::string, std::string> draftBytes = {};  // by draft id
  std::set<std::string> conflicts = {};
  std::set<std::string> candidates = {};  // their bytes must still be served
  std::set<std::string> operations = {};
};

struct World {
  SimulatedDisk disk;
  std::string storeRoot = kStoreRoot;
  std::string storeDirectory;            // the workspace's store, once opened
  std::set<std::string> versionsBefore;  // every version the setup left
  Records recordsBefore;
};

// Whether the sidecar of `id` in the store parses and its payload holds the
// bytes it names.
bool entryIsWhole(SimulatedDisk& disk, const std::string& storeDirectory, const std::string& id,
                  std::string* payloadBytes = nullptr) {
  std::optional<std::string> text = disk.readFile(storeDirectory + "/retained/" + id + ".json");
  std::optional<contracts::Json> json = text ? contracts::parseJson(*text) : std::nullopt;
  if (!json || !json->is_object() || !json->contains("payloadPath")) {
    return false;
  }
  std::optional<std::string> payload = disk.readFile((*json)["payloadPath"].get<std::string>());
  if (!payload ||
      (json->contains("fingerprint") && (*json)["fingerprint"]["hex"] != hex(*payload))) {
    return false;
  }
  if (payloadBytes != nullptr) {
    *payloadBytes = *payload;
  }
  return true;
}

// Every version a user can still reach: any file in the workspace, any
// payload whose sidecar describes it, anything in the trash with its record.
std::set<std::string> versionsOn(SimulatedDisk& disk, const std::string& storeDirectory) {
  std::set<std::string> versions;
  for (const auto& [path, bytes] : disk.filesBelow(kRoot)) {
    versions.insert(bytes);
  }
  for (const auto& [path, text] : disk.filesBelow(storeDirectory + "/retained")) {
    const std::string name = path.substr(path.rfind('/') + 1);
    std::string payload;
    if (name.ends_with(".json") &&
        entryIsWhole(disk, storeDirectory, name.substr(0, name.size() - 5), &payload)) {
      versions.insert(payload);
    }
  }
  for (const auto& [path, bytes] : disk.filesBelow(kTrash + "/files")) {
    const std::string name = path.substr(path.rfind('/') + 1);
    std::optional<std::string> record = disk.readFile(kTrash + "/info/" + name + ".trashinfo");
    if (record && record->starts_with("[Trash Info]\nPath=")) {
      versions.insert(bytes);
    }
  }
  return versions;
}

Records recordsOf(LocalRecoveryService& service) {
  Records records;
  for (const contracts::DraftRecord& draft : service.drafts()) {
    records.draftBytes[draft.id] = service.draftBytes(draft.id);
  }
  for (const contracts::ConflictRecord& conflict : service.conflicts()) {
    records.conflicts.insert(conflict.id);
    for (const contracts::CandidateRecord& candidate : conflict.candidates) {
      records.candidates.insert(candidate.id);
    }
  }
  for (const contracts::OperationRecord& operation : service.unfinishedOperations()) {
    records.operations.insert(operation.id);
  }
  return records;
}

// ---- Sequences ----

// What an answer promised, checked in every state a power cut leaves after it.
struct Promise {
  std::string answer = {};                 // "saved", "200", ...: what the sequence answered
  std::vector<std::string> versions = {};  // must survive from the answer on
  std::function<void(SimulatedDisk&, Problems&)> onDisk = nullptr;  // before the next open
  Records records = {};  // must be listed after the next open, from the answer on
};

struct Sequence {
  std::string name = {};
  std::function<void(World&)> setup = nullptr;
  // Opens what the sequence needs on `fs` and returns the sequence itself.
  std::function<std::function<Promise()>(World&, FileSystem& fs)> start = nullptr;
  std::string expectedAnswer = {};
  // Checked in every state, answered or not.
  std::function<void(const World&, SimulatedDisk&, Problems&)> always = nullptr;
};

// A workspace with one page and a store that already holds a retained
// version, a draft, a conflict and an unfinished operation.
void workspaceWithStore(World& world, const std::string& pageBytes) {
  world.disk.writeFile(kPage, pageBytes);
  world.disk.writeFile("/mnt/other/.keep", "");
  if (world.storeRoot != kStoreRoot) {
    world.disk.mountSeparateFileSystem("/mnt/other");
  }
  std::unique_ptr<LocalRecoveryService> service = openService(world.disk, world.storeRoot);
  world.storeDirectory = service->storeDirectory();
  RecoveryEntry earlier =
      service->retentionStore().retain(kEarlier, storage::RecoveryKind::displacedExpected, kPage);
  service->saveDraft(kPage, kEarlier, hex(kOld));
  service->recordConflict(kPage, kOld, {earlier});
  service->beginOperation("earlier work", {{kPage, hex(kOld), hex(kEarlier)}});
}

void expectWhole(SimulatedDisk& disk, const std::string& storeDirectory, const RecoveryEntry& entry,
                 Problems& problems) {
  if (!entryIsWhole(disk, storeDirectory, entry.id)) {
    problems.push_back("the answer's entry " + entry.id + " is not whole");
  }
}

void expectFile(SimulatedDisk& disk, const std::string& path,
                const std::optional<std::string>& bytes, Problems& problems) {
  std::optional<std::string> found = disk.readFile(path);
  if (found != bytes) {
    problems.push_back(path + " holds " + (found ? "\"" + *found + "\"" : "nothing") +
                       " instead of " + (bytes ? "\"" + *bytes + "\"" : "nothing"));
  }
}

// What a save's outcome promises: the page as reported, every entry named.
Promise promiseOf(const SaveOutcome& outcome, const std::string& storeDirectory) {
  if (outcome.isError()) {
    return Promise{.answer = "error"};
  }
  std::optional<Fingerprint> page;
  std::vector<RecoveryEntry> entries;
  if (outcome.isSaved()) {
    page = outcome.savedInfo().fingerprint;
    if (outcome.savedInfo().displaced) {
      entries.push_back(*outcome.savedInfo().displaced);
    }
  } else {
    page = outcome.conflictInfo().onDiskNow;
    entries = outcome.conflictInfo().retained;
  }
  return Promise{.answer = outcome.isSaved() ? "saved" : "conflict",
                 .versions = {kNew},
                 .onDisk = [=](SimulatedDisk& disk, Problems& problems) {
                   std::optional<std::string> bytes = disk.readFile(kPage);
                   if (page && (!bytes || hex(*bytes) != page->hex)) {
                     problems.push_back("the page is not the version the answer reported");
                   }
                   for (const RecoveryEntry& entry : entries) {
                     expectWhole(disk, storeDirectory, entry, problems);
                   }
                 }};
}

Sequence save(std::string name, const std::string& before, bool restore, std::string answer,
              bool storeFull = false) {
  return Sequence{
      .name = std::move(name),
      .setup = [before](World& world) { workspaceWithStore(world, before); },
      .start =
          [restore, storeFull](World& world, FileSystem& fs) {
            auto full = std::make_shared<FaultInjectingFileSystem>(fs);
            if (storeFull) {
              full->failWhere(FsCall::open, "/retained/", ENOSPC);
            }
            std::shared_ptr<LocalRecoveryService> service = openService(*full, world.storeRoot);
            auto adapter = std::make_shared<storage::SafeAdapter>(service->retentionStore(), 0, 2,
                                                                  false, restore, *full);
            return [service, adapter, full, &world] {
              return promiseOf(adapter->save(kPage, kNew, Fingerprint::ofBytes(kOld)),
                               world.storeDirectory);
            };
          },
      .expectedAnswer = std::move(answer),
  };
}

// `journalLimit` 0 compacts an index at its journal's second line.
Sequence onService(std::string name, std::string answer,
                   std::function<Promise(World&, LocalRecoveryService&)> act,
                   size_t journalLimit = 64 * 1024) {
  return Sequence{
      .name = std::move(name),
      .setup = [](World& world) { workspaceWithStore(world, kOld); },
      .start =
          [act, journalLimit](World& world, FileSystem& fs) {
            std::shared_ptr<LocalRecoveryService> service =
                openService(fs, world.storeRoot, journalLimit);
            return [service, act, &world] { return act(world, *service); };
          },
      .expectedAnswer = std::move(answer),
  };
}

// On a workspace with a store, after `extraSetup`.
Sequence onBridge(
    std::string name, contracts::BridgeRequest request,
    std::function<void(SimulatedDisk&, Problems&)> onDisk, std::vector<std::string> versions = {},
    std::function<void(World&)> extraSetup = [](World&) {}) {
  return Sequence{
      .name = std::move(name),
      .setup =
          [extraSetup](World& world) {
            workspaceWithStore(world, kOld);
            extraSetup(world);
          },
      .start =
          [request, onDisk, versions](World& world, FileSystem& fs) {
            bridge::BridgeEnvironment environment;
            environment.desktop = std::make_shared<NoDesktop>();
            environment.homeTrash = [] { return std::optional<std::string>(kTrash); };
            environment.log = [](std::string_view) {};
            auto bridge = std::make_shared<bridge::FileBridge>(
                kRoot, openService(fs, world.storeRoot), std::move(environment), fs);
            return [bridge, request, onDisk, versions] {
              contracts::BridgeResponse response = bridge->handle(request);
              if (response.status != 200) {
                return Promise{.answer = std::to_string(response.status) + " " + response.body};
              }
              return Promise{.answer = "200", .versions = versions, .onDisk = onDisk};
            };
          },
      .expectedAnswer = "200",
  };
}

contracts::BridgeRequest request(const std::string& method, const std::string& op,
                                 std::map<std::string, std::string> query, std::string body = {}) {
  return contracts::BridgeRequest::make(method, op, std::move(query), {}, std::move(body));
}

const std::vector<Sequence>& sequences() {
  static const std::vector<Sequence> all = [] {
    std::vector<Sequence> list;
    list.push_back(save("save, expected base", kOld, true, "saved"));
    list.push_back(save("save, foreign version restored", kForeign, true, "conflict"));
    list.push_back(save("save, foreign version retained", kForeign, false, "conflict"));
    list.push_back(save("save, store refuses the displaced version", kOld, true, "error", true));
    {
      Sequence other = save("save, store on another file system", kOld, true, "saved");
      other.setup = [](World& world) {
        world.storeRoot = "/mnt/other/Recovery";
        workspaceWithStore(world, kOld);
      };
      list.push_back(std::move(other));
    }
    // A version retained into an existing store is the conflict's first step below.
    list.push_back(Sequence{
        .name = "identity.json: first open, then a version retained",
        .setup = [](World& world) { world.disk.writeFile(kPage, kOld); },
        .start =
            [](World& world, FileSystem& fs) {
              return [&world, &fs] {
                std::unique_ptr<LocalRecoveryService> service = openService(fs, world.storeRoot);
                world.storeDirectory = service->storeDirectory();
                RecoveryEntry entry = service->retentionStore().retain(
                    kNew, storage::RecoveryKind::displacedExpected, kPage);
                std::string store = world.storeDirectory;
                return Promise{.answer = "opened",
                               .versions = {kNew},
                               .onDisk = [entry, store](SimulatedDisk& disk, Problems& problems) {
                                 std::optional<std::string> identity =
                                     disk.readFile(store + "/identity.json");
                                 if (!contracts::parseJson(identity.value_or(""))
                                          .value_or(nullptr)
                                          .contains("workspacePath")) {
                                   problems.push_back("identity.json is missing or does not parse");
                                 }
                                 expectWhole(disk, store, entry, problems);
                               }};
              };
            },
        .expectedAnswer = "opened",
    });
    auto savedDraft = [](World&, LocalRecoveryService& service) {
      contracts::DraftRecord draft = service.saveDraft(kPage, kNew, hex(kOld)).record;
      return Promise{
          .answer = "draft", .versions = {kNew}, .records = {.draftBytes = {{draft.id, kNew}}}};
    };
    list.push_back(onService("drafts.json: a draft saved", "draft", savedDraft));
    list.push_back(
        onService("drafts.json: a draft that compacts the journal", "draft", savedDraft, 0));
    {
      // With the journal compacted away before, the draft begins a new one.
      Sequence begun = onService("drafts.json: a draft that begins a journal", "draft", savedDraft);
      begun.setup = [](World& world) {
        workspaceWithStore(world, kOld);
        openService(world.disk, world.storeRoot, 0)->saveDraft(kPage, kForeign, hex(kOld));
      };
      list.push_back(std::move(begun));
    }
    list.push_back(onService(
        "conflicts.json: a conflict recorded", "conflict",
        [](World&, LocalRecoveryService& service) {
          RecoveryEntry editor = service.retentionStore().retain(
              kNew, storage::RecoveryKind::pendingEditorBytes, kPage);
          contracts::ConflictRecord conflict = service.recordConflict(kPage, kOld, {editor});
          Promise promise{
              .answer = "conflict", .versions = {kNew}, .records = {.conflicts = {conflict.id}}};
          for (const contracts::CandidateRecord& candidate : conflict.candidates) {
            promise.records.candidates.insert(candidate.id);
          }
          return promise;
        }));
    list.push_back(onService(
        "operations.json: an operation begun", "begun", [](World&, LocalRecoveryService& service) {
          contracts::OperationRecord operation =
              service.beginOperation("rename", {{kPage, hex(kOld), {}}});
          return Promise{.answer = "begun", .records = {.operations = {operation.id}}};
        }));
    {
      const std::string swap = kRoot + "/.vn-swap-6F1C0B4E-2D1A-4C1B-9E0F-3A5B7C9D1E2F-index.html";
      Sequence sweep =
          onService("the sweep of an orphaned swap file", "swept",
                    [swap](World& world, LocalRecoveryService& service) {
                      std::vector<RecoveryEntry> adopted = service.sweepOrphanedSwaps();
                      std::string store = world.storeDirectory;
                      if (adopted.size() != 1) {
                        return Promise{.answer = "not swept"};
                      }
                      return Promise{.answer = "swept",
                                     .onDisk = [=](SimulatedDisk& disk, Problems& problems) {
                                       expectFile(disk, swap, std::nullopt, problems);
                                       for (const RecoveryEntry& entry : adopted) {
                                         expectWhole(disk, store, entry, problems);
                                       }
                                     }};
                    });
      sweep.setup = [swap](World& world) {
        workspaceWithStore(world, kOld);
        world.disk.writeFile(swap, kForeign);
      };
      list.push_back(std::move(sweep));
    }
    const std::string created = kRoot + "/a/b/new.html";
    list.push_back(onBridge("create in new folders",
                            request("PUT", "file", {{"path", created}}, kNew),
                            [created](SimulatedDisk& disk, Problems& problems) {
                              expectFile(disk, created, kNew, problems);
                            },
                            {kNew}));
    // The page is at `to` and no longer where it was.
    auto movedTo = [](std::string to) {
      return [to](SimulatedDisk& disk, Problems& problems) {
        expectFile(disk, to, kOld, problems);
        expectFile(disk, kPage, std::nullopt, problems);
      };
    };
    const std::string moved = kRoot + "/archive/2024/renamed.html";
    list.push_back(
        onBridge("rename into a new folder",
                 request("POST", "rename", {{"path", kPage}, {"to", moved}}), movedTo(moved), {},
                 [](World& world) { world.disk.writeFile(kRoot + "/archive/.keep", ""); }));
    const std::string mounted = kRoot + "/mnt/index.html";
    list.push_back(onBridge("rename onto another file system",
                            request("POST", "rename", {{"path", kPage}, {"to", mounted}}),
                            movedTo(mounted), {}, [](World& world) {
                              world.disk.writeFile(kRoot + "/mnt/.keep", "");
                              world.disk.mountSeparateFileSystem(kRoot + "/mnt");
                            }));
    Sequence trash = onBridge("trash", request("DELETE", "file", {{"path", kPage}}),
                              movedTo(kTrash + "/files/index.html"));
    trash.always = [](const World&, SimulatedDisk& disk, Problems& problems) {
      std::optional<std::string> record = disk.readFile(kTrash + "/info/index.html.trashinfo");
      if (disk.readFile(kTrash + "/files/index.html") &&
          (!record || !record->starts_with("[Trash Info]\nPath=" + kPage + "\n"))) {
        problems.push_back("an item is in the trash without its record");
      }
    };
    list.push_back(std::move(trash));
    return list;
  }();
  return all;
}

// ---- Exploration ----

struct Options {
  size_t skipFlush = 0;  // the flush (1-based) taken away; 0 for none
  // The call of the sequence (1-based, as in `calls`) made to fail; 0 for none.
  size_t failCall = 0;
  const std::vector<FaultInjectingFileSystem::Call>* calls = nullptr;
  bool onlyAfterTheAnswer = false;
  bool stopAtFirstProblem = false;
};

struct Exploration {
  std::string answer;
  size_t changes = 0;
  size_t states = 0;      // distinct states checked
  size_t enumerated = 0;  // states built, counting each point's again
  Problems problems;
  std::vector<std::string> flushes;                   // the path of each flush
  std::vector<FaultInjectingFileSystem::Call> calls;  // the sequence's own calls
};

void checkState(const Sequence& sequence, const World& world, const Promise* promise,
                SimulatedDisk& state, Problems& problems) {
  if (sequence.always) {
    sequence.always(world, state, problems);
  }
  if (promise != nullptr && promise->onDisk) {
    promise->onDisk(state, problems);
  }
  try {
    std::unique_ptr<LocalRecoveryService> service = openService(state, world.storeRoot);
    service->sweepOrphanedSwaps();
    Records found = recordsOf(*service);
    auto expectListed = [&](const Records& required) {
      for (const auto& [id, bytes] : required.draftBytes) {
        if (service->draftBytes(id) != bytes) {
          problems.push_back("the draft " + id + " lost its bytes");
        }
      }
      for (const std::string& id : required.conflicts) {
        if (!found.conflicts.contains(id)) {
          problems.push_back("the conflict " + id + " is gone");
        }
      }
      for (const std::string& id : required.candidates) {
        service->candidateBytes(id);
      }
      for (const std::string& id : required.operations) {
        if (!found.operations.contains(id)) {
          problems.push_back("the operation " + id + " is gone");
        }
      }
    };
    expectListed(world.recordsBefore);
    if (promise != nullptr) {
      expectListed(promise->records);
    }
  } catch (const std::exception& error) {
    problems.push_back(std::string("the next open, or reading what it holds, failed: ") +
                       error.what());
    return;
  }
  std::set<std::string> versions = versionsOn(state, world.storeDirectory);
  std::vector<std::string> required(world.versionsBefore.begin(), world.versionsBefore.end());
  if (promise != nullptr) {
    required.insert(required.end(), promise->versions.begin(), promise->versions.end());
  }
  for (const std::string& version : required) {
    if (!versions.contains(version)) {
      problems.push_back("lost the version \"" + version + "\"");
    }
  }
}

Exploration explore(const Sequence& sequence, const Options& options = {}) {
  World world;
  sequence.setup(world);
  if (!world.storeDirectory.empty()) {
    world.versionsBefore = versionsOn(world.disk, world.storeDirectory);
    world.recordsBefore = recordsOf(*openService(world.disk, world.storeRoot));
  }
  world.disk.markDurable();

  FaultInjectingFileSystem fs(world.disk);
  if (options.skipFlush != 0) {
    fs.skipNth(FsCall::fsync, static_cast<int>(options.skipFlush));
  }
  std::function<Promise()> run = sequence.start(world, fs);
  const size_t callsBefore = fs.calls().size();
  if (options.failCall != 0) {
    const FsCall call = (*options.calls)[options.failCall - 1].call;
    int occurrence = static_cast<int>(fs.count(call));
    for (size_t i = 0; i < options.failCall; ++i) {
      occurrence += (*options.calls)[i].call == call ? 1 : 0;
    }
    fs.failNth(call, occurrence, call == FsCall::write ? ENOSPC : EIO);
  }
  Exploration result;
  Promise promise;
  try {
    promise = run();
  } catch (const std::exception& error) {
    promise = Promise{.answer = std::string("failed: ") + error.what()};
  }
  result.answer = promise.answer;
  std::vector<FaultInjectingFileSystem::Call> calls = fs.calls();
  result.calls.assign(calls.begin() + static_cast<ptrdiff_t>(callsBefore), calls.end());
  for (const FaultInjectingFileSystem::Call& call : calls) {
    if (call.call == FsCall::fsync) {
      result.flushes.push_back(call.path);
    }
  }
  result.changes = world.disk.changeCount();

  std::unordered_set<std::string> seen;
  const size_t first = options.onlyAfterTheAnswer ? result.changes : 0;
  for (size_t point = first; point <= result.changes; ++point) {
    const bool answered = point == result.changes;
    bool more = true;
    world.disk.forEachCrashState(point, [&](SimulatedDisk& state) {
      ++result.enumerated;
      if (!seen.insert((answered ? "answered\n" : "\n") + state.describe()).second) {
        return true;
      }
      ++result.states;
      Problems found;
      checkState(sequence, world, answered ? &promise : nullptr, state, found);
      for (const std::string& problem : found) {
        result.problems.push_back("cut after change " + std::to_string(point) + " of " +
                                  std::to_string(result.changes) + ": " + problem);
      }
      more = !(options.stopAtFirstProblem && !result.problems.empty());
      return more;
    });
    if (!more) {
      break;
    }
  }
  return result;
}

// The flushes that no state shows to be needed, each with why it stays. Keyed
// by sequence and by the flush's label (see flushLabels).
constexpr const char* kJournalFlush =
    "operations.json: the rename's journal entry; a lost one loses no version, only the "
    "history's link across this move";

const std::map<std::pair<std::string, std::string>, std::string>& explainedFlushes() {
  static const std::string kOperationsJournal =
      "/home/u/.local/share/Vorna/Recovery/{workspace}/operations.journal";
  static const std::map<std::pair<std::string, std::string>, std::string> explained = {
      {{"save, store refuses the displaced version", "/home/u/site/.vn-swap-{uuid}-index.html"},
       "an error answer promises nothing; every save that answers needs it (above)"},
      {{"identity.json: first open, then a version retained",
        "/home/u/.local/share/Vorna/Recovery/{workspace}"},
       "retained/ in the store: carried here by identity.json's flush of the same folder, "
       "needed alone when a store lacks only retained/"},
      {{"create in new folders",
        "/home/u/.local/share/Vorna/Recovery/{workspace}/retained/{id}.json"},
       "the draft's sidecar: the created file holds the bytes once answered; needed where the "
       "draft is the only copy (drafts.json)"},
      {{"create in new folders", "/home/u/.local/share/Vorna/Recovery/{workspace}/drafts.journal"},
       "drafts.json: the created file holds the bytes once answered; needed where the draft is "
       "the only copy (drafts.json)"},
      {{"rename into a new folder", kOperationsJournal}, kJournalFlush},
      {{"rename into a new folder", kOperationsJournal + " #2"}, kJournalFlush},
      {{"rename onto another file system", kOperationsJournal}, kJournalFlush},
      {{"rename onto another file system", kOperationsJournal + " #2"}, kJournalFlush},
      {{"trash", "/home/u/.local/share/Trash"},
       "files/ in a new trash: carried by the flush for info/, made next in the same folder"},
  };
  return explained;
}

// A retained entry's id.
const std::regex kId("[0-9]{13}-[0-9]{6}-[A-Za-z]+-[0-9A-F-]{36}");

// A name for each flush that stays the same from run to run: its path with
// ids, UUIDs and the workspace's identifier masked, numbered when repeated.
std::vector<std::string> flushLabels(const std::vector<std::string>& paths) {
  static const std::regex uuid("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");
  static const std::regex workspace("/[0-9a-f]{32}");
  std::vector<std::string> labels;
  std::map<std::string, int> seen;
  for (const std::string& path : paths) {
    std::string label = std::regex_replace(path, kId, "{id}");
    label = std::regex_replace(label, uuid, "{uuid}");
    label = std::regex_replace(label, workspace, "/{workspace}");
    int count = ++seen[label];
    labels.push_back(count == 1 ? label : label + " #" + std::to_string(count));
  }
  return labels;
}

// The first of each kind of problem, with where it was first found.
std::string firstProblems(const Problems& problems) {
  std::set<std::string> kinds;
  std::string text;
  for (const std::string& problem : problems) {
    std::string kind = std::regex_replace(problem.substr(problem.find(": ") + 2), kId, "{id}");
    if (kinds.insert(kind).second) {
      text += "\n  " + problem;
    }
  }
  return text + "\n  (" + std::to_string(problems.size()) + " in all)";
}

class PowerCut : public ::testing::TestWithParam<size_t> {
 protected:
  const Sequence& sequence() const { return sequences()[GetParam()]; }
};

TEST_P(PowerCut, EveryStateKeepsEveryVersionAndWhatTheAnswerPromised) {
  Exploration exploration = explore(sequence());
  EXPECT_EQ(exploration.answer, sequence().expectedAnswer);
  EXPECT_TRUE(exploration.problems.empty()) << firstProblems(exploration.problems);
  std::printf("[ power cut ] %-52s %4zu states (%4zu built) after %2zu changes\n",
              sequence().name.c_str(), exploration.states, exploration.enumerated,
              exploration.changes);
}

TEST_P(PowerCut, EveryFlushIsNeeded) {
  Exploration normal = explore(sequence(), {.onlyAfterTheAnswer = true});
  std::vector<std::string> labels = flushLabels(normal.flushes);
  for (size_t flush = 1; flush <= labels.size(); ++flush) {
    Exploration without = explore(sequence(), {.skipFlush = flush, .stopAtFirstProblem = true});
    const std::string& label = labels[flush - 1];
    auto explained = explainedFlushes().find({sequence().name, label});
    if (without.problems.empty()) {
      EXPECT_NE(explained, explainedFlushes().end())
          << "no state needs the flush of " << label << " in \"" << sequence().name << "\"";
      if (explained != explainedFlushes().end()) {
        std::printf("[ kept flush ] %s: %s: %s\n", sequence().name.c_str(), label.c_str(),
                    explained->second.c_str());
      }
    } else {
      EXPECT_EQ(explained, explainedFlushes().end())
          << label << " in \"" << sequence().name
          << "\" is needed after all: " << without.problems.front();
      std::printf("[ needed flush ] %s: %s: %s\n", sequence().name.c_str(), label.c_str(),
                  without.problems.front().c_str());
    }
  }
}

TEST_P(PowerCut, ACallFailingAndThenAPowerCutLoseNothing) {
  Exploration normal = explore(sequence(), {.onlyAfterTheAnswer = true});
  for (size_t call = 1; call <= normal.calls.size(); ++call) {
    Exploration failing =
        explore(sequence(), {.failCall = call, .calls = &normal.calls, .onlyAfterTheAnswer = true});
    EXPECT_TRUE(failing.problems.empty())
        << testing::fsCallName(normal.calls[call - 1].call) << " on " << normal.calls[call - 1].path
        << " failing, answered \"" << failing.answer << "\"" << firstProblems(failing.problems);
  }
}

INSTANTIATE_TEST_SUITE_P(Sequences, PowerCut, ::testing::Range<size_t>(0, sequences().size()),
                         [](const ::testing::TestParamInfo<size_t>& param) {
                           return std::regex_replace(sequences()[param.param].name,
                                                     std::regex("[^A-Za-z0-9]+"), "_");
                         });

}  // namespace
}  // namespace vorna::durability
