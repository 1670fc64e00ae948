#include "recovery/RenameHistory.h"

#include <algorithm>

namespace vorna::recovery {
namespace {

using contracts::OperationRecord;

// `path` is `folder` or lies under it.
bool within(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

std::vector<OperationRecord::Step> RenameHistory::journalSteps(
    const std::string& from, const std::string& to, const std::optional<std::string>& fingerprint) {
  return {{.path = from,
           .beforeFingerprint = fingerprint,
           .afterFingerprint = std::nullopt,
           .state = OperationRecord::StepState::pending},
          {.path = to,
           .beforeFingerprint = std::nullopt,
           .afterFingerprint = fingerprint,
           .state = OperationRecord::StepState::pending}};
}

RenameHistory::RenameHistory(const std::vector<OperationRecord>& journal) {
  for (const OperationRecord& record : journal) {
    const bool failed = std::any_of(record.steps.begin(), record.steps.end(), [](const auto& step) {
      return step.state == OperationRecord::StepState::failed;
    });
    if (record.label != kLabel || !record.finishedAt || failed || record.steps.size() != 2) {
      continue;
    }
    renames_.push_back(
        Rename{.from = record.steps[0].path, .to = record.steps[1].path, .at = *record.finishedAt});
  }
}

std::string RenameHistory::currentPath(std::string pagePath,
                                       contracts::Timestamp capturedAt) const {
  for (const Rename& rename : renames_) {
    if (rename.at >= capturedAt && within(pagePath, rename.from)) {
      pagePath = rename.to + pagePath.substr(rename.from.size());
    }
  }
  return pagePath;
}

std::vector<std::string> RenameHistory::formerPaths(const std::string& page) const {
  // Walking back from the newest rename, each rename into one of the names
  // found so far adds the name it came from. No name is dropped on the way:
  // what a name held before a rename decides currentPath, not this walk.
  std::vector<std::string> names{page};
  for (auto rename = renames_.rbegin(); rename != renames_.rend(); ++rename) {
    for (size_t i = 0, count = names.size(); i < count; ++i) {
      if (!within(names[i], rename->to)) {
        continue;
      }
      std::string former = rename->from + names[i].substr(rename->to.size());
      if (std::find(names.begin(), names.end(), former) == names.end()) {
        names.push_back(std::move(former));
      }
    }
  }
  return names;
}

bool RenameHistory::movedAway(const std::string& path) const {
  return std::any_of(renames_.begin(), renames_.end(),
                     [&](const Rename& rename) { return within(path, rename.from); });
}

}  // namespace vorna::recovery
