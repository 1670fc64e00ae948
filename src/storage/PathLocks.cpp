#include "storage/PathLocks.h"

#include <algorithm>
#include <utility>

namespace vorna::storage {
namespace {

// Whether `path` is `folder` itself or lies anywhere below it.
bool isSameOrBelow(const std::string& path, const std::string& folder) {
  if (!path.starts_with(folder)) {
    return false;
  }
  return path.size() == folder.size() || folder.ends_with('/') || path[folder.size()] == '/';
}

}  // namespace

PathLocks::Hold::Hold(Hold&& other) noexcept
    : owner_(std::exchange(other.owner_, nullptr)), ticket_(other.ticket_) {}

PathLocks::Hold& PathLocks::Hold::operator=(Hold&& other) noexcept {
  if (this != &other) {
    if (owner_ != nullptr) {
      owner_->release(ticket_);
    }
    owner_ = std::exchange(other.owner_, nullptr);
    ticket_ = other.ticket_;
  }
  return *this;
}

PathLocks::Hold::~Hold() {
  if (owner_ != nullptr) {
    owner_->release(ticket_);
  }
}

bool PathLocks::conflicts(const Claim& a, const Claim& b) {
  if (a.path == b.path) {
    return true;
  }
  return (a.reach == Reach::subtree && isSameOrBelow(b.path, a.path)) ||
         (b.reach == Reach::subtree && isSameOrBelow(a.path, b.path));
}

bool PathLocks::conflicts(const Request& a, const Request& b) {
  return std::any_of(a.claims.begin(), a.claims.end(), [&](const Claim& mine) {
    return std::any_of(b.claims.begin(), b.claims.end(),
                       [&](const Claim& theirs) { return conflicts(mine, theirs); });
  });
}

PathLocks::Hold PathLocks::acquire(std::string path, Reach reach) {
  std::vector<Claim> claims;
  claims.push_back(Claim{std::move(path), reach});
  return acquire(std::move(claims));
}

PathLocks::Hold PathLocks::acquire(std::vector<Claim> claims) {
  std::unique_lock guard(mutex_);
  const std::uint64_t ticket = nextTicket_++;
  requests_.push_back(Request{ticket, std::move(claims), false});
  auto mine = [&] {
    return std::find_if(requests_.begin(), requests_.end(),
                        [&](const Request& request) { return request.ticket == ticket; });
  };
  changed_.wait(guard, [&] {
    auto self = mine();
    return std::none_of(requests_.begin(), self,
                        [&](const Request& earlier) { return conflicts(earlier, *self); });
  });
  mine()->granted = true;
  return Hold(this, ticket);
}

void PathLocks::release(std::uint64_t ticket) {
  {
    std::lock_guard guard(mutex_);
    std::erase_if(requests_, [&](const Request& request) { return request.ticket == ticket; });
  }
  changed_.notify_all();
}

size_t PathLocks::waiting() const {
  std::lock_guard guard(mutex_);
  return static_cast<size_t>(std::count_if(
      requests_.begin(), requests_.end(), [](const Request& request) { return !request.granted; }));
}

}  // namespace vorna::storage
