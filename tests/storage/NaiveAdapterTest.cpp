#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "PageFixture.h"
#include "storage/NaiveAdapter.h"
#include "storage/RecoveryStore.h"
#include "support/FaultInjectingFileSystem.h"

namespace vorna::storage {
namespace {

using testfixture::fp;
using testfixture::modeOf;
using testing::FaultInjectingFileSystem;
using testing::FsCall;

class NaiveAdapterTest : public ::testing::Test, protected testfixture::PageFixture {
 protected:
  FaultInjectingFileSystem fs;
  RecoveryStore store{storeDirectory, fs};
  NaiveAdapter adapter{store, fs};
  std::string temporary = page + ".qx-tmp";
};

TEST_F(NaiveAdapterTest, ReplacesTheExpectedVersionWithANewFileAndRetainsNothing) {
  writePage("old", 0600);
  dir.write("site/index.html.qx-tmp", "leftover of a failed save");

  SaveOutcome outcome = adapter.save(page, "new", fp("old"));

  EXPECT_EQ(outcome, SaveOutcome::saved(SavedInfo{fp("new"), std::nullopt, std::nullopt}));
  EXPECT_EQ(pageBytes(), "new");
  EXPECT_EQ(modeOf(page), 0644u & ~static_cast<unsigned>(::umask(::umask(0))));
  EXPECT_FALSE(dir.exists("site/index.html.qx-tmp"));
  EXPECT_TRUE(store.payloadPaths().empty());
}

TEST_F(NaiveAdapterTest, AStaleOrUnreadablePageIsAPrecheckConflictAndStaysUntouched) {
  writePage("foreign");
  EXPECT_EQ(adapter.save(page, "new", fp("old")),
            SaveOutcome::conflict(ConflictInfo{
                ConflictKind::staleFingerprintPrecheck, fp("foreign"), fp("foreign"), {}}));
  EXPECT_EQ(pageBytes(), "foreign");

  std::string missing = folder + "/missing.html";
  EXPECT_EQ(adapter.save(missing, "new", fp("old")),
            SaveOutcome::conflict(ConflictInfo{
                ConflictKind::staleFingerprintPrecheck, std::nullopt, std::nullopt, {}}));
  EXPECT_FALSE(dir.exists("site/missing.html"));
}

TEST_F(NaiveAdapterTest, WithoutExpectationAMissingPageIsCreated) {
  std::string fresh = folder + "/fresh.html";
  EXPECT_TRUE(adapter.save(fresh, "new", std::nullopt).isSaved());
  EXPECT_EQ(testing::readFile(fresh), "new");
}

TEST_F(NaiveAdapterTest, AFailedRenameLeavesTheTemporaryFile) {
  writePage("old");
  fs.failNth(FsCall::rename, 1, EXDEV);

  EXPECT_EQ(adapter.save(page, "new", fp("old")),
            SaveOutcome::error(SaveFailure::underlying("rename failed on " + temporary +
                                                       ": Invalid cross-device link (18)")));
  EXPECT_EQ(pageBytes(), "old");
  EXPECT_EQ(testing::readFile(temporary), "new");
}

}  // namespace
}  // namespace vorna::storage
