// Any bytes as one of the recovery service's files on disk: the four index
// files, the journals beside the lists, and a retained payload's sidecar. The service opens on them
// and lists drafts, conflicts and unfinished operations, sweeps and enforces retention; every
// failure must be a RecoveryError (any other exception escapes and counts as a crash), and nothing
// outside the store may change.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "FuzzWorkspace.h"
#include "contracts/RecoveryError.h"
#include "recovery/LocalRecoveryService.h"

using namespace vorna;

namespace {

struct Tree {
  std::string base = fuzz::makeScratchFolder("vorna-index-fuzz");
  std::string workspace = base + "/w";
  std::string storeRoot = base + "/store";
  std::string storeDirectory;
  std::map<std::string, std::string> workspaceBefore;

  Tree() {
    fuzz::makeFolder(workspace + "/sub");
    fuzz::writeFile(workspace + "/index.html", "<p>index</p>");
    fuzz::writeFile(workspace + "/sub/page.html", "<p>page</p>");
    fuzz::makeFolder(storeRoot);
    storeDirectory = open()->storeDirectory();
    workspaceBefore = fuzz::snapshot(workspace);
  }
  ~Tree() { fuzz::removeTree(base); }

  std::unique_ptr<recovery::LocalRecoveryService> open() const {
    recovery::RecoveryEnvironment environment;
    environment.log = [](std::string_view) {};
    return std::make_unique<recovery::LocalRecoveryService>(
        workspace, storeRoot, 3, 0.0, storage::FileSystem::real(), environment);
  }
};

Tree& tree() {
  static Tree instance;
  return instance;
}

constexpr const char* kSidecarId = "00000000-0000-4000-8000-000000000000";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  Tree& t = tree();
  // The first byte chooses the file; the rest is its content.
  std::string_view content(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::string names[] = {"drafts.json",       "conflicts.json", "operations.json",
                               "identity.json",     "drafts.journal", "conflicts.journal",
                               "operations.journal"};
  const unsigned kNames = std::size(names);
  for (const auto& name : names) {
    std::remove((t.storeDirectory + "/" + name).c_str());
  }
  std::string retained = t.storeDirectory + "/retained/";
  fuzz::removeTree(retained);
  fuzz::makeFolder(retained);
  unsigned choice = data[0] % (kNames + 1);
  if (choice < kNames) {
    fuzz::writeFile(t.storeDirectory + "/" + names[choice], content);
  } else {
    fuzz::writeFile(retained + kSidecarId + ".json", content);
    fuzz::writeFile(retained + kSidecarId + ".bin", "<p>old</p>");
  }

  try {
    auto service = t.open();
    auto run = [](auto&& operation) {
      try {
        operation();
      } catch (const contracts::RecoveryError&) {
      }
    };
    run([&] { service->drafts(); });
    run([&] { service->conflicts(); });
    run([&] { service->unfinishedOperations(); });
    run([&] { service->sweepOrphanedSwaps(); });
    run([&] { service->enforceRetentionBudget(); });
  } catch (const contracts::RecoveryError&) {
  }
  if (fuzz::snapshot(t.workspace) != t.workspaceBefore) {
    std::abort();  // the service changed a page while reading its own files
  }
  return 0;
}
