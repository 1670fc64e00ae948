#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "contracts/IsoDate.h"
#include "contracts/Json.h"
#include "contracts/RecoveryError.h"
#include "recovery/LocalRecoveryService.h"
#include "storage/RecoveryEntry.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TempDir.h"

namespace vorna::recovery::testfixture {

using contracts::RecoveryError;
using contracts::Timestamp;
using std::chrono::hours;
using std::chrono::seconds;
using storage::RecoveryEntry;
using storage::RecoveryKind;
using testing::FaultInjectingFileSystem;
using testing::FsCall;
using testing::namesIn;

// The text of the RecoveryError `body` throws; fails the test when it throws
// nothing or something else.
inline std::string recoveryErrorOf(const std::function<void()>& body) {
  try {
    body();
  } catch (const RecoveryError& error) {
    return error.description();
  } catch (const std::exception& error) {
    ADD_FAILURE() << "not a RecoveryError: " << error.what();
    return "";
  }
  ADD_FAILURE() << "nothing thrown";
  return "";
}

// JSON text as the system's writer puts a string: every "/" escaped.
inline std::string escaped(const std::string& text) {
  return std::regex_replace(text, std::regex("/"), "\\/");
}

inline std::string readFileOrEmpty(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void writeRaw(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  ASSERT_TRUE(out << bytes) << path;
}

// A workspace "site" and a store root "store" side by side in a fresh folder,
// a file system that can fail any call, a clock that stands still until moved
// and the service's log lines collected.
class ServiceTest : public ::testing::Test {
 protected:
  explicit ServiceTest(testing::TempDir::Backing backing = testing::TempDir::Backing::memory)
      : dir(backing) {
    dir.makeFolder("site");
    dir.makeFolder("store");
  }

  RecoveryEnvironment environment() {
    RecoveryEnvironment environment;
    environment.now = [this] { return now; };
    environment.log = [this](std::string_view line) { logLines.emplace_back(line); };
    environment.userDataDirectory = [this]() -> std::optional<std::string> { return dir / "data"; };
    return environment;
  }

  std::unique_ptr<LocalRecoveryService> open() {
    return std::make_unique<LocalRecoveryService>(workspace, storeRoot, retainedPerPage,
                                                  retentionGrace, fs, environment());
  }

  LocalRecoveryService& service() {
    if (!service_) {
      service_ = open();
    }
    return *service_;
  }

  std::string storeDirectory() { return service().storeDirectory(); }
  std::string retainedDirectory() { return service().retentionStore().directory(); }
  std::string indexFile(const std::string& name) { return storeDirectory() + "/" + name; }
  std::string page(const std::string& name) { return workspace + "/" + name; }

  // Writes a payload and its sidecar straight into the retention store, as an
  // earlier run would have left them, with a chosen capture time and id tail.
  storage::RecoveryEntry plant(const std::string& pagePath, storage::RecoveryKind kind,
                               Timestamp capturedAt, const std::string& bytes,
                               const std::string& idTail) {
    std::string id = std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(
                                        capturedAt.time_since_epoch())
                                        .count()) +
                     "-000001-" + std::string(storage::recoveryKindName(kind)) + "-" + idTail;
    storage::RecoveryEntry entry{
        .id = id,
        .kind = kind,
        .pagePath = pagePath,
        .payloadPath = retainedDirectory() + "/" + id + ".bin",
        .fingerprint = storage::Fingerprint::ofBytes(bytes),
        .byteCount = static_cast<std::int64_t>(bytes.size()),
        .fingerprintStabilized = true,
        .movedByCopy = false,
        .capturedAt = capturedAt,
    };
    writeRaw(entry.payloadPath, bytes);
    writeRaw(retainedDirectory() + "/" + id + ".json", contracts::writeJson(entry.toJson()));
    return entry;
  }

  static bool exists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
  }

  testing::TempDir dir;
  std::string workspace = dir / "site";
  std::string storeRoot = dir / "store";
  testing::FaultInjectingFileSystem fs;
  Timestamp now = contracts::wholeSecondsNow();
  std::vector<std::string> logLines;
  std::int64_t retainedPerPage = 20;
  double retentionGrace = 86400;

 private:
  std::unique_ptr<LocalRecoveryService> service_;
};

}  // namespace vorna::recovery::testfixture
