#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "ServiceFixture.h"
#include "recovery/RetentionStoreIndex.h"

namespace vorna::recovery {
namespace {

using namespace testfixture;

class RetentionStoreIndexTest : public ::testing::Test {
 protected:
  size_t sidecarReads() {
    size_t reads = 0;
    for (const auto& call : fs.calls()) {
      reads += call.call == FsCall::open && call.path.ends_with(".json") ? 1 : 0;
    }
    return reads;
  }

  testing::TempDir dir{testing::TempDir::Backing::memory};
  testing::FaultInjectingFileSystem fs;
  storage::RecoveryStore store{dir / "retained", fs};
  RetentionStoreIndex index;
};

TEST_F(RetentionStoreIndexTest, DeletedSidecarsLeaveAndUnreadableOnesWaitForTheirTurn) {
  store.retain("a", RecoveryKind::displacedExpected, "/w/a.html");
  auto b = store.retain("b", RecoveryKind::displacedExpected, "/w/b.html");
  index.refresh(store);

  ::unlink(store.sidecarPathFor(b.id).c_str());
  std::string broken = store.sidecarPathFor("1700000000000-000009-displacedExpected-X");
  writeRaw(broken, "{\"id\":");
  index.refresh(store);
  EXPECT_EQ(index.size(), 1u);
  EXPECT_FALSE(index.entriesByPage().contains("/w/b.html"));  // no page is left empty

  ::unlink(broken.c_str());
  writeRaw(store.sidecarPathFor(b.id), contracts::writeJson(b.toJson()));
  index.refresh(store);
  EXPECT_EQ(index.entriesByPage().at("/w/b.html"), std::vector<storage::RecoveryEntry>{b});

  // A sidecar claiming another id is no entry of this name.
  auto renamed = b;
  renamed.id = "someone-else";
  writeRaw(store.sidecarPathFor("1700000000000-000010-displacedExpected-Y"),
           contracts::writeJson(renamed.toJson()));
  index.refresh(store);
  EXPECT_EQ(index.size(), 2u);

  // A changed folder that cannot be listed counts as empty.
  fs.failWhere(FsCall::listDirectory, "retained", EIO);
  store.retain("c", RecoveryKind::displacedExpected, "/w/c.html");
  EXPECT_TRUE(index.refresh(store).empty());
  EXPECT_EQ(index.size(), 0u);
}

// A refresh lists the folder only when it changed and reads only the sidecars
// it has not seen, but rereads one it found half written.
TEST_F(RetentionStoreIndexTest, ARefreshReadsOnlyWhatChangedButRereadsHalfWrittenSidecars) {
  auto listings = [&] { return fs.count(FsCall::listDirectory); };
  auto a = store.retain("a", RecoveryKind::displacedExpected, "/w/a.html");
  std::string late = store.sidecarPathFor("1700000000000-000009-displacedExpected-Z");
  writeRaw(late, "{");  // a sidecar still being written
  // The folder's status stands for a listing once the clock is past its last change.
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(index.refresh(store).at("/w/a.html"), std::vector<storage::RecoveryEntry>{a});
  auto listed = listings();
  auto b = a;
  b.id = "1700000000000-000009-displacedExpected-Z";
  b.pagePath = "/w/b.html";
  writeRaw(late, contracts::writeJson(b.toJson()));  // rewriting a file leaves the folder as it was
  EXPECT_EQ(index.refresh(store).at("/w/b.html"), std::vector<storage::RecoveryEntry>{b});
  EXPECT_EQ(listings(), listed);

  auto a2 = store.retain("a2", RecoveryKind::pendingEditorBytes, "/w/a.html");
  const size_t reads = sidecarReads();  // retaining opened the new sidecar to write it
  EXPECT_EQ(index.refresh(store).at("/w/a.html"), (std::vector<storage::RecoveryEntry>{a, a2}));
  EXPECT_EQ(listings(), listed + 1);
  EXPECT_EQ(sidecarReads(), reads + 1);
  EXPECT_EQ(index.size(), 3u);
  EXPECT_EQ(*index.find(a.id), a);
  EXPECT_EQ(index.find("nope"), nullptr);
}

}  // namespace
}  // namespace vorna::recovery
