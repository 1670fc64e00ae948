#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace vorna::storage {

// Locks on items named by absolute path, each over the item alone or over the
// item and everything below it. Two claims conflict when they name the same
// path, or when one reaches over its subtree and the other lies below it; any
// other two claims (two pages, a page and its folder as an item) are held side
// by side.
//
// A request's claims are granted together or not at all, so holders of several
// paths never deadlock against each other. Requests are granted in arrival
// order among those they conflict with: a waiting folder rename is not starved
// by a stream of saves below it, and a save that arrives after it waits too.
//
// Paths are compared as given; callers pass them resolved the same way.
class PathLocks {
 public:
  enum class Reach { item, subtree };
  struct Claim {
    std::string path;
    Reach reach;
  };

  // Releases its claims when it ends.
  class Hold {
   public:
    Hold() = default;
    Hold(Hold&& other) noexcept;
    Hold& operator=(Hold&& other) noexcept;
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;
    ~Hold();

   private:
    friend class PathLocks;
    Hold(PathLocks* owner, std::uint64_t ticket) : owner_(owner), ticket_(ticket) {}
    PathLocks* owner_ = nullptr;
    std::uint64_t ticket_ = 0;
  };

  // Waits until no earlier request conflicts with `claims`, then holds them.
  Hold acquire(std::vector<Claim> claims);
  Hold acquire(std::string path, Reach reach = Reach::item);

  // How many requests wait now; for tests that must know a request is queued.
  size_t waiting() const;

 private:
  struct Request {
    std::uint64_t ticket;
    std::vector<Claim> claims;
    bool granted;
  };
  static bool conflicts(const Claim& a, const Claim& b);
  static bool conflicts(const Request& a, const Request& b);
  void release(std::uint64_t ticket);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::uint64_t nextTicket_ = 1;
  std::vector<Request> requests_;  // in arrival order, granted or waiting; guarded by mutex_
};

}  // namespace vorna::storage
