// What each durable operation leaves on disk and which error it reports. That
// the flushes are where they must be is proven against power cuts in
// tests/durability.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>

#include "PageFixture.h"
#include "storage/DurableChanges.h"
#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"
#include "storage/Fingerprint.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TempDir.h"
#include "support/TimeLimit.h"

namespace vorna::storage {
namespace {

using namespace testfixture;
using AcrossFileSystems = DurableChanges::AcrossFileSystems;

TEST(DurableChanges, NewAndReplacedFilesAreMadeWholeWithTheirModeWhateverTheKernelAccepts) {
  TempDir dir;
  FaultInjectingFileSystem fs;
  fs.limitWrites(100'000);
  fs.failNth(FsCall::write, 3, EINTR);
  DurableChanges changes(fs);
  const std::string big(3 * 1024 * 1024 + 5, 'x');
  changes.createExclusively(dir / "big", big, 0640);
  changes.stage(dir / "empty", "", 0600);
  EXPECT_EQ(dir.read("big"), big);
  EXPECT_EQ(statOf(dir / "big").st_mode & 07777, 0640u);
  EXPECT_EQ(dir.read("empty"), "");
  // What a failed replace leaves (the old index, no temporary file) is
  // IndexFilesTest's to show for every failing call.
  dir.write("index.json", "old");
  changes.replace(dir / "index.json", "new", 0600);
  EXPECT_EQ(dir.read("index.json"), "new");
  EXPECT_EQ(statOf(dir / "index.json").st_mode & 07777, 0600u);

  dir.write("taken", "theirs");
  EXPECT_EQ(errorOf([&] { changes.createExclusively(dir / "taken", "ours", 0644); }),
            FileOpError::syscall("open", EEXIST, dir / "taken"));
  EXPECT_EQ(dir.read("taken"), "theirs");
}

TEST(DurableChanges, AFailureAfterTheOpenRemovesTheNewFileAgain) {
  TempDir dir;
  struct Case {
    FsCall call;
    int error;  // 0: writes make no progress
    FileOpError expected;
  } cases[] = {
      {FsCall::write, ENOSPC, FileOpError::syscall("write", ENOSPC, dir / "page")},
      {FsCall::fsync, EIO, FileOpError::syscall("fsync", EIO, dir / "page")},
      {FsCall::write, 0, FileOpError::shortWrite(dir / "page")},
  };
  for (const Case& c : cases) {
    FaultInjectingFileSystem fs;
    if (c.error == 0) {
      fs.limitWrites(0);
    } else {
      fs.failNth(c.call, 1, c.error);
    }
    EXPECT_EQ(errorOf([&] { DurableChanges(fs).createExclusively(dir / "page", "bytes", 0644); }),
              c.expected);
    EXPECT_FALSE(dir.exists("page")) << c.expected.description();
    EXPECT_EQ(fs.count(FsCall::close), 1u) << "descriptor leaked: " << c.expected.description();
  }
}

TEST(DurableChanges, MoveIntoFolderKeepsTheInodeAndNeverReplacesAFileOrAFolder) {
  TempDir dir;
  dir.write("a", "A", 0600);
  dir.write("b", "B");
  dir.makeFolder("folder");
  dir.makeFolder("tree");
  ino_t inode = statOf(dir / "a").st_ino;
  DurableChanges changes;
  for (const char* target : {"b", "folder"}) {
    EXPECT_EQ(errorOf([&] { changes.moveIntoFolder(dir / "a", dir / target); }),
              FileOpError::wouldOverwrite(dir / target));
  }
  EXPECT_EQ(dir.read("b"), "B");

  changes.moveIntoFolder(dir / "a", dir / "folder/a");
  changes.moveIntoFolder(dir / "tree", dir / "folder/tree");
  EXPECT_EQ(statOf(dir / "folder/a").st_ino, inode);
  EXPECT_TRUE(dir.exists("folder/tree"));
  EXPECT_FALSE(dir.exists("a"));

  // Nothing that appeared at the destination, however late, is replaced, not
  // even an empty folder; a file system that cannot rename without replacing
  // (EINVAL) looks first.
  dir.makeFolder("from/inner");
  dir.makeFolder("empty");
  EXPECT_EQ(errorOf([&] { DurableChanges().moveIntoFolder(dir / "from", dir / "empty"); }),
            FileOpError::wouldOverwrite(dir / "empty"));
  FaultInjectingFileSystem fs;
  fs.failNth(FsCall::rename, 1, EINVAL);
  EXPECT_EQ(errorOf([&] { DurableChanges(fs).moveIntoFolder(dir / "from", dir / "empty"); }),
            FileOpError::wouldOverwrite(dir / "empty"));
  fs.failNth(FsCall::rename, 2, EINVAL);
  DurableChanges(fs).moveIntoFolder(dir / "from", dir / "to");
  EXPECT_TRUE(dir.exists("to/inner"));
  EXPECT_FALSE(dir.exists("from"));
}

TEST(DurableChanges, MoveIntoFolderCopiesOnlyRegularFilesAcrossFileSystemsAndOnlyWhenAllowed) {
  TempDir dir;
  dir.write("a", "cross", 0600);
  dir.makeFolder("tree");
  struct Case {
    const char* source;
    FsCall call;
    int error;
    AcrossFileSystems across;
    bool copied;
  } cases[] = {
      {"a", FsCall::rename, EXDEV, AcrossFileSystems::refuse, false},
      {"tree", FsCall::rename, EXDEV, AcrossFileSystems::copy, false},
      {"a", FsCall::rename, EACCES, AcrossFileSystems::copy, false},
      {"a", FsCall::rename, EXDEV, AcrossFileSystems::copy, true},
  };
  for (const Case& c : cases) {
    FaultInjectingFileSystem fs;
    fs.failNth(c.call, 1, c.error);
    const std::string source = dir / c.source;
    if (c.copied) {
      DurableChanges(fs).moveIntoFolder(source, dir / "copy", c.across);
      EXPECT_EQ(dir.read("copy"), "cross");
      EXPECT_EQ(statOf(dir / "copy").st_mode & 07777, 0644u & ~0022u);
      EXPECT_FALSE(dir.exists(c.source));
    } else {
      EXPECT_EQ(errorOf([&] { DurableChanges(fs).moveIntoFolder(source, dir / "copy", c.across); }),
                FileOpError::syscall("rename", c.error, source));
      EXPECT_TRUE(dir.exists(c.source));
      EXPECT_FALSE(dir.exists("copy"));
    }
  }
}

TEST(DurableChanges, MakeFolderMakesEveryMissingFolderAndNamesWhatIsInTheWay) {
  TempDir dir;
  dir.write("file", "x");
  DurableChanges changes;
  changes.makeFolder(dir / "a/b/c", 0700);
  changes.makeFolder(dir / "a/b/c", 0700);
  EXPECT_EQ(statOf(dir / "a/b/c").st_mode & 07777, 0700u);
  EXPECT_EQ(errorOf([&] { changes.makeFolder(dir / "file", 0755); }),
            FileOpError::syscall("mkdir", EEXIST, dir / "file"));
  EXPECT_EQ(errorOf([&] { changes.makeFolder(dir / "file/x/y", 0755); }),
            FileOpError::syscall("mkdir", EEXIST, dir / "file"));
  std::vector<std::string> made;
  changes.makeFolder(dir / "a/d/e", 0700,
                     [&](const std::string& folder) { made.push_back(folder); });
  EXPECT_EQ(made, (std::vector<std::string>{dir / "a/d", dir / "a/d/e"}));
}

// Both readers of whole files: any size, interrupted reads retried, the
// failing call named and no descriptor left open.
TEST(ReadFileWhole, ReadsAndFingerprintsFilesOfAnySizeAndNamesTheFailingCall) {
  TempDir dir;
  std::string big(3 * 1024 * 1024 + 17, '\0');
  for (size_t i = 0; i < big.size(); ++i) {
    big[i] = static_cast<char>(i * 31);
  }
  for (const std::string& bytes : {std::string(), big}) {
    dir.write("file", bytes);
    FaultInjectingFileSystem fs;
    fs.failNth(FsCall::read, 1, EINTR);
    EXPECT_EQ(readFileWhole(dir / "file", fs), bytes);
    FileFingerprint result = fingerprintFile(dir / "file", fs);
    EXPECT_EQ(result.byteCount, static_cast<int64_t>(bytes.size()));
    EXPECT_EQ(result.fingerprint, Fingerprint::ofBytes(bytes)) << bytes.size();
  }
  for (const bool fingerprint : {false, true}) {
    FaultInjectingFileSystem fs;
    fs.failNth(FsCall::read, 2, EIO);
    for (const auto& [path, error] :
         {std::pair{dir / "missing", FileOpError::syscall("open", ENOENT, dir / "missing")},
          std::pair{dir / "file", FileOpError::syscall("read", EIO, dir / "file")}}) {
      EXPECT_EQ(errorOf([&] {
                  fingerprint ? (void)fingerprintFile(path, fs) : (void)readFileWhole(path, fs);
                }),
                error)
          << fingerprint;
    }
    EXPECT_EQ(fs.count(FsCall::close), 1u) << "descriptor leaked";
  }
}

// A pipe would hold the reader until a writer came, and a device could be
// endless: neither is read, and neither waits.
TEST(ReadFileWhole, OnlyRegularFilesAreReadOrFingerprintedAndNothingElseWaits) {
  TempDir dir;
  testing::makePipe(dir / "pipe");
  int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string socketPath = dir / "socket";
  socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_TRUE(testing::finishesWithin(
      std::chrono::seconds(5),
      [&] {
        // A socket cannot even be opened.
        for (const auto& [path, error] :
             {std::pair{dir / "pipe", FileOpError::notAFile(dir / "pipe")},
              std::pair{std::string("/dev/zero"), FileOpError::notAFile("/dev/zero")},
              std::pair{socketPath, FileOpError::syscall("open", ENXIO, socketPath)}}) {
          EXPECT_EQ(errorOf([&] { fingerprintFile(path); }), error) << path;
          EXPECT_EQ(errorOf([&] { readFileWhole(path); }), error) << path;
        }
      },
      [&] { testing::releasePipe(dir / "pipe"); }));
  ::close(listener);
}

// Carrying permissions over is asserted through SafeAdapterTest's saves.
TEST(BestEffortPrimitives, ReportNothingWhenTheFileIsGone) {
  TempDir dir;
  dir.write("to", "y", 0600);
  copyPermissions(dir / "missing", dir / "to");
  makeReadOnly(dir / "missing");
  EXPECT_EQ(statOf(dir / "to").st_mode & 07777, 0600u);
}

}  // namespace
}  // namespace vorna::storage
