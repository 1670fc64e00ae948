#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "ScopedVariable.h"
#include "bridge/FreedesktopTrash.h"
#include "storage/FileOpError.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TempDir.h"

namespace vorna::bridge {
namespace {

using testing::TempDir;

// 2023-11-14T22:13:20 in UTC.
constexpr std::time_t kDeletion = 1700000000;

using testing::statOf;

class FreedesktopTrashTest : public ::testing::Test {
 protected:
  FreedesktopTrashTest() {
    ::tzset();
    tmp.makeFolder("w");
  }
  ~FreedesktopTrashTest() override {
    zone_.reset();
    ::tzset();
  }

  FreedesktopTrash trash(storage::FileSystem& fs = storage::FileSystem::real()) {
    return FreedesktopTrash(home, fs, [] { return kDeletion; });
  }

  TempDir tmp;
  const std::string home = tmp / "data/Trash";

 private:
  // DeletionDate is local time; pinning the zone makes its text known.
  std::optional<testfixture::ScopedVariable> zone_{std::in_place, "TZ", "UTC"};
};

TEST_F(FreedesktopTrashTest, AFileOnTheHomeFileSystemGoesToTheHomeTrashWithItsRecord) {
  tmp.write("w/a b%é.html", "<p>x</p>");
  const std::string original = tmp / "w/a b%é.html";
  EXPECT_EQ(trash().trash(original), home + "/files/a b%é.html");
  EXPECT_FALSE(tmp.exists("w/a b%é.html"));
  EXPECT_EQ(tmp.read("data/Trash/files/a b%é.html"), "<p>x</p>");
  const std::string escapedFolder = tmp.path();  // temporary folders need no escaping
  EXPECT_EQ(tmp.read("data/Trash/info/a b%é.html.trashinfo"),
            "[Trash Info]\nPath=" + escapedFolder +
                "/w/a%20b%25%C3%A9.html\nDeletionDate=2023-11-14T22:13:20\n");
  EXPECT_EQ(statOf(home + "/files").st_mode & 0777, 0700u);
  EXPECT_EQ(statOf(home + "/info").st_mode & 0777, 0700u);
  EXPECT_EQ(statOf(home + "/info/a b%é.html.trashinfo").st_mode & 0777, 0600u);
  // A name taken by either half is never reused.
  tmp.write("data/Trash/info/page.html.trashinfo", "someone else's record");
  tmp.write("data/Trash/files/page.2.html", "an item whose record is gone");
  tmp.write("w/page.html", "mine");
  EXPECT_EQ(trash().trash(tmp / "w/page.html"), home + "/files/page.3.html");
  EXPECT_EQ(tmp.read("data/Trash/info/page.html.trashinfo"), "someone else's record");
  EXPECT_EQ(tmp.read("data/Trash/files/page.2.html"), "an item whose record is gone");
  EXPECT_FALSE(tmp.exists("data/Trash/info/page.2.html.trashinfo"));
  EXPECT_EQ(tmp.read("data/Trash/files/page.3.html"), "mine");
  EXPECT_TRUE(tmp.exists("data/Trash/info/page.3.html.trashinfo"));
}

TEST_F(FreedesktopTrashTest, AFailedMoveTakesItsRecordBackOut) {
  tmp.write("w/page.html", "mine");
  testing::FaultInjectingFileSystem faulty;
  faulty.failNth(testing::FsCall::rename, 1, EACCES);
  const std::string original = tmp / "w/page.html";
  try {
    trash(faulty).trash(original);
    ADD_FAILURE() << "trashed although the move failed";
  } catch (const storage::FileOpError& error) {
    EXPECT_EQ(error.description(), "rename failed on " + original + ": Permission denied (13)");
  }
  EXPECT_EQ(tmp.read("w/page.html"), "mine");
  EXPECT_FALSE(tmp.exists("data/Trash/info/page.html.trashinfo"));
}

// Numbered before the extension: the home trash test.
TEST_F(FreedesktopTrashTest, NamesAreNumberedAndCutToFit) {
  EXPECT_EQ(FreedesktopTrash::trashName("README", 12), "README.12");
  EXPECT_EQ(FreedesktopTrash::trashName(".profile", 2), ".profile.2");
  // 255 bytes of name leave no room for ".trashinfo": the stem is cut, and never
  // inside a character ("é" is two bytes, so an odd cut backs off by one).
  std::string accented;
  for (int i = 0; i < 125; ++i) {
    accented += "é";
  }
  const std::string cut = FreedesktopTrash::trashName(accented + ".html", 10);
  EXPECT_EQ(cut.size() + std::string(".trashinfo").size(), 254u);
  EXPECT_TRUE(cut.ends_with("é.10.html")) << cut;
}

using testfixture::ScopedVariable;

// A relative XDG_DATA_HOME is not a data folder and is ignored.
TEST_F(FreedesktopTrashTest, TheHomeTrashFollowsXdgDataHomeAtEveryCall) {
  const std::string data = tmp / "data", fallback = "/home/someone/.local/share/Trash";
  const std::tuple<const char*, const char*, std::optional<std::string>> rows[] = {
      {"/home/someone", data.c_str(), data + "/Trash"},
      {"/home/someone", "relative/data", fallback},
      {"/home/someone", nullptr, fallback},
      {nullptr, nullptr, std::nullopt},
  };
  for (const auto& [home, dataHome, expected] : rows) {
    ScopedVariable homeVariable("HOME", home), dataVariable("XDG_DATA_HOME", dataHome);
    EXPECT_EQ(FreedesktopTrash::defaultHomeTrash(), expected) << (dataHome ? dataHome : "unset");
  }
  ScopedVariable dataVariable("XDG_DATA_HOME", data.c_str());
  tmp.write("w/page.html", "x");
  FreedesktopTrash fromEnvironment(FreedesktopTrash::defaultHomeTrash().value());
  EXPECT_EQ(fromEnvironment.trash(tmp / "w/page.html"), tmp / "data/Trash/files/page.html");
}

class VolumeTrashTest : public FreedesktopTrashTest {
 protected:
  const std::string top = tmp / "volume";
  const std::string uid = std::to_string(::getuid());
  VolumeTrashTest() { tmp.makeFolder("volume"); }
};

TEST_F(VolumeTrashTest, AStickySharedTrashIsUsedOnlyWhenItIsARealFolder) {
  tmp.makeFolder("volume/.Trash");
  ASSERT_EQ(::chmod((top + "/.Trash").c_str(), 0777), 0);
  EXPECT_EQ(trash().volumeTrash(top), top + "/.Trash-" + uid);  // not sticky

  ASSERT_EQ(::chmod((top + "/.Trash").c_str(), 01777), 0);
  EXPECT_EQ(trash().volumeTrash(top), top + "/.Trash/" + uid);

  tmp.makeFolder("other");
  tmp.makeFolder("other/.Trash");
  ASSERT_EQ(::chmod((tmp / "other/.Trash").c_str(), 01777), 0);
  tmp.makeFolder("linked");
  tmp.symlink(tmp / "other/.Trash", "linked/.Trash");
  EXPECT_EQ(trash().volumeTrash(tmp / "linked"), tmp / "linked/.Trash-" + uid);
}

TEST_F(VolumeTrashTest, APrivateTrashThatIsALinkIsRefused) {
  tmp.makeFolder("elsewhere");
  tmp.symlink(tmp / "elsewhere", "volume/.Trash-" + uid);
  try {
    trash().volumeTrash(top);
    ADD_FAILURE() << "used a linked trash";
  } catch (const storage::FileOpError& error) {
    EXPECT_EQ(error.description(),
              "trash failed on " + top + "/.Trash-" + uid + ": Operation not permitted (1)");
  }
}

// Without a shared trash a private folder at the top serves.
TEST_F(VolumeTrashTest, ARecordInAVolumeTrashHoldsThePathFromTheTop) {
  tmp.makeFolder("volume/site");
  tmp.write("volume/site/page.html", "x");
  FreedesktopTrash::Location location{trash().volumeTrash(top), top};
  EXPECT_EQ(location.directory, top + "/.Trash-" + uid);
  EXPECT_EQ(statOf(top + "/.Trash-" + uid).st_mode & 0777, 0700u);
  EXPECT_EQ(trash().trashInto(location, top + "/site/page.html"),
            top + "/.Trash-" + uid + "/files/page.html");
  EXPECT_EQ(tmp.read("volume/.Trash-" + uid + "/info/page.html.trashinfo"),
            "[Trash Info]\nPath=site/page.html\nDeletionDate=2023-11-14T22:13:20\n");
}

}  // namespace
}  // namespace vorna::bridge
