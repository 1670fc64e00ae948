#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "storage/Fingerprint.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TempDir.h"

namespace vorna::storage {
namespace {

using testing::FaultInjectingFileSystem;
using testing::FsCall;
using testing::TempDir;

// The hex form is asserted against a known digest by the recovery tests' draft
// records; the written form and its round trip by RecoveryStoreTest's sidecars.
TEST(Fingerprint, RefusesJsonWithoutAStringHex) {
  EXPECT_EQ(Fingerprint::fromJson(contracts::Json("abc")), std::nullopt);
  EXPECT_EQ(Fingerprint::fromJson(contracts::Json({{"hex", 1}})), std::nullopt);
}

// Settling needs two equal readings in a row; whatever is read last counts.
TEST(StabilizedFingerprint, SettlesOnTwoEqualReadingsAndOtherwiseKeepsTheLastOne) {
  TempDir dir;
  struct Case {
    const char* name;
    int attempts;
    std::function<void(FaultInjectingFileSystem&, int& version)> setup;
    std::optional<std::string> read;  // the bytes fingerprinted, if any
    bool stabilized;
    size_t opens;  // 0: not counted
  };
  const Case cases[] = {
      {"fewer than two attempts (0)", 0, nullptr, "text", false, 1},
      {"fewer than two attempts (1)", 1, nullptr, "text", false, 1},
      {"a quiet file", 25, nullptr, "text", true, 2},
      {"a missing file", 5, [&](auto&, int&) { ::unlink((dir / "page").c_str()); }, std::nullopt,
       false, 0},
      {"a later reading fails", 5, [](auto& fs, int&) { fs.failNth(FsCall::open, 2, EACCES); },
       "text", false, 0},
      {"a file that keeps changing", 4,
       [&](auto& fs, int& version) {
         fs.beforeCall(FsCall::open, [&](const std::string&) {
           dir.write("page", "v" + std::to_string(++version));
         });
       },
       "v4", false, 4},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    dir.write("page", "text");
    FaultInjectingFileSystem fs;
    int version = 0;
    if (c.setup) {
      c.setup(fs, version);
    }
    StabilizedFingerprint result = stabilizedFingerprint(dir / "page", 0, c.attempts, fs);
    EXPECT_EQ(result.fingerprint,
              c.read ? std::optional(Fingerprint::ofBytes(*c.read)) : std::nullopt);
    EXPECT_EQ(result.byteCount, c.read ? static_cast<int64_t>(c.read->size()) : 0);
    EXPECT_EQ(result.stabilized, c.stabilized);
    if (c.opens != 0) {
      EXPECT_EQ(fs.count(FsCall::open), c.opens);
    }
  }
}

}  // namespace
}  // namespace vorna::storage
