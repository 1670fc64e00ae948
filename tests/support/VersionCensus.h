#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vorna::testing {

// Where the versions of one page are on disk after a save, a failure or a
// crash: at the page, in staged ".vn-swap-" files beside it, among the store's
// payloads, or in other folders a test names (a rival writer's archive).
// Versions are named by the hex fingerprint of their bytes.
//
// Reads with plain system calls, never through the seam, so that injected
// faults cannot blind it.
class VersionCensus {
 public:
  VersionCensus(std::string pagePath, std::string storeDirectory,
                std::vector<std::string> otherFolders = {});

  // Reads the disk afresh. A store file is read once per name: the store never
  // changes a file, and a census is only taken while nobody writes.
  void take();

  // "page", "swap", "store" or "other": where a whole copy of the version is
  // (the first of these that holds one); "" when there is none.
  std::string whereIs(const std::string& fingerprintHex) const;
  size_t swapFileCount() const { return swapFiles_.size(); }
  // Sidecars that decode but disagree with their payload: it is missing, or its
  // bytes do not have the recorded fingerprint or byte count. Sidecars that do
  // not decode (cut short by a crash) are not judged here.
  std::vector<std::string> inconsistentSidecars() const;

 private:
  struct File {
    std::string version;
    ino_t inode = 0;
    off_t size = 0;
  };
  struct Sidecar {
    bool decoded = false;
    std::optional<std::string> fingerprint;
    long long byteCount = 0;
    std::string payloadName;
  };

  std::string pagePath_;
  std::string pageFolder_;
  std::string storeDirectory_;
  std::vector<std::string> otherFolders_;

  std::optional<std::string> page_;
  std::optional<File> pageFile_;
  std::map<std::string, File> swapFiles_;
  std::map<std::string, File> payloads_;     // by name; cached across takes
  std::map<std::string, Sidecar> sidecars_;  // by name; cached once decoded
  std::map<std::string, File> others_;
};

// The fingerprint a version's bytes are known by.
std::string versionOf(const std::string& bytes);

}  // namespace vorna::testing
