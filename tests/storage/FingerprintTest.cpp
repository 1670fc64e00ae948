#include <gtest/gtest.h>

#include <cerrno>

#include "storage/FileOpError.h"
#include "storage/Fingerprint.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TempDir.h"

namespace vorna::storage {
namespace {

using testing::FaultInjectingFileSystem;
using testing::FsCall;
using testing::TempDir;

constexpr const char* kEmptySha256 =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

TEST(Fingerprint, HashesBytesInMemoryAsLowerCaseHex) {
  EXPECT_EQ(Fingerprint::ofBytes("").hex, kEmptySha256);
  EXPECT_EQ(Fingerprint::ofBytes("abc").hex,
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

// The written form and its round trip are RecoveryStoreTest's sidecar checks.
TEST(Fingerprint, JsonFormsWithoutAStringHexAreRefused) {
  EXPECT_EQ(Fingerprint::fromJson(contracts::Json("abc")), std::nullopt);
  EXPECT_EQ(Fingerprint::fromJson(contracts::Json({{"hex", 1}})), std::nullopt);
}

TEST(FingerprintFile, MatchesTheInMemoryHashFromEmptyToSeveralBuffers) {
  TempDir dir;
  std::string big;
  for (int i = 0; big.size() < 3 * 1024 * 1024 + 17; ++i) {
    big += std::to_string(static_cast<long long>(i) * 7919) + ",";
  }
  for (const std::string& bytes : {std::string(), big}) {
    dir.write("file", bytes);
    FileFingerprint result = fingerprintFile(dir / "file");
    EXPECT_EQ(result.byteCount, static_cast<int64_t>(bytes.size()));
    EXPECT_EQ(result.fingerprint, Fingerprint::ofBytes(bytes)) << bytes.size();
  }
}

TEST(FingerprintFile, ReportsTheFailingCallAndPath) {
  TempDir dir;
  try {
    fingerprintFile(dir / "missing");
    FAIL() << "no error";
  } catch (const FileOpError& error) {
    EXPECT_EQ(error.op(), "open");
    EXPECT_EQ(error.code(), ENOENT);
    EXPECT_EQ(error.description(),
              "open failed on " + (dir / "missing") + ": No such file or directory (2)");
  }

  dir.write("page", "text");
  FaultInjectingFileSystem fs;
  fs.failNth(FsCall::read, 1, EIO);
  try {
    fingerprintFile(dir / "page", fs);
    FAIL() << "no error";
  } catch (const FileOpError& error) {
    EXPECT_EQ(error, FileOpError::syscall("read", EIO, dir / "page"));
  }
  EXPECT_EQ(fs.count(FsCall::close), 1u) << "the descriptor must not leak";
}

TEST(FingerprintFile, RetriesInterruptedReads) {
  TempDir dir;
  dir.write("page", "text");
  FaultInjectingFileSystem fs;
  fs.failNth(FsCall::read, 1, EINTR);
  EXPECT_EQ(fingerprintFile(dir / "page", fs).fingerprint, Fingerprint::ofBytes("text"));
}

TEST(StabilizedFingerprint, FewerThanTwoAttemptsReadOnceAndNeverStabilize) {
  TempDir dir;
  dir.write("page", "text");
  for (int attempts : {-3, 0, 1}) {
    FaultInjectingFileSystem fs;
    StabilizedFingerprint result = stabilizedFingerprint(dir / "page", 1000, attempts, fs);
    EXPECT_EQ(result.fingerprint, Fingerprint::ofBytes("text")) << attempts;
    EXPECT_EQ(result.byteCount, 4);
    EXPECT_FALSE(result.stabilized);
    EXPECT_EQ(fs.count(FsCall::open), 1u) << attempts;
  }
}

TEST(StabilizedFingerprint, QuietFileSettlesAfterExactlyTwoReadings) {
  TempDir dir;
  dir.write("page", "text");
  FaultInjectingFileSystem fs;
  StabilizedFingerprint result = stabilizedFingerprint(dir / "page", 1000, 25, fs);
  EXPECT_TRUE(result.stabilized);
  EXPECT_EQ(result.fingerprint, Fingerprint::ofBytes("text"));
  EXPECT_EQ(fs.count(FsCall::open), 2u);
}

TEST(StabilizedFingerprint, MissingFileGivesNothing) {
  TempDir dir;
  StabilizedFingerprint result = stabilizedFingerprint(dir / "missing", 0, 5);
  EXPECT_EQ(result.fingerprint, std::nullopt);
  EXPECT_EQ(result.byteCount, 0);
  EXPECT_FALSE(result.stabilized);
}

TEST(StabilizedFingerprint, FileThatKeepsChangingReturnsTheLastReadingUnsettled) {
  TempDir dir;
  dir.write("page", "v0");
  FaultInjectingFileSystem fs;
  int version = 0;
  // Another writer changes the file before every reading.
  fs.beforeCall(FsCall::open,
                [&](const std::string&) { dir.write("page", "v" + std::to_string(++version)); });
  StabilizedFingerprint result = stabilizedFingerprint(dir / "page", 0, 4, fs);
  EXPECT_FALSE(result.stabilized);
  EXPECT_EQ(result.fingerprint, Fingerprint::ofBytes("v4"));
  EXPECT_EQ(fs.count(FsCall::open), 4u);
}

TEST(StabilizedFingerprint, ALaterFailedReadingKeepsThePreviousOne) {
  TempDir dir;
  dir.write("page", "text");
  FaultInjectingFileSystem fs;
  fs.failNth(FsCall::open, 2, EACCES);
  StabilizedFingerprint result = stabilizedFingerprint(dir / "page", 0, 5, fs);
  EXPECT_EQ(result.fingerprint, Fingerprint::ofBytes("text"));
  EXPECT_EQ(result.byteCount, 4);
  EXPECT_FALSE(result.stabilized);
}

}  // namespace
}  // namespace vorna::storage
