#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "contracts/BridgeHandling.h"
#include "contracts/BridgeResponse.h"
#include "storage/Fingerprint.h"

namespace vorna::app::testing {

// A bridge that answers from memory and records what reached it.
//   echo       200 {"bytes", "sha256", "method", "contentType"} of the request
//   nocontent  204 with no body
//   slow       200 {"slow":true}, once `releaseSlow` was called
//   anything else: 404 "unknown op: {method} {op}"
class FakeBridge : public contracts::BridgeHandling {
 public:
  explicit FakeBridge(std::string root = "/fake/workspace") : root_(std::move(root)) {}

  const std::string& workspaceRoot() const override { return root_; }

  contracts::BridgeResponse handle(const contracts::BridgeRequest& request) override {
    {
      std::lock_guard guard(lock_);
      requests_.push_back(request);
    }
    if (request.op == "echo") {
      return contracts::BridgeResponse::json(
          200, {{"bytes", request.body.size()},
                {"sha256", storage::Fingerprint::ofBytes(request.body).hex},
                {"method", request.method},
                {"contentType", request.header("content-type").value_or("")}});
    }
    if (request.op == "nocontent") {
      return contracts::BridgeResponse{204, {}, {}};
    }
    if (request.op == "slow") {
      std::unique_lock guard(lock_);
      ++slowWaiting;
      released_.wait(guard, [this] { return slowReleased_; });
      --slowWaiting;
      ++slowAnswered;
      return contracts::BridgeResponse::json(200, {{"slow", true}});
    }
    return contracts::BridgeResponse::error(404,
                                            "unknown op: " + request.method + " " + request.op);
  }

  void startWatching(std::function<void(const contracts::WorkspaceChange&)>) override {
    std::lock_guard guard(lock_);
    log_.push_back("start " + root_);
  }

  void stopWatching() override {
    std::lock_guard guard(lock_);
    log_.push_back("stop " + root_);
  }

  std::vector<contracts::BridgeRequest> requests() const {
    std::lock_guard guard(lock_);
    return requests_;
  }
  std::vector<std::string> log() const {
    std::lock_guard guard(lock_);
    return log_;
  }

  std::atomic<int> slowWaiting{0};
  std::atomic<int> slowAnswered{0};
  void releaseSlow() {
    {
      std::lock_guard guard(lock_);
      slowReleased_ = true;
    }
    released_.notify_all();
  }

 private:
  const std::string root_;
  mutable std::mutex lock_;
  std::vector<contracts::BridgeRequest> requests_;
  std::vector<std::string> log_;
  std::condition_variable released_;
  bool slowReleased_ = false;
};

}  // namespace vorna::app::testing
