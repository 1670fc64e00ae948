#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "contracts/IsoDate.h"
#include "contracts/OperationRecord.h"

namespace vorna::recovery {

// The renames the host made, read back from the operations journal, and where
// they took the versions retained under a page's earlier names.
//
// A rename is journalled as an operation labelled kLabel with two steps, the
// source and then the destination (journalSteps); it counts once finished
// with no failed step, at its finishedAt. A rename of a folder moves every
// path under it. Journal dates are whole seconds, as capture times are: a
// version captured in the same second as a rename of its page counts as
// captured before it, so it follows the page (and never drops out of every
// history).
//
// An immutable value; any thread may use it.
class RenameHistory {
 public:
  static constexpr std::string_view kLabel = "rename";

  // The steps of the journal entry for moving `from` to `to`; the fingerprint
  // of a moved file is the content both before and after.
  static std::vector<contracts::OperationRecord::Step> journalSteps(
      const std::string& from, const std::string& to,
      const std::optional<std::string>& fingerprint);

  // Keeps the journal's finished renames, in journal order (the order they
  // happened: the host renames one thing at a time).
  explicit RenameHistory(const std::vector<contracts::OperationRecord>& journal);

  // The path a version captured at `capturedAt` under `pagePath` belongs to
  // now: `pagePath` carried through every later rename of it or of a folder
  // above it.
  std::string currentPath(std::string pagePath, contracts::Timestamp capturedAt) const;
  // Every path whose versions may belong to `page` now: `page` itself and the
  // names its content had before renames, each once. A superset: callers keep
  // the versions whose currentPath is `page`.
  std::vector<std::string> formerPaths(const std::string& page) const;
  // Whether some rename moved `path` or a folder above it away.
  bool movedAway(const std::string& path) const;

 private:
  struct Rename {
    std::string from;
    std::string to;
    contracts::Timestamp at;
  };
  std::vector<Rename> renames_;
};

}  // namespace vorna::recovery
