#include <gtest/gtest.h>
#include <sys/stat.h>

#include "PageFixture.h"
#include "storage/NaiveAdapter.h"
#include "storage/RecoveryStore.h"

namespace vorna::storage {
namespace {

using namespace testfixture;

class NaiveAdapterTest : public ::testing::Test, protected testfixture::PageFixture {
 protected:
  RecoveryStore store{storeDirectory};
  NaiveAdapter adapter{store};
};

TEST_F(NaiveAdapterTest, ReplacesOnlyTheExpectedVersionAndRetainsNothing) {
  writePage("old", 0600);
  dir.write("site/index.html.qx-tmp", "leftover of a failed save");

  SaveOutcome outcome = adapter.save(page, "new", fp("old"));

  EXPECT_EQ(outcome, SaveOutcome::saved(SavedInfo{fp("new"), std::nullopt, std::nullopt}));
  EXPECT_EQ(pageBytes(), "new");
  EXPECT_EQ(modeOf(page), 0644u & ~static_cast<unsigned>(::umask(::umask(0))));
  EXPECT_FALSE(dir.exists("site/index.html.qx-tmp"));
  EXPECT_TRUE(store.payloadPaths().empty());
  // A stale or unreadable page is a precheck conflict and stays untouched.
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

}  // namespace
}  // namespace vorna::storage
