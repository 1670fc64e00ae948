#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "storage/FileOpError.h"
#include "storage/Fingerprint.h"
#include "storage/SaveOutcome.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TempDir.h"

// Shared by the adapter tests: a page "index.html" in a folder "site", and a
// store folder "store" beside it, all inside one temporary folder.
namespace vorna::storage {

inline void PrintTo(const SaveOutcome& outcome, std::ostream* out) {
  if (outcome.isSaved()) {
    *out << "saved " << outcome.savedInfo().fingerprint.hex;
  } else if (outcome.isConflict()) {
    const ConflictInfo& conflict = outcome.conflictInfo();
    *out << "conflict " << conflictKindName(conflict.kind) << " retaining "
         << conflict.retained.size();
  } else {
    *out << "error \"" << outcome.failure().description() << "\"";
  }
}

namespace testfixture {

const std::string kOld = "<p>the version the editor loaded</p>";
const std::string kNew = "<p>the editor's new bytes</p>";
const std::string kForeign = "<p>written by another program</p>";

struct PageFixture {
  testing::TempDir dir;
  std::string folder = dir / "site";
  std::string page = folder + "/index.html";
  std::string storeDirectory = dir / "store";

  explicit PageFixture(testing::TempDir::Backing backing = testing::TempDir::Backing::disk)
      : dir(backing) {
    dir.makeFolder("site");
  }

  void writePage(const std::string& bytes, unsigned mode = 0644) const {
    dir.write("site/index.html", bytes, mode);
  }
  std::string pageBytes() const { return testing::readFile(page); }

  std::vector<std::string> swapFiles() const { return testing::namesIn(folder, ".vn-swap-"); }
};

using testing::FaultInjectingFileSystem;
using testing::FsCall;
using testing::modeOf;
using testing::readFile;
using testing::statOf;
using testing::TempDir;

// The FileOpError `body` throws; fails the test when it throws none.
template <typename Body>
FileOpError errorOf(Body body) {
  try {
    body();
  } catch (const FileOpError& error) {
    return error;
  }
  ADD_FAILURE() << "no FileOpError thrown";
  return FileOpError::notAFile("");
}

inline Fingerprint fp(const std::string& bytes) {
  return Fingerprint::ofBytes(bytes);
}

}  // namespace testfixture
}  // namespace vorna::storage
