#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "ServiceFixture.h"
#include "support/TimeLimit.h"

namespace vorna::recovery {
namespace {

using namespace testfixture;
using contracts::DraftRecord;

class RetentionTest : public testfixture::ServiceTest {
 protected:
  // `count` displaced versions of one page, one minute apart, the newest
  // `age` old; returned oldest first.
  std::vector<RecoveryEntry> displaced(const std::string& name, int count,
                                       std::chrono::seconds age) {
    std::vector<RecoveryEntry> entries;
    for (int i = 0; i < count; ++i) {
      entries.push_back(plant(page(name), RecoveryKind::displacedExpected,
                              now - age - std::chrono::minutes(count - 1 - i),
                              "v" + std::to_string(i), "ID" + std::to_string(100 + i)));
    }
    return entries;
  }

  DraftRecord discardedDraft(const std::string& name, const std::string& bytes,
                             std::chrono::seconds age) {
    contracts::Timestamp real = now;
    now -= age;
    DraftRecord record = service().saveDraft(page(name), bytes, std::nullopt).record;
    service().discardDraft(page(name));
    now = real;
    return record;
  }

  bool kept(const RecoveryEntry& entry) {
    return exists(entry.payloadPath) && exists(retainedDirectory() + "/" + entry.id + ".json");
  }
  bool gone(const RecoveryEntry& entry) {
    return !exists(entry.payloadPath) && !exists(retainedDirectory() + "/" + entry.id + ".json");
  }
  size_t keptCount(const std::vector<RecoveryEntry>& entries) {
    return static_cast<size_t>(
        std::count_if(entries.begin(), entries.end(), [&](const auto& e) { return kept(e); }));
  }
};

TEST_F(RetentionTest, OnlyOldVersionsBeyondTheBudgetGo) {
  std::vector<RecoveryEntry> old = displaced("old.html", 25, hours(48));
  std::vector<RecoveryEntry> young = displaced("young.html", 25, hours(1));

  service().enforceRetentionBudget();

  for (int i = 0; i < 25; ++i) {
    EXPECT_EQ(gone(old[i]), i < 5) << i;
  }
  EXPECT_EQ(keptCount(young), 25u);
  EXPECT_EQ(logLines, std::vector<std::string>{});
}

TEST_F(RetentionTest, ABudgetOfZeroTakesEveryOldUnpinnedCopyAndANegativeOneNothing) {
  retainedPerPage = -1;
  std::vector<RecoveryEntry> versions = displaced("a.html", 3, hours(48));
  // Other kinds of copy are never thinned out.
  std::vector<RecoveryEntry> others = {
      plant(page("a.html"), RecoveryKind::displacedExternal, now - hours(48), "x", "A"),
      plant(page("a.html"), RecoveryKind::editorBytesWithdrawn, now - hours(48), "y", "B"),
      plant(page("a.html"), RecoveryKind::pendingEditorBytes, now - hours(48), "z", "C"),
  };
  DraftRecord draft = discardedDraft("a.html", "draft", hours(48));
  // An entry whose payload lies outside the store is never deleted.
  writeRaw(page("b.html"), "the page itself");
  RecoveryEntry forged =
      plant(page("b.html"), RecoveryKind::displacedExpected, now - hours(48), "x", "F");
  forged.payloadPath = page("b.html");
  writeRaw(retainedDirectory() + "/" + forged.id + ".json", contracts::writeJson(forged.toJson()));
  service().enforceRetentionBudget();
  EXPECT_EQ(keptCount(versions), 3u);
  EXPECT_TRUE(exists(service().draftPayloadURL(draft.id)));

  retainedPerPage = 0;
  std::unique_ptr<LocalRecoveryService> strict = open();
  strict->enforceRetentionBudget();
  EXPECT_EQ(keptCount(versions), 0u);
  EXPECT_EQ(keptCount(others), 3u);
  EXPECT_FALSE(exists(retainedDirectory() + "/" + draft.id + ".bin"));
  EXPECT_EQ(recoveryErrorOf([&] { strict->draftBytes(draft.id); }), "not found: draft " + draft.id);
  EXPECT_EQ(readFileOrEmpty(indexFile("drafts.json")), "[]");
  EXPECT_EQ(readFileOrEmpty(page("b.html")), "the page itself");
}

TEST_F(RetentionTest, PinnedPayloadsSurviveABudgetOfZero) {
  retainedPerPage = 0;
  std::vector<RecoveryEntry> versions = displaced("a.html", 2, hours(48));
  {
    contracts::ConflictRecord conflict =
        service().recordConflict(page("a.html"), std::nullopt, {versions[0]});
    service().markResolved(conflict.id, versions[0].id);
  }
  // A discarded draft whose bytes a conflict offers as the editor's version.
  DraftRecord offered = discardedDraft("b.html", "mine", hours(48));
  RecoveryEntry offeredEntry = service().retentionStore().readEntry(offered.id);
  service().recordConflict(page("b.html"), std::nullopt, {offeredEntry});
  // The live draft of a page is never old enough to matter: its payload is pinned.
  now -= hours(48);
  DraftRecord live = service().saveDraft(page("c.html"), "live", std::nullopt).record;
  now += hours(48);

  service().enforceRetentionBudget();

  EXPECT_TRUE(kept(versions[0]));
  EXPECT_TRUE(gone(versions[1]));
  EXPECT_EQ(service().draftBytes(offered.id), "mine");
  EXPECT_EQ(service().draftBytes(live.id), "live");
}

TEST_F(RetentionTest, OfTwoCopiesCapturedTogetherTheGreaterIdCountsAsNewer) {
  retainedPerPage = 1;
  RecoveryEntry a =
      plant(page("a.html"), RecoveryKind::displacedExpected, now - hours(48), "a", "A");
  RecoveryEntry b =
      plant(page("a.html"), RecoveryKind::displacedExpected, now - hours(48), "b", "B");
  service().enforceRetentionBudget();
  EXPECT_TRUE(gone(a));
  EXPECT_TRUE(kept(b));
}

TEST_F(RetentionTest, DiscardedDraftsAndDisplacedVersionsHaveABudgetEach) {
  retainedPerPage = 2;
  std::vector<RecoveryEntry> versions = displaced("a.html", 2, hours(48));
  DraftRecord first = discardedDraft("a.html", "one", hours(50));
  DraftRecord second = discardedDraft("a.html", "two", hours(49));

  service().enforceRetentionBudget();
  EXPECT_EQ(keptCount(versions), 2u);
  EXPECT_EQ(service().draftBytes(first.id), "one");

  DraftRecord third = discardedDraft("a.html", "three", hours(48));
  service().enforceRetentionBudget();
  EXPECT_EQ(keptCount(versions), 2u);
  EXPECT_EQ(recoveryErrorOf([&] { service().draftBytes(first.id); }),
            "not found: draft " + first.id);
  EXPECT_EQ(service().draftBytes(second.id), "two");
  EXPECT_EQ(service().draftBytes(third.id), "three");
}

TEST_F(RetentionTest, DiscardingRemovesNothingYoungerThanTheGrace) {
  retainedPerPage = 0;
  DraftRecord record = service().saveDraft(page("a.html"), "fresh", std::nullopt).record;
  service().discardDraft(page("a.html"));
  EXPECT_EQ(service().draftBytes(record.id), "fresh");
  // Within the grace a discard plans from the store as last listed: nothing
  // retained since then could be old enough to go.
  service().retentionStore().retain("new", RecoveryKind::displacedExpected, page("a.html"));
  const size_t listings = fs.count(FsCall::listDirectory);
  service().discardDraft(page("a.html"));
  EXPECT_EQ(fs.count(FsCall::listDirectory), listings);

  now += hours(25);
  service().discardDraft(page("a.html"));  // runs the budget of that page only
  EXPECT_EQ(recoveryErrorOf([&] { service().draftBytes(record.id); }),
            "not found: draft " + record.id);
  EXPECT_EQ(namesIn(retainedDirectory()), std::vector<std::string>{});
}

TEST_F(RetentionTest, TheSidecarGoesFirstAndAFailedDeletionIsLoggedAndPassedOver) {
  retainedPerPage = 0;
  std::vector<RecoveryEntry> versions = displaced("a.html", 3, hours(48));
  std::string stuck = retainedDirectory() + "/" + versions[1].id + ".json";
  ::unlink(versions[2].payloadPath.c_str());  // already gone: skipped without a word
  fs.failWhere(FsCall::unlink, versions[1].id + ".json", EPERM);

  service().enforceRetentionBudget();

  std::vector<std::string> unlinked;
  for (const auto& call : fs.calls()) {
    if (call.call == FsCall::unlink) {
      unlinked.push_back(call.path);
    }
  }
  // Newest first, as the plan found them; each sidecar before its payload.
  EXPECT_EQ(
      unlinked,
      (std::vector<std::string>{
          retainedDirectory() + "/" + versions[2].id + ".json", stuck, versions[1].payloadPath,
          retainedDirectory() + "/" + versions[0].id + ".json", versions[0].payloadPath}));
  EXPECT_EQ(logLines, std::vector<std::string>{
                          "Vorna recovery: retention budget could not delete " + stuck +
                          ": unlink failed on " + stuck + ": Operation not permitted (1)\n"});
  EXPECT_EQ(namesIn(retainedDirectory()), std::vector<std::string>{versions[1].id + ".json"});
}

TEST_F(RetentionTest, NothingIsDeletedWhileAnIndexCannotBeRead) {
  retainedPerPage = 0;
  std::vector<RecoveryEntry> versions = displaced("a.html", 2, hours(48));
  DraftRecord draft = discardedDraft("a.html", "d", hours(48));

  writeRaw(indexFile("conflicts.json"), "[{");
  EXPECT_NO_THROW(service().enforceRetentionBudget());
  EXPECT_EQ(keptCount(versions), 2u);
  ::unlink(indexFile("conflicts.json").c_str());

  std::string drafts = readFileOrEmpty(indexFile("drafts.json"));
  fs.failWhere(FsCall::rename, ".tmp-", EIO);
  EXPECT_TRUE(recoveryErrorOf([&] {
                service().enforceRetentionBudget();
              }).starts_with("recovery store unavailable: cannot write drafts.json: "));
  EXPECT_EQ(keptCount(versions), 2u);
  EXPECT_TRUE(exists(retainedDirectory() + "/" + draft.id + ".bin"));

  fs.clearFaults();
  writeRaw(indexFile("drafts.json"), "");
  EXPECT_EQ(recoveryErrorOf([&] { service().enforceRetentionBudget(); }),
            "recovery store unavailable: recovery index drafts.json is unreadable and was left "
            "untouched: not valid JSON");
  EXPECT_EQ(keptCount(versions), 2u);
}

// A pass that drops a draft writes the whole list anew. A draft recorded while
// another draft's write held the pass back must be in that list and on disk,
// though the pass started before it came.
TEST_F(RetentionTest, ADraftRecordedWhileAPassWaitsForAWriteIsKept) {
  retainedPerPage = 0;
  DraftRecord old = discardedDraft("old.html", "old", hours(48));
  std::atomic<bool> held{false};
  std::thread pass, late;
  fs.beforeCall(FsCall::fsync, [&](const std::string& path) {
    if (!path.ends_with("/drafts.journal") || held.exchange(true)) {
      return;
    }
    pass = std::thread([&] { service().discardDraft(page("old.html")); });
    // Time for the pass to plan and wait; with too little the test passes
    // without having tried.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    late = std::thread([&] { service().saveDraft(page("late.html"), "late", std::nullopt); });
    EXPECT_TRUE(testing::eventually([&] { return service().drafts().size() == 2; }));
  });
  service().saveDraft(page("first.html"), "first", std::nullopt);
  pass.join();
  late.join();
  fs.clearFaults();

  EXPECT_EQ(recoveryErrorOf([&] { service().draftBytes(old.id); }), "not found: draft " + old.id);
  std::unique_ptr<LocalRecoveryService> reopened = open();
  for (LocalRecoveryService* reader : {&service(), reopened.get()}) {
    std::vector<std::string> pages;
    for (const DraftRecord& draft : reader->drafts()) {
      pages.push_back(draft.pagePath);
    }
    std::sort(pages.begin(), pages.end());
    EXPECT_EQ(pages, (std::vector<std::string>{page("first.html"), page("late.html")}));
  }
}

}  // namespace
}  // namespace vorna::recovery
