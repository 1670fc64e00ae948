#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "recovery/PathForms.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TempDir.h"

namespace vorna::recovery {
namespace {

using testing::FaultInjectingFileSystem;
using testing::FsCall;

TEST(PathFormsTest, StandardisingFoldsDotsAndSlashesAsTextAndInsideIsTheFolderOrBelow) {
  const std::pair<std::string, std::string> cases[] = {
      {"/a/./site/../site/x.html", "/a/site/x.html"},
      {"/a//b/", "/a/b"},
      {"/../..", "/"},
      {"//", "/"},
      {"/a/b/../../..", "/"},
      {"x/../y", std::filesystem::current_path().string() + "/y"},
  };
  for (const auto& [input, expected] : cases) {
    EXPECT_EQ(standardisedPath(input), expected) << input;
  }
  const std::tuple<std::string, std::string, bool> insideCases[] = {
      {"/a/site", "/a/site", true},
      {"/a/site/.rec/x", "/a/site", true},
      {"/a/site-store/x", "/a/site", false},
      {"/a/site2", "/a/site", false},
      {"/a", "/a/site", false},
      {"/anything", "/", true},
  };
  for (const auto& [path, folder, inside] : insideCases) {
    EXPECT_EQ(isSameOrInside(path, folder), inside) << path << " in " << folder;
  }
}

TEST(PathFormsTest, CanonicalPathsResolveAsTheFileSystemWould) {
  testing::TempDir tmp;
  const std::string t = tmp.path();
  const std::string site = tmp / "w/site";
  tmp.makeFolder("w/site/real");
  tmp.makeFolder("w/other");
  tmp.makeFolder("elsewhere");
  tmp.symlink("real", "w/site/alias");
  tmp.symlink(t + "/elsewhere", "w/site/docs");
  tmp.symlink("../other", "w/site/up");
  tmp.symlink("alias/../up/", "w/site/chained");
  tmp.symlink("missing/page.html", "w/site/dangling");
  tmp.symlink("..", "w/site/real/parent");
  tmp.symlink("b", "w/site/a");
  tmp.symlink("a", "w/site/b");
  tmp.symlink("self", "w/site/self");
  tmp.symlink("./loop/x", "w/site/loop");
  // l0 -> l1 -> ... -> l64 -> end: from l0 that is 65 links, from l1 64.
  tmp.makeFolder("chain/end");
  for (int i = 0; i <= 64; ++i) {
    tmp.symlink(i == 64 ? "end" : "l" + std::to_string(i + 1), "chain/l" + std::to_string(i));
  }
  std::string detour = site;
  for (int i = 0; i < 2000; ++i) {
    detour += "/real/..";
  }
  const std::optional<std::string> refused;
  const std::pair<std::string, std::optional<std::string>> cases[] = {
      // Folded as text where nothing is a link; ".." at "/" stays at "/".
      {site + "/a.html/../b.html", site + "/b.html"},
      {site + "//real/./x.html/", site + "/real/x.html"},
      {"/../.." + site + "/x", site + "/x"},
      {"/..", "/"},
      // Missing components stay plain names; above them links count again.
      {site + "/new/deeper/page.html", site + "/new/deeper/page.html"},
      {site + "/new/deeper/../../alias/x.html", site + "/real/x.html"},
      // Relative, absolute and chained links; ".." in a target applies to
      // where the earlier part led, not to its text.
      {site + "/alias/x.html", site + "/real/x.html"},
      {site + "/docs/x", t + "/elsewhere/x"},
      {site + "/up/x", t + "/w/other/x"},
      {site + "/chained/x", t + "/w/other/x"},
      {site + "/real/parent/real", site + "/real"},
      {site + "/dangling", site + "/missing/page.html"},
      {tmp / "chain/l1/x", tmp / "chain/end/x"},
      // Only the result's length counts: a long detour that comes back is fine.
      {detour + "/x", site + "/x"},
      // Refused: relative, NUL, too long, loops and more than 64 links.
      {"", refused},
      {"a.html", refused},
      {"./w", refused},
      {site + std::string("/a.html\0/../../x", 17), refused},
      {site + "/" + std::string(4096, 'a'), refused},
      {site + "/a", refused},
      {site + "/self", refused},
      {site + "/loop/y", refused},
      {tmp / "chain/l0/x", refused},
  };
  auto& fs = storage::FileSystem::real();
  for (const auto& [input, expected] : cases) {
    EXPECT_EQ(canonicalPath(input, fs), expected) << input.substr(0, 200);
  }
  // Never fails: what cannot be resolved is standardised only.
  EXPECT_EQ(resolvedPath(site + "/alias/../a/./x", fs), site + "/a/x");
  EXPECT_EQ(resolvedPath("x/../y", fs), std::filesystem::current_path().string() + "/y");
}

TEST(PathFormsTest, ReadlinkIsNotAskedBelowAMissingFolderAndOtherFailuresArePlainNames) {
  testing::TempDir tmp;
  tmp.makeFolder("site/real");
  tmp.symlink("real", "site/alias");
  FaultInjectingFileSystem fs;
  std::string deep = tmp / "site/missing";
  for (int i = 0; i < 1000; ++i) {
    deep += "/d";
  }
  ASSERT_TRUE(canonicalPath(deep, fs).has_value());
  // One question per component of the site path and one for "missing".
  const std::string site = tmp / "site";
  EXPECT_EQ(fs.count(FsCall::readlink), std::count(site.begin(), site.end(), '/') + 1);

  fs.failWhere(FsCall::readlink, "/site/alias", EIO);
  EXPECT_EQ(canonicalPath(tmp / "site/alias/x", fs), tmp / "site/alias/x");
}

}  // namespace
}  // namespace vorna::recovery
