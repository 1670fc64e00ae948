#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <regex>

#include "PageFixture.h"
#include "contracts/DecodeError.h"
#include "storage/FileOpError.h"
#include "storage/RecoveryStore.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TempDir.h"

namespace vorna::storage {
namespace {

using namespace testfixture;

using ::testing::StrEq;
using ::testing::ThrowsMessage;

class RecoveryStoreTest : public ::testing::Test {
 protected:
  TempDir dir;
  std::string storeDirectory = dir / "recovery/ws/retained";
};

TEST_F(RecoveryStoreTest, RetainWritesAReadOnlyPayloadAndItsSidecar) {
  RecoveryStore store(storeDirectory);
  RecoveryEntry entry = store.retain("hello", RecoveryKind::pendingEditorBytes, "/w/index.html");

  EXPECT_TRUE(std::regex_match(
      entry.id, std::regex("[1-9][0-9]{12}-000001-pendingEditorBytes-[0-9A-F]{8}-[0-9A-F]{4}-"
                           "[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}")))
      << entry.id;
  EXPECT_EQ(entry.payloadPath, storeDirectory + "/" + entry.id + ".bin");
  EXPECT_EQ(readFile(entry.payloadPath), "hello");
  EXPECT_EQ(modeOf(entry.payloadPath), 0444u);
  std::string sidecar = storeDirectory + "/" + entry.id + ".json";
  EXPECT_EQ(modeOf(sidecar), 0600u);
  EXPECT_EQ(readFile(sidecar), contracts::writeJson(entry.toJson()));
  EXPECT_EQ(entry.fingerprint, Fingerprint::ofBytes("hello"));

  EXPECT_EQ(store.entries(), std::vector<RecoveryEntry>{entry});
  EXPECT_EQ(store.readEntry(entry.id), entry);
}

TEST_F(RecoveryStoreTest, AdoptMovesTheFileItselfOrACopyAcrossFileSystems) {
  FaultInjectingFileSystem fs;
  RecoveryStore store(storeDirectory, fs);
  dir.write("swap", "displaced bytes", 0640);
  ino_t inode = statOf(dir / "swap").st_ino;

  RecoveryEntry entry = store.adopt(dir / "swap", RecoveryKind::displacedExternal, "/w/p.html",
                                    std::nullopt, 15, false);

  EXPECT_FALSE(dir.exists("swap"));
  EXPECT_EQ(statOf(entry.payloadPath).st_ino, inode);
  EXPECT_EQ(modeOf(entry.payloadPath), 0444u);
  EXPECT_FALSE(entry.movedByCopy);
  EXPECT_EQ(entry.fingerprint, std::nullopt);
  EXPECT_EQ(entry.byteCount, 15);
  EXPECT_FALSE(entry.fingerprintStabilized);
  // An entry without a fingerprint has no such key, and reads back without one.
  EXPECT_EQ(readFile(store.sidecarPathFor(entry.id)).find("fingerprint\":"), std::string::npos);

  dir.write("swap", "bytes");
  fs.failNth(FsCall::rename, static_cast<int>(fs.count(FsCall::rename)) + 1, EXDEV);
  RecoveryEntry copied = store.adopt(dir / "swap", RecoveryKind::displacedExpected, "/w/p.html",
                                     Fingerprint::ofBytes("bytes"), 5, true);
  EXPECT_TRUE(copied.movedByCopy);
  EXPECT_FALSE(dir.exists("swap"));
  EXPECT_EQ(readFile(copied.payloadPath), "bytes");
  EXPECT_EQ(modeOf(copied.payloadPath), 0444u);
  EXPECT_EQ(store.entries(), (std::vector<RecoveryEntry>{entry, copied}));
}

TEST_F(RecoveryStoreTest, RetainNeverOverwritesAnIntruderAndAFailedSidecarLeavesThePayload) {
  FaultInjectingFileSystem fs;
  RecoveryStore store(storeDirectory, fs);
  std::string intruder;
  fs.beforeCall(FsCall::lstat, [&](const std::string& path) {
    intruder = path;
    std::ofstream(path) << "someone else's";
  });

  std::string message = errorOf([&] {
                          store.retain("bytes", RecoveryKind::pendingEditorBytes, "/w/p.html");
                        }).description();

  EXPECT_EQ(message, "refusing to overwrite existing path: " + intruder);
  EXPECT_EQ(readFile(intruder), "someone else's");

  fs.clearFaults();
  fs.failWhere(FsCall::write, ".json", ENOSPC);
  message = errorOf([&] {
              store.retain("bytes", RecoveryKind::pendingEditorBytes, "/w/p.html");
            }).description();
  std::vector<std::string> payloads = store.payloadPaths();
  std::erase(payloads, intruder);
  ASSERT_EQ(payloads.size(), 1u);
  std::string sidecar = payloads[0].substr(0, payloads[0].size() - 4) + ".json";
  EXPECT_EQ(message, "write failed on " + sidecar + ": No space left on device (28)");
  EXPECT_EQ(readFile(payloads[0]), "bytes");
}

TEST_F(RecoveryStoreTest, AMalformedSidecarFailsTheListingAndStalePayloadsAreFound) {
  RecoveryStore store(storeDirectory);
  RecoveryEntry good = store.retain("a", RecoveryKind::pendingEditorBytes, "/w/a");
  std::string broken = storeDirectory + "/9-000001-displacedExpected-X.json";
  std::ofstream(broken) << "{\"id\":";

  EXPECT_THAT([&] { store.entries(); }, ThrowsMessage<contracts::DecodeError>(
                                            StrEq("malformed sidecar " + broken + ": not JSON")));
  EXPECT_EQ(store.payloadPaths(), std::vector<std::string>{good.payloadPath});

  contracts::Json json = good.toJson();
  json.erase("capturedAt");
  std::ofstream(broken, std::ios::trunc) << contracts::writeJson(json);
  EXPECT_THAT([&] { store.staleFingerprints(); },
              ThrowsMessage<contracts::DecodeError>(
                  StrEq("malformed sidecar " + broken + ": missing key: capturedAt")));

  // Once the sidecars read, missing, changed and unknown payloads are stale.
  ASSERT_EQ(::unlink(broken.c_str()), 0);
  RecoveryEntry intact = store.retain("intact", RecoveryKind::displacedExpected, "/w/a");
  RecoveryEntry deleted = store.retain("deleted", RecoveryKind::displacedExpected, "/w/a");
  RecoveryEntry changed = store.retain("changed", RecoveryKind::displacedExpected, "/w/a");
  dir.write("loose", "x");
  RecoveryEntry unknown =
      store.adopt(dir / "loose", RecoveryKind::displacedExternal, "/w/a", std::nullopt, 1, false);
  ASSERT_EQ(::unlink(deleted.payloadPath.c_str()), 0);
  ::chmod(changed.payloadPath.c_str(), 0644);
  std::ofstream(changed.payloadPath, std::ios::trunc) << "other";

  EXPECT_EQ(store.staleFingerprints(), (std::vector<RecoveryEntry>{deleted, changed, unknown}));
  EXPECT_EQ(store.payloadFingerprints(),
            (std::vector<Fingerprint>{Fingerprint::ofBytes("a"), Fingerprint::ofBytes("intact"),
                                      Fingerprint::ofBytes("other"), Fingerprint::ofBytes("x")}));
}

}  // namespace
}  // namespace vorna::storage
