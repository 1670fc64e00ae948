#include "recovery/RetentionPlan.h"

#include <algorithm>
#include <chrono>
#include <map>

#include "storage/PathNames.h"

namespace vorna::recovery {
namespace {

double secondsOf(contracts::Timestamp time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}

// Newest first; of two with one capture time, the greater id counts as newer.
bool newerFirst(contracts::Timestamp timeA, const std::string& idA, contracts::Timestamp timeB,
                const std::string& idB) {
  if (timeA != timeB) {
    return timeA > timeB;
  }
  return idA > idB;
}

}  // namespace

std::vector<DraftEntry> RetentionPlan::keptDrafts(const std::vector<DraftEntry>& drafts) const {
  std::vector<DraftEntry> kept;
  kept.reserve(drafts.size() - droppedDrafts.size());
  auto dropped = droppedDrafts.begin();
  for (size_t index = 0; index < drafts.size(); ++index) {
    if (dropped != droppedDrafts.end() && *dropped == index) {
      ++dropped;
    } else {
      kept.push_back(drafts[index]);
    }
  }
  return kept;
}

RetentionPlan RetentionPlan::make(const std::set<std::string>& pages,
                                  const std::vector<DraftEntry>& drafts,
                                  const std::function<bool(const std::string&)>& pinned,
                                  const RetentionStoreIndex::EntriesByPage& storeEntries,
                                  const std::string& storeDirectory, std::int64_t retainedPerPage,
                                  double retentionGrace, contracts::Timestamp now) {
  if (retainedPerPage < 0) {
    return {};
  }
  const auto keep = static_cast<size_t>(retainedPerPage);
  // Compared in seconds as doubles so that no grace, however large, overflows;
  // a grace that is not a number makes nothing old.
  const double cutoff = secondsOf(now) - retentionGrace;
  auto deletable = [&](contracts::Timestamp capturedAt, const std::string& payloadPath) {
    return secondsOf(capturedAt) < cutoff &&
           storage::parentFolder(payloadPath) == storeDirectory && !pinned(payloadPath);
  };

  std::map<std::string, std::vector<size_t>> discardedByPage;
  for (size_t index = 0; index < drafts.size(); ++index) {
    if (drafts[index].discarded && pages.contains(drafts[index].record.pagePath)) {
      discardedByPage[drafts[index].record.pagePath].push_back(index);
    }
  }

  RetentionPlan plan;
  for (const std::string& page : pages) {
    if (auto found = discardedByPage.find(page); found != discardedByPage.end()) {
      std::vector<size_t>& indices = found->second;
      std::sort(indices.begin(), indices.end(), [&](size_t a, size_t b) {
        return newerFirst(drafts[a].record.capturedAt, drafts[a].record.id,
                          drafts[b].record.capturedAt, drafts[b].record.id);
      });
      for (size_t rank = keep; rank < indices.size(); ++rank) {
        const DraftEntry& entry = drafts[indices[rank]];
        if (deletable(entry.record.capturedAt, entry.payloadPath)) {
          plan.deletions.push_back(entry.payloadPath);
          plan.droppedDrafts.push_back(indices[rank]);
        }
      }
    }
    if (auto found = storeEntries.find(page); found != storeEntries.end()) {
      std::vector<const storage::RecoveryEntry*> displaced;
      for (const storage::RecoveryEntry& entry : found->second) {
        if (entry.kind == storage::RecoveryKind::displacedExpected) {
          displaced.push_back(&entry);
        }
      }
      std::sort(displaced.begin(), displaced.end(), [](const auto* a, const auto* b) {
        return newerFirst(a->capturedAt, a->id, b->capturedAt, b->id);
      });
      for (size_t rank = keep; rank < displaced.size(); ++rank) {
        if (deletable(displaced[rank]->capturedAt, displaced[rank]->payloadPath)) {
          plan.deletions.push_back(displaced[rank]->payloadPath);
        }
      }
    }
  }

  std::sort(plan.droppedDrafts.begin(), plan.droppedDrafts.end());
  return plan;
}

}  // namespace vorna::recovery
