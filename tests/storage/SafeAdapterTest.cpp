#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <latch>
#include <map>
#include <thread>

#include "PageFixture.h"
#include "storage/RecoveryStore.h"
#include "storage/SafeAdapter.h"
#include "support/FaultInjectingFileSystem.h"

namespace vorna::storage {
namespace {

using namespace testfixture;

struct Retained {
  RecoveryKind kind;
  std::string bytes;
};

// A conflict with exactly these facts, whose retained payloads hold these bytes.
void expectConflict(const SaveOutcome& outcome, ConflictKind kind,
                    const std::optional<Fingerprint>& observed,
                    const std::optional<Fingerprint>& onDiskNow,
                    const std::vector<Retained>& retained) {
  ASSERT_TRUE(outcome.isConflict()) << ::testing::PrintToString(outcome);
  const ConflictInfo& conflict = outcome.conflictInfo();
  EXPECT_EQ(conflict.kind, kind);
  EXPECT_EQ(conflict.observed, observed);
  EXPECT_EQ(conflict.onDiskNow, onDiskNow);
  ASSERT_EQ(conflict.retained.size(), retained.size());
  for (size_t i = 0; i < retained.size(); ++i) {
    EXPECT_EQ(conflict.retained[i].kind, retained[i].kind) << i;
    EXPECT_EQ(readFile(conflict.retained[i].payloadPath), retained[i].bytes) << i;
  }
}

class SafeAdapterTest : public ::testing::Test, protected testfixture::PageFixture {
 protected:
  FaultInjectingFileSystem fs;
  RecoveryStore store{storeDirectory, fs};
  // The host's configuration, with a short settle interval.
  SafeAdapter adapter{store, 1'000'000, 25, false, true, fs};

  // The paths the adapter staged its files at, in the order it opened them.
  std::vector<std::string> stagedPaths() const {
    std::vector<std::string> paths;
    for (const auto& call : fs.calls()) {
      if (call.call == FsCall::open && call.path.find("/.vn-swap-") != std::string::npos &&
          std::find(paths.begin(), paths.end(), call.path) == paths.end()) {
        paths.push_back(call.path);
      }
    }
    return paths;
  }
};

TEST_F(SafeAdapterTest, ExpectedVersionIsReplacedAndRetainedWithThePagesPermissions) {
  writePage(kOld, 0640);

  SaveOutcome outcome = adapter.save(page, kNew, fp(kOld));

  ASSERT_TRUE(outcome.isSaved()) << ::testing::PrintToString(outcome);
  const SavedInfo& saved = outcome.savedInfo();
  EXPECT_EQ(saved.fingerprint, fp(kNew));
  ASSERT_TRUE(saved.displaced);
  EXPECT_EQ(saved.displaced->kind, RecoveryKind::displacedExpected);
  EXPECT_EQ(saved.displaced->pagePath, page);
  EXPECT_EQ(saved.displaced->fingerprint, fp(kOld));
  EXPECT_EQ(saved.displaced->byteCount, static_cast<int64_t>(kOld.size()));
  EXPECT_TRUE(saved.displaced->fingerprintStabilized);
  EXPECT_EQ(readFile(saved.displaced->payloadPath), kOld);
  EXPECT_EQ(modeOf(saved.displaced->payloadPath), 0444u);
  EXPECT_EQ(saved.pending, std::nullopt);

  EXPECT_EQ(pageBytes(), kNew);
  EXPECT_EQ(modeOf(page), 0640u);
  EXPECT_TRUE(swapFiles().empty());
  EXPECT_EQ(store.entries(), std::vector<RecoveryEntry>{*saved.displaced});
}

TEST_F(SafeAdapterTest, NoExpectationTakesWhateverIsThereEvenWhenItCannotBeRead) {
  writePage(kOld);
  fs.failWhere(FsCall::read, "/.vn-swap-", EIO);

  SaveOutcome outcome = adapter.save(page, kNew, std::nullopt);

  ASSERT_TRUE(outcome.isSaved()) << ::testing::PrintToString(outcome);
  const RecoveryEntry& displaced = *outcome.savedInfo().displaced;
  EXPECT_EQ(displaced.fingerprint, std::nullopt);
  EXPECT_EQ(displaced.byteCount, 0);
  EXPECT_FALSE(displaced.fingerprintStabilized);
  EXPECT_EQ(readFile(displaced.payloadPath), kOld);
  EXPECT_EQ(pageBytes(), kNew);
}

TEST_F(SafeAdapterTest, AForeignVersionIsPutBackAndTheEditorsBytesWithdrawn) {
  writePage(kForeign, 0600);
  ino_t foreignInode = statOf(page).st_ino;

  SaveOutcome outcome = adapter.save(page, kNew, fp(kOld));

  expectConflict(outcome, ConflictKind::externalVersion, fp(kForeign), fp(kForeign),
                 {{RecoveryKind::editorBytesWithdrawn, kNew}});
  EXPECT_EQ(outcome.conflictInfo().retained[0].fingerprint, fp(kNew));
  // The very file that was there is back, untouched.
  EXPECT_EQ(pageBytes(), kForeign);
  EXPECT_EQ(statOf(page).st_ino, foreignInode);
  EXPECT_EQ(modeOf(page), 0600u);
  EXPECT_TRUE(swapFiles().empty());
}

TEST_F(SafeAdapterTest, WithoutRestoringTheEditorsBytesStayAndTheForeignVersionIsRetained) {
  writePage(kForeign);
  adapter.setRestoreExternalVersion(false);

  SaveOutcome outcome = adapter.save(page, kNew, fp(kOld));

  expectConflict(outcome, ConflictKind::externalVersion, fp(kForeign), fp(kNew),
                 {{RecoveryKind::displacedExternal, kForeign}});
  EXPECT_EQ(pageBytes(), kNew);
}

TEST_F(SafeAdapterTest, PendingBytesAreRetainedBeforeAnythingElseAndListedLast) {
  adapter.setRetainPendingBytes(true);
  writePage(kOld);
  size_t before = fs.calls().size();

  SaveOutcome saved = adapter.save(page, kNew, fp(kOld));
  ASSERT_TRUE(saved.isSaved()) << ::testing::PrintToString(saved);
  ASSERT_TRUE(saved.savedInfo().pending);
  EXPECT_EQ(saved.savedInfo().pending->kind, RecoveryKind::pendingEditorBytes);
  EXPECT_EQ(readFile(saved.savedInfo().pending->payloadPath), kNew);
  // After the look at the page, the first file created is the pending payload.
  std::vector<testing::FaultInjectingFileSystem::Call> calls = fs.calls();
  auto firstOpen = std::find_if(calls.begin() + static_cast<long>(before), calls.end(),
                                [](const auto& call) { return call.call == FsCall::open; });
  ASSERT_NE(firstOpen, calls.end());
  EXPECT_EQ(firstOpen->path, saved.savedInfo().pending->payloadPath);

  writePage(kForeign);
  SaveOutcome conflict = adapter.save(page, "<p>newer</p>", fp(kNew));
  expectConflict(conflict, ConflictKind::externalVersion, fp(kForeign), fp(kForeign),
                 {{RecoveryKind::editorBytesWithdrawn, "<p>newer</p>"},
                  {RecoveryKind::pendingEditorBytes, "<p>newer</p>"}});
  const std::vector<RecoveryEntry>& retained = conflict.conflictInfo().retained;
  EXPECT_LT(retained[1].id, retained[0].id);  // written first
}

TEST_F(SafeAdapterTest, AThirdVersionArrivingBetweenTheExchangesIsKeptAsForeign) {
  writePage(kForeign);
  const std::string third = "<p>third</p>";
  fs.beforeCall(FsCall::exchange, [&](const std::string&) {
    if (fs.count(FsCall::exchange) == 2) {
      dir.write("site/incoming", third);
      ASSERT_EQ(::rename((folder + "/incoming").c_str(), page.c_str()), 0);
    }
  });

  SaveOutcome outcome = adapter.save(page, kNew, fp(kOld));

  expectConflict(outcome, ConflictKind::externalVersion, fp(kForeign), fp(kForeign),
                 {{RecoveryKind::displacedExternal, third}});
  EXPECT_EQ(pageBytes(), kForeign);
}

// The only open of the page itself is the read-back.
TEST_F(SafeAdapterTest, APageChangedOrUnreadableAfterTheSaveIsReportedAsOverwritten) {
  const std::string intruder = "<p>intruder</p>";
  for (const bool unreadable : {false, true}) {
    SCOPED_TRACE(unreadable ? "unreadable" : "changed");
    writePage(kOld);
    fs.clearFaults();
    if (unreadable) {
      fs.failWhere(FsCall::open, folder + "/index.html", EIO);
    } else {
      fs.beforeCall(FsCall::open, [&](const std::string& path) {
        if (path == page) {
          std::ofstream(page, std::ios::trunc) << intruder;
        }
      });
    }

    SaveOutcome outcome = adapter.save(page, kNew, fp(kOld));

    const std::optional<Fingerprint> read = unreadable ? std::nullopt : std::optional(fp(intruder));
    expectConflict(outcome, ConflictKind::overwrittenAfterWrite, read, read,
                   {{RecoveryKind::displacedExpected, kOld}});
    EXPECT_EQ(pageBytes(), unreadable ? kNew : intruder);
  }
}

TEST_F(SafeAdapterTest, AMissingPageAFolderOrANameNotInUtf8IsRefusedBeforeAnythingIsWritten) {
  dir.makeFolder("site/sub.html");
  for (const std::string& target : {folder + "/missing.html", folder + "/sub.html"}) {
    size_t before = fs.calls().size();
    SaveOutcome outcome = adapter.save(target, kNew, std::nullopt);
    ASSERT_TRUE(outcome.isError()) << ::testing::PrintToString(outcome);
    EXPECT_EQ(outcome.failure(), SaveFailure::pageMissing(target));
    EXPECT_EQ(outcome.failure().description(), "page missing: " + target);
    EXPECT_EQ(fs.calls().size(), before + 1);  // one look, nothing else
  }

  std::string name = "caf\xe9.html";
  dir.write("site/" + name, kOld);
  EXPECT_EQ(adapter.save(folder + "/" + name, kNew, fp(kOld)),
            SaveOutcome::error(SaveFailure::underlying(
                "cannot record a path that is not valid UTF-8: " + folder + "/" + name)));
  EXPECT_EQ(readFile(folder + "/" + name), kOld);
  EXPECT_TRUE(swapFiles().empty());
  EXPECT_TRUE(store.payloadPaths().empty());
}

TEST_F(SafeAdapterTest, ALongestPossibleNameIsStagedUnderACutName) {
  std::string name(255, 'n');
  name.replace(250, 5, ".html");
  std::string longPage = folder + "/" + name;
  dir.write("site/" + name, kOld);

  SaveOutcome outcome = adapter.save(longPage, kNew, fp(kOld));

  ASSERT_TRUE(outcome.isSaved()) << ::testing::PrintToString(outcome);
  EXPECT_EQ(readFile(longPage), kNew);
  ASSERT_EQ(stagedPaths().size(), 1u);
  EXPECT_EQ(stagedPaths()[0].substr(folder.size() + 47), name.substr(0, 180));
}

TEST(SafeAdapterSwapName, KeepsAtMost180BytesOfTheNameAndNeverSplitsACharacter) {
  const std::string uuid = "6F1C0B4E-2D1A-4C1B-9E0F-3A5B7C9D1E2F";
  const std::string twoByte = "\xc3\xa9";  // é
  struct Case {
    std::string pageName;
    std::string namePart;
  } cases[] = {
      {"index.html", "index.html"},
      {std::string(180, 'a'), std::string(180, 'a')},
      {std::string(181, 'a'), std::string(180, 'a')},
      {std::string(178, 'a') + twoByte + "b.html", std::string(178, 'a') + twoByte},
      {std::string(179, 'a') + twoByte + ".html", "page"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(SafeAdapter::swapFileName(c.pageName, uuid), ".vn-swap-" + uuid + "-" + c.namePart)
        << c.pageName.size();
  }
}

TEST_F(SafeAdapterTest, AFileSystemThatCannotExchangeLeavesThePageAndRemovesTheStagedFile) {
  writePage(kOld);
  fs.failNth(FsCall::exchange, 1, EINVAL);

  SaveOutcome outcome = adapter.save(page, kNew, fp(kOld));

  ASSERT_EQ(stagedPaths().size(), 1u);
  EXPECT_EQ(outcome, SaveOutcome::error(
                         SaveFailure::underlying("renameat2(RENAME_EXCHANGE) failed on " +
                                                 stagedPaths()[0] + ": Invalid argument (22)")));
  EXPECT_EQ(pageBytes(), kOld);
  EXPECT_TRUE(swapFiles().empty());
}

TEST_F(SafeAdapterTest, AnUnwritableStoreLeavesTheDisplacedVersionBesideThePage) {
  // Refuse everything that would add to the store, as a read-only folder would:
  // the sidecar, made first, is refused, so nothing moves into the store.
  fs.failWhere(FsCall::open, storeDirectory + "/", EACCES);

  struct Case {
    std::string before;
    std::string expectedPage;  // after the failed save
    std::string leftBeside;    // in the swap file
  } cases[] = {
      {kOld, kNew, kOld},          // expected: the new bytes stand, the old wait beside
      {kForeign, kForeign, kNew},  // stale: the foreign version is back, the new bytes wait
  };
  for (const Case& c : cases) {
    writePage(c.before);
    SaveOutcome outcome = adapter.save(page, kNew, fp(kOld));
    std::vector<std::string> left = swapFiles();
    ASSERT_EQ(left.size(), 1u);
    ASSERT_TRUE(outcome.isError());
    const std::string& text = outcome.failure().description();
    EXPECT_TRUE(text.starts_with("open failed on " + storeDirectory + "/") &&
                text.ends_with(".json: Permission denied (13)"))
        << text;
    EXPECT_EQ(pageBytes(), c.expectedPage);
    EXPECT_EQ(readFile(folder + "/" + left[0]), c.leftBeside);
    ASSERT_EQ(::unlink((folder + "/" + left[0]).c_str()), 0);
  }

  adapter.setRetainPendingBytes(true);
  writePage(kOld);
  SaveOutcome outcome = adapter.save(page, kNew, fp(kOld));
  ASSERT_TRUE(outcome.isError());
  EXPECT_TRUE(outcome.failure().description().starts_with("open failed on " + storeDirectory + "/"))
      << outcome.failure().description();
  EXPECT_EQ(pageBytes(), kOld);
  EXPECT_TRUE(swapFiles().empty());
}

TEST_F(SafeAdapterTest, SavesFromManyThreadsRunOneAfterAnother) {
  writePage(kOld);
  constexpr int kThreads = 8;
  std::latch start(kThreads);
  std::vector<int> saved(kThreads, 0);
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&, i] {
        start.arrive_and_wait();
        saved[i] = adapter.save(page, "<p>" + std::to_string(i) + "</p>", fp(kOld)).isSaved();
      });
    }
  }
  // Exactly one save found the version all of them expected; what the others
  // answer is the single-threaded tests' to show.
  EXPECT_EQ(std::count(saved.begin(), saved.end(), 1), 1);

  // Each save's own staged file is touched only between its first and last
  // call; those stretches must not overlap.
  std::map<std::string, std::pair<size_t, size_t>> spans;
  std::vector<FaultInjectingFileSystem::Call> calls = fs.calls();
  for (size_t i = 0; i < calls.size(); ++i) {
    if (calls[i].path.find("/.vn-swap-") != std::string::npos) {
      spans.try_emplace(calls[i].path, i, i).first->second.second = i;
    }
  }
  ASSERT_EQ(spans.size(), static_cast<size_t>(kThreads));
  std::vector<std::pair<size_t, size_t>> ordered;
  for (const auto& [path, span] : spans) {
    ordered.push_back(span);
  }
  std::sort(ordered.begin(), ordered.end());
  for (size_t i = 1; i < ordered.size(); ++i) {
    EXPECT_LT(ordered[i - 1].second, ordered[i].first) << "two saves overlapped";
  }
}

}  // namespace
}  // namespace vorna::storage
