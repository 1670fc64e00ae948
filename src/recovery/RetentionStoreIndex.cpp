#include "recovery/RetentionStoreIndex.h"

#include <algorithm>
#include <exception>

namespace vorna::recovery {
namespace {

constexpr std::string_view kSidecarSuffix = ".json";

}  // namespace

const RetentionStoreIndex::EntriesByPage& RetentionStoreIndex::refresh(
    const storage::RecoveryStore& store) {
  std::optional<FileStamp> now = FileStamp::of(store.directory(), store.fileSystem());
  if (now && listed_ && *now == *listed_) {
    if (!unread_.empty()) {
      std::vector<std::string> retry(unread_.begin(), unread_.end());
      std::sort(retry.begin(), retry.end());
      unread_.clear();
      add(store, retry);
    }
    return byPage_;
  }
  // Settled is judged before listing: a change after this moment, even one
  // the listing misses, then gives the folder another stamp.
  const bool settled = now && now->settled();
  relist(store);
  listed_ = settled ? now : std::nullopt;
  return byPage_;
}

void RetentionStoreIndex::relist(const storage::RecoveryStore& store) {
  std::vector<std::string> names;
  if (store.fileSystem().listDirectory(store.directory(), names) != 0) {
    names.clear();
  }
  std::unordered_set<std::string> present;
  present.reserve(names.size());
  for (std::string& name : names) {
    if (name.size() > kSidecarSuffix.size() && name.ends_with(kSidecarSuffix)) {
      name.resize(name.size() - kSidecarSuffix.size());
      present.insert(std::move(name));
    }
  }

  std::vector<std::pair<std::string, std::string>> removed;
  for (const auto& [id, page] : pageOfId_) {
    if (!present.contains(id)) {
      removed.emplace_back(id, page);
    }
  }
  for (const auto& [id, page] : removed) {
    remove(id, page);
  }

  // New sidecars are read in name order, which is the order they were made.
  std::vector<std::string> added;
  for (const std::string& id : present) {
    if (!pageOfId_.contains(id)) {
      added.push_back(id);
    }
  }
  std::sort(added.begin(), added.end());
  unread_.clear();
  add(store, added);
}

void RetentionStoreIndex::add(const storage::RecoveryStore& store,
                              const std::vector<std::string>& ids) {
  for (const std::string& id : ids) {
    try {
      storage::RecoveryEntry entry = store.readEntry(id);
      if (entry.id != id) {
        continue;  // a sidecar describing another name is not this payload's
      }
      pageOfId_.emplace(id, entry.pagePath);
      byPage_[entry.pagePath].push_back(std::move(entry));
    } catch (const std::exception&) {
      unread_.insert(id);  // perhaps still being written
    }
  }
}

const storage::RecoveryEntry* RetentionStoreIndex::find(const std::string& id) const {
  auto page = pageOfId_.find(id);
  if (page == pageOfId_.end()) {
    return nullptr;
  }
  const std::vector<storage::RecoveryEntry>& entries = byPage_.at(page->second);
  auto entry = std::find_if(entries.begin(), entries.end(),
                            [&](const storage::RecoveryEntry& e) { return e.id == id; });
  return entry == entries.end() ? nullptr : &*entry;
}

void RetentionStoreIndex::remove(const std::string& id, const std::string& pagePath) {
  pageOfId_.erase(id);
  auto page = byPage_.find(pagePath);
  if (page == byPage_.end()) {
    return;
  }
  std::erase_if(page->second, [&](const storage::RecoveryEntry& entry) { return entry.id == id; });
  if (page->second.empty()) {
    byPage_.erase(page);
  }
}

}  // namespace vorna::recovery
