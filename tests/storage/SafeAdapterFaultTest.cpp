// Every file-system call of a save, failed in turn and cut short in turn (a
// forked child ends with _exit right after the call, as in a crash), for each
// branch of the algorithm. After each case the disk must still hold every
// version the page held: at the page, in the store, or in a staged swap file.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>

#include "PageFixture.h"
#include "storage/RecoveryStore.h"
#include "storage/SafeAdapter.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/VersionCensus.h"

namespace vorna::storage {
namespace {

using testfixture::fp;
using testfixture::kForeign;
using testfixture::kNew;
using testfixture::kOld;
using testing::FaultInjectingFileSystem;
using testing::FsCall;
using testing::VersionCensus;
using testing::versionOf;

constexpr int kCrashedStatus = 77;
constexpr int kFinishedStatus = 78;

struct Scenario {
  const char* name;
  bool staleBase;  // the page holds a foreign version instead of the editor's base
  bool restoreExternalVersion;
  bool retainPendingBytes;
  bool overlapIndependentWork = true;
};

constexpr Scenario kScenarios[] = {
    {"expected base", false, true, false},
    {"stale base, foreign version restored", true, true, false},
    {"stale base, editor's bytes kept", true, false, false},
    {"expected base, pending bytes retained", false, true, true},
    {"stale base, nothing overlapped", true, true, false, false},
};

// One call of a save, named so that the same call is found again in another
// run: calls of one kind on one group of paths happen in a fixed order, even
// though a save spreads some of its calls over two threads.
struct CallTarget {
  FsCall call;
  std::string group;
  int occurrence;
  size_t index;  // position in the counting run, setup included
};

// One save in a fresh folder, with every disk call going through `fs`.
class SaveCase {
 public:
  explicit SaveCase(const Scenario& scenario)
      : scenario_(scenario), fixture_(testing::TempDir::Backing::memory) {
    fixture_.writePage(before(), 0640);
    pageInode_ = testfixture::statOf(fixture_.page).st_ino;
    store_ = std::make_unique<RecoveryStore>(fixture_.storeDirectory, fs_);
    adapter_ = std::make_unique<SafeAdapter>(*store_, 0, 2, scenario.retainPendingBytes,
                                             scenario.restoreExternalVersion, fs_);
    adapter_->setOverlapIndependentWork(scenario.overlapIndependentWork);
    setupCalls_ = fs_.callCount();
    // Before each call the page shows the effect of every earlier call, so
    // looking then finds the first call after which it held the new bytes.
    for (int kind = 0; kind <= static_cast<int>(FsCall::listDirectory); ++kind) {
      fs_.beforeCall(static_cast<FsCall>(kind), [this](const std::string&) {
        size_t current = fs_.callCount() - 1;
        std::lock_guard lock(watchLock_);
        if (!newBytesAfterCall_ && pageHoldsNewBytes()) {
          newBytesAfterCall_ = current - 1;
        }
      });
    }
  }

  SaveOutcome save() {
    SaveOutcome outcome = adapter_->save(fixture_.page, kNew, fp(kOld));
    std::lock_guard lock(watchLock_);
    if (!newBytesAfterCall_ && pageHoldsNewBytes()) {
      newBytesAfterCall_ = fs_.callCount() - 1;
    }
    return outcome;
  }

  // The index of the call after which the page first held the new bytes; none
  // when it never did.
  std::optional<size_t> newBytesAfterCall() const {
    std::lock_guard lock(watchLock_);
    return newBytesAfterCall_;
  }

  const std::string& before() const { return scenario_.staleBase ? kForeign : kOld; }
  FaultInjectingFileSystem& fs() { return fs_; }
  size_t setupCalls() const { return setupCalls_; }

  // The group a path belongs to for counting calls.
  std::string groupOf(const std::string& path) const {
    const testfixture::PageFixture& f = fixture_;
    if (path.starts_with(f.folder + "/.vn-swap-")) {
      return "swap";
    }
    if (path.starts_with(f.storeDirectory + "/")) {
      return path.ends_with(".json") ? "sidecar" : "payload";
    }
    if (path == f.storeDirectory) {
      return "store";
    }
    return path == f.page ? "page" : path == f.folder ? "folder" : path;
  }
  FaultInjectingFileSystem::PathMatcher inGroup(const std::string& group) const {
    return [this, group](const std::string& path) { return groupOf(path) == group; };
  }

  // Checks what the disk holds; `newBytesReachedPage` says whether the new
  // bytes were ever at the page (and so must not have been lost either).
  void expectNothingLost(bool newBytesReachedPage, const std::string& label) const {
    VersionCensus census(fixture_.page, fixture_.storeDirectory);
    census.take();
    ASSERT_TRUE(census.page()) << label << ": nothing at the page";
    EXPECT_TRUE(*census.page() == before() || *census.page() == kNew)
        << label << ": the page holds \"" << *census.page() << "\"";
    EXPECT_NE(census.whereIs(versionOf(before())), "") << label << ": the old version is lost";
    if (newBytesReachedPage) {
      EXPECT_NE(census.whereIs(versionOf(kNew)), "") << label << ": the new bytes are lost";
    }
    // The page's own file is never deleted or changed: it is moved.
    EXPECT_EQ(census.versionOfInode(pageInode_), versionOf(before()))
        << label << ": the page's file is gone or changed";
    EXPECT_EQ(census.inconsistentSidecars(), std::vector<std::string>{}) << label;
  }

  // What a finished save reported must be what the disk shows.
  void expectOutcomeMatchesDisk(const SaveOutcome& outcome, const std::string& label) const {
    std::string page = fixture_.pageBytes();
    if (outcome.isSaved()) {
      EXPECT_EQ(page, kNew) << label;
      ASSERT_TRUE(outcome.savedInfo().displaced) << label;
      EXPECT_EQ(testing::readFile(outcome.savedInfo().displaced->payloadPath), before()) << label;
    } else if (outcome.isConflict()) {
      const ConflictInfo& conflict = outcome.conflictInfo();
      bool restored =
          conflict.kind == ConflictKind::externalVersion && scenario_.restoreExternalVersion;
      EXPECT_EQ(page, restored ? before() : kNew) << label;
      if (conflict.onDiskNow) {  // none when the read-back itself failed
        EXPECT_EQ(conflict.onDiskNow, fp(page)) << label;
      }
      ASSERT_FALSE(conflict.retained.empty()) << label;
      for (const RecoveryEntry& entry : conflict.retained) {
        std::string payload = testing::readFile(entry.payloadPath);
        EXPECT_TRUE(payload == before() || payload == kNew) << label;
      }
    } else {
      // Every message names the path it concerns.
      EXPECT_NE(outcome.failure().description().find(fixture_.dir.path()), std::string::npos)
          << label << ": " << outcome.failure().description();
    }
  }

 private:
  Scenario scenario_;
  testfixture::PageFixture fixture_;
  FaultInjectingFileSystem fs_;
  std::unique_ptr<RecoveryStore> store_;
  std::unique_ptr<SafeAdapter> adapter_;
  ino_t pageInode_ = 0;
  size_t setupCalls_ = 0;
  mutable std::mutex watchLock_;
  std::optional<size_t> newBytesAfterCall_;

  bool pageHoldsNewBytes() const {
    std::ifstream in(fixture_.page, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return bytes == kNew;
  }
};

struct Census {
  std::vector<CallTarget> targets;
  size_t newBytesAfterCall = 0;  // the call that put the new bytes at the page
};

Census countCalls(const Scenario& scenario) {
  SaveCase counting(scenario);
  SaveOutcome outcome = counting.save();
  EXPECT_EQ(outcome.isSaved(), !scenario.staleBase) << ::testing::PrintToString(outcome);
  EXPECT_EQ(outcome.isConflict(), scenario.staleBase) << ::testing::PrintToString(outcome);

  Census census;
  std::map<std::pair<FsCall, std::string>, int> seen;
  std::vector<FaultInjectingFileSystem::Call> calls = counting.fs().calls();
  for (size_t i = 0; i < calls.size(); ++i) {
    std::string group = counting.groupOf(calls[i].path);
    int occurrence = ++seen[{calls[i].call, group}];
    if (i >= counting.setupCalls()) {
      census.targets.push_back({calls[i].call, group, occurrence, i});
    }
  }
  // Every version passes through the page, the editor's bytes included.
  EXPECT_TRUE(counting.newBytesAfterCall()) << scenario.name;
  census.newBytesAfterCall = counting.newBytesAfterCall().value_or(0);
  return census;
}

std::string describe(const Scenario& scenario, const CallTarget& target) {
  return std::string(scenario.name) + ", " + testing::fsCallName(target.call) + " #" +
         std::to_string(target.occurrence) + " on " + target.group;
}

int errnoFor(FsCall call) {
  return call == FsCall::write ? ENOSPC : EIO;
}

TEST(SafeAdapterFaults, EveryCallFailingOrCutShortLosesNoVersion) {
  int failedCases = 0;
  int crashCases = 0;
  for (const Scenario& scenario : kScenarios) {
    Census census = countCalls(scenario);

    for (const CallTarget& target : census.targets) {
      const std::string label = describe(scenario, target);
      {
        SaveCase failing(scenario);
        failing.fs().failNthMatching(target.call, failing.inGroup(target.group), target.occurrence,
                                     errnoFor(target.call));
        SaveOutcome outcome = failing.save();
        failing.expectNothingLost(failing.newBytesAfterCall().has_value(), "failed " + label);
        failing.expectOutcomeMatchesDisk(outcome, "failed " + label);
        ++failedCases;
      }
      {
        SaveCase crashing(scenario);
        std::fflush(nullptr);
        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
          crashing.fs().afterNthMatching(target.call, crashing.inGroup(target.group),
                                         target.occurrence, [] { ::_exit(kCrashedStatus); });
          crashing.save();
          ::_exit(kFinishedStatus);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == kCrashedStatus)
            << "crashed after " << label << ": the child ended with status " << status;
        // The calls up to the cut are those of the counting run.
        crashing.expectNothingLost(target.index >= census.newBytesAfterCall,
                                   "crashed after " + label);
        ++crashCases;
      }
    }
  }
  std::printf("[ fault cases ] %d with one call failing, %d cut short after one call\n",
              failedCases, crashCases);
}

}  // namespace
}  // namespace vorna::storage
