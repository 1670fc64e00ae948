#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bridge/DesktopActions.h"
#include "bridge/FileBridge.h"
#include "contracts/BridgeRequest.h"
#include "contracts/BridgeResponse.h"
#include "contracts/RecoveryError.h"
#include "recovery/LocalRecoveryService.h"
#include "storage/Fingerprint.h"
#include "support/TempDir.h"

// Shared by the file bridge tests: a workspace "w" with a real recovery
// service whose store lives in "store", a home trash in "data/Trash", and a
// desktop and a log that record what they are given; all in one temporary
// folder.
namespace vorna::bridge::testfixture {

using contracts::BridgeRequest;
using contracts::BridgeResponse;
using Headers = std::map<std::string, std::string>;
using Query = std::map<std::string, std::string>;

inline std::string sha(std::string_view bytes) {
  return storage::Fingerprint::ofBytes(bytes).hex;
}

// Lines recorded from any thread.
class Recording {
 public:
  void add(std::string line) {
    std::lock_guard guard(mutex_);
    lines_.push_back(std::move(line));
  }
  std::vector<std::string> lines() const {
    std::lock_guard guard(mutex_);
    return lines_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

class RecordingDesktop final : public DesktopActions, public Recording {
 public:
  void reveal(const std::string& path) override { add("reveal " + path); }
  void open(const std::string& path) override { add("open " + path); }
};

// An operation that fails when named in `failing` and is otherwise the real one.
#define VORNA_CHECKED(Result, name, params, ...) \
  Result name params override {                  \
    check(#name);                                \
    return inner_->name(__VA_ARGS__);            \
  }

// The real service, with chosen operations failing as an unavailable store
// would. It offers no maintenance operations, so the bridge finds draft copies
// through the retention store's entries instead.
class FailingRecovery final : public recovery::RecoveryServicing {
 public:
  explicit FailingRecovery(std::shared_ptr<recovery::LocalRecoveryService> inner)
      : inner_(std::move(inner)) {}
  std::set<std::string> failing;
  // Every markResolved that went through: conflict id, candidate id.
  std::vector<std::pair<std::string, std::string>> resolved;

  storage::RecoveryStore& retentionStore() override { return inner_->retentionStore(); }
  VORNA_CHECKED(recovery::SavedDraft, saveDraft,
                (const std::string& page, std::string_view bytes,
                 const std::optional<std::string>& base),
                page, bytes, base)
  VORNA_CHECKED(std::vector<contracts::DraftRecord>, drafts, ())
  VORNA_CHECKED(contracts::Bytes, draftBytes, (const std::string& id), id)
  VORNA_CHECKED(void, discardDraft, (const std::string& page), page)
  VORNA_CHECKED(contracts::ConflictRecord, recordConflict,
                (const std::string& page, std::optional<std::string_view> base,
                 const std::vector<storage::RecoveryEntry>& retained),
                page, base, retained)
  VORNA_CHECKED(std::vector<contracts::ConflictRecord>, conflicts, ())
  VORNA_CHECKED(contracts::Bytes, candidateBytes, (const std::string& id), id)
  void markResolved(const std::string& conflict, const std::string& candidate) override {
    check("markResolved");
    inner_->markResolved(conflict, candidate);
    resolved.emplace_back(conflict, candidate);
  }
  VORNA_CHECKED(contracts::OperationRecord, beginOperation,
                (const std::string& label,
                 const std::vector<contracts::OperationRecord::Step>& steps),
                label, steps)
  void updateStep(const std::string& id, std::int64_t index,
                  contracts::OperationRecord::StepState state) override {
    inner_->updateStep(id, index, state);
  }
  VORNA_CHECKED(void, finishOperation, (const std::string& id), id)
  VORNA_CHECKED(std::vector<contracts::OperationRecord>, unfinishedOperations, ())
  std::vector<storage::RecoveryEntry> sweepOrphanedSwaps() override {
    return inner_->sweepOrphanedSwaps();
  }
  VORNA_CHECKED(std::vector<storage::RecoveryEntry>, pageHistory, (const std::string& page), page)
  storage::RecoveryEntry retainedVersion(const std::string& id) override {
    return inner_->retainedVersion(id);
  }
  VORNA_CHECKED(std::vector<recovery::RetainedPage>, retainedPages, (const std::string& folder),
                folder)

 private:
  void check(const std::string& operation) {
    if (failing.count(operation) != 0) {
      throw contracts::RecoveryError::storeUnavailable("injected failure of " + operation);
    }
  }
  std::shared_ptr<recovery::LocalRecoveryService> inner_;
};

#undef VORNA_CHECKED

class BridgeTest : public ::testing::Test {
 protected:
  BridgeTest() {
    tmp.makeFolder("w");
    tmp.makeFolder("store");
    tmp.makeFolder("data");
  }

  // Builds the bridge on first use, so that a test can choose its service
  // and file system first.
  FileBridge& bridge() {
    if (!bridge_) {
      if (!recovery) {
        recovery = service();
      }
      BridgeEnvironment environment;
      environment.desktop = desktop;
      environment.homeTrash = [this] { return std::optional<std::string>(homeTrash); };
      environment.log = [this](std::string_view line) { log.add(std::string(line)); };
      bridge_ = std::make_unique<FileBridge>(root, recovery, std::move(environment), *fs);
    }
    return *bridge_;
  }

  std::shared_ptr<recovery::LocalRecoveryService> service() {
    if (!local) {
      recovery::RecoveryEnvironment environment;
      environment.log = [](std::string_view) {};
      local = std::make_shared<recovery::LocalRecoveryService>(
          root, tmp / "store", 20, 86400.0, storage::FileSystem::real(), environment);
    }
    return local;
  }

  BridgeResponse call(const std::string& method, const std::string& op, Query query = {},
                      const Headers& headers = {}, std::string body = {}) {
    return bridge().handle(
        BridgeRequest::make(method, op, std::move(query), headers, std::move(body)));
  }
  BridgeResponse get(const std::string& op, const std::string& path) {
    return call("GET", op, {{"path", path}});
  }
  BridgeResponse save(const std::string& path, const std::string& body, const std::string& base) {
    return call("PUT", "file", {{"path", path}}, {{"X-VN-Base", base}}, body);
  }
  BridgeResponse create(const std::string& path, const std::string& body) {
    return call("PUT", "file", {{"path", path}}, {}, body);
  }
  // Both paths below the workspace folder.
  BridgeResponse rename(const std::string& from, const std::string& to) {
    return call("POST", "rename", {{"path", root + from}, {"to", root + to}});
  }
  // The bridge's service becomes the real one with `failing` operations failing.
  std::shared_ptr<FailingRecovery> failingRecovery(std::set<std::string> failing) {
    auto decorated = std::make_shared<FailingRecovery>(service());
    decorated->failing = std::move(failing);
    recovery = decorated;
    return decorated;
  }

  static contracts::Json bodyJson(const BridgeResponse& response) {
    auto parsed = contracts::parseJson(response.body);
    EXPECT_TRUE(parsed.has_value()) << response.body;
    return parsed.value_or(contracts::Json());
  }

  static inline const Headers kJsonHeaders{{"Content-Type", "application/json"}};

  // Asserts an error answer to the byte.
  static void expectError(const BridgeResponse& response, int status, const std::string& message) {
    EXPECT_EQ(response.status, status) << response.body;
    EXPECT_EQ(response.headers, kJsonHeaders);
    EXPECT_EQ(bodyJson(response), (contracts::Json{{"error", message}})) << response.body;
  }

  testing::TempDir tmp;
  const std::string root = tmp / "w";
  const std::string page = root + "/index.html";
  std::string homeTrash = tmp / "data/Trash";
  std::shared_ptr<RecordingDesktop> desktop = std::make_shared<RecordingDesktop>();
  Recording log;
  storage::FileSystem* fs = &storage::FileSystem::real();
  std::shared_ptr<recovery::LocalRecoveryService> local;
  std::shared_ptr<recovery::RecoveryServicing> recovery;

 private:
  std::unique_ptr<FileBridge> bridge_;
};

}  // namespace vorna::bridge::testfixture
