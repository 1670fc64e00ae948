#include <gtest/gtest.h>
#include <unistd.h>

#include <future>

#include "bridge/LoadCheckpointIndex.h"
#include "storage/Fingerprint.h"
#include "storage/RecoveryStore.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TempDir.h"

namespace vorna::bridge {
namespace {

using storage::RecoveryKind;

std::string sha(std::string_view bytes) {
  return storage::Fingerprint::ofBytes(bytes).hex;
}

class LoadCheckpointIndexTest : public ::testing::Test {
 protected:
  testing::TempDir tmp;
  const std::string page = tmp / "w/index.html";
  storage::RecoveryStore store{tmp / "store"};
  std::vector<std::string> lines;
  BridgeLogSink sink = [this](std::string_view line) { lines.emplace_back(line); };
};

TEST_F(LoadCheckpointIndexTest, OneVersionIsRetainedOnceAndEachNewVersionAgain) {
  LoadCheckpointIndex index(store, sink);
  index.checkpoint(page, "v1", sha("v1"));
  index.checkpoint(page, "v1", sha("v1"));
  index.checkpoint(page, "v2", sha("v2"));
  ASSERT_EQ(store.entries().size(), 2u);
  EXPECT_EQ(testing::readFile(index.payloadURL(page, sha("v1")).value()), "v1");
  EXPECT_EQ(testing::readFile(index.payloadURL(page, sha("v2")).value()), "v2");
  EXPECT_EQ(index.payloadURL(page, sha("v3")), std::nullopt);
  EXPECT_EQ(index.payloadURL(tmp / "w/other.html", sha("v1")), std::nullopt);

  // A payload that vanished is forgotten and retained anew.
  const std::string first = index.payloadURL(page, sha("v1")).value();
  ASSERT_EQ(::unlink(first.c_str()), 0);
  EXPECT_EQ(index.payloadURL(page, sha("v1")), std::nullopt);
  index.checkpoint(page, "v1", sha("v1"));
  const std::string second = index.payloadURL(page, sha("v1")).value();
  EXPECT_NE(second, first);
  EXPECT_EQ(testing::readFile(second), "v1");

  // Noting a known version keeps the surviving older copy.
  const std::string kept = index.payloadURL(page, sha("v2")).value();
  storage::RecoveryEntry newer = store.retain("v2", RecoveryKind::pendingEditorBytes, page);
  {
    std::lock_guard guard(index.lock());
    index.seedIfNeeded();
    index.noteLocked(page, sha("v2"), newer.payloadPath);
  }
  EXPECT_EQ(index.payloadURL(page, sha("v2")), kept);
  ASSERT_EQ(::unlink(kept.c_str()), 0);
  {
    std::lock_guard guard(index.lock());
    index.noteLocked(page, sha("v2"), newer.payloadPath);
  }
  EXPECT_EQ(index.payloadURL(page, sha("v2")), newer.payloadPath);
}

// At opening the store is read once, elsewhere; a checkpoint meanwhile reads
// nothing of it, and a lookup waits for that read.
TEST_F(LoadCheckpointIndexTest, AnExpectedSeedIsWaitedForByLookupsButNotByCheckpoints) {
  storage::RecoveryEntry kept = store.retain("v1", RecoveryKind::displacedExpected, page);
  testing::FaultInjectingFileSystem counting;
  storage::RecoveryStore watched(tmp / "store", counting);
  LoadCheckpointIndex index(watched, sink);
  index.expectSeed();
  index.checkpoint(page, "v2", sha("v2"));
  EXPECT_EQ(counting.count(testing::FsCall::listDirectory), 0u);
  auto lookup = std::async(std::launch::async, [&] { return index.payloadURL(page, sha("v1")); });
  index.seed(store.entries());
  EXPECT_EQ(lookup.get(), kept.payloadPath);
  EXPECT_EQ(testing::readFile(index.payloadURL(page, sha("v2")).value()), "v2");
  EXPECT_EQ(counting.count(testing::FsCall::listDirectory), 0u);
}

TEST_F(LoadCheckpointIndexTest, ANewIndexFindsTheStoresEntriesOfEveryKindOldestFirst) {
  store.retain("v1", RecoveryKind::displacedExternal, page);
  storage::RecoveryEntry older = store.retain("v2", RecoveryKind::pendingEditorBytes, page);
  store.retain("v2", RecoveryKind::displacedExpected, page);
  LoadCheckpointIndex index(store, sink);
  EXPECT_EQ(testing::readFile(index.payloadURL(page, sha("v1")).value()), "v1");
  EXPECT_EQ(index.payloadURL(page, sha("v2")), older.payloadPath);
  index.checkpoint(page, "v2", sha("v2"));
  EXPECT_EQ(store.entries().size(), 3u);
}

TEST_F(LoadCheckpointIndexTest, AFailedRetainIsLoggedAndTriedAgainAFailedListingIsNot) {
  testing::FaultInjectingFileSystem faulty;
  storage::RecoveryStore failingStore(tmp / "failing", faulty);
  faulty.failWhere(testing::FsCall::open, ".bin", ENOSPC);
  LoadCheckpointIndex index(failingStore, sink);
  index.checkpoint(page, "v1", sha("v1"));
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].starts_with("Vorna bridge: load checkpoint not retained for " + page +
                                   ": open failed on " + tmp.path() + "/failing/"))
      << lines[0];
  EXPECT_TRUE(lines[0].ends_with(".bin: No space left on device (28)\n")) << lines[0];
  EXPECT_EQ(index.payloadURL(page, sha("v1")), std::nullopt);
  faulty.clearFaults();
  index.checkpoint(page, "v1", sha("v1"));
  EXPECT_TRUE(index.payloadURL(page, sha("v1")).has_value());

  // A store that cannot be listed leaves a new index empty, and seeding is
  // not retried within one index.
  faulty.failWhere(testing::FsCall::listDirectory, "failing", EIO);
  LoadCheckpointIndex unlisted(failingStore, sink);
  EXPECT_EQ(unlisted.payloadURL(page, sha("v1")), std::nullopt);
  faulty.clearFaults();
  EXPECT_EQ(unlisted.payloadURL(page, sha("v1")), std::nullopt);
}

}  // namespace
}  // namespace vorna::bridge
