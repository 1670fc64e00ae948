#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "contracts/BridgeHandling.h"

namespace vorna::app {

// What the two transports and the window share: where the editor's files lie
// and which bridge serves the open workspace. Held by shared pointer.
class HostContext {
 public:
  explicit HostContext(std::optional<std::string> appDirectory)
      : appDirectory_(std::move(appDirectory)) {}
  HostContext(const HostContext&) = delete;
  HostContext& operator=(const HostContext&) = delete;

  // The bridge of the open workspace, or null. Any thread. The lock is held
  // only for the copy: callers keep their own reference and call the bridge
  // without it, so a slow operation never blocks a folder switch.
  std::shared_ptr<contracts::BridgeHandling> bridge() const;
  void setBridge(std::shared_ptr<contracts::BridgeHandling> bridge);
  // Takes the bridge away and waits, at most `limit`, until every call that
  // took it before has returned; false when one was still running then.
  // Before the process ends: a save or draft still under way on a worker
  // thread would otherwise be cut off mid-sequence while the libraries it
  // uses are torn down.
  bool retireBridge(std::chrono::milliseconds limit);

  // The _app folder found at start-up, standardized; absent when none was.
  const std::optional<std::string>& appDirectory() const { return appDirectory_; }

  // Where a program of this build looks for the editor, besides $VORNA_APP_DIR.
  struct EditorLayout {
    // The build folder the program was configured in, resolved; a program
    // whose own resolved path lies below it runs from its build tree.
    std::string buildDirectory;
    // What a program in the build tree serves, in order: the staged editor,
    // then the source tree's.
    std::vector<std::string> buildEditors;
    // The installed editor, relative to the folder of the installed program
    // ("../share/vorna/_app"): found wherever the prefix was unpacked.
    std::string installedRelative;
  };

  struct LocatedEditor {
    std::string folder;  // standardized
    std::string
        origin;  // "VORNA_APP_DIR", "the build tree", "beside the program", "the install prefix"
    bool operator==(const LocatedEditor&) const = default;
  };

  // Finds the editor's folder once at start-up, and names it on standard
  // error when $VORNA_DEBUG is set and not empty.
  static std::optional<std::string> locateAppDirectory();

  // The search itself: $VORNA_APP_DIR (empty counts as unset), then, for a
  // program in its build tree, that tree's editors, then `_app` beside the
  // program, then the installed editor relative to the program. Symbolic
  // links to the program are followed first. Only a folder holding an
  // index.html counts. No other folder is tried: a program never picks up an
  // `_app` that merely lies above it.
  static std::optional<LocatedEditor> locateAppDirectory(const std::string& environmentValue,
                                                         const std::string& executablePath,
                                                         const EditorLayout& layout);

 private:
  mutable std::mutex lock_;
  // What bridge() hands out is an alias of the bridge whose last copy
  // fulfils `released_`.
  std::shared_ptr<contracts::BridgeHandling> bridge_;
  std::shared_future<void> released_;
  const std::optional<std::string> appDirectory_;
};

}  // namespace vorna::app
