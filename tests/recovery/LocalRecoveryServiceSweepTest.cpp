#include <gtest/gtest.h>

#include <cerrno>

#include "ServiceFixture.h"
#include "recovery/SwapFiles.h"
#include "storage/Fingerprint.h"

namespace vorna::recovery {
namespace {

using namespace testfixture;

constexpr const char* kUuid = "6F1C0B4E-2D1A-4C1B-9E0F-3A5B7C9D1E2F";

class SweepTest : public testfixture::ServiceTest {
 protected:
  std::string swap(const std::string& folder, const std::string& pageName) {
    return folder + "/.vn-swap-" + kUuid + "-" + pageName;
  }
  std::vector<std::string> pagesOf(const std::vector<RecoveryEntry>& entries) {
    std::vector<std::string> pages;
    for (const RecoveryEntry& entry : entries) {
      pages.push_back(entry.pagePath);
    }
    return pages;
  }
};

TEST_F(SweepTest, SwapsInHiddenFoldersAreAdoptedButNotInToolTreesOrBehindLinks) {
  for (const char* folder : {".hidden", ".git", "node_modules", "sub/node_modules", "real"}) {
    dir.makeFolder("site/" + std::string(folder));
  }
  writeRaw(swap(workspace + "/.hidden", "a.html"), "hidden");
  writeRaw(swap(workspace + "/.git", "b.html"), "git");
  writeRaw(swap(workspace + "/sub/node_modules", "c.html"), "modules");
  writeRaw(swap(workspace + "/real", "d.html"), "behind a link");
  writeRaw(workspace + "/.vn-swap-junk", "junk");
  dir.symlink(workspace + "/real", "site/linked-folder");
  dir.symlink(workspace + "/real/.vn-swap-" + std::string(kUuid) + "-d.html",
              "site/.vn-swap-" + std::string(kUuid) + "-link.html");

  std::vector<RecoveryEntry> adopted = service().sweepOrphanedSwaps();

  // Depth first in name order; the real folder is searched once, by its own name.
  EXPECT_EQ(pagesOf(adopted), (std::vector<std::string>{workspace + "/.hidden/a.html", workspace,
                                                        workspace + "/real/d.html"}));
  EXPECT_TRUE(exists(swap(workspace + "/.git", "b.html")));
  EXPECT_TRUE(exists(swap(workspace + "/sub/node_modules", "c.html")));
  EXPECT_TRUE(exists(workspace + "/.vn-swap-" + std::string(kUuid) + "-link.html"));
  EXPECT_FALSE(exists(swap(workspace + "/.hidden", "a.html")));

  const RecoveryEntry& first = adopted[0];
  EXPECT_EQ(first.kind, storage::RecoveryKind::displacedExternal);
  EXPECT_EQ(first.fingerprint, storage::Fingerprint::ofBytes("hidden"));
  EXPECT_EQ(first.byteCount, 6);
  EXPECT_TRUE(first.fingerprintStabilized);
  EXPECT_EQ(readFileOrEmpty(first.payloadPath), "hidden");
  EXPECT_EQ(service().retentionStore().entries().size(), 3u);
}

TEST(SwapFilesTest, ASwapNameThatBreaksThePatternBelongsToItsFolder) {
  const std::string uuid = kUuid;
  struct Case {
    std::string name;
    std::string page;
  };
  const Case cases[] = {
      {".vn-swap-" + uuid + "-index.html", "/w/index.html"},
      {".vn-swap-" + std::string("6f1c0b4e-2d1a-4c1b-9e0f-3a5b7c9d1e2f") + "-a b.html",
       "/w/a b.html"},
      {".vn-swap-junk", "/w"},
      {".vn-swap-" + uuid + "-", "/w"},
      {".vn-swap-" + uuid + "-.", "/w"},
      {".vn-swap-" + uuid + "-..", "/w"},
      {".vn-swap-" + uuid + "_index.html", "/w"},
      {".vn-swap-" + uuid.substr(0, 35) + "X-index.html", "/w"},
      {".vn-swap-" + uuid + "--x", "/w/-x"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(pageForSwap("/w/" + c.name), c.page) << c.name;
  }
}

TEST_F(SweepTest, ASwapThatCannotBeAdoptedStaysAndIsLoggedAndWithoutSwapsNothingIsWritten) {
  writeRaw(page("index.html"), "page");
  service();
  const size_t opens = fs.count(FsCall::open);
  const size_t renames = fs.count(FsCall::rename);
  EXPECT_EQ(service().sweepOrphanedSwaps(), std::vector<RecoveryEntry>{});
  EXPECT_EQ(fs.count(FsCall::open), opens);
  EXPECT_EQ(fs.count(FsCall::rename), renames);

  writeRaw(swap(workspace, "a.html"), "a");
  writeRaw(swap(workspace, "b.html"), "b");
  fs.failWhere(FsCall::rename, "-a.html", EACCES);

  std::vector<RecoveryEntry> adopted = service().sweepOrphanedSwaps();

  EXPECT_EQ(pagesOf(adopted), std::vector<std::string>{page("b.html")});
  EXPECT_TRUE(exists(swap(workspace, "a.html")));
  EXPECT_EQ(service().retentionStore().entries().size(), 1u);  // nothing recorded for a.html
  ASSERT_EQ(logLines.size(), 1u);
  EXPECT_EQ(logLines[0], "Vorna recovery: orphaned swap left in place at " +
                             swap(workspace, "a.html") + ": rename failed on " +
                             swap(workspace, "a.html") + ": Permission denied (13)\n");
  EXPECT_EQ(namesIn(retainedDirectory(), ".probe-"), std::vector<std::string>{});
}

TEST_F(SweepTest, AStoreThatTakesNoFilesIsReportedWithTheSwapsLeftBehind) {
  writeRaw(swap(workspace, "a.html"), "a");
  writeRaw(swap(workspace, "b.html"), "b");
  service();
  fs.failWhere(FsCall::rename, "/.vn-swap-", EACCES);
  fs.failWhere(FsCall::open, retainedDirectory() + "/", EACCES);

  EXPECT_EQ(recoveryErrorOf([&] { service().sweepOrphanedSwaps(); }),
            "recovery store unavailable: retention store at " + retainedDirectory() +
                " cannot accept writes; 2 orphaned swap file(s) left in the workspace");
  EXPECT_EQ(logLines.size(), 2u);
  EXPECT_TRUE(exists(swap(workspace, "a.html")));
  EXPECT_TRUE(exists(swap(workspace, "b.html")));
}

}  // namespace
}  // namespace vorna::recovery
