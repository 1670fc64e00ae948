// The recovery service under a large store: how much of a retention pass the
// incremental store index saves, what one page's version history costs among
// 100,000 retained versions, and how a draft save grows with the number of
// drafts already recorded.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bridge/FileBridge.h"
#include "contracts/BridgeRequest.h"
#include "contracts/IsoDate.h"
#include "contracts/Json.h"
#include "contracts/OperationRecord.h"
#include "recovery/DraftEntry.h"
#include "recovery/LocalRecoveryService.h"
#include "recovery/RenameHistory.h"
#include "storage/FileSystem.h"
#include "storage/Fingerprint.h"
#include "storage/RecoveryEntry.h"
#include "support/BenchSupport.h"

namespace {

using namespace vorna;
using bench::printBench;
using bench::printRow;

constexpr int kPages = 2000;
constexpr int kEntriesPerPage = 50;  // 100,000 entries in all
constexpr int kDraftSaveRuns = 15;
constexpr int kHistoryRuns = 50;
constexpr int kJournalRenames = 1000;

// Plain create-write-close, no fsync: the fixture only has to exist for the
// measurement, not survive a power cut, and flushing 200,000 files would take
// most of the run.
void writePlain(const std::string& path, const std::string& bytes) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0 || ::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    std::perror(path.c_str());
    std::exit(1);
  }
  ::close(fd);
}

void makeFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    std::perror(path.c_str());
    std::exit(1);
  }
}

// Payload and sidecar for every entry, written straight into the store. The
// entries are an hour old, inside the grace, so neither pass deletes anything
// and both plan the same work: what differs is only how the index is brought
// up to date.
void fillStore(const std::string& retained, const std::string& workspace) {
  const contracts::Timestamp captured = contracts::wholeSecondsNow() - std::chrono::hours(1);
  const int64_t millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(captured.time_since_epoch()).count();
  const std::string bytes(64, 'v');
  const storage::Fingerprint fingerprint = storage::Fingerprint::ofBytes(bytes);
  char counter[32];
  for (int page = 0; page < kPages; ++page) {
    std::string pagePath = workspace + "/page-" + std::to_string(page) + ".html";
    for (int version = 0; version < kEntriesPerPage; ++version) {
      std::snprintf(counter, sizeof counter, "%06d", page * kEntriesPerPage + version + 1);
      std::string id = std::to_string(millis) + "-" + counter +
                       "-displacedExpected-00000000-0000-4000-8000-000000000000";
      storage::RecoveryEntry entry{.id = id,
                                   .kind = storage::RecoveryKind::displacedExpected,
                                   .pagePath = pagePath,
                                   .payloadPath = retained + "/" + id + ".bin",
                                   .fingerprint = fingerprint,
                                   .byteCount = static_cast<int64_t>(bytes.size()),
                                   .fingerprintStabilized = true,
                                   .movedByCopy = false,
                                   .capturedAt = captured};
      writePlain(entry.payloadPath, bytes);
      writePlain(retained + "/" + id + ".json", contracts::writeJson(entry.toJson()));
    }
  }
}

// operations.json with `count` finished renames of other pages, written
// directly: every history request reads the journal to follow renames.
void fillJournal(const std::string& storeDirectory, const std::string& workspace, int count) {
  contracts::Json journal = contracts::Json::array();
  for (int i = 0; i < count; ++i) {
    std::string name = workspace + "/moved-" + std::to_string(i);
    contracts::OperationRecord rename{
        .id = "rename-" + std::to_string(i),
        .label = std::string(recovery::RenameHistory::kLabel),
        .steps = recovery::RenameHistory::journalSteps(name + ".html", name + "-renamed.html",
                                                       std::string(64, 'f')),
        .startedAt = contracts::wholeSecondsNow(),
        .finishedAt = contracts::wholeSecondsNow()};
    journal.push_back(rename.toJson());
  }
  writePlain(storeDirectory + "/operations.json", contracts::writeJson(journal));
}

void benchRetention(const std::string& root) {
  std::string workspace = root + "/retention-site";
  std::string storeRoot = root + "/retention-store";
  makeFolder(workspace);
  makeFolder(storeRoot);
  auto shared = std::make_shared<recovery::LocalRecoveryService>(workspace, storeRoot, 20, 86400);
  recovery::LocalRecoveryService& service = *shared;
  auto start = bench::Clock::now();
  fillStore(service.retentionStore().directory(), workspace);
  fillJournal(service.storeDirectory(), workspace, kJournalRenames);
  printRow("fixture: 100,000 entries and 1,000 renames written (s)",
           std::to_string(bench::secondsSince(start)));

  // Opening the workspace as the program does, up to the first answer to a
  // read of a page, while the store is read in the background.
  writePlain(workspace + "/page-1.html", "<p>one</p>");
  {
    auto opening = bench::Clock::now();
    auto reopened =
        std::make_shared<recovery::LocalRecoveryService>(workspace, storeRoot, 20, 86400);
    reopened->sweepOrphanedSwaps();
    bridge::FileBridge openedBridge(workspace, reopened);
    openedBridge.prepareInBackground();
    const auto read = contracts::BridgeRequest::make(
        "GET", "file", {{"path", workspace + "/page-1.html"}}, {}, {});
    if (openedBridge.handle(read).status != 200) {
      std::exit(1);
    }
    const double firstAnswer = 1000 * bench::secondsSince(opening);
    printRow("opening with 100,000 versions: first GET file answered (ms)",
             std::to_string(firstAnswer));
    printBench("open_100k_store_first_answer_ms", firstAnswer);
  }

  double first = bench::timeRuns(1, [&] { service.enforceRetentionBudget(); })[0];
  double second = bench::median(bench::timeRuns(3, [&] { service.enforceRetentionBudget(); }));
  std::printf("\nenforceRetentionBudget, 100,000 entries over 2,000 pages:\n");
  printRow("first pass (s)", std::to_string(first));
  printRow("second pass, median of 3 (s)", std::to_string(second));
  // The floor of any pass that must notice sidecars added or removed by others.
  std::vector<std::string> names;
  double listing = bench::median(bench::timeRuns(3, [&] {
    storage::FileSystem::real().listDirectory(service.retentionStore().directory(), names);
  }));
  printRow("listing the store folder alone, median of 3 (s)", std::to_string(listing));
  printBench("retention_second_vs_first_pass", second / first);

  // The whole GET history of one page of 50 versions, as the editor asks for
  // it, after the store index was filled by the retention pass at opening;
  // each request reads the journal of 1,000 renames.
  bridge::FileBridge bridge(workspace, shared);
  const auto history = contracts::BridgeRequest::make(
      "GET", "history", {{"path", workspace + "/page-1000.html"}}, {}, {});
  double firstListing = bench::timeRuns(1, [&] { bridge.handle(history); })[0];
  double listingMs = 1000 * bench::median(bench::timeRuns(kHistoryRuns, [&] {
                       if (bridge.handle(history).status != 200) {
                         std::exit(1);
                       }
                     }));
  const auto deleted =
      contracts::BridgeRequest::make("GET", "deleted", {{"path", workspace}}, {}, {});
  double deletedMs = 1000 * bench::median(bench::timeRuns(5, [&] { bridge.handle(deleted); }));
  std::printf("\nversion history, 100,000 entries over 2,000 pages, 1,000 renames journalled:\n");
  printRow("GET history of one page, first after opening (ms)",
           std::to_string(1000 * firstListing));
  printRow("GET history of one page, median of 50 (ms)", std::to_string(listingMs));
  printRow("  over listing the store folder alone", std::to_string(listingMs / 1000 / listing));
  printRow("GET deleted of the workspace, 2,000 pages, median of 5 (ms)",
           std::to_string(deletedMs));
  printBench("history_list_ms_100k", listingMs);
}

// drafts.json with `count` entries for as many pages, written directly.
void seedDrafts(const std::string& storeDirectory, const std::string& workspace, int count) {
  contracts::Json list = contracts::Json::array();
  for (int i = 0; i < count; ++i) {
    recovery::DraftEntry entry{
        .record = {.id = "draft-" + std::to_string(i),
                   .pagePath = workspace + "/page-" + std::to_string(i) + ".html",
                   .baseFingerprint = std::string(64, 'b'),
                   .fingerprint = std::string(64, 'f'),
                   .byteCount = 4096,
                   .capturedAt = contracts::wholeSecondsNow()},
        .payloadPath = storeDirectory + "/retained/draft-" + std::to_string(i) + ".bin",
        .discarded = i % 2 == 1};
    list.push_back(entry.toJson());
  }
  writePlain(storeDirectory + "/drafts.json", contracts::writeJson(list));
}

void benchDraftSaves(const std::string& root) {
  std::printf("\nsaveDraft of 4 KiB, median of %d, by drafts already in drafts.json:\n",
              kDraftSaveRuns);
  const std::string bytes(4096, 'd');
  for (int count : {10, 1000, 10000}) {
    std::string workspace = root + "/drafts-site-" + std::to_string(count);
    std::string storeRoot = root + "/drafts-store-" + std::to_string(count);
    makeFolder(workspace);
    makeFolder(storeRoot);
    recovery::LocalRecoveryService service(workspace, storeRoot, 20, 86400);
    seedDrafts(service.storeDirectory(), workspace, count);
    int next = 0;
    double ms = 1000 * bench::median(bench::timeRuns(kDraftSaveRuns, [&] {
                  service.saveDraft(workspace + "/new-" + std::to_string(next++) + ".html", bytes,
                                    std::nullopt);
                }));
    printRow(std::to_string(count) + " drafts (ms)", std::to_string(ms));
    printBench("draft_save_ms_" + std::to_string(count), ms);
  }
}

}  // namespace

int main() {
  bench::ScratchDir scratch("recovery");
  benchDraftSaves(scratch.path());
  benchRetention(scratch.path());
  return 0;
}
