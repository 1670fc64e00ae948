#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "bridge/WorkspaceWatcher.h"
#include "storage/Fingerprint.h"
#include "support/TempDir.h"
#include "support/TimeLimit.h"

namespace vorna::contracts {
// Readable failure messages.
void PrintTo(const WorkspaceChange& change, std::ostream* out) {
  *out << WorkspaceChange::kindName(change.kind) << " " << change.path
       << (change.fingerprint ? " " + change.fingerprint->substr(0, 8) : std::string());
}
}  // namespace vorna::contracts

namespace vorna::bridge {
namespace {

using contracts::WorkspaceChange;
using Changes = std::vector<WorkspaceChange>;
using enum WorkspaceChange::Kind;
using namespace std::chrono_literals;

constexpr auto kPatience = 10s;

// Collects the changes delivered on the watcher's queue.
class Recorder {
 public:
  WorkspaceWatcher::ChangeHandler handler() {
    return [this](const WorkspaceChange& delivered) { add(delivered); };
  }

  void add(const WorkspaceChange& delivered) {
    std::lock_guard guard(mutex_);
    changes_.push_back(delivered);
    arrived_.notify_all();
  }

  // Waits until a change of `path` has arrived; false after kPatience.
  bool waitFor(const std::string& path) {
    std::unique_lock guard(mutex_);
    return arrived_.wait_for(guard, kPatience, [&] {
      return std::any_of(changes_.begin(), changes_.end(),
                         [&](const auto& seen) { return seen.path == path; });
    });
  }

  // Everything before the change of `path`, which is dropped; the rest is kept.
  Changes takeUntil(const std::string& path) {
    std::lock_guard guard(mutex_);
    auto marker = std::find_if(changes_.begin(), changes_.end(),
                               [&](const auto& seen) { return seen.path == path; });
    Changes before(changes_.begin(), marker);
    changes_.erase(changes_.begin(), marker == changes_.end() ? marker : marker + 1);
    return before;
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  Changes changes_;
};

// Lets a test hold the queue inside a callback.
struct Gate {
  std::promise<void> entered, opened;
  std::shared_future<void> open = opened.get_future().share();
  std::atomic<bool> once{false};
  void enterAndWait() {
    if (!once.exchange(true)) {
      entered.set_value();
    }
    open.wait_for(kPatience);
  }
  bool waitEntered() {
    return entered.get_future().wait_for(kPatience) == std::future_status::ready;
  }
};

class WorkspaceWatcherTest : public ::testing::Test {
 protected:
  WorkspaceWatcherTest() { temp.makeFolder("site"); }

  std::string at(const std::string& relative) const { return root + "/" + relative; }
  // A change of `relative`; `bytes` is what a file holds afterwards.
  WorkspaceChange change(WorkspaceChange::Kind kind, const std::string& relative,
                         std::optional<std::string> bytes = std::nullopt) const {
    return {kind, at(relative),
            bytes ? std::optional(storage::Fingerprint::ofBytes(*bytes).hex) : std::nullopt};
  }
  void write(const std::string& relative, const std::string& bytes) const {
    temp.write("site/" + relative, bytes);
  }
  void move(const std::string& from, const std::string& to) const {
    ASSERT_EQ(std::rename(from.c_str(), to.c_str()), 0) << from << " -> " << to;
  }

  // Every change delivered since the last call, by path: a marker file is
  // created and, once its change has come, everything recorded before it is
  // returned. Records reach the queue in order, so nothing caused earlier can
  // still be on its way.
  Changes settle() {
    std::string marker = "zz-marker-" + std::to_string(++markers) + ".txt";
    write(marker, "m");
    EXPECT_TRUE(recorder.waitFor(at(marker))) << "no change for " << marker;
    Changes changes = recorder.takeUntil(at(marker));
    std::sort(changes.begin(), changes.end(),
              [](const auto& a, const auto& b) { return a.path < b.path; });
    return changes;
  }

  testing::TempDir temp;
  testing::TempDir outside;
  std::string root = temp / "site";
  WorkspaceWatcher watcher{WorkspaceBoundary(root)};
  Recorder recorder;
  int markers = 0;
};

// Hidden items, swap files, attribute changes that alter nothing and what
// lies behind a link produce nothing.
TEST_F(WorkspaceWatcherTest, OutsideChangesProduceOneChangeEachWithKindAndFingerprint) {
  temp.makeFolder("site/.git/objects");
  write("a.html", "a1");
  write("b.html", "b1");
  temp.symlink(outside.path(), "site/link");
  watcher.start(recorder.handler());

  write("a.html", "a2 longer");
  EXPECT_EQ(settle(), Changes{change(modified, "a.html", "a2 longer")});

  write("c.html", "c1");
  EXPECT_EQ(settle(), Changes{change(created, "c.html", "c1")});

  ASSERT_EQ(std::remove(at("b.html").c_str()), 0);
  EXPECT_EQ(settle(), Changes{change(removed, "b.html")});

  move(at("a.html"), at("d.html"));
  EXPECT_EQ(settle(), (Changes{change(removed, "a.html"), change(renamed, "d.html", "a2 longer")}));

  write(".git/objects/x", "1");
  temp.makeFolder("site/.cache/deep");
  write(".cache/deep/y.html", "2");
  write(".vn-swap-1234", "3");
  ASSERT_EQ(::chmod(at("d.html").c_str(), 0600), 0);  // same size and time
  outside.write("behind-link.html", "4");
  EXPECT_EQ(settle(), Changes{});
}

// The host's own move of a folder echoes for the folder and everything that
// was in it, at both places; another program's changes there do not.
TEST_F(WorkspaceWatcherTest, AnnouncedSavesAndMovesAreSilentButLaterOutsideChangesAreNot) {
  write("page.html", "old version");
  temp.makeFolder("site/sub/deeper");
  write("sub/inner.html", "i");
  write("sub/deeper/x.html", "x");
  write("gone.html", "g");
  watcher.start(recorder.handler());

  // The host's save: staged beside the page, exchanged with it, and the displaced
  // version carried off to a store outside the workspace.
  watcher.noteOwnWrite(at("page.html"), storage::Fingerprint::ofBytes("new version!").hex);
  write(".vn-swap-page", "new version!");
  ASSERT_EQ(storage::FileSystem::real().exchange(at(".vn-swap-page"), at("page.html")), 0);
  move(at(".vn-swap-page"), outside / "retained.bin");
  EXPECT_EQ(settle(), Changes{});
  EXPECT_EQ(testing::readFile(outside / "retained.bin"), "old version");

  // The announcement was used up by its echo.
  write("page.html", "new version!");
  EXPECT_EQ(settle(), Changes{change(modified, "page.html", "new version!")});

  watcher.noteOwnMove(at("sub"), at("moved"));
  move(at("sub"), at("moved"));
  watcher.noteOwnMove(at("gone.html"), std::nullopt);
  move(at("gone.html"), outside / "trashed.html");
  EXPECT_EQ(settle(), Changes{});

  write("moved/deeper/x.html", "changed outside");
  temp.makeFolder("site/sub");  // the old place taken again
  write("gone.html", "back");
  EXPECT_EQ(settle(), (Changes{change(created, "gone.html", "back"),
                               change(modified, "moved/deeper/x.html", "changed outside"),
                               change(created, "sub")}));
}

// A namesake beside a folder ("new2" beside "new") is not in it.
TEST_F(WorkspaceWatcherTest, FoldersMadeMovedOrMovedOutReportAllInThemAndAreWatchedWhereTheyAre) {
  temp.makeFolder("site/new2");
  write("new2/s.html", "namesake");
  watcher.start(recorder.handler());

  temp.makeFolder("site/new/inner");
  write("new/inner/x.html", "x");
  EXPECT_EQ(settle(), (Changes{change(created, "new"), change(created, "new/inner"),
                               change(created, "new/inner/x.html", "x")}));
  // The new folders are watched, not just listed once.
  write("new/inner/x.html", "x2");
  EXPECT_EQ(settle(), Changes{change(modified, "new/inner/x.html", "x2")});

  move(at("new"), at("pages"));
  EXPECT_EQ(settle(),
            (Changes{change(removed, "new"), change(removed, "new/inner"),
                     change(removed, "new/inner/x.html"), change(renamed, "pages"),
                     change(renamed, "pages/inner"), change(renamed, "pages/inner/x.html", "x2")}));
  write("pages/inner/x.html", "x3");
  write("new2/s.html", "still watched");
  EXPECT_EQ(settle(), (Changes{change(modified, "new2/s.html", "still watched"),
                               change(modified, "pages/inner/x.html", "x3")}));

  move(at("pages"), outside / "pages");
  EXPECT_EQ(settle(), (Changes{change(removed, "pages"), change(removed, "pages/inner"),
                               change(removed, "pages/inner/x.html")}));
  outside.write("pages/inner/x.html", "written elsewhere");
  EXPECT_EQ(settle(), Changes{});
}

TEST_F(WorkspaceWatcherTest, OverflowRescansAndReportsWhatTheLostRecordsHeld) {
  write("page.html", "v1");
  write("gone.html", "g");
  write("old.html", "o");
  Gate gate;
  watcher.start([&](const WorkspaceChange& delivered) {
    if (delivered.path == at("block.html")) {
      gate.enterAndWait();
    }
    recorder.add(delivered);
  });
  write("block.html", "b");
  ASSERT_TRUE(gate.waitEntered());

  // Made while the queue is held, so their records are still in the kernel when
  // the overflow drops them; only the rescan can find them.
  write("page.html", "v2 is longer");
  write("new.html", "n");
  ASSERT_EQ(std::remove(at("gone.html").c_str()), 0);
  move(at("old.html"), at("moved.html"));
  ::testing::internal::CaptureStderr();
  watcher.simulateOverflow();
  gate.opened.set_value();

  // The marker must not be written before the rescan, which would drop its record too.
  ASSERT_TRUE(recorder.waitFor(at("page.html")));
  auto changes = settle();
  std::string log = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(log, "Vorna bridge: the inotify event queue overflowed; rescanned " + root +
                     " for the changes it dropped\n");
  // A rename seen only by a rescan is a removal and a creation.
  EXPECT_EQ(changes,
            (Changes{change(created, "block.html", "b"), change(removed, "gone.html"),
                     change(created, "moved.html", "o"), change(created, "new.html", "n"),
                     change(removed, "old.html"), change(modified, "page.html", "v2 is longer")}));
}

TEST_F(WorkspaceWatcherTest, StopWaitsForTheRunningCallbackAndNoneFollows) {
  Gate gate;
  std::atomic<int> calls{0};
  std::atomic<bool> callbackDone{false};
  watcher.start([&](const WorkspaceChange&) {
    if (calls.fetch_add(1) == 0) {
      gate.enterAndWait();
      callbackDone = true;
    }
  });
  for (int i = 0; i < 5; ++i) {
    write("f" + std::to_string(i) + ".html", "x");
  }
  ASSERT_TRUE(gate.waitEntered());

  std::atomic<bool> stopped{false};
  std::thread stopper([&] {
    watcher.stop();
    stopped = true;
  });
  EXPECT_FALSE(testing::eventually([&] { return stopped.load(); }, 100ms)) << "stop did not wait";
  gate.opened.set_value();
  stopper.join();
  EXPECT_TRUE(callbackDone);
  // The other four files were batched with the first and are never delivered.
  EXPECT_EQ(calls.load(), 1);
}

TEST_F(WorkspaceWatcherTest, RestartFromInsideTheCallbackDoesNotWaitForItself) {
  std::atomic<int> firstRunCalls{0};
  std::atomic<bool> restarted{false};
  watcher.start([&](const WorkspaceChange&) {
    if (firstRunCalls.fetch_add(1) == 0) {
      watcher.start(recorder.handler());
      restarted = true;
    }
  });
  for (int i = 0; i < 5; ++i) {
    write("f" + std::to_string(i) + ".html", "x");
  }
  ASSERT_TRUE(testing::eventually([&] { return restarted.load(); }));

  // The new run took its snapshot with all five files present.
  EXPECT_EQ(settle(), Changes{});
  EXPECT_EQ(firstRunCalls.load(), 1);
}

// A pipe opened for its content would hold the queue until a writer came:
// nothing would be reported any more, and stop would wait for ever.
TEST_F(WorkspaceWatcherTest, APipeNeverHoldsTheQueueAndStopReturns) {
  testing::makePipe(at("before.pipe"));
  EXPECT_TRUE(testing::finishesWithin(
      std::chrono::seconds(15),
      [&] {
        watcher.start(recorder.handler());
        testing::makePipe(at("after.pipe"));
        write("page.html", "p");
        EXPECT_EQ(settle(),
                  (Changes{change(created, "after.pipe"), change(created, "page.html", "p")}));
        watcher.stop();
      },
      [&] { testing::releasePipesIn(root); }));
}

// Without inotify, or with part of the tree over the watch limit, folders are
// looked at instead: what the editor shows often, the rest on a slower round.
class WorkspaceWatcherPollingTest : public WorkspaceWatcherTest {
 protected:
  WorkspaceWatcherPollingTest() {
    settings.hotInterval = 50ms;
    settings.coldInterval = 300ms;
  }
  // Starts `polled`, keeping its notices; returns what it logged.
  std::string start(WorkspaceWatcher& polled) {
    ::testing::internal::CaptureStderr();
    polled.start(recorder.handler(),
                 [this](const std::string& notice) { notices.push_back(notice); });
    return ::testing::internal::GetCapturedStderr();
  }

  WorkspaceWatcher::Settings settings;
  std::vector<std::string> notices;
};

TEST_F(WorkspaceWatcherPollingTest, WithoutAnInotifyInstanceOutsideChangesStillArrive) {
  temp.makeFolder("site/sub");
  write("a.html", "a1");
  settings.inotify.init = [](int) {
    errno = EMFILE;
    return -1;
  };
  WorkspaceWatcher polled(WorkspaceBoundary(root), storage::FileSystem::real(), settings);
  std::string log = start(polled);
  polled.noteInterest(root);  // the editor lists the workspace folder

  write("a.html", "a2 longer");
  EXPECT_EQ(settle(), Changes{change(modified, "a.html", "a2 longer")});
  // Nobody shows sub: the slower round finds it.
  write("sub/b.html", "b");
  EXPECT_TRUE(recorder.waitFor(at("sub/b.html")));
  EXPECT_EQ(recorder.takeUntil(at("sub/b.html")), Changes{});

  EXPECT_EQ(notices, std::vector<std::string>{WorkspaceWatcher::kNoInstanceNotice});
  EXPECT_EQ(log, "Vorna bridge: cannot watch " + root +
                     " with inotify: Too many open files; looking for changes in it instead\n");
  polled.stop();
}

TEST_F(WorkspaceWatcherPollingTest, FoldersOverTheWatchLimitAreLookedAtAndTheRestIsWatched) {
  temp.makeFolder("site/limited/below");
  settings.inotify.addWatch = [](int fd, const std::string& folder, uint32_t mask) {
    if (folder.find("/limited") != std::string::npos) {
      errno = ENOSPC;
      return -1;
    }
    return WorkspaceWatcher::Settings().inotify.addWatch(fd, folder, mask);
  };
  WorkspaceWatcher polled(WorkspaceBoundary(root), storage::FileSystem::real(), settings);
  start(polled);
  polled.noteInterest(at("limited"));

  write("limited/x.html", "x");
  EXPECT_TRUE(recorder.waitFor(at("limited/x.html")));
  write("limited/below/y.html", "y");
  EXPECT_TRUE(recorder.waitFor(at("limited/below/y.html")));
  write("watched.html", "w");
  EXPECT_EQ(settle(), (Changes{change(created, "limited/below/y.html", "y"),
                               change(created, "limited/x.html", "x"),
                               change(created, "watched.html", "w")}));
  EXPECT_EQ(notices, std::vector<std::string>{WorkspaceWatcher::kWatchLimitNotice});
  polled.stop();
}

}  // namespace
}  // namespace vorna::bridge
