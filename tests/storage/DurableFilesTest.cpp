#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>

#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"
#include "storage/Fingerprint.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TempDir.h"
#include "support/TimeLimit.h"

namespace vorna::storage {
namespace {

using testing::FaultInjectingFileSystem;
using testing::FsCall;
using testing::TempDir;

struct stat statOf(const std::string& path) {
  struct stat st{};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return st;
}

template <typename Body>
FileOpError errorOf(Body body) {
  try {
    body();
  } catch (const FileOpError& error) {
    return error;
  }
  ADD_FAILURE() << "no FileOpError thrown";
  return FileOpError::notAFile("");
}

TEST(FileOpError, TextFormsNameTheCallThePathAndTheSystemMessage) {
  EXPECT_EQ(FileOpError::syscall("open", ENOENT, "/w/a.html").description(),
            "open failed on /w/a.html: No such file or directory (2)");
  EXPECT_EQ(FileOpError::syscall(kSwapOp, EXDEV, "/w/a").description(),
            "renameat2(RENAME_EXCHANGE) failed on /w/a: Invalid cross-device link (18)");
  EXPECT_EQ(FileOpError::shortWrite("/w/a").description(), "short write to /w/a");
  EXPECT_EQ(FileOpError::notAFile("/w/a").description(), "not a regular file: /w/a");
  EXPECT_EQ(FileOpError::wouldOverwrite("/w/a").description(),
            "refusing to overwrite existing path: /w/a");
}

TEST(WriteDurably, ExclusiveCreateRefusesAnExistingFileAndLeavesItAlone) {
  TempDir dir;
  dir.write("page", "old");
  FileOpError error = errorOf([&] { writeDurably("new", dir / "page", true, 0644); });
  EXPECT_EQ(error, FileOpError::syscall("open", EEXIST, dir / "page"));
  EXPECT_EQ(dir.read("page"), "old");
}

TEST(WriteDurably, NonExclusiveTruncatesAndRewrites) {
  TempDir dir;
  dir.write("page", "a much longer old text");
  writeDurably("new", dir / "page", false, 0644);
  EXPECT_EQ(dir.read("page"), "new");
}

TEST(WriteDurably, EmptyBytesCreateAnEmptyFileThatIsStillFlushed) {
  TempDir dir;
  FaultInjectingFileSystem fs;
  writeDurably("", dir / "empty", true, 0600, fs);
  EXPECT_EQ(dir.read("empty"), "");
  EXPECT_EQ(fs.count(FsCall::write), 0u);
  EXPECT_EQ(fs.count(FsCall::fsync), 1u);
  EXPECT_EQ(statOf(dir / "empty").st_mode & 07777, 0600u);
}

TEST(WriteDurably, WritesLargeBytesWhateverTheKernelAcceptsPerCall) {
  TempDir dir;
  std::string bytes(3 * 1024 * 1024 + 5, 'x');
  FaultInjectingFileSystem fs;
  fs.limitWrites(100'000);
  fs.failNth(FsCall::write, 3, EINTR);
  writeDurably(bytes, dir / "big", true, 0644, fs);
  EXPECT_EQ(dir.read("big"), bytes);
}

TEST(WriteDurably, ReportsEachFailingStepAndKeepsThePartialFile) {
  TempDir dir;
  struct Case {
    FsCall call;
    int error;
    const char* op;
  } cases[] = {
      {FsCall::open, EACCES, "open"},
      {FsCall::write, ENOSPC, "write"},
      {FsCall::fsync, EIO, "fsync"},
  };
  for (const Case& c : cases) {
    std::string path = dir / (std::string("page-") + c.op);
    FaultInjectingFileSystem fs;
    fs.failNth(c.call, 1, c.error);
    FileOpError error = errorOf([&] { writeDurably("bytes", path, true, 0644, fs); });
    EXPECT_EQ(error, FileOpError::syscall(c.op, c.error, path));
    size_t opened = c.call == FsCall::open ? 0u : 1u;
    EXPECT_EQ(fs.count(FsCall::close), opened) << "descriptor leaked: " << c.op;
  }
  EXPECT_FALSE(dir.exists("page-open"));
  EXPECT_TRUE(dir.exists("page-write")) << "nothing is unlinked after a failure";
}

TEST(WriteDurably, AWriteThatMakesNoProgressIsAShortWrite) {
  TempDir dir;
  FaultInjectingFileSystem fs;
  fs.limitWrites(0);
  FileOpError error = errorOf([&] { writeDurably("bytes", dir / "page", true, 0644, fs); });
  EXPECT_EQ(error, FileOpError::shortWrite(dir / "page"));
}

TEST(ReadFileWhole, ReadsFilesOfAnySizeAndReportsFailures) {
  TempDir dir;
  std::string bytes(200'000, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<char>(i * 31);
  }
  dir.write("bin", bytes);
  EXPECT_EQ(readFileWhole(dir / "bin"), bytes);
  dir.write("empty", "");
  EXPECT_EQ(readFileWhole(dir / "empty"), "");

  FaultInjectingFileSystem fs;
  fs.failNth(FsCall::read, 2, EIO);
  EXPECT_EQ(errorOf([&] { readFileWhole(dir / "bin", fs); }),
            FileOpError::syscall("read", EIO, dir / "bin"));
  EXPECT_EQ(errorOf([&] { readFileWhole(dir / "missing"); }),
            FileOpError::syscall("open", ENOENT, dir / "missing"));
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

TEST(SwapPaths, ExchangesTwoFilesWithTheirInodes) {
  TempDir dir;
  dir.write("a", "A");
  dir.write("b", "B");
  ino_t inodeA = statOf(dir / "a").st_ino;
  ino_t inodeB = statOf(dir / "b").st_ino;
  swapPaths(dir / "a", dir / "b");
  EXPECT_EQ(dir.read("a"), "B");
  EXPECT_EQ(dir.read("b"), "A");
  EXPECT_EQ(statOf(dir / "a").st_ino, inodeB);
  EXPECT_EQ(statOf(dir / "b").st_ino, inodeA);
}

TEST(SwapPaths, AMissingSideFailsWithoutTouchingTheOther) {
  TempDir dir;
  dir.write("a", "A");
  EXPECT_EQ(errorOf([&] { swapPaths(dir / "a", dir / "missing"); }),
            FileOpError::syscall("renameat2(RENAME_EXCHANGE)", ENOENT, dir / "a"));
  EXPECT_EQ(dir.read("a"), "A");
  EXPECT_FALSE(dir.exists("missing"));
}

TEST(RenameReplace, ReplacesTheDestinationAndReportsTheSource) {
  TempDir dir;
  dir.write("a", "A");
  dir.write("b", "B");
  renameReplace(dir / "a", dir / "b");
  EXPECT_EQ(dir.read("b"), "A");
  EXPECT_FALSE(dir.exists("a"));
  EXPECT_EQ(errorOf([&] { renameReplace(dir / "a", dir / "b"); }),
            FileOpError::syscall("rename", ENOENT, dir / "a"));
}

TEST(MoveFilePreservingInode, WithinOneFileSystemMovesTheSameInode) {
  TempDir dir;
  dir.write("a", "A", 0600);
  ino_t inode = statOf(dir / "a").st_ino;
  EXPECT_FALSE(moveFilePreservingInode(dir / "a", dir / "b"));
  EXPECT_EQ(statOf(dir / "b").st_ino, inode);
  EXPECT_FALSE(dir.exists("a"));
}

// Nothing that appeared at the destination, however late, is replaced; a
// file system that cannot rename without replacing (EINVAL) looks first.
TEST(MoveWithoutReplacing, NeverReplacesAFolderEvenAnEmptyOne) {
  TempDir dir;
  dir.makeFolder("from/inner");
  dir.makeFolder("empty");
  EXPECT_EQ(errorOf([&] { moveWithoutReplacing(dir / "from", dir / "empty"); }),
            FileOpError::wouldOverwrite(dir / "empty"));
  FaultInjectingFileSystem fs;
  fs.failNth(FsCall::rename, 1, EINVAL);
  EXPECT_EQ(errorOf([&] { moveWithoutReplacing(dir / "from", dir / "empty", fs); }),
            FileOpError::wouldOverwrite(dir / "empty"));
  fs.failNth(FsCall::rename, 2, EINVAL);
  moveWithoutReplacing(dir / "from", dir / "to", fs);
  EXPECT_TRUE(dir.exists("to/inner"));
  EXPECT_FALSE(dir.exists("from"));
}

TEST(MoveFilePreservingInode, NeverOverwritesAFileOrFolder) {
  TempDir dir;
  dir.write("a", "A");
  dir.write("b", "B");
  dir.makeFolder("folder");
  for (const char* target : {"b", "folder"}) {
    EXPECT_EQ(errorOf([&] { moveFilePreservingInode(dir / "a", dir / target); }),
              FileOpError::wouldOverwrite(dir / target));
  }
  EXPECT_EQ(dir.read("a"), "A");
  EXPECT_EQ(dir.read("b"), "B");
}

TEST(MoveFilePreservingInode, AcrossFileSystemsCopiesDurablyAndRemovesTheSource) {
  TempDir dir;
  dir.write("a", "cross", 0600);
  FaultInjectingFileSystem fs;
  fs.failNth(FsCall::rename, 1, EXDEV);
  EXPECT_TRUE(moveFilePreservingInode(dir / "a", dir / "b", fs));
  EXPECT_EQ(dir.read("b"), "cross");
  EXPECT_EQ(statOf(dir / "b").st_mode & 07777, 0644u & ~0022u);
  EXPECT_FALSE(dir.exists("a"));
  EXPECT_EQ(fs.count(FsCall::fsync), 1u);
}

TEST(MoveFilePreservingInode, RealMoveToAnotherFileSystem) {
  TempDir dir;
  struct stat here{};
  struct stat shm{};
  if (::stat("/dev/shm", &shm) != 0 || ::stat(dir.path().c_str(), &here) != 0 ||
      here.st_dev == shm.st_dev) {
    GTEST_SKIP() << "/dev/shm is not a separate file system here";
  }
  std::string destination = "/dev/shm/vorna-move-" + std::to_string(::getpid());
  ::unlink(destination.c_str());
  dir.write("a", "cross");
  EXPECT_TRUE(moveFilePreservingInode(dir / "a", destination));
  EXPECT_EQ(testing::readFile(destination), "cross");
  EXPECT_FALSE(dir.exists("a"));
  ::unlink(destination.c_str());
}

TEST(MoveFilePreservingInode, OtherRenameFailuresAreReportedOnTheSource) {
  TempDir dir;
  dir.write("a", "A");
  FaultInjectingFileSystem fs;
  fs.failNth(FsCall::rename, 1, EACCES);
  EXPECT_EQ(errorOf([&] { moveFilePreservingInode(dir / "a", dir / "b", fs); }),
            FileOpError::syscall("rename", EACCES, dir / "a"));
  EXPECT_EQ(dir.read("a"), "A");
}

TEST(BestEffortPrimitives, CarryPermissionsAndReportNothingOnFailure) {
  TempDir dir;
  dir.write("from", "x", 0640);
  dir.write("to", "y", 0600);
  copyPermissions(dir / "from", dir / "to");
  EXPECT_EQ(statOf(dir / "to").st_mode & 07777, 0640u);
  makeReadOnly(dir / "to");
  EXPECT_EQ(statOf(dir / "to").st_mode & 07777, 0444u);

  copyPermissions(dir / "missing", dir / "to");
  makeReadOnly(dir / "missing");
  fsyncDirectory(dir / "missing");
  EXPECT_EQ(statOf(dir / "to").st_mode & 07777, 0444u);
}

}  // namespace
}  // namespace vorna::storage
