// The crash model's own rules: what a power cut may and may not leave after a
// few changes, with and without flushes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "support/SimulatedDisk.h"

namespace vorna::testing {
namespace {

void create(SimulatedDisk& disk, const std::string& path, const std::string& bytes, bool flush) {
  int fd = disk.open(path, O_WRONLY | O_CREAT | O_EXCL, 0644);
  ASSERT_GE(fd, 0) << path;
  ASSERT_EQ(disk.write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  if (flush) {
    disk.fsync(fd);
  }
  disk.close(fd);
}

void flushFolder(SimulatedDisk& disk, const std::string& path) {
  int fd = disk.open(path, O_RDONLY | O_DIRECTORY, 0);
  ASSERT_GE(fd, 0) << path;
  disk.fsync(fd);
  disk.close(fd);
}

// Each state a power cut may leave after everything `changes` did, as
// "path=bytes" (or "path=-" when nothing is there) for each of `paths`.
std::set<std::string> outcomes(const std::function<void(SimulatedDisk&)>& changes,
                               const std::vector<std::string>& paths) {
  SimulatedDisk disk;
  disk.writeFile("/a/old", "old");
  disk.writeFile("/b/keep", "");
  disk.markDurable();
  changes(disk);
  std::set<std::string> seen;
  disk.forEachCrashState(disk.changeCount(), [&](SimulatedDisk& state) {
    std::string outcome;
    for (const std::string& path : paths) {
      std::optional<std::string> bytes = state.readFile(path);
      outcome += (outcome.empty() ? "" : " ") + path + "=" + (bytes ? *bytes : "-");
    }
    seen.insert(outcome);
    return true;
  });
  return seen;
}

// Each case is a loss the model must be able to show: a model that lost too
// little would let the power-cut tests pass without proving anything, while
// one that lost too much would fail them outright.
// A flush taken away is PowerCut.EveryFlushIsNeeded's own check: were it kept,
// every flush there would show as unneeded.
TEST(SimulatedDisk, APowerCutTakesWhatWasNotFlushedAndNothingElse) {
  struct Case {
    const char* rule;
    std::function<void(SimulatedDisk&)> changes;
    std::vector<std::string> paths;
    std::set<std::string> expected;
  } cases[] = {
      {"unflushed bytes are lost or cut short, never garbage",
       [](SimulatedDisk& d) {
         create(d, "/a/new", "abcdef", false);
         flushFolder(d, "/a");
       },
       {"/a/new"},
       {"/a/new=", "/a/new=abc", "/a/new=abcdef"}},
      {"a name lasts only once its folder is flushed",
       [](SimulatedDisk& d) { create(d, "/a/new", "abc", true); },
       {"/a/new"},
       {"/a/new=-", "/a/new=abc"}},
      {"an unflushed rename is undone, never half done",
       [](SimulatedDisk& d) { d.rename("/a/old", "/a/renamed"); },
       {"/a/old", "/a/renamed"},
       {"/a/old=old /a/renamed=-", "/a/old=- /a/renamed=old"}},
      {"a rename over a file does not flush the renamed bytes",
       [](SimulatedDisk& d) {
         create(d, "/a/tmp", "new", false);
         d.rename("/a/tmp", "/a/old");
         flushFolder(d, "/a");
       },
       {"/a/old"},
       {"/a/old=", "/a/old=n", "/a/old=new"}},
      {"a folder's changes last in order",
       [](SimulatedDisk& d) {
         create(d, "/a/first", "1", true);
         create(d, "/a/second", "2", true);
       },
       {"/a/first", "/a/second"},
       {"/a/first=- /a/second=-", "/a/first=1 /a/second=-", "/a/first=1 /a/second=2"}},
      {"different folders' changes last in any order",
       [](SimulatedDisk& d) {
         create(d, "/a/first", "1", true);
         create(d, "/b/second", "2", true);
       },
       {"/a/first", "/b/second"},
       {"/a/first=- /b/second=-", "/a/first=1 /b/second=-", "/a/first=- /b/second=2",
        "/a/first=1 /b/second=2"}},
      {"a new folder lasts only once its parent is flushed",
       [](SimulatedDisk& d) {
         d.mkdir("/a/sub", 0755);
         create(d, "/a/sub/new", "abc", true);
         flushFolder(d, "/a/sub");
       },
       {"/a/sub/new"},
       {"/a/sub/new=-", "/a/sub/new=abc"}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(outcomes(c.changes, c.paths), c.expected) << c.rule;
  }
  // Separate file systems refuse renames, or the cross-device sequences would
  // prove nothing.
  SimulatedDisk disk;
  disk.writeFile("/a/old", "old");
  disk.writeFile("/mnt/x", "x");
  disk.mountSeparateFileSystem("/mnt");
  EXPECT_EQ(disk.rename("/a/old", "/mnt/old"), -1);
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(disk.exchange("/a/old", "/mnt/x"), -1);
  EXPECT_EQ(errno, EXDEV);
}

}  // namespace
}  // namespace vorna::testing
