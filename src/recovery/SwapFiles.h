#pragma once

#include <string>
#include <vector>

#include "storage/FileSystem.h"

// Finding the ".vn-swap-{UUID}-{page name}" files that an interrupted save
// leaves beside a page, and telling which page each belongs to.
namespace vorna::recovery {

// Appends to `found` every regular file under `folder` whose name begins with
// ".vn-swap-", depth first in ascending name order. Hidden folders are searched;
// ".git" and "node_modules" are not, and symbolic links are never followed (a
// link named like a swap file is no swap file). Folders that cannot be listed
// and names that cannot be examined are skipped. Never throws.
void collectSwapFiles(const std::string& folder, std::vector<std::string>& found,
                      storage::FileSystem& fs);

// The page a swap file stands for: its folder + the name after
// ".vn-swap-{UUID}-". When the name does not follow that pattern (no canonical
// UUID, no "-" after it, or a page name that is empty, ".", ".." or holds a
// "/"), the swap is attributed to its folder instead.
std::string pageForSwap(const std::string& swapPath);

}  // namespace vorna::recovery
