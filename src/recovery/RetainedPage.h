#pragma once

#include <cstdint>
#include <string>

#include "contracts/IsoDate.h"

namespace vorna::recovery {

// A path that retained versions belong to, in brief: enough to offer the page
// back without listing its versions.
struct RetainedPage {
  std::string pagePath;
  std::int64_t versionCount = 0;
  contracts::Timestamp newestCapturedAt;

  bool operator==(const RetainedPage&) const = default;
};

}  // namespace vorna::recovery
